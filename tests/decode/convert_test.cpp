// Sample conversion from every decoder layout into the two PCM kinds.
#include <gtest/gtest.h>

#include <cstring>

#include "decode/sample_convert.h"

namespace {

struct IntCase {
    const char* name;
    AVSampleFormat format;
    std::vector<uint8_t> bytes;  // two channels, two frames, as the decoder lays them out
    std::vector<float> asFloat;  // interleaved
    std::vector<int16_t> asInt16;
};

void PrintTo(const IntCase& c, std::ostream* os) {
    *os << c.name;
}

template <typename T>
std::vector<uint8_t> bytesOf(std::initializer_list<T> values) {
    std::vector<uint8_t> b(values.size() * sizeof(T));
    std::memcpy(b.data(), values.begin(), b.size());
    return b;
}

const std::vector<IntCase>& intCases() {
    static const std::vector<IntCase> cases = {
        // The fixtures cover 8, 16 and 24-bit sources; no encoder here writes 32-bit integers.
        {"s32_full_width",
         AV_SAMPLE_FMT_S32,
         bytesOf<int32_t>({INT32_MIN, INT32_MAX, 0x12345678, -0x12345678}),
         {-1.0f, 1.0f, 0x12345678 / 2147483648.0f, -0x12345678 / 2147483648.0f},
         {-32768, 32767, 0x1234, -0x1235}},
    };
    return cases;
}

class IntConversion : public testing::TestWithParam<IntCase> {};

TEST_P(IntConversion, BothKinds) {
    const IntCase& c = GetParam();
    const int planar = av_sample_fmt_is_planar(c.format);
    const uint8_t* planes[2] = {c.bytes.data(), c.bytes.data() + (planar ? c.bytes.size() / 2 : 0)};
    SampleSource src{planes, c.format, 2};
    std::vector<float> f(4);
    std::vector<int16_t> i(4);
    convertToFloat(src, 0, 2, f.data());
    convertToInt16(src, 0, 2, i.data());
    EXPECT_EQ(f, c.asFloat);
    EXPECT_EQ(i, c.asInt16);
    // From the second frame on only: the offset counts frames, not samples.
    convertToFloat(src, 1, 1, f.data());
    EXPECT_EQ(f[0], c.asFloat[2]);
    EXPECT_EQ(f[1], c.asFloat[3]);
}

INSTANTIATE_TEST_SUITE_P(Layouts, IntConversion, testing::ValuesIn(intCases()),
                         [](const testing::TestParamInfo<IntCase>& i) { return i.param.name; });

TEST(FloatConversion, Int16TruncatesAndClips) {
    const std::vector<float> in = {1.0f,         -1.0f,         1.5f, -1000.0f,
                                   1.9f / 32768, -1.9f / 32768, 0.5f, 32766.9f / 32768};
    const std::vector<int16_t> want = {32767, -32768, 32767, -32768, 1, -1, 16384, 32766};
    const uint8_t* planes[1] = {reinterpret_cast<const uint8_t*>(in.data())};
    std::vector<int16_t> got(in.size());
    convertToInt16({planes, AV_SAMPLE_FMT_FLT, 2}, 0, 4, got.data());
    EXPECT_EQ(got, want);

    std::vector<float> same(in.size());
    convertToFloat({planes, AV_SAMPLE_FMT_FLT, 2}, 0, 4, same.data());
    EXPECT_EQ(same, in);
}

TEST(FloatConversion, DoublePlanar) {
    const double left[] = {0.25, -2.0}, right[] = {-0.125, 0.0};
    const uint8_t* planes[2] = {reinterpret_cast<const uint8_t*>(left),
                                reinterpret_cast<const uint8_t*>(right)};
    std::vector<float> f(4);
    std::vector<int16_t> i(4);
    convertToFloat({planes, AV_SAMPLE_FMT_DBLP, 2}, 0, 2, f.data());
    convertToInt16({planes, AV_SAMPLE_FMT_DBLP, 2}, 0, 2, i.data());
    EXPECT_EQ(f, (std::vector<float>{0.25f, -0.125f, -2.0f, 0.0f}));
    EXPECT_EQ(i, (std::vector<int16_t>{8192, -4096, -32768, 0}));
}

}  // namespace
