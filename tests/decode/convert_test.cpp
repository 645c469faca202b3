// Interleaving from decoder layouts the fixtures do not reach.
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

// Two channels in each layout, as the decoder lays them out.
SampleSource sourceOf(AVSampleFormat format, const std::vector<uint8_t>& bytes,
                      const uint8_t* (&planes)[2]) {
    const size_t plane = av_sample_fmt_is_planar(format) ? bytes.size() / 2 : 0;
    planes[0] = bytes.data();
    planes[1] = bytes.data() + plane;
    return {planes, format, 2};
}

// Integers left-justified whatever their width: 32-bit sources keep every bit.
TEST(Conversion, IntegersLeftJustified) {
    const struct {
        AVSampleFormat format;
        std::vector<uint8_t> bytes;
        std::vector<int32_t> want;
    } cases[] = {
        {AV_SAMPLE_FMT_S32,
         bytesOf<int32_t>({INT32_MIN, INT32_MAX, 0x12345679, -0x12345679}),
         {INT32_MIN, INT32_MAX, 0x12345679, -0x12345679}},
        {AV_SAMPLE_FMT_S16P,  // left plane, then right
         bytesOf<int16_t>({-32768, 0x1234, 32767, -1}),
         {INT32_MIN, 0x7FFF0000, 0x12340000, -0x10000}},
        {AV_SAMPLE_FMT_U8, {0x00, 0xFF, 0x80, 0x81}, {INT32_MIN, 0x7F000000, 0, 0x01000000}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(av_get_sample_fmt_name(c.format));
        const uint8_t* planes[2];
        const SampleSource src = sourceOf(c.format, c.bytes, planes);
        std::vector<int32_t> out(c.want.size());
        convertToInt32(src, 0, int(out.size() / 2), out.data());
        EXPECT_EQ(out, c.want);
        // From the second frame on only: the offset counts frames, not samples.
        convertToInt32(src, 1, 1, out.data());
        EXPECT_EQ(std::vector<int32_t>(out.begin(), out.begin() + 2),
                  std::vector<int32_t>(c.want.begin() + 2, c.want.begin() + 4));
    }
}

TEST(Conversion, FloatsPassThroughNarrowed) {
    const uint8_t* planes[2];
    const auto bytes = bytesOf<double>({0.25, -2.0, -0.125, 1.0 / 3});
    const SampleSource src = sourceOf(AV_SAMPLE_FMT_DBLP, bytes, planes);
    std::vector<float> out(4);
    convertToFloat(src, 0, 2, out.data());
    EXPECT_EQ(out, (std::vector<float>{0.25f, -0.125f, -2.0f, float(1.0 / 3)}));
}

}  // namespace
