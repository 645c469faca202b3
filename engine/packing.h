// The one packer: every conversion of decoded data into the card's sample
// format happens here, DoP framing included. Allocation-free; called by the
// player thread between a read and the hand-over to ALSA.
#pragma once
#include <cstddef>
#include <cstdint>

#include "decode/decode.h"

// ALSA format codes the player uses.
enum OutputSampleFormat : int32_t {
    kFormatS16 = 2,
    kFormatS32 = 10,
    kFormatS24_3 = 32,
    kFormatDsdU32LE = 50,
    kFormatDsdU32BE = 52,
};

// Bytes of one card sample and of one card frame.
uint32_t cardSampleBytes(int32_t alsaFormat);
uint32_t cardFrameBytes(int32_t alsaFormat, int32_t channels);

// PCM: `samples` decoded samples of type at src into the card's PCM format at
// dst; dst may equal src (no card sample is wider than a decoded one).
// Integer sources keep their top bits (all 32 on S32_LE). Float sources are
// scaled to the card's width, truncated toward zero and clipped; on 24- and
// 32-bit cards they carry 24 significant bits, taken from the value narrowed
// to 32-bit float.
void packPcm(const void* src, SampleType type, void* dst, size_t samples, int32_t alsaFormat);

// Native DSD: frames x 4 raw bytes per channel (interleaved by channel) into
// DSD_U32_BE or DSD_U32_LE words; dst may equal src.
void packDsdNative(const void* src, void* dst, uint32_t frames, int channels, int32_t alsaFormat);

// DoP 1.1 on S32_LE or S24_3LE: each frame carries the marker, then the
// earlier and the later of two DSD bytes per channel. Markers alternate
// 0x05 / 0xFA by frame number from the start of the file.
constexpr uint8_t kDopMarkerA = 0x05;
constexpr uint8_t kDopMarkerB = 0xFA;
inline uint8_t dopMarkerFor(uint64_t frame) {
    return frame & 1 ? kDopMarkerB : kDopMarkerA;
}
inline uint8_t otherDopMarker(uint8_t marker) {
    return marker == kDopMarkerA ? kDopMarkerB : kDopMarkerA;
}
// frames x 2 raw bytes per channel at raw into DoP frames at dst; raw may lie
// inside dst at or after dst + frames x (DoP frame - 2 x channels) bytes.
// firstFrame is the file frame number of the first one.
void packDop(const void* raw, void* dst, uint32_t frames, int channels, int32_t alsaFormat,
             uint64_t firstFrame);

// Silence for DSD outputs: zero bytes would be a full-scale DC level.
void fillDsdIdle(void* dst, size_t bytes);
// DoP silence frames: markers alternating from nextMarker, which is left
// holding the marker the following frame must carry.
void fillDopSilence(void* dst, uint32_t frames, int channels, int32_t alsaFormat,
                    uint8_t& nextMarker);
