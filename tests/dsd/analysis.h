// Spectrum analysis for the DSD to PCM tests: a Blackman-Harris 7-term
// window (sidelobes near -180 dB) over a power-of-two block and a radix-2
// FFT, with power read per band.
#pragma once
#include <cstddef>
#include <vector>

class Spectrum {
  public:
    // x: at least n samples (n a power of two) at rate.
    Spectrum(const double* x, size_t n, double rate);
    double binHz() const { return rate_ / double(n_); }
    // Power in [lo, hi] Hz, normalised so that a full-scale sine reads 0.5
    // (relative to mean power, i.e. a sine of amplitude A reads A^2 / 2).
    double power(double lo, double hi) const;
    // Power of a tone at freq: its main lobe.
    double tonePower(double freq) const { return power(freq - 8 * binHz(), freq + 8 * binHz()); }
    // Power in [lo, hi] Hz without the main lobe of a tone at freq: the
    // noise and distortion beside it.
    double powerBeside(double lo, double hi, double freq) const {
        return power(lo, freq - 8.5 * binHz()) + power(freq + 8.5 * binHz(), hi);
    }

  private:
    std::vector<double> mag2_;  // |X_k|^2, k = 0 .. n/2
    size_t n_;
    double rate_;
    double scale_ = 1;
};

double toDb(double power);  // 10 log10
