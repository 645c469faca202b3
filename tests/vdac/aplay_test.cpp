// aplay is an independent ALSA client: what it plays through the vdac must
// arrive in the capture unchanged, in both of its access modes.
#include <algorithm>

#include "tests/vdac/pcm_util.h"

namespace {

struct AplayCase {
    bool mmap;
    const char* format;
    int bytesPerSample, channels, rate;
    double speed;
};

void PrintTo(const AplayCase& c, std::ostream* os) {
    *os << (c.mmap ? "mmap " : "rw ") << c.format << " x" << c.channels << " @" << c.rate;
}

class AplayPlays : public testing::TestWithParam<AplayCase> {};

TEST_P(AplayPlays, CaptureHoldsTheFileThenOnlySilencePadding) {
    const AplayCase& c = GetParam();
    PlayerFixture fx(vdacConfig(c.speed));
    const size_t frameBytes = size_t(c.bytesPerSample * c.channels);
    auto data = randomBytes(frameBytes * 30011, unsigned(c.rate));
    writeFileBytes(fx.dir.file("in.raw"), data);
    std::vector<std::string> args{"-q", "-t", "raw", "-f", c.format, "--period-size=500"};
    args.insert(args.end(), {"-c", std::to_string(c.channels), "-r", std::to_string(c.rate),
                             "--buffer-size=2000"});
    if (c.mmap) args.push_back("-M");
    args.push_back("in.raw");
    ProgramRun run;
    ASSERT_TRUE(run.start("/usr/bin/aplay", args, fx.workdir));
    ASSERT_EQ(run.waitExit(30), 0) << run.err();

    // aplay rounds its last write up to a whole period of silence.
    auto captured = fx.captured();
    ASSERT_GE(captured.size(), data.size());
    EXPECT_TRUE(std::equal(data.begin(), data.end(), captured.begin()));
    EXPECT_TRUE(std::all_of(captured.begin() + long(data.size()), captured.end(),
                            [](uint8_t b) { return b == 0; }));
    auto hw = eventsOfKind(fx.events(), "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields["access"], c.mmap ? "MMAP_INTERLEAVED" : "RW_INTERLEAVED");
    EXPECT_LT(captured.size() - data.size(), std::stoul(hw[0].fields["period"]) * frameBytes);
}

INSTANTIATE_TEST_SUITE_P(Modes, AplayPlays,
                         testing::Values(AplayCase{false, "S16_LE", 2, 2, 44100, 0},
                                         AplayCase{true, "S24_3LE", 3, 6, 96000, 0},
                                         AplayCase{true, "S32_LE", 4, 2, 192000, 16}),
                         [](const auto& info) { return std::to_string(info.index); });

}  // namespace
