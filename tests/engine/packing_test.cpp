// Packing into the card's formats against hand-computed bytes.
#include "engine/packing.h"
#include "engine/silence.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// The marker byte of the DoP word at p (the word's top byte).
uint8_t markerAt(const uint8_t* p, int32_t alsaFormat) {
    return p[alsaFormat == kFormatS32 ? 3 : 2];
}

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

// Integer sources keep their top bits: all 32 on S32_LE, truncated below.
TEST(PcmPacking, IntegerKeepsEveryBitTheCardHolds) {
    const int32_t v[] = {int32_t(0x12345678), int32_t(0x80000001), -1, 0x7FFFFFFF};
    const Bytes s32 = {0x78, 0x56, 0x34, 0x12, 0x01, 0,    0,    0x80,
                       0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F};
    const Bytes s24 = {0x56, 0x34, 0x12, 0, 0, 0x80, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F};
    const Bytes s16 = {0x34, 0x12, 0, 0x80, 0xFF, 0xFF, 0xFF, 0x7F};
    for (auto [format, want] :
         {std::pair{kFormatS32, s32}, {kFormatS24_3, s24}, {kFormatS16, s16}}) {
        Bytes buf(sizeof v);
        std::memcpy(buf.data(), v, sizeof v);
        packPcm(buf.data(), SampleType::Int32, buf.data(), std::size(v), format);
        buf.resize(want.size());
        EXPECT_EQ(buf, want) << format;
    }
}

// Each word holds one channel's four bytes in time order (BE) or reversed (LE).
TEST(DsdPacking, NativeWordsByChannel) {
    struct Case {
        int channels;
        Bytes in, be, le;
    } cases[] = {
        {1, {1, 2, 3, 4}, {1, 2, 3, 4}, {4, 3, 2, 1}},
        {2, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 3, 5, 7, 2, 4, 6, 8}, {7, 5, 3, 1, 8, 6, 4, 2}},
        {3,
         {0xa0, 0xb0, 0xc0, 0xa1, 0xb1, 0xc1, 0xa2, 0xb2, 0xc2, 0xa3, 0xb3, 0xc3},
         {0xa0, 0xa1, 0xa2, 0xa3, 0xb0, 0xb1, 0xb2, 0xb3, 0xc0, 0xc1, 0xc2, 0xc3},
         {0xa3, 0xa2, 0xa1, 0xa0, 0xb3, 0xb2, 0xb1, 0xb0, 0xc3, 0xc2, 0xc1, 0xc0}},
    };
    for (Case& c : cases) {
        Bytes be = c.in, le = c.in;
        packDsdNative(be.data(), be.data(), 1, c.channels, kFormatDsdU32BE);
        packDsdNative(le.data(), le.data(), 1, c.channels, kFormatDsdU32LE);
        EXPECT_EQ(be, c.be) << c.channels;
        EXPECT_EQ(le, c.le) << c.channels;
    }
}

// DoP words from raw bytes lying at the end of the destination (as the
// reader places them), markers from the file frame number.
TEST(DsdPacking, DopFramesFromRawBytesInPlace) {
    // Two stereo frames: L bytes 0x11 0x12, R 0x21 0x22, then L 0x13 0x14, R 0x23 0x24.
    const Bytes raw = {0x11, 0x21, 0x12, 0x22, 0x13, 0x23, 0x14, 0x24};
    const Bytes s32 = {0, 0x12, 0x11, 0xFA, 0, 0x22, 0x21, 0xFA,
                       0, 0x14, 0x13, 0x05, 0, 0x24, 0x23, 0x05};
    const Bytes s24 = {0x12, 0x11, 0xFA, 0x22, 0x21, 0xFA, 0x14, 0x13, 0x05, 0x24, 0x23, 0x05};
    for (auto [format, want] : {std::pair{kFormatS32, s32}, {kFormatS24_3, s24}}) {
        Bytes buf(want.size());
        std::memcpy(buf.data() + buf.size() - raw.size(), raw.data(), raw.size());
        packDop(buf.data() + buf.size() - raw.size(), buf.data(), 2, 2, format, 7);
        EXPECT_EQ(buf, want) << format;
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
        EXPECT_EQ(markerAt(&ring[8 * i], kFormatS32), i % 2 ? kDopMarkerB : kDopMarkerA) << i;
}

}  // namespace
