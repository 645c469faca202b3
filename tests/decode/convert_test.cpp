// Sample conversion from decoder layouts the fixtures do not reach into the two PCM kinds.
#include <gtest/gtest.h>

#include <cstring>

#include "decode/sample_convert.h"

namespace {

template <typename T>
std::vector<uint8_t> bytesOf(std::initializer_list<T> values) {
    std::vector<uint8_t> b(values.size() * sizeof(T));
    std::memcpy(b.data(), values.begin(), b.size());
    return b;
}

TEST(Conversion, BothKindsTruncateAndClip) {
    const float step = 1.0f / 32768;
    const struct {
        AVSampleFormat format;
        std::vector<uint8_t> bytes;  // two channels, as the decoder lays them out
        std::vector<float> asFloat;  // interleaved
        std::vector<int16_t> asInt16;
    } cases[] = {
        // No encoder here writes 32-bit integers.
        {AV_SAMPLE_FMT_S32,
         bytesOf<int32_t>({INT32_MIN, INT32_MAX, 0x12345678, -0x12345678}),
         {-1.0f, 1.0f, 0x12345678 / 2147483648.0f, -0x12345678 / 2147483648.0f},
         {-32768, 32767, 0x1234, -0x1235}},
        {AV_SAMPLE_FMT_FLT,
         bytesOf<float>(
             {1.0f, -1.0f, 1.5f, -1000.0f, 1.9f * step, -1.9f * step, 0.5f, 32766.9f * step}),
         {1.0f, -1.0f, 1.5f, -1000.0f, 1.9f * step, -1.9f * step, 0.5f, 32766.9f * step},
         {32767, -32768, 32767, -32768, 1, -1, 16384, 32766}},
        {AV_SAMPLE_FMT_DBLP,  // left plane, then right
         bytesOf<double>({0.25, -2.0, -0.125, 0.0}),
         {0.25f, -0.125f, -2.0f, 0.0f},
         {8192, -4096, -32768, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(av_get_sample_fmt_name(c.format));
        const int frames = int(c.asInt16.size() / 2);
        const size_t plane = av_sample_fmt_is_planar(c.format) ? c.bytes.size() / 2 : 0;
        const uint8_t* planes[2] = {c.bytes.data(), c.bytes.data() + plane};
        SampleSource src{planes, c.format, 2};
        std::vector<float> f(c.asFloat.size());
        std::vector<int16_t> i(c.asInt16.size());
        convertToFloat(src, 0, frames, f.data());
        convertToInt16(src, 0, frames, i.data());
        EXPECT_EQ(std::tuple(f, i), std::tuple(c.asFloat, c.asInt16));
        // From the second frame on only: the offset counts frames, not samples.
        convertToFloat(src, 1, 1, f.data());
        EXPECT_EQ(std::vector<float>(f.begin(), f.begin() + 2),
                  std::vector<float>(c.asFloat.begin() + 2, c.asFloat.begin() + 4));
    }
}

}  // namespace
