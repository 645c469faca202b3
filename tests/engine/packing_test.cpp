// Packing into the card's formats against hand-computed bytes, where the
// playback captures have no independent reference: float sources, and the
// idle words of a pause. Integer, native DSD and DoP words are compared with
// the references in tests/engine/playback_test.cpp.
#include "engine/packing.h"
#include "engine/silence.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Full scale, clipping, truncation toward zero, packed in place (dst == src).
TEST(PcmPacking, FloatHandComputedWords) {
    struct Row {
        float x;
        uint8_t s32[4], s24[3], s16[2];
    } rows[] = {
        {1.0f, {0, 0xFF, 0xFF, 0x7F}, {0xFF, 0xFF, 0x7F}, {0xFF, 0x7F}},
        {-1.0f, {0, 0, 0, 0x80}, {0, 0, 0x80}, {0, 0x80}},
        {0.5f, {0, 0, 0, 0x40}, {0, 0, 0x40}, {0, 0x40}},
        {1.5f, {0, 0xFF, 0xFF, 0x7F}, {0xFF, 0xFF, 0x7F}, {0xFF, 0x7F}},
        {-3.0e9f, {0, 0, 0, 0x80}, {0, 0, 0x80}, {0, 0x80}},
        {1.9f / 8388608, {0, 0x01, 0, 0}, {0x01, 0, 0}, {0, 0}},
        {-1.9f / 8388608, {0, 0xFF, 0xFF, 0xFF}, {0xFF, 0xFF, 0xFF}, {0, 0}},
        {-1.9f / 32768, {0, 0x1A, 0xFE, 0xFF}, {0x1A, 0xFE, 0xFF}, {0xFF, 0xFF}},
        {-8388608.5f / 8388608, {0, 0, 0, 0x80}, {0, 0, 0x80}, {0, 0x80}},
    };
    const size_t n = std::size(rows);
    Bytes in(4 * n);
    for (size_t i = 0; i < n; ++i) std::memcpy(&in[4 * i], &rows[i].x, 4);
    for (int32_t format : {kFormatS32, kFormatS24_3, kFormatS16}) {
        Bytes buf = in;
        packPcm(buf.data(), SampleType::Float32, buf.data(), n, format);
        const uint32_t w = cardSampleBytes(format);
        for (size_t i = 0; i < n; ++i) {
            const uint8_t* want = format == kFormatS32     ? rows[i].s32
                                  : format == kFormatS24_3 ? rows[i].s24
                                                           : rows[i].s16;
            EXPECT_EQ(std::memcmp(&buf[w * i], want, w), 0) << rows[i].x << " on " << format;
        }
    }
}

// Paused DoP: markers alternate from the one given, which is left holding the next.
TEST(DsdPacking, DopSilenceInBothLayouts) {
    const std::pair<int, Bytes> cases[] = {
        {kFormatS32, {0, 0x69, 0x69, 0xFA, 0, 0x69, 0x69, 0xFA, 0, 0x69, 0x69, 0x05,
                      0, 0x69, 0x69, 0x05, 0, 0x69, 0x69, 0xFA, 0, 0x69, 0x69, 0xFA}},
        {kFormatS24_3,
         {0x69, 0x69, 0xFA, 0x69, 0x69, 0xFA, 0x69, 0x69, 0x05, 0x69, 0x69, 0x05, 0x69, 0x69, 0xFA,
          0x69, 0x69, 0xFA}},
    };
    for (const auto& [format, want] : cases) {
        Bytes buf(want.size());
        uint8_t marker = kDopMarkerB;
        fillDopSilence(buf.data(), 3, 2, format, marker);
        EXPECT_EQ(buf, want) << format;
        EXPECT_EQ(marker, kDopMarkerA);
    }
}

// A memory-mapped ring may offer one frame at its end: it takes a DoP frame,
// and the next area completes the pair, so the stream's marker follows on.
TEST(DsdPacking, PausedDopSettlesAnOddRingEnd) {
    PauseSilence silence(SilenceKind::Dop, kFormatS32, 2, 8);
    Bytes ring(8 * 5);
    EXPECT_EQ(silence.fillArea(ring.data(), 5, kDopMarkerA), 4u);
    EXPECT_EQ(silence.fillArea(ring.data(), 1, kDopMarkerA), 1u);
    EXPECT_TRUE(silence.owesFrame());
    EXPECT_EQ(silence.fillArea(ring.data() + 8, 4, kDopMarkerA), 3u);
    EXPECT_FALSE(silence.owesFrame());
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(ring[8 * i + 3], i % 2 ? kDopMarkerB : kDopMarkerA) << i;  // the top byte
}

}  // namespace
