// Raw DSD and DoP through the decoder from every DSD fixture and from generated files that end
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

// Raw: the reference, a last partial group per channel filled with the idle
// byte. DoP: per frame a marker alternating 0x05 / 0xFA, then two bytes.
void checkRawAndDop(const std::string& path, const std::vector<uint8_t>& ref, int channels,
                    int multiple) {
    const size_t ch = size_t(channels), bytes = ref.size() / ch, frame = 4 * ch;
    std::vector<uint8_t> raw = ref, dop;
    raw.resize((bytes + 3) / 4 * frame, 0x69);
    for (size_t f = 0; f < (bytes + 1) / 2; ++f)
        for (size_t k = 0; k < ch; ++k) {
            auto at = [&](size_t i) { return i < bytes ? ref[i * ch + k] : 0x69; };
            int32_t word = (f % 2 ? 0xFA : 0x05) << 16 | at(2 * f) << 8 | at(2 * f + 1);
            float x = float(int32_t(uint32_t(word) << 8) >> 8) / 8388608.0f;
            dop.insert(dop.end(), (uint8_t*)&x, (uint8_t*)&x + 4);
        }
    for (auto [kind, want, rate] :
         {std::tuple{StreamKind::DsdRaw, &raw, 8}, std::tuple{StreamKind::Dop, &dop, 16}}) {
        std::string error;
        DecodeStream* s = decodeOpen(path.c_str(), kind, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        EXPECT_EQ(std::tuple(decodeInfo(s).rate, decodeInfo(s).channels, decodeLength(s)),
                  std::tuple(dsdgen::bitRate(multiple) / rate, channels, want->size()));
        EXPECT_TRUE(readStream(s, uint32_t(frame)) == *want);
        // Mid DSF block and off a frame boundary, an odd DoP frame, the last frame, the end.
        const uint64_t frames = want->size() / frame;
        for (uint64_t f : {frames / 3 | 1, frames - 1, frames}) {
            ASSERT_TRUE(decodeSeek(s, f * frame + 1));
            EXPECT_TRUE(readStream(s, uint32_t(frame), f * frame) ==
                        std::vector<uint8_t>(want->begin() + long(f * frame), want->end()));
        }
        EXPECT_FALSE(decodeSeek(s, want->size() + frame));
        decodeClose(s);
    }
}

TEST(DsdRead, RawAndDopCarryTheReferenceBytes) {
    for (auto [dff, multiple, channels, bits] :
         {std::tuple{false, 64, 2, 8 * 5000 + 3}, std::tuple{true, 128, 3, 8 * 5001}}) {
        dsdgen::Signal s = dsdgen::toneSignal(multiple, channels, 0, 1000, -6);
        s.bits = uint64_t(bits);
        const std::vector<uint8_t> dsd = dsdgen::modulate(s);
        const std::string path =
            testing::TempDir() + "dsd_read_" + std::to_string(getpid()) + (dff ? ".dff" : ".dsf");
        ASSERT_TRUE(
            (dff ? dsdgen::writeDff : dsdgen::writeDsf)(path, dsd, channels, multiple, s.bits));
        checkRawAndDop(path, dsd, channels, multiple);
        std::remove(path.c_str());
    }
    for (const Fixture& f : fixtures())
        if (f.kind == "dsd")
            checkRawAndDop(f.path(), readFileBytes(f.refPath()), f.channels, f.rate / 44100);
}

// A DSF whose header states no samples opens and ends at once; a
// DST-compressed DSDIFF cannot be carried bit for bit.
TEST(DsdShared, EmptyAndCompressedFiles) {
    const std::string dir = TOVRIN_SHARED_FIXTURES, id3 = dir + "/good/silence-with-id3.dsf",
                      dst = dir + "/hostile/silence-dst-compressed.dff";
    for (StreamKind kind : {StreamKind::DsdRaw, StreamKind::Dop, StreamKind::Float}) {
        std::string error;
        DsdSource* s = dsdOpen(id3.c_str(), kind, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        EXPECT_EQ(dsdLength(s), 0u);
        EXPECT_EQ(dsdRead(s, &error, 8), kDecodeEnd);
        dsdClose(s);
        EXPECT_TRUE(kind == StreamKind::Float || !dsdOpen(dst.c_str(), kind, 44100, &error));
    }
}

}  // namespace
