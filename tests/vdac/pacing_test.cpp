// Paced consumption, read from the device's own event log: four seconds of
// audio at speed 2 take two seconds from start to the end of drain.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include "tests/support/harness.h"

namespace {

TEST(Vdac, ConsumptionFollowsTheClockTimesSpeed) {
    VdacConfig config;
    config.formats = {"S16_LE"};
    config.speed = 2;
    PlayerFixture fx(config);
    useAlsaConfig(fx.confPath);
    snd_pcm_t* pcm = nullptr;
    ASSERT_EQ(snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0), 0);
    ASSERT_EQ(snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2,
                                 48000, 0, 200000),
              0);
    std::vector<int16_t> data(2 * 4 * 48000, 0x1234);
    for (size_t done = 0; done < data.size() / 2;) {
        snd_pcm_sframes_t n = snd_pcm_writei(pcm, &data[2 * done], 2400);
        ASSERT_GT(n, 0) << snd_strerror(int(n));
        done += size_t(n);
    }
    ASSERT_EQ(snd_pcm_drain(pcm), 0);
    snd_pcm_close(pcm);

    std::vector<VdacEvent> events = fx.events();
    auto start = eventsOfKind(events, "start"), drain = eventsOfKind(events, "drain");
    ASSERT_EQ(start.size(), 1u);
    ASSERT_EQ(drain.size(), 1u);
    EXPECT_EQ(drain[0].bytes, data.size() * 2);
    EXPECT_NEAR(double(drain[0].us - start[0].us) * 1e-6, 2.0, 0.04);
    EXPECT_TRUE(eventsOfKind(events, "xrun").empty());
}

}  // namespace
