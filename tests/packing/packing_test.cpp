// Packing into the card's formats against hand-computed bytes.
#include "engine/packing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Full scale, clipping, truncation toward zero, and input that is not a whole
// number of floats (the last bytes are left alone).
TEST(FloatPacking, HandComputedWords) {
    const float in[] = {1.0f,
                        -1.0f,
                        0.5f,
                        1.5f,
                        -3.0e9f,
                        1.9f / 8388608.0f,
                        -1.9f / 8388608.0f,
                        -8388608.5f / 8388608.0f};
    const Bytes s32 = {0x00, 0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00,
                       0x40, 0x00, 0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x00, 0x80, 0x00, 0x01,
                       0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x80};
    const Bytes s24 = {0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x80, 0x00, 0x00, 0x40, 0xFF, 0xFF, 0x7F,
                       0x00, 0x00, 0x80, 0x01, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x80};
    Bytes buf(sizeof in + 3, 0xAB);
    std::memcpy(buf.data(), in, sizeof in);
    Bytes out(buf.size(), 0xEE);
    convertFloatToS24_3LE(buf.data(), out.data(), uint32_t(buf.size()));
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 24), s24);
    EXPECT_EQ(out[24], 0xEE);
    convertFloatToS32(buf.data(), uint32_t(buf.size()));
    EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 32), s32);
    EXPECT_EQ(Bytes(buf.begin() + 32, buf.end()), Bytes(3, 0xAB));
}

// Any 24-bit DoP word w, delivered as w / 2^23, comes back bit for bit in
// both formats, S24_3LE in place.
TEST(FloatPacking, EveryDopWordSurvives) {
    std::vector<int32_t> words = {8388607, 0x05696A, 0xFA6969 - 0x1000000};
    for (int32_t w = -8388608; w <= 8388607; w += 4099) words.push_back(w);
    std::vector<float> s32, s24;
    for (int32_t w : words) s32.push_back(float(w) / 8388608.0f);
    s24 = s32;
    convertFloatToS32(s32.data(), uint32_t(s32.size() * 4));
    convertFloatToS24_3LE(s24.data(), s24.data(), uint32_t(s24.size() * 4));
    const auto* b32 = reinterpret_cast<const uint8_t*>(s32.data());
    const auto* b24 = reinterpret_cast<const uint8_t*>(s24.data());
    for (size_t i = 0; i < words.size(); ++i) {
        uint32_t w = uint32_t(words[i]) & 0xFFFFFF;
        ASSERT_EQ(Bytes(b32 + 4 * i, b32 + 4 * i + 4),
                  (Bytes{0, uint8_t(w), uint8_t(w >> 8), uint8_t(w >> 16)}));
        ASSERT_EQ(Bytes(b24 + 3 * i, b24 + 3 * i + 3),
                  (Bytes{uint8_t(w), uint8_t(w >> 8), uint8_t(w >> 16)}));
    }
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

}  // namespace
