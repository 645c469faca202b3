// Test DSD writer: a 7th-order one-bit sigma-delta modulator and DSF/DSDIFF
// writers. Deterministic: the same parameters always give the same bits.
// Single-threaded per call; file failures come back as false.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace dsdgen {

// 64 -> 2822400 bits per second per channel, 128 -> 5644800; base 48000
// gives the 48 kHz family (64 -> 3072000).
constexpr int32_t bitRate(int multiple, int32_t base = 44100) {
    return base * multiple;
}

struct Tone {
    double freq = 1000.0;
    double levelDb = -6.0;  // 0 dB = 100% modulation (a sine of amplitude 1)
    double phase = 0.0;     // radians at bit 0
};

struct Signal {
    int multiple = 64;
    int channels = 2;
    uint64_t bits = 0;                     // samples per channel
    std::vector<std::vector<Tone>> tones;  // per channel; a missing entry is silence
    int32_t base = 44100;                  // family: 44100 or 48000
    int32_t rate() const { return bitRate(multiple, base); }
};

// DSD in the internal form: bytes interleaved by channel, earliest bit in the
// MSB, ceil(bits / 8) bytes per channel; unused low bits of a last partial
// byte are 0.
std::vector<uint8_t> modulate(const Signal& s);

// The command-line tone: one tone per channel at freq and levelDb, channel c
// shifted in phase by 0.7 c radians so that swapped channels differ.
Signal toneSignal(int multiple, int channels, double seconds, double freq, double levelDb,
                  int32_t base = 44100);

// Writers take the internal form; bits = samples per channel.
bool writeDsf(const std::string& path, const std::vector<uint8_t>& dsd, int channels, int multiple,
              uint64_t bits, int32_t base = 44100);
bool writeDff(const std::string& path, const std::vector<uint8_t>& dsd, int channels, int multiple,
              uint64_t bits, int32_t base = 44100);

}  // namespace dsdgen
