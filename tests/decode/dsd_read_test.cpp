// Raw DSD through the decoder from every DSD fixture and from generated files of
// every DSD rate of both families, 2, 3 and 6 channels, that end mid-byte and
// mid-group, against the reference bytes; seeks; an empty and a compressed
// file. DSD to PCM is measured in dsd_pcm_test.cpp; cut DSD files are in the
// decoder's damage test.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <cstring>

#include "decode/dsd_source.h"
#include "tests/decode/read_stream.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

// Raw: exactly the reference bytes, one byte per channel a frame, no padding.
void checkRaw(const std::string& path, const std::vector<uint8_t>& ref, int channels,
              int32_t bitRate) {
    const size_t frame = size_t(channels);
    std::string error;
    DecodeStream* s = decodeOpen(path.c_str(), StreamKind::DsdRaw, 44100, &error);
    ASSERT_NE(s, nullptr) << error;
    const StreamInfo info = decodeInfo(s);
    EXPECT_EQ(std::tuple(info.rate, info.channels, info.sample, decodeLength(s)),
              std::tuple(bitRate / 8, channels, SampleType::DsdByte, ref.size()));
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

TEST(DsdRead, EveryRateRaw) {
    struct Case {
        bool dff;
        int multiple;
        int32_t base;
        int channels;
        int tail;  // bits past 25 ms, rounded down to 16 bytes
    };
    // 25 ms; odd byte counts make DSDIFF pad and end DSF inside a block.
    for (const Case& c : {Case{false, 64, 44100, 2, 8 + 3}, Case{true, 128, 44100, 3, 8},
                          Case{false, 256, 44100, 6, 24 + 5}, Case{true, 512, 44100, 6, 8 + 1},
                          Case{true, 64, 48000, 2, 56 + 7}, Case{false, 128, 48000, 6, 24},
                          Case{true, 256, 48000, 2, 8 + 2}, Case{false, 512, 48000, 2, 40 + 6}}) {
        SCOPED_TRACE(testing::Message() << (c.dff ? "DSDIFF" : "DSF") << " DSD" << c.multiple
                                        << " of " << c.base << ", " << c.channels << " channels");
        dsdgen::Signal s = dsdgen::toneSignal(c.multiple, c.channels, 0, 1000, -6, c.base);
        s.bits = uint64_t(s.rate() / 40 / 128 * 128 + c.tail);
        const std::vector<uint8_t> dsd = dsdgen::modulate(s);
        const std::string path =
            testing::TempDir() + "dsd_read_" + std::to_string(getpid()) + (c.dff ? ".dff" : ".dsf");
        ASSERT_TRUE((c.dff ? dsdgen::writeDff : dsdgen::writeDsf)(path, dsd, c.channels, c.multiple,
                                                                  s.bits, c.base));
        EXPECT_EQ(decodeDsdBitRate(path.c_str()), s.rate());
        checkRaw(path, dsd, c.channels, s.rate());
        std::remove(path.c_str());
    }
    for (const Fixture& f : fixtures())
        if (f.kind == "dsd") checkRaw(f.path(), readFileBytes(f.refPath()), f.channels, f.rate);
    EXPECT_EQ(decodeDsdBitRate(fixture("flac-s16-44k1-stereo.flac").path().c_str()), 0);
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
