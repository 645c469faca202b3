// DSD to PCM measured: THD+N, level, time alignment, flatness, aliases,
// ultrasonic noise, DC and length at every output rate from DSD64 and DSD128;
// seeking gives the samples of a full decode.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "decode/dsd_source.h"
#include "tests/dsd/analysis.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

// Tones sit on FFT bins at every output rate: 32768 points at 44.1 kHz,
// scaled with the rate, all 1.3458 Hz apart.
constexpr double kBin = 44100.0 / 32768;
constexpr size_t kPoints44 = 32768;
constexpr double kLead = 0.05;  // seconds skipped before the analysed block
constexpr double kSeconds = kLead + kPoints44 / 44100.0 + 0.02;

struct Decoded {
    std::vector<double> left, right;
    uint64_t frames = 0;
    uint64_t bits = 0;
};

std::string tempPath(const std::string& name) {
    return testing::TempDir() + "dsd_pcm_" + std::to_string(getpid()) + "_" + name;
}

// Generates, writes as DSF, decodes as float PCM.
Decoded decode(const dsdgen::Signal& s, int32_t rate) {
    std::string path = tempPath("decode.dsf");
    EXPECT_TRUE(dsdgen::writeDsf(path, dsdgen::modulate(s), s.channels, s.multiple, s.bits));
    std::string error;
    DsdSource* src = dsdOpen(path.c_str(), StreamKind::DsdPcm, rate, &error);
    std::remove(path.c_str());
    EXPECT_NE(src, nullptr) << error;
    Decoded d;
    if (!src) return d;
    EXPECT_EQ(dsdInfo(src).rate, rate);
    d.frames = dsdLength(src) / (4 * s.channels);
    d.bits = s.bits;
    std::vector<float> buf(4096 * s.channels);
    for (uint32_t got; (got = dsdRead(src, buf.data(), 4096 * 4 * s.channels)) != kDecodeEnd;)
        for (uint32_t i = 0; i < got / 4; ++i)
            (i % s.channels ? d.right : d.left).push_back(buf[i]);
    dsdClose(src);
    return d;
}

dsdgen::Signal signal(int multiple, std::vector<std::vector<dsdgen::Tone>> tones) {
    dsdgen::Signal s;
    s.multiple = multiple;
    s.channels = int(tones.size());
    s.bits = uint64_t(kSeconds * dsdgen::bitRate(multiple)) + 3;  // ends mid-byte
    s.tones = std::move(tones);
    return s;
}

Spectrum analyse(const std::vector<double>& x, int32_t rate) {
    size_t n = kPoints44 * size_t(rate / 44100);
    return Spectrum(x.data() + size_t(kLead * rate), n, rate);
}

// Phase of x against sin(2 pi f t), by least squares over the block.
double phaseOf(const std::vector<double>& x, int32_t rate, double f) {
    double s = 0, c = 0;
    size_t from = size_t(kLead * rate), n = kPoints44 * size_t(rate / 44100);
    for (size_t i = from; i < from + n; ++i) {
        double w = 2 * M_PI * f * double(i) / rate;
        s += x[i] * std::sin(w);
        c += x[i] * std::cos(w);
    }
    return std::atan2(c, s);
}

struct Rate {
    int multiple;
    int32_t out;
};

class DsdPcmTest : public testing::TestWithParam<Rate> {};

TEST_P(DsdPcmTest, ToneIsCleanLevelTrueAndTimeAligned) {
    const Rate r = GetParam();
    const double f1 = 743 * kBin, f2 = 2229 * kBin;  // about 1 kHz and 3 kHz
    dsdgen::Signal s = signal(r.multiple, {{{f1, -6, 0}}, {{f2, -6, 0}}});
    Decoded d = decode(s, r.out);
    ASSERT_EQ(d.frames, (d.bits * r.out + dsdgen::bitRate(r.multiple) - 1) /
                            uint64_t(dsdgen::bitRate(r.multiple)));
    ASSERT_EQ(d.left.size(), d.frames);
    const double limit = r.multiple == 64 ? -132 : -150;
    for (auto [x, f] : {std::pair{&d.left, f1}, std::pair{&d.right, f2}}) {
        Spectrum sp = analyse(*x, r.out);
        double tone = sp.tonePower(f);
        double thdn = toDb(sp.powerBeside(20, 20000, f) / tone);
        double ultra = toDb(sp.power(24000, r.out / 2.0));
        printf("DSD%d -> %d Hz, %.0f Hz: THD+N %.1f dB, above 24 kHz %.1f dBFS, DC %.1f dBFS\n",
               r.multiple, r.out, f, thdn, ultra, toDb(sp.power(0, 2)));
        EXPECT_LE(thdn, limit);
        EXPECT_NEAR(toDb(tone), toDb(std::pow(10.0, -6 / 10.0) / 2), 0.01);
        EXPECT_LE(ultra, -70);
        EXPECT_LE(toDb(sp.power(0, 2)), -140);
        // Centred filters: the output is aligned to the source within 1/100 sample.
        EXPECT_NEAR(phaseOf(*x, r.out, f), 0.0, 0.01 * 2 * M_PI * f / r.out);
    }
}

TEST_P(DsdPcmTest, FlatTo20kHzAndAliasesRejected) {
    const Rate r = GetParam();
    std::vector<dsdgen::Tone> comb;
    for (int bin : {15, 74, 743, 3715, 7430, 11145, 14118, 14861})  // 20 Hz .. 20 kHz
        comb.push_back({bin * kBin, -26, 0.3 * bin});
    // A tone that folds to 3.8 kHz at this output rate unless it is filtered.
    const double high = r.out - 2823 * kBin;
    dsdgen::Signal s = signal(r.multiple, {comb, {{high, -20, 0}}});
    Decoded d = decode(s, r.out);
    Spectrum sp = analyse(d.left, r.out);
    for (const dsdgen::Tone& t : comb)
        EXPECT_NEAR(toDb(sp.tonePower(t.freq)), toDb(std::pow(10.0, -26 / 10.0) / 2), 0.01)
            << t.freq << " Hz";
    Spectrum alias = analyse(d.right, r.out);
    double rejection = toDb(alias.tonePower(2823 * kBin) / (std::pow(10.0, -20 / 10.0) / 2));
    printf("DSD%d -> %d Hz: %.0f Hz rejected by %.1f dB\n", r.multiple, r.out, high, -rejection);
    EXPECT_LE(rejection, -150);
}

INSTANTIATE_TEST_SUITE_P(Rates, DsdPcmTest,
                         testing::Values(Rate{64, 44100}, Rate{64, 88200}, Rate{64, 176400},
                                         Rate{64, 352800}, Rate{128, 44100}, Rate{128, 88200},
                                         Rate{128, 176400}, Rate{128, 352800}),
                         [](const testing::TestParamInfo<Rate>& i) {
                             return "dsd" + std::to_string(i.param.multiple) + "_" +
                                    std::to_string(i.param.out);
                         });

// A seek restarts every filter from the file's own bits, so it yields the
// very samples of a full decode, in float and in 16-bit.
TEST(DsdPcmSeek, SeekGivesTheSamplesOfAFullDecode) {
    dsdgen::Signal s = dsdgen::toneSignal(64, 2, 0.15, 997, -6);
    std::string path = tempPath("seek.dff");
    ASSERT_TRUE(dsdgen::writeDff(path, dsdgen::modulate(s), 2, 64, s.bits));
    for (StreamKind kind : {StreamKind::Float, StreamKind::Int16}) {
        const uint32_t frame = kind == StreamKind::Float ? 8 : 4;
        DsdSource* src = dsdOpen(path.c_str(), kind, 176400, nullptr);
        ASSERT_NE(src, nullptr);
        std::vector<uint8_t> whole(dsdLength(src));
        ASSERT_EQ(dsdRead(src, whole.data(), uint32_t(whole.size())), whole.size());
        EXPECT_EQ(dsdRead(src, whole.data(), frame), kDecodeEnd);
        for (uint64_t at :
             {uint64_t(1), uint64_t(777), whole.size() / frame / 2, whole.size() / frame - 3}) {
            ASSERT_TRUE(dsdSeek(src, at * frame));
            std::vector<uint8_t> part(whole.size() - at * frame);
            ASSERT_EQ(dsdRead(src, part.data(), uint32_t(part.size())), part.size());
            EXPECT_EQ(memcmp(part.data(), whole.data() + at * frame, part.size()), 0) << at;
        }
        if (kind == StreamKind::Int16) {  // level 1:1: -6 dBFS peaks near 16423 once settled
            const int16_t* v = reinterpret_cast<const int16_t*>(whole.data());
            int16_t peak = *std::max_element(v + whole.size() / 6, v + whole.size() / 2);
            EXPECT_NEAR(peak, 16423, 40);
        }
        dsdClose(src);
    }
    std::remove(path.c_str());
}

}  // namespace
