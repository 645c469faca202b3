#include "engine/packing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

std::vector<uint8_t> floatBytes(std::initializer_list<float> xs) {
    std::vector<uint8_t> out(xs.size() * 4);
    size_t i = 0;
    for (float x : xs) std::memcpy(&out[4 * i++], &x, 4);
    return out;
}

uint32_t wordAt(const std::vector<uint8_t>& b, size_t i) {
    return uint32_t(b[4 * i]) | uint32_t(b[4 * i + 1]) << 8 | uint32_t(b[4 * i + 2]) << 16 |
           uint32_t(b[4 * i + 3]) << 24;
}

struct FloatCase {
    float x;
    uint32_t s32;
    uint8_t s24[3];
};

// Full scale, clipping, truncation toward zero and the NaN choice.
const FloatCase kFloatCases[] = {
    {1.0f, 0x7FFFFF00, {0xFF, 0xFF, 0x7F}},
    {-1.0f, 0x80000000, {0x00, 0x00, 0x80}},
    {0.5f, 0x40000000, {0x00, 0x00, 0x40}},
    {1.5f, 0x7FFFFF00, {0xFF, 0xFF, 0x7F}},
    {-3.0e9f, 0x80000000, {0x00, 0x00, 0x80}},
    {1.9f / 8388608.0f, 0x00000100, {0x01, 0x00, 0x00}},
    {-1.9f / 8388608.0f, 0xFFFFFF00, {0xFF, 0xFF, 0xFF}},
    {-8388608.5f / 8388608.0f, 0x80000000, {0x00, 0x00, 0x80}},
};

TEST(FloatPacking, HandComputedWords) {
    for (const auto& c : kFloatCases) {
        auto buf = floatBytes({c.x});
        convertFloatToS32(buf.data(), 4);
        EXPECT_EQ(wordAt(buf, 0), c.s32) << c.x;

        auto in = floatBytes({c.x});
        uint8_t out[3];
        convertFloatToS24_3LE(in.data(), out, 4);
        EXPECT_EQ(0, std::memcmp(out, c.s24, 3)) << c.x;
    }
}

TEST(FloatPacking, EveryDopWordSurvivesBothFormats) {
    // Any 24-bit word w, delivered as w / 2^23, must come back bit for bit.
    std::vector<int32_t> words;
    for (int32_t w = -8388608; w <= 8388607; w += 4099) words.push_back(w);
    words.push_back(8388607);
    words.push_back(0x05696A);
    words.push_back(int32_t(0xFA6969) - 0x1000000);
    std::vector<uint8_t> s32(words.size() * 4), s24in(words.size() * 4);
    for (size_t i = 0; i < words.size(); ++i) {
        float x = float(words[i]) / 8388608.0f;
        std::memcpy(&s32[4 * i], &x, 4);
        std::memcpy(&s24in[4 * i], &x, 4);
    }
    convertFloatToS32(s32.data(), uint32_t(s32.size()));
    convertFloatToS24_3LE(s24in.data(), s24in.data(), uint32_t(s24in.size()));
    for (size_t i = 0; i < words.size(); ++i) {
        ASSERT_EQ(wordAt(s32, i), uint32_t(words[i]) << 8);
        uint32_t w24 = uint32_t(s24in[3 * i]) | uint32_t(s24in[3 * i + 1]) << 8 |
                       uint32_t(s24in[3 * i + 2]) << 16;
        ASSERT_EQ(w24, uint32_t(words[i]) & 0xFFFFFF);
    }
}

TEST(FloatPacking, TrailingBytesAreIgnored) {
    // n = 10: two samples become six bytes; the last two input bytes stay.
    auto buf = floatBytes({0.5f, -1.0f, 0.25f});
    buf[8] = 0xAB;
    buf[9] = 0xCD;
    std::vector<uint8_t> out(12, 0xEE);
    convertFloatToS24_3LE(buf.data(), out.data(), 10);
    const uint8_t expect[] = {0, 0, 0x40, 0, 0, 0x80, 0xEE};
    EXPECT_EQ(0, std::memcmp(out.data(), expect, sizeof expect));

    auto s32 = floatBytes({0.5f, 0.5f});
    convertFloatToS32(s32.data(), 7);
    EXPECT_EQ(wordAt(s32, 0), 0x40000000u);
    auto untouched = floatBytes({0.5f});
    EXPECT_EQ(0, std::memcmp(&s32[4], untouched.data(), 4));
}

TEST(DsdPacking, HandComputedGroups) {
    std::vector<uint8_t> st = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    auto be = st, le = st;
    packDsdU32BE(be.data(), 10, 2);
    packDsdU32LE(le.data(), 10, 2);
    EXPECT_EQ(be, (std::vector<uint8_t>{1, 3, 5, 7, 2, 4, 6, 8, 9, 10}));
    EXPECT_EQ(le, (std::vector<uint8_t>{7, 5, 3, 1, 8, 6, 4, 2, 9, 10}));

    // Three channels a b c over four time steps.
    std::vector<uint8_t> tri = {0xa0, 0xb0, 0xc0, 0xa1, 0xb1, 0xc1,
                                0xa2, 0xb2, 0xc2, 0xa3, 0xb3, 0xc3};
    auto tbe = tri, tle = tri;
    packDsdU32BE(tbe.data(), 12, 3);
    packDsdU32LE(tle.data(), 12, 3);
    EXPECT_EQ(tbe, (std::vector<uint8_t>{0xa0, 0xa1, 0xa2, 0xa3, 0xb0, 0xb1, 0xb2, 0xb3, 0xc0, 0xc1,
                                         0xc2, 0xc3}));
    EXPECT_EQ(tle, (std::vector<uint8_t>{0xa3, 0xa2, 0xa1, 0xa0, 0xb3, 0xb2, 0xb1, 0xb0, 0xc3, 0xc2,
                                         0xc1, 0xc0}));
}

// Every channel count, both word orders, fed in odd-sized fragments: each
// output word must hold its channel's four bytes in time order.
TEST(DsdPacking, SweepChannelsAndFragments) {
    std::mt19937 rng(7);
    for (int m : {1, 2, 3, 4, 5, 6, 8}) {
        const uint32_t frames = 37;
        std::vector<uint8_t> src(frames * 4 * m);
        for (auto& b : src) b = uint8_t(rng());
        for (bool bigEndian : {true, false}) {
            auto buf = src;
            // Fragments of whole groups of differing sizes, as chunked reads give.
            uint32_t at = 0, step = 1;
            while (at < buf.size()) {
                uint32_t n = std::min<uint32_t>(step * 4 * m, uint32_t(buf.size()) - at);
                if (bigEndian)
                    packDsdU32BE(buf.data() + at, n, m);
                else
                    packDsdU32LE(buf.data() + at, n, m);
                at += n;
                step = step % 5 + 2;
            }
            for (uint32_t f = 0; f < frames; ++f)
                for (int ch = 0; ch < m; ++ch)
                    for (int k = 0; k < 4; ++k) {
                        uint8_t want = src[f * 4 * m + ch + k * m];
                        uint8_t got = buf[f * 4 * m + ch * 4 + (bigEndian ? k : 3 - k)];
                        ASSERT_EQ(got, want) << "m=" << m << " f=" << f << " ch=" << ch;
                    }
        }
    }
}

TEST(Silence, DopMarkersAlternateInBothLayouts) {
    for (int fmt : {10, 32}) {
        const int bytesPerSample = fmt == 10 ? 4 : 3;
        std::vector<uint8_t> buf(5 * 2 * bytesPerSample);
        uint8_t marker = kDopMarkerB;
        fillDopSilence(buf.data(), 5, 2, fmt, marker);
        EXPECT_EQ(marker, kDopMarkerA);  // five frames: B A B A B, next A
        for (int f = 0; f < 5; ++f) {
            const uint8_t* frame = &buf[f * 2 * bytesPerSample];
            uint8_t want = f % 2 ? kDopMarkerA : kDopMarkerB;
            EXPECT_EQ(dopMarkerAt(frame, fmt), want);
            EXPECT_EQ(frame[bytesPerSample + bytesPerSample - 1], want);  // second channel
            EXPECT_EQ(frame[bytesPerSample - 2], kDsdIdleByte);
            EXPECT_EQ(frame[bytesPerSample - 3], kDsdIdleByte);
        }
    }
}

}  // namespace
