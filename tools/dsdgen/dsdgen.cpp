// 7th-order one-bit modulator. The noise transfer function has its zeros at
// the Gauss-Legendre points of the 0-20 kHz band (least integrated in-band
// noise) and Butterworth high-pass poles placed so that its out-of-band gain
// is about 1.5. Realised as error feedback, y = u + NTF e, with the NTF as a cascade
// of transposed direct-form sections: every section has a unit direct term,
// so the loop's strictly causal part is the sum of the sections' first states.
#include "tools/dsdgen/dsdgen.h"

#include <cmath>
#include <complex>

namespace dsdgen {
namespace {

using cplx = std::complex<double>;
constexpr int kOrder = 7;
constexpr double kBandEdge = 20000.0;
// Out-of-band gain: 1.5 at DSD64; faster loops (from DSD64 of the 48 kHz
// family up) are stable at -6 dBFS only with a little less.
double outOfBandGain(int32_t rate) {
    return rate <= bitRate(64) ? 1.5 : 1.45;
}
// Roots of the 7th Legendre polynomial (the non-negative ones).
constexpr double kLegendre[] = {0.0, 0.4058451513773972, 0.7415311855993945, 0.9491079123427585};

struct Section {  // 1 + b1 z^-1 + b2 z^-2 over 1 + a1 z^-1 + a2 z^-2
    double b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    double s1 = 0, s2 = 0;
};

std::vector<cplx> highPassPoles(double wc) {
    double wa = 2.0 * std::tan(wc / 2.0);
    std::vector<cplx> poles;
    for (int k = 0; k < kOrder; ++k) {
        cplx sk = std::polar(1.0, M_PI * (2.0 * k + kOrder + 1) / (2.0 * kOrder));
        poles.push_back((2.0 * sk + wa) / (2.0 * sk - wa));
    }
    return poles;
}

double maxGain(const std::vector<cplx>& zeros, const std::vector<cplx>& poles) {
    double peak = 0;
    for (int i = 0; i <= 2000; ++i) {
        cplx z = std::polar(1.0, M_PI * i / 2000.0);
        cplx h = 1.0;
        for (size_t k = 0; k < zeros.size(); ++k) h *= (z - zeros[k]) / (z - poles[k]);
        peak = std::max(peak, std::abs(h));
    }
    return peak;
}

// Sections ordered: the real pair first, then conjugate pairs from the band
// edge inwards.
std::vector<Section> designNtf(int32_t rate) {
    double wb = 2.0 * M_PI * kBandEdge / rate;
    std::vector<cplx> zeros;
    for (double x : kLegendre) zeros.push_back(std::polar(1.0, x * wb));
    double lo = 1e-4, hi = 1.0;
    std::vector<cplx> poles;
    for (int it = 0; it < 60; ++it) {
        double mid = 0.5 * (lo + hi);
        poles = highPassPoles(mid);
        std::vector<cplx> z7(zeros.begin(), zeros.end());
        for (size_t k = 1; k < zeros.size(); ++k) z7.push_back(std::conj(zeros[k]));
        std::vector<cplx> p7 = poles;
        (maxGain(z7, p7) > outOfBandGain(rate) ? hi : lo) = mid;
    }
    poles = highPassPoles(lo);
    // Butterworth poles: index 3 is real, (k, 6-k) are conjugates.
    std::vector<Section> sections(4);
    sections[0].b1 = -1.0;
    sections[0].a1 = -poles[3].real();
    for (int k = 0; k < 3; ++k) {
        Section& s = sections[k + 1];
        cplx z = zeros[3 - k], p = poles[k];
        s.b1 = -2.0 * z.real();
        s.b2 = std::norm(z);
        s.a1 = -2.0 * p.real();
        s.a2 = std::norm(p);
    }
    return sections;
}

class Modulator {
  public:
    Modulator(int32_t rate, uint32_t seed) : sections_(designNtf(rate)), rng_(seed) {}

    bool step(double u) {
        double w = 0;
        for (const Section& s : sections_) w += s.s1;
        double v = u + w + dither();
        double y = v >= 0 ? 1.0 : -1.0;
        double x = y - v;
        for (Section& s : sections_) {
            double out = x + s.s1;
            s.s1 = s.b1 * x - s.a1 * out + s.s2;
            s.s2 = s.b2 * x - s.a2 * out;
            x = out;
        }
        if (std::abs(w) > 100.0) reset();  // overload: start the loop afresh
        return y > 0;
    }

  private:
    // About -140 dBFS of uniform noise: breaks idle limit cycles, far below
    // the shaped noise in the audio band.
    double dither() {
        rng_ = rng_ * 1664525u + 1013904223u;
        return (static_cast<double>(rng_) / 4294967296.0 - 0.5) * 2e-7;
    }
    void reset() {
        for (Section& s : sections_) s.s1 = s.s2 = 0;
    }

    std::vector<Section> sections_;
    uint32_t rng_;
};

}  // namespace

std::vector<uint8_t> modulate(const Signal& s) {
    uint64_t bytes = (s.bits + 7) / 8;
    std::vector<uint8_t> out(bytes * s.channels, 0);
    double rate = s.rate();
    for (int c = 0; c < s.channels; ++c) {
        Modulator mod(s.rate(), 12345u + 977u * c);
        const std::vector<Tone> none;
        const std::vector<Tone>& tones = c < int(s.tones.size()) ? s.tones[c] : none;
        std::vector<double> amp, inc;
        for (const Tone& t : tones) {
            amp.push_back(std::pow(10.0, t.levelDb / 20.0));
            inc.push_back(2.0 * M_PI * t.freq / rate);
        }
        for (uint64_t i = 0; i < s.bits; ++i) {
            double u = 0;
            for (size_t k = 0; k < tones.size(); ++k)
                u += amp[k] * std::sin(inc[k] * static_cast<double>(i) + tones[k].phase);
            if (mod.step(u)) out[(i / 8) * s.channels + c] |= uint8_t(0x80 >> (i % 8));
        }
    }
    return out;
}

Signal toneSignal(int multiple, int channels, double seconds, double freq, double levelDb,
                  int32_t base) {
    Signal s;
    s.multiple = multiple;
    s.channels = channels;
    s.base = base;
    s.bits = static_cast<uint64_t>(std::llround(seconds * s.rate()));
    for (int c = 0; c < channels; ++c) s.tones.push_back({{freq, levelDb, 0.7 * c}});
    return s;
}

}  // namespace dsdgen
