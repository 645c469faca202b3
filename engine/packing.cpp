#include "engine/packing.h"

#include <cstring>

namespace {

// The one clipping rule: scale, truncate toward zero, clip to [lo, hi].
// Comparing before the conversion keeps products beyond int32 (and NaN)
// defined.
template <typename T>
inline int32_t truncClip(T x, T scale, int32_t lo, int32_t hi) {
    T p = x * scale;
    if (!(p == p)) return 0;
    if (p >= T(hi)) return hi;
    if (p <= T(lo)) return lo;
    return static_cast<int32_t>(p);
}

// A card sample from one decoded sample, as the card's width in the low bits
// (S32: the whole word).
template <typename T>
inline uint32_t floatTo(T x, int32_t alsaFormat) {
    if (alsaFormat == kFormatS16) return uint32_t(truncClip<T>(x, T(32768), -32768, 32767));
    // 24 significant bits, from the value as 32-bit float.
    int32_t v = truncClip<float>(float(x), 8388608.0f, -8388608, 8388607);
    return alsaFormat == kFormatS32 ? uint32_t(v) << 8 : uint32_t(v);
}

inline uint32_t intTo(int32_t v, int32_t alsaFormat) {
    if (alsaFormat == kFormatS32) return uint32_t(v);
    return uint32_t(v >> (alsaFormat == kFormatS16 ? 16 : 8));
}

template <typename T>
T load(const uint8_t* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Forward pass: output sample i never lies after input sample i, so packing
// in place never overwrites input not yet read.
template <typename In, typename Convert>
void packEach(const uint8_t* in, uint8_t* out, size_t samples, uint32_t width, Convert convert) {
    for (size_t i = 0; i < samples; ++i, in += sizeof(In), out += width) {
        uint32_t v = convert(load<In>(in));
        for (uint32_t b = 0; b < width; ++b) out[b] = uint8_t(v >> (8 * b));
    }
}

template <bool BigEndianWord>
void packNative(const uint8_t* in, uint8_t* out, uint32_t frames, int m) {
    const uint32_t group = 4u * uint32_t(m);
    uint8_t scratch[4 * 64];
    if (m <= 0 || m > 64) return;
    for (uint32_t f = 0; f < frames; ++f, in += group, out += group) {
        // Byte ch + k*m of a group is channel ch's k-th byte in time.
        for (int ch = 0; ch < m; ++ch)
            for (int k = 0; k < 4; ++k)
                scratch[ch * 4 + (BigEndianWord ? k : 3 - k)] = in[ch + k * m];
        std::memcpy(out, scratch, group);
    }
}

}  // namespace

uint32_t cardSampleBytes(int32_t alsaFormat) {
    return alsaFormat == kFormatS24_3 ? 3 : alsaFormat == kFormatS16 ? 2 : 4;
}

uint32_t cardFrameBytes(int32_t alsaFormat, int32_t channels) {
    return cardSampleBytes(alsaFormat) * uint32_t(channels);
}

void packPcm(const void* src, SampleType type, void* dst, size_t samples, int32_t alsaFormat) {
    const auto* in = static_cast<const uint8_t*>(src);
    auto* out = static_cast<uint8_t*>(dst);
    const uint32_t width = cardSampleBytes(alsaFormat);
    switch (type) {
        case SampleType::Int32:
            packEach<int32_t>(in, out, samples, width,
                              [alsaFormat](int32_t v) { return intTo(v, alsaFormat); });
            break;
        case SampleType::Float32:
            packEach<float>(in, out, samples, width,
                            [alsaFormat](float x) { return floatTo(x, alsaFormat); });
            break;
        case SampleType::Float64:
            packEach<double>(in, out, samples, width,
                             [alsaFormat](double x) { return floatTo(x, alsaFormat); });
            break;
        case SampleType::DsdByte:
            break;
    }
}

void packDsdNative(const void* src, void* dst, uint32_t frames, int channels, int32_t alsaFormat) {
    const auto* in = static_cast<const uint8_t*>(src);
    auto* out = static_cast<uint8_t*>(dst);
    if (alsaFormat == kFormatDsdU32BE)
        packNative<true>(in, out, frames, channels);
    else
        packNative<false>(in, out, frames, channels);
}

void packDop(const void* raw, void* dst, uint32_t frames, int channels, int32_t alsaFormat,
             uint64_t firstFrame) {
    const auto* in = static_cast<const uint8_t*>(raw);
    auto* out = static_cast<uint8_t*>(dst);
    const bool s32 = alsaFormat == kFormatS32;
    uint8_t frame[2 * 64];
    if (channels <= 0 || channels > 64) return;
    for (uint32_t f = 0; f < frames; ++f, in += 2 * channels) {
        // Copied first: the caller may place the raw bytes inside dst.
        std::memcpy(frame, in, size_t(2 * channels));
        const uint8_t marker = dopMarkerFor(firstFrame + f);
        for (int ch = 0; ch < channels; ++ch) {
            if (s32) *out++ = 0;  // S32_LE carries the DoP word in its top 24 bits
            *out++ = frame[channels + ch];
            *out++ = frame[ch];
            *out++ = marker;
        }
    }
}

void fillDsdIdle(void* dst, size_t bytes) {
    std::memset(dst, kDsdIdleByte, bytes);
}

void fillDopSilence(void* dst, uint32_t frames, int channels, int32_t alsaFormat,
                    uint8_t& nextMarker) {
    auto* out = static_cast<uint8_t*>(dst);
    const bool s32 = alsaFormat == kFormatS32;
    for (uint32_t f = 0; f < frames; ++f) {
        for (int ch = 0; ch < channels; ++ch) {
            if (s32) *out++ = 0;
            *out++ = kDsdIdleByte;
            *out++ = kDsdIdleByte;
            *out++ = nextMarker;
        }
        nextMarker = otherDopMarker(nextMarker);
    }
}
