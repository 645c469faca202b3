// Raw DSD through the decoder from every DSD fixture and from generated files that end
// mid-byte and mid-group, against the reference bytes; seeks; an empty and a
// compressed file. Cut DSD files are in the decoder's damage test.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>

#include "decode/dsd_source.h"
#include "tests/decode/read_stream.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

// Raw: exactly the reference bytes, one byte per channel a frame, no padding.
void checkRaw(const std::string& path, const std::vector<uint8_t>& ref, int channels,
              int multiple) {
    const size_t frame = size_t(channels);
    std::string error;
    DecodeStream* s = decodeOpen(path.c_str(), StreamKind::DsdRaw, 44100, &error);
    ASSERT_NE(s, nullptr) << error;
    const StreamInfo info = decodeInfo(s);
    EXPECT_EQ(std::tuple(info.rate, info.channels, info.sample, decodeLength(s)),
              std::tuple(dsdgen::bitRate(multiple) / 8, channels, SampleType::DsdByte, ref.size()));
    EXPECT_TRUE(readStream(s, uint32_t(frame)) == ref);
    // Mid DSF block and off a frame boundary, the last frame, the end.
    const uint64_t frames = ref.size() / frame;
    for (uint64_t f : {frames / 3 | 1, frames - 1, frames}) {
        ASSERT_TRUE(decodeSeek(s, f * frame + (frame > 1)));
        EXPECT_TRUE(readStream(s, uint32_t(frame), f * frame) ==
                    std::vector<uint8_t>(ref.begin() + long(f * frame), ref.end()));
    }
    EXPECT_FALSE(decodeSeek(s, ref.size() + frame));
    decodeClose(s);
}

TEST(DsdRead, RawCarriesTheReferenceBytes) {
    for (auto [dff, multiple, channels, bits] :
         {std::tuple{false, 64, 2, 8 * 5000 + 3}, std::tuple{true, 128, 3, 8 * 5001}}) {
        dsdgen::Signal s = dsdgen::toneSignal(multiple, channels, 0, 1000, -6);
        s.bits = uint64_t(bits);
        const std::vector<uint8_t> dsd = dsdgen::modulate(s);
        const std::string path =
            testing::TempDir() + "dsd_read_" + std::to_string(getpid()) + (dff ? ".dff" : ".dsf");
        ASSERT_TRUE(
            (dff ? dsdgen::writeDff : dsdgen::writeDsf)(path, dsd, channels, multiple, s.bits));
        checkRaw(path, dsd, channels, multiple);
        std::remove(path.c_str());
    }
    for (const Fixture& f : fixtures())
        if (f.kind == "dsd")
            checkRaw(f.path(), readFileBytes(f.refPath()), f.channels, f.rate / 44100);
}

// A DSF whose header states no samples and a DST-compressed DSDIFF cut before
// its first frame open and end at once.
TEST(DsdShared, EmptyAndCompressedFiles) {
    const std::string dir = TOVRIN_SHARED_FIXTURES, id3 = dir + "/good/silence-with-id3.dsf",
                      dst = dir + "/hostile/silence-dst-compressed.dff";
    for (StreamKind kind : {StreamKind::DsdRaw, StreamKind::DsdPcm})
        for (const std::string& path : {id3, dst}) {
            std::string error;
            DsdSource* s = dsdOpen(path.c_str(), kind, 44100, &error);
            ASSERT_NE(s, nullptr) << error;
            EXPECT_EQ(dsdLength(s), 0u);
            EXPECT_EQ(dsdRead(s, &error, 8), kDecodeEnd);
            dsdClose(s);
        }
}

}  // namespace
