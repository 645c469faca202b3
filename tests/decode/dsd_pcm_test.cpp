// DSD to PCM measured on one three-channel signal per DSD rate, decoded at
// every output rate: a 1 kHz tone (THD+N, level, alignment, DC, ultrasonic
// noise), a comb from 20 Hz to 20 kHz (flatness) and tones that fold into the
// audio band at some output rate (alias rejection); seeks.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>

#include <complex>
#include "decode/dsd_source.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

// Tones sit on FFT bins at every output rate: 32768 points at the family's
// base rate, scaled with the rate, all base / 32768 Hz apart.
constexpr size_t kPointsBase = 32768;
constexpr double kLead = 0.05;  // seconds skipped before the analysed block
constexpr int kTimes[] = {1, 2, 4, 8};
// Bin each high tone k folds to: it sits at (kTimes[k] x base - kFold[k] bins).
constexpr int kFold[] = {2823, 3301, 4457, 5939};

// Twiddles computed directly: recurrences lose the precision a -170 dB floor needs.
void fft(std::vector<std::complex<double>>& a) {
    const size_t n = a.size();
    if (n == 1) return;
    std::vector<std::complex<double>> even(n / 2), odd(n / 2);
    for (size_t i = 0; i < n / 2; ++i) even[i] = a[2 * i], odd[i] = a[2 * i + 1];
    fft(even);
    fft(odd);
    for (size_t k = 0; k < n / 2; ++k) {
        const std::complex<double> t = std::polar(1.0, -2 * M_PI * double(k) / double(n)) * odd[k];
        a[k] = even[k] + t;
        a[k + n / 2] = even[k] - t;
    }
}

// Power per bin (0 .. n/2) of a power-of-two block under a 7-term
// Blackman-Harris window (sidelobes near -180 dB), scaled so that a sine of
// amplitude A sums to A^2 / 2 over its main lobe.
std::vector<double> powerSpectrum(const std::vector<double>& x) {
    static const double c[] = {0.27105140069342,  -0.43329793923448, 0.21812299954311,
                               -0.06592544638803, 0.01081174209837,  -0.00077658482522,
                               0.00001388721735};
    const size_t n = x.size();
    std::vector<std::complex<double>> a(n);
    double w2 = 0;
    for (size_t i = 0; i < n; ++i) {
        double w = 0;
        for (int k = 0; k < 7; ++k) w += c[k] * std::cos(2.0 * M_PI * k * double(i) / double(n));
        a[i] = x[i] * w;
        w2 += w * w;
    }
    fft(a);
    // Parseval: one side doubled equals n times the windowed power.
    std::vector<double> p(n / 2 + 1);
    for (size_t k = 0; k <= n / 2; ++k) p[k] = std::norm(a[k]) * 2.0 / (double(n) * w2);
    return p;
}

const auto toDb = [](double power) { return 10.0 * std::log10(std::max(power, 1e-300)); };
const auto sineDb = [](double levelDb) { return levelDb + toDb(0.5); };

// Power from bin lo to bin hi; a tone's main lobe is bin +- 8.
double band(const std::vector<double>& p, double lo, double hi) {
    const size_t from = size_t(std::clamp(std::ceil(lo), 0.0, double(p.size())));
    const size_t to = size_t(std::clamp(std::floor(hi) + 1, double(from), double(p.size())));
    return std::accumulate(p.begin() + long(from), p.begin() + long(to), 0.0);
}

struct Family {
    int32_t base;
    int multiple;
};

class DsdPcmTest : public testing::TestWithParam<Family> {};

TEST_P(DsdPcmTest, CleanFlatAlignedAndAliasFree) {
    const auto [base, multiple] = GetParam();
    const double bin = double(base) / kPointsBase;
    const int32_t bitRate = dsdgen::bitRate(multiple, base);
    const int tone = int(std::lround(1000 / bin));
    std::vector<int> comb;
    for (double f : {20, 100, 1000, 5000, 10000, 15000, 19000, 20000})
        comb.push_back(int(std::lround(f / bin)));
    // Three channels; the length ends mid-byte.
    const uint64_t bits = uint64_t((kLead + kPointsBase / double(base) + 0.02) * bitRate);
    dsdgen::Signal s{multiple, 3, bits + 3, {{{tone * bin, -6, 0}}, {}, {}}, base};
    for (int b : comb) s.tones[1].push_back({b * bin, -26, 0.3 * b});
    for (int k = 0; k < 4; ++k) s.tones[2].push_back({kTimes[k] * base - kFold[k] * bin, -20, 0});
    const std::string path = testing::TempDir() + "dsd_pcm_" + std::to_string(getpid()) + "_" +
                             std::to_string(bitRate) + ".dsf";
    ASSERT_TRUE(dsdgen::writeDsf(path, dsdgen::modulate(s), 3, multiple, s.bits, base));

    for (int times : kTimes) {
        const int32_t rate = times * base;
        SCOPED_TRACE(rate);
        std::string error;
        DsdSource* src = dsdOpen(path.c_str(), StreamKind::DsdPcm, rate, &error);
        ASSERT_NE(src, nullptr) << error;
        const uint64_t frames = dsdLength(src) / 24;
        EXPECT_EQ(frames, (s.bits * uint64_t(rate) + uint64_t(bitRate) - 1) / uint64_t(bitRate));
        std::vector<double> pcm(frames * 3);
        ASSERT_EQ(dsdRead(src, pcm.data(), uint32_t(pcm.size() * 8)), pcm.size() * 8);
        // A seek restarts every filter from the file's own bits: the very
        // samples of a full decode.
        for (uint64_t at : {uint64_t(1), frames / 3, frames - 3}) {
            std::vector<double> tail(pcm.size() - at * 3);
            ASSERT_TRUE(dsdSeek(src, at * 24));
            ASSERT_EQ(dsdRead(src, tail.data(), uint32_t(tail.size() * 8)), tail.size() * 8);
            EXPECT_TRUE(std::equal(tail.begin(), tail.end(), pcm.begin() + long(at * 3))) << at;
        }
        dsdClose(src);

        const size_t from = size_t(kLead * rate), n = kPointsBase * size_t(times);
        std::vector<double> x[3];
        double sinSum = 0, cosSum = 0;  // phase of the tone against sin(2 pi f t)
        for (size_t i = from; i < from + n; ++i) {
            for (int c = 0; c < 3; ++c) x[c].push_back(pcm[i * 3 + size_t(c)]);
            sinSum += x[0].back() * std::sin(2 * M_PI * tone * bin * double(i) / rate);
            cosSum += x[0].back() * std::cos(2 * M_PI * tone * bin * double(i) / rate);
        }
        // Bins are `bin` Hz wide at every rate.
        std::vector<double> p = powerSpectrum(x[0]), pComb = powerSpectrum(x[1]),
                            pHigh = powerSpectrum(x[2]);
        const double b20 = 20 / bin, b20k = 20000 / bin, level = band(p, tone - 8, tone + 8);
        double thdn = toDb((band(p, b20, tone - 8.5) + band(p, tone + 8.5, b20k)) / level);
        double ultra = toDb(band(p, 24000 / bin, n / 2.0)), dc = toDb(band(p, 0, 2 / bin));
        EXPECT_LE(thdn, multiple == 64 ? -132 : -150) << "THD+N, dB";
        EXPECT_LE(ultra, -150) << "above 24 kHz, dBFS";
        EXPECT_LE(dc, -140) << "DC, dBFS";
        EXPECT_NEAR(toDb(level), sineDb(-6), 0.01);
        // Centred filters: the output is aligned to the source within 1/100 sample.
        EXPECT_NEAR(std::atan2(cosSum, sinSum), 0.0, 0.01 * 2 * M_PI * tone * bin / rate);
        for (int b : comb) EXPECT_NEAR(toDb(band(pComb, b - 8, b + 8)), sineDb(-26), 0.01) << b;
        double alias = -400;
        for (int k = 0; k < 4; ++k)
            if (kTimes[k] > times / 2)  // above this rate's Nyquist frequency
                alias =
                    std::max(alias, toDb(band(pHigh, kFold[k] - 8, kFold[k] + 8)) - sineDb(-20));
        EXPECT_LE(alias, -150);
    }
    std::remove(path.c_str());
}

// Every DSD rate of both families; the 48 kHz family converts to its own rates.
INSTANTIATE_TEST_SUITE_P(Rates, DsdPcmTest,
                         testing::Values(Family{44100, 64}, Family{44100, 128}, Family{44100, 256},
                                         Family{44100, 512}, Family{48000, 64}, Family{48000, 128},
                                         Family{48000, 256}, Family{48000, 512}),
                         [](const auto& i) {
                             return "dsd" + std::to_string(i.param.multiple) + "_" +
                                    std::to_string(i.param.base);
                         });

}  // namespace
