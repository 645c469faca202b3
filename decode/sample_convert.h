// Interleaving of decoded FFmpeg sample data into the layer's sample types.
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

// Float samples, narrowed to 32 bits where the source has 64.
void convertToFloat(const SampleSource& src, int first, int count, float* out);
// Integer samples, left-justified in 32 bits, so one layout serves every width.
void convertToInt32(const SampleSource& src, int first, int count, int32_t* out);

bool isIntegerSampleFormat(AVSampleFormat format);
