// DSD to PCM: linear-phase FIR decimation from the one-bit stream to float
// PCM at 1, 2, 4 or 8 times the base rate of the DSD's family (44100 for
// DSD64 to DSD512, 48000 for their 3.072 to 24.576 MHz siblings). Stages: a
// 127-tap FIR over the bits by byte lookup tables (to bit rate / 8),
// half-band stages down to twice the base rate, a 20 kHz / 22.05 kHz
// low-pass that removes DSD's ultrasonic noise whatever the output rate,
// then half-band interpolation up to the output rate. Output frame n is the filtered signal at time
// n / outRate exactly (the filters are centred, so there is no latency to compensate); outside the
// file the signal is zero. Every output sample is a fixed function of the DSD bits around it, so
// reading from any frame gives exactly what a full decode gives there. Not thread-safe.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

class DsdToPcm {
  public:
    // Reads DSD bytes [first, first + count) of every channel, interleaved in
    // the internal form. False on a read error.
    using Fetch = std::function<bool(uint64_t first, uint32_t count, uint8_t* out)>;

    // 44100 or 48000 for the DSD rates 64 to 512 times those, else 0.
    static int32_t family(int32_t bitRate);
    static bool supports(int32_t bitRate, int32_t outRate);
    // For tests: false makes converters made afterwards take the plain FIR
    // path whatever the processor offers.
    static void allowVectorPath(bool allow);
    DsdToPcm(int channels, int32_t bitRate, uint64_t sampleBits, int32_t outRate, Fetch fetch);
    ~DsdToPcm();

    // ceil(duration x outRate).
    uint64_t frames() const { return frames_; }
    // Frames [first, first + n) into out[channel][0 .. n). False when the
    // file could not be read (the samples are then undefined).
    bool read(uint64_t first, uint32_t n, double* const* out);

    class Stage;

  private:
    std::vector<std::unique_ptr<Stage>> stages_;
    uint64_t frames_ = 0;
    bool failed_ = false;
};
