// Packing into the card's formats against hand-computed bytes.
#include "engine/packing.h"
#include "engine/silence.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Full scale, clipping, truncation toward zero, DoP words bit for bit, and
// input that is not a whole number of floats (the last bytes stay).
TEST(FloatPacking, HandComputedWords) {
    struct Row {
        float x;
        uint8_t s32[4], s24[3];
    } rows[] = {
        {1.0f, {0, 0xFF, 0xFF, 0x7F}, {0xFF, 0xFF, 0x7F}},
        {-1.0f, {0, 0, 0, 0x80}, {0, 0, 0x80}},
        {0.5f, {0, 0, 0, 0x40}, {0, 0, 0x40}},
        {1.5f, {0, 0xFF, 0xFF, 0x7F}, {0xFF, 0xFF, 0x7F}},
        {-3.0e9f, {0, 0, 0, 0x80}, {0, 0, 0x80}},
        {1.9f / 8388608, {0, 0x01, 0, 0}, {0x01, 0, 0}},
        {-1.9f / 8388608, {0, 0xFF, 0xFF, 0xFF}, {0xFF, 0xFF, 0xFF}},
        {-8388608.5f / 8388608, {0, 0, 0, 0x80}, {0, 0, 0x80}},
        {float(0x05696A) / 8388608, {0, 0x6A, 0x69, 0x05}, {0x6A, 0x69, 0x05}},
        {float(0xFA6969 - 0x1000000) / 8388608, {0, 0x69, 0x69, 0xFA}, {0x69, 0x69, 0xFA}},
    };
    const size_t n = std::size(rows);
    Bytes buf(4 * n + 3, 0xAB);
    for (size_t i = 0; i < n; ++i) std::memcpy(&buf[4 * i], &rows[i].x, 4);
    Bytes s24 = buf;  // in place: dst may equal src
    convertFloatToS24_3LE(s24.data(), s24.data(), uint32_t(s24.size()));
    convertFloatToS32(buf.data(), uint32_t(buf.size()));
    for (size_t i = 0; i < n; ++i) {
        EXPECT_EQ(std::memcmp(&buf[4 * i], rows[i].s32, 4), 0) << rows[i].x;
        EXPECT_EQ(std::memcmp(&s24[3 * i], rows[i].s24, 3), 0) << rows[i].x;
    }
    EXPECT_EQ(Bytes(buf.begin() + long(4 * n), buf.end()), Bytes(3, 0xAB));
    EXPECT_EQ(Bytes(s24.begin() + long(4 * n), s24.end()), Bytes(3, 0xAB));
}

// Each word holds one channel's four bytes in time order (BE) or reversed
// (LE); bytes past the last whole group stay.
TEST(DsdPacking, HandComputedGroups) {
    struct Case {
        int channels;
        Bytes in, be, le;
    } cases[] = {
        {1, {1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}, {4, 3, 2, 1, 5}},
        {2,
         {1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
         {1, 3, 5, 7, 2, 4, 6, 8, 9, 10},
         {7, 5, 3, 1, 8, 6, 4, 2, 9, 10}},
        {3,
         {0xa0, 0xb0, 0xc0, 0xa1, 0xb1, 0xc1, 0xa2, 0xb2, 0xc2, 0xa3, 0xb3, 0xc3},
         {0xa0, 0xa1, 0xa2, 0xa3, 0xb0, 0xb1, 0xb2, 0xb3, 0xc0, 0xc1, 0xc2, 0xc3},
         {0xa3, 0xa2, 0xa1, 0xa0, 0xb3, 0xb2, 0xb1, 0xb0, 0xc3, 0xc2, 0xc1, 0xc0}},
    };
    for (Case& c : cases) {
        Bytes be = c.in, le = c.in;
        packDsdU32BE(be.data(), uint32_t(be.size()), c.channels);
        packDsdU32LE(le.data(), uint32_t(le.size()), c.channels);
        EXPECT_EQ(be, c.be) << c.channels;
        EXPECT_EQ(le, c.le) << c.channels;
    }
}

// Paused DoP: markers alternate from the one given, which is left holding the next.
TEST(DsdPacking, DopSilenceInBothLayouts) {
    const std::pair<int, Bytes> cases[] = {
        {10, {0, 0x69, 0x69, 0xFA, 0, 0x69, 0x69, 0xFA, 0, 0x69, 0x69, 0x05,
              0, 0x69, 0x69, 0x05, 0, 0x69, 0x69, 0xFA, 0, 0x69, 0x69, 0xFA}},
        {32,
         {0x69, 0x69, 0xFA, 0x69, 0x69, 0xFA, 0x69, 0x69, 0x05, 0x69, 0x69, 0x05, 0x69, 0x69, 0xFA,
          0x69, 0x69, 0xFA}},
    };
    for (const auto& [format, want] : cases) {
        Bytes buf(want.size());
        uint8_t marker = kDopMarkerB;
        fillDopSilence(buf.data(), 3, 2, format, marker);
        EXPECT_EQ(buf, want) << format;
        EXPECT_EQ(marker, kDopMarkerA);
        EXPECT_EQ(dopMarkerAt(&buf[buf.size() / 3], format), kDopMarkerA) << format;
    }
}

// A memory-mapped ring may offer one frame at its end: it takes a DoP frame,
// and the next area completes the pair, so the stream's marker follows on.
TEST(DsdPacking, PausedDopSettlesAnOddRingEnd) {
    PauseSilence silence(SilenceKind::Dop, 10, 2, 8);
    Bytes ring(8 * 5);
    EXPECT_EQ(silence.fillArea(ring.data(), 5, kDopMarkerA), 4u);
    EXPECT_EQ(silence.fillArea(ring.data(), 1, kDopMarkerA), 1u);
    EXPECT_TRUE(silence.owesFrame());
    EXPECT_EQ(silence.fillArea(ring.data() + 8, 4, kDopMarkerA), 3u);
    EXPECT_FALSE(silence.owesFrame());
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(dopMarkerAt(&ring[8 * i], 10), i % 2 ? kDopMarkerB : kDopMarkerA) << i;
}

}  // namespace
