// Packing of decoded chunks into the card's sample format, in place or
// straight into the card's memory-mapped area. Allocation-free; called by the
// player thread between a read and the hand-over to ALSA.
#pragma once
#include <cstddef>
#include <cstdint>

// floor(n / 4) floats -> S32_LE words in place (24 significant bits, truncated
// toward zero, clipped to 0x7FFFFF00 / 0x80000000).
void convertFloatToS32(void* buffer, uint32_t n);
// floor(n / 4) floats from src -> 3-byte samples at dst (dst may equal src).
void convertFloatToS24_3LE(const void* src, void* dst, uint32_t n);
// Regroups raw DSD bytes (interleaved by channel) into DSD_U32 words in place;
// bytes past the last whole 4-byte-per-channel group are left as they are.
void packDsdU32BE(void* buffer, uint32_t n, int channels);
void packDsdU32LE(void* buffer, uint32_t n, int channels);

// Silence for DSD outputs: zero bytes would be a full-scale DC level.
constexpr uint8_t kDsdIdleByte = 0x69;
constexpr uint8_t kDopMarkerA = 0x05;
constexpr uint8_t kDopMarkerB = 0xFA;
void fillDsdIdle(void* dst, size_t bytes);
// DoP silence frames in the card's layout (alsaFormat 10 = S32_LE, 32 = S24_3LE):
// marker, then two idle bytes, markers alternating from nextMarker, which is
// left holding the marker the following frame must carry.
void fillDopSilence(void* dst, uint32_t frames, int channels, int alsaFormat, uint8_t& nextMarker);
// The DoP marker of a packed frame's first word (alsaFormat 10 or 32).
uint8_t dopMarkerAt(const void* frame, int alsaFormat);
