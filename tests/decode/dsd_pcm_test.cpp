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

// Tones sit on FFT bins at every output rate: 32768 points at 44.1 kHz,
// scaled with the rate, all 1.3458 Hz apart.
constexpr double kBin = 44100.0 / 32768;
constexpr size_t kPoints44 = 32768;
constexpr double kLead = 0.05;  // seconds skipped before the analysed block
constexpr int32_t kRates[] = {44100, 88200, 176400, 352800};
// Bin each high tone k folds to: it sits at (kRates[k] - kFold[k] bins).
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

class DsdPcmTest : public testing::TestWithParam<int> {};

TEST_P(DsdPcmTest, CleanFlatAlignedAndAliasFree) {
    const int multiple = GetParam();
    const int tone = 743;  // bin of about 1 kHz
    const std::vector<int> comb = {15, 74, 743, 3715, 7430, 11145, 14118, 14861};
    // Three channels; the length ends mid-byte.
    const uint64_t bits =
        uint64_t((kLead + kPoints44 / 44100.0 + 0.02) * dsdgen::bitRate(multiple));
    dsdgen::Signal s{multiple, 3, bits + 3, {{{tone * kBin, -6, 0}}, {}, {}}};
    for (int bin : comb) s.tones[1].push_back({bin * kBin, -26, 0.3 * bin});
    for (int k = 0; k < 4; ++k) s.tones[2].push_back({kRates[k] - kFold[k] * kBin, -20, 0});
    const std::string path = testing::TempDir() + "dsd_pcm_" + std::to_string(getpid()) +
                             std::to_string(multiple) + ".dsf";
    ASSERT_TRUE(dsdgen::writeDsf(path, dsdgen::modulate(s), 3, multiple, s.bits));

    for (int32_t rate : kRates) {
        SCOPED_TRACE(rate);
        std::string error;
        DsdSource* src = dsdOpen(path.c_str(), StreamKind::DsdPcm, rate, &error);
        ASSERT_NE(src, nullptr) << error;
        const uint64_t frames = dsdLength(src) / 24;
        EXPECT_EQ(frames, (s.bits * uint64_t(rate) + uint64_t(dsdgen::bitRate(multiple)) - 1) /
                              uint64_t(dsdgen::bitRate(multiple)));
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

        const size_t from = size_t(kLead * rate), n = kPoints44 * size_t(rate / 44100);
        std::vector<double> x[3];
        double sinSum = 0, cosSum = 0;  // phase of the tone against sin(2 pi f t)
        for (size_t i = from; i < from + n; ++i) {
            for (int c = 0; c < 3; ++c) x[c].push_back(pcm[i * 3 + size_t(c)]);
            sinSum += x[0].back() * std::sin(2 * M_PI * tone * kBin * double(i) / rate);
            cosSum += x[0].back() * std::cos(2 * M_PI * tone * kBin * double(i) / rate);
        }
        // Bins are kBin wide at every rate.
        std::vector<double> p = powerSpectrum(x[0]), pComb = powerSpectrum(x[1]),
                            pHigh = powerSpectrum(x[2]);
        const double b20 = 20 / kBin, b20k = 20000 / kBin, level = band(p, tone - 8, tone + 8);
        double thdn = toDb((band(p, b20, tone - 8.5) + band(p, tone + 8.5, b20k)) / level);
        double ultra = toDb(band(p, 24000 / kBin, n / 2.0)), dc = toDb(band(p, 0, 2 / kBin));
        EXPECT_LE(thdn, multiple == 64 ? -132 : -150);
        EXPECT_LE(ultra, -150);
        EXPECT_LE(dc, -140);
        EXPECT_NEAR(toDb(level), sineDb(-6), 0.01);
        // Centred filters: the output is aligned to the source within 1/100 sample.
        EXPECT_NEAR(std::atan2(cosSum, sinSum), 0.0, 0.01 * 2 * M_PI * tone * kBin / rate);
        for (int bin : comb)
            EXPECT_NEAR(toDb(band(pComb, bin - 8, bin + 8)), sineDb(-26), 0.01) << bin;
        double alias = -400;
        for (int k = 0; k < 4; ++k)
            if (kRates[k] > rate / 2)  // above this rate's Nyquist frequency
                alias =
                    std::max(alias, toDb(band(pHigh, kFold[k] - 8, kFold[k] + 8)) - sineDb(-20));
        EXPECT_LE(alias, -150);
        printf(
            "DSD%d -> %d Hz: THD+N %.1f dB, aliases %.1f dB, above 24 kHz %.1f dBFS, "
            "DC %.1f dBFS\n",
            multiple, rate, thdn, alias, ultra, dc);
    }
    std::remove(path.c_str());
}

INSTANTIATE_TEST_SUITE_P(Rates, DsdPcmTest, testing::Values(64, 128),
                         [](const auto& i) { return "dsd" + std::to_string(i.param); });

}  // namespace
