#include "decode/sample_convert.h"

#include <cstring>

namespace {

template <typename T>
T load(const uint8_t* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Integer samples, left-justified in 32 bits, so that one scale serves every width.
int32_t intSample(AVSampleFormat packed, const uint8_t* p) {
    switch (packed) {
        case AV_SAMPLE_FMT_U8:
            return static_cast<int32_t>(static_cast<uint32_t>(p[0] ^ 0x80) << 24);
        case AV_SAMPLE_FMT_S16:
            return static_cast<int32_t>(static_cast<uint32_t>(load<int16_t>(p)) << 16);
        case AV_SAMPLE_FMT_S32:
            return load<int32_t>(p);
        case AV_SAMPLE_FMT_S64:
            return static_cast<int32_t>(load<int64_t>(p) >> 32);
        default:
            return 0;
    }
}

double floatSample(AVSampleFormat packed, const uint8_t* p) {
    return packed == AV_SAMPLE_FMT_DBL ? load<double>(p) : load<float>(p);
}

// Calls fn(outIndex, samplePointer) for every sample in interleaved order.
template <typename Fn>
void forEachSample(const SampleSource& src, int first, int count, Fn fn) {
    const int width = av_get_bytes_per_sample(src.format);
    const int ch = src.channels;
    if (av_sample_fmt_is_planar(src.format)) {
        for (int c = 0; c < ch; ++c) {
            const uint8_t* plane = src.planes[c] + static_cast<size_t>(first) * width;
            for (int f = 0; f < count; ++f) fn(static_cast<size_t>(f) * ch + c, plane + f * width);
        }
    } else {
        const uint8_t* base = src.planes[0] + static_cast<size_t>(first) * ch * width;
        const size_t n = static_cast<size_t>(count) * ch;
        for (size_t i = 0; i < n; ++i) fn(i, base + i * width);
    }
}

}  // namespace

bool isIntegerSampleFormat(AVSampleFormat format) {
    AVSampleFormat packed = av_get_packed_sample_fmt(format);
    return packed == AV_SAMPLE_FMT_U8 || packed == AV_SAMPLE_FMT_S16 ||
           packed == AV_SAMPLE_FMT_S32 || packed == AV_SAMPLE_FMT_S64;
}

void convertToFloat(const SampleSource& src, int first, int count, float* out) {
    const AVSampleFormat packed = av_get_packed_sample_fmt(src.format);
    forEachSample(src, first, count, [&](size_t i, const uint8_t* p) {
        out[i] = static_cast<float>(floatSample(packed, p));
    });
}

void convertToInt32(const SampleSource& src, int first, int count, int32_t* out) {
    const AVSampleFormat packed = av_get_packed_sample_fmt(src.format);
    forEachSample(src, first, count,
                  [&](size_t i, const uint8_t* p) { out[i] = intSample(packed, p); });
}
