// Conversion of decoded FFmpeg sample data into the interleaved stream kinds.
// Pure functions; no allocation.
#pragma once
extern "C" {
#include <libavutil/samplefmt.h>
}
#include <cstdint>

// Where `count` frames starting at frame `first` of a decoded buffer live.
struct SampleSource {
    const uint8_t* const* planes;  // one per channel when planar, else planes[0]
    AVSampleFormat format;
    int channels;
};

// Integer samples become sample / 2^(bits-1) (exact up to 24 bits, computed
// from the left-justified value); float samples pass through.
void convertToFloat(const SampleSource& src, int first, int count, float* out);
// Integer samples keep their top 16 bits (arithmetic shift); float samples are
// x * 32768 truncated toward zero and clipped to the 16-bit range.
void convertToInt16(const SampleSource& src, int first, int count, int16_t* out);

bool isIntegerSampleFormat(AVSampleFormat format);
