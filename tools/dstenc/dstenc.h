// Test DST encoder: uncompressed DSDIFF in, its DST-compressed twin out. Per
// frame and channel a linear predictor of the bits (Levinson-Durbin on the
// frame's autocorrelation), a probability table measured on the frame, then
// the arithmetic coder. Aims at valid, compact test files, not at the best
// ratio. Deterministic; single-threaded per call.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace dstenc {

struct Options {
    bool index = true;          // write the DSTI index chunk
    bool crc = true;            // write a DSTC chunk after every frame
    int taps = 32;              // prediction filter length, 1 to 128
    bool separateMaps = false;  // write the table map apart from the filter map
};

// One frame: frameBytes bytes per channel of interleaved DSD (earliest bit in
// the MSB) in, the coded frame out. Channels with identical bits share one
// filter and table. A frame that does not compress is stored uncompressed.
std::vector<uint8_t> encodeFrame(const uint8_t* dsd, int channels, uint32_t frameBytes,
                                 const Options& options = {});

// Reads an uncompressed DSDIFF file and writes its DST twin. A last partial
// frame is completed with DSD silence. False with a reason on failure.
bool encodeFile(const std::string& in, const std::string& out, const Options& options = {},
                std::string* error = nullptr);

// The CRC written to DSTC chunks: CRC-32 (as zlib) of the frame's DSD bytes.
uint32_t frameCrc(const uint8_t* dsd, size_t n);

}  // namespace dstenc
