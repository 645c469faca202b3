#include "engine/packing.h"

#include <cstring>

namespace {

constexpr float kScale = 8388608.0f;  // 2^23, shared by both float conversions

// Truncation toward zero, then clipping to the signed 24-bit range. Products
// beyond int32 (and NaN) are handled by comparing in float first.
inline int32_t toS24(float x) {
    float p = x * kScale;
    if (p >= 8388608.0f) return 8388607;
    if (p <= -8388609.0f) return -8388608;
    if (!(p == p)) return 0;
    return static_cast<int32_t>(p);
}

inline void storeLE32(uint8_t* d, uint32_t v) {
    d[0] = uint8_t(v);
    d[1] = uint8_t(v >> 8);
    d[2] = uint8_t(v >> 16);
    d[3] = uint8_t(v >> 24);
}

// General rule: group of 4m bytes, byte ch + k*m is channel ch's k-th byte.
template <bool BigEndianWord>
void packDsdGeneral(uint8_t* buf, uint32_t n, int m) {
    const uint32_t group = 4u * uint32_t(m);
    uint8_t scratch[4 * 64];
    if (m <= 0 || m > 64) return;
    for (uint32_t base = 0; base + group <= n; base += group) {
        for (int ch = 0; ch < m; ++ch) {
            for (int k = 0; k < 4; ++k) {
                int at = BigEndianWord ? k : 3 - k;
                scratch[ch * 4 + at] = buf[base + ch + k * m];
            }
        }
        std::memcpy(buf + base, scratch, group);
    }
}

// Stereo: L0 R0 L1 R1 L2 R2 L3 R3 through one 64-bit value.
template <bool BigEndianWord>
void packDsdStereo(uint8_t* buf, uint32_t n) {
    for (uint32_t base = 0; base + 8 <= n; base += 8) {
        uint64_t v;
        std::memcpy(&v, buf + base, 8);
        auto b = [v](int i) { return uint64_t(uint8_t(v >> (8 * i))); };
        uint64_t out;
        if (BigEndianWord) {
            out = b(0) | b(2) << 8 | b(4) << 16 | b(6) << 24 | b(1) << 32 | b(3) << 40 |
                  b(5) << 48 | b(7) << 56;
        } else {
            out = b(6) | b(4) << 8 | b(2) << 16 | b(0) << 24 | b(7) << 32 | b(5) << 40 |
                  b(3) << 48 | b(1) << 56;
        }
        std::memcpy(buf + base, &out, 8);
    }
}

template <bool BigEndianWord>
void packDsd(void* buffer, uint32_t n, int channels) {
    auto* buf = static_cast<uint8_t*>(buffer);
    if (channels == 2)
        packDsdStereo<BigEndianWord>(buf, n);
    else
        packDsdGeneral<BigEndianWord>(buf, n, channels);
}

}  // namespace

void convertFloatToS32(void* buffer, uint32_t n) {
    auto* bytes = static_cast<uint8_t*>(buffer);
    for (uint32_t i = 0; i + 4 <= n; i += 4) {
        float x;
        std::memcpy(&x, bytes + i, 4);
        storeLE32(bytes + i, uint32_t(toS24(x)) << 8);
    }
}

void convertFloatToS24_3LE(const void* src, void* dst, uint32_t n) {
    const auto* in = static_cast<const uint8_t*>(src);
    auto* out = static_cast<uint8_t*>(dst);
    // Forward pass: output sample i lies at or before input sample i, so the
    // in-place case never overwrites input not yet read.
    for (uint32_t i = 0, o = 0; i + 4 <= n; i += 4, o += 3) {
        float x;
        std::memcpy(&x, in + i, 4);
        uint32_t v = uint32_t(toS24(x));
        out[o] = uint8_t(v);
        out[o + 1] = uint8_t(v >> 8);
        out[o + 2] = uint8_t(v >> 16);
    }
}

void packDsdU32BE(void* buffer, uint32_t n, int channels) {
    packDsd<true>(buffer, n, channels);
}
void packDsdU32LE(void* buffer, uint32_t n, int channels) {
    packDsd<false>(buffer, n, channels);
}

void fillDsdIdle(void* dst, size_t bytes) {
    std::memset(dst, kDsdIdleByte, bytes);
}

void fillDopSilence(void* dst, uint32_t frames, int channels, int alsaFormat, uint8_t& nextMarker) {
    auto* out = static_cast<uint8_t*>(dst);
    const bool s32 = alsaFormat == 10;
    for (uint32_t f = 0; f < frames; ++f) {
        for (int ch = 0; ch < channels; ++ch) {
            if (s32) *out++ = 0;  // S32_LE carries the DoP word in its top 24 bits
            *out++ = kDsdIdleByte;
            *out++ = kDsdIdleByte;
            *out++ = nextMarker;
        }
        nextMarker = nextMarker == kDopMarkerA ? kDopMarkerB : kDopMarkerA;
    }
}

uint8_t dopMarkerAt(const void* frame, int alsaFormat) {
    return static_cast<const uint8_t*>(frame)[alsaFormat == 10 ? 3 : 2];
}
