// Real-time pacing: wall-clock bound, so kept out of sanitizer builds.
#include "tests/vdac/pcm_util.h"

namespace {

class Pacing : public testing::TestWithParam<double> {};

TEST_P(Pacing, ConsumptionFollowsTheClockTimesSpeed) {
    const double speed = GetParam();
    PlayerFixture fx(vdacConfig(speed));
    Pcm p(fx.confPath);
    PcmSetup s{.buffer = 9600, .period = 2400};
    ASSERT_EQ(p.configure(s), 0);
    const snd_pcm_uframes_t total = 5 * s.rate;  // five seconds of audio
    auto data = randomBytes(4 * total, 9);

    // Fill, then sample the device's own progress (written - delay) against the clock.
    uint64_t startUs = 0;
    double worst = 0;
    for (snd_pcm_uframes_t done = 0; done < total;) {
        snd_pcm_sframes_t n = snd_pcm_writei(p.pcm, &data[done * 4], s.period);
        ASSERT_GT(n, 0) << snd_strerror(int(n));
        done += snd_pcm_uframes_t(n);
        if (!startUs && snd_pcm_state(p.pcm) == SND_PCM_STATE_RUNNING) startUs = monoUs();
        snd_pcm_sframes_t delay = 0;
        if (!startUs || snd_pcm_delay(p.pcm, &delay) < 0) continue;
        double played = double(done - snd_pcm_uframes_t(delay));
        double expected = double(monoUs() - startUs) * 1e-6 * s.rate * speed;
        worst = std::max(worst, std::abs(played - expected));
    }
    ASSERT_EQ(snd_pcm_drain(p.pcm), 0);
    EXPECT_LT(worst, s.rate * speed * 0.01) << "pointer strayed from the clock";

    auto events = fx.events();
    auto start = eventsOfKind(events, "start"), drain = eventsOfKind(events, "drain");
    ASSERT_EQ(start.size(), 1u);
    ASSERT_EQ(drain.size(), 1u);
    EXPECT_EQ(drain[0].bytes, data.size());
    EXPECT_NEAR(double(drain[0].us - start[0].us) * 1e-6, 5.0 / speed, 5.0 / speed * 0.02);
    EXPECT_TRUE(eventsOfKind(events, "xrun").empty());
}

INSTANTIATE_TEST_SUITE_P(Speeds, Pacing, testing::Values(1.0, 2.0));

}  // namespace
