// The virtual DAC records exactly what a client writes, its event log tells
// the stream's life in order, and it consumes at the clock's pace x speed:
// four seconds of audio at speed 2 take two from start to the end of drain.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/support/harness.h"

namespace {

TEST(Vdac, CaptureIsWhatWasWrittenAtThePaceOfTheClock) {
    VdacConfig config;
    config.speed = 2;
    PlayerFixture fx(config);
    useAlsaConfig(fx.confPath);
    snd_pcm_t* pcm = nullptr;
    ASSERT_EQ(snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0), 0);
    ASSERT_EQ(snd_pcm_set_params(pcm, SND_PCM_FORMAT_S24_3LE, SND_PCM_ACCESS_RW_INTERLEAVED, 3,
                                 48000, 0, 200000),
              0);
    const size_t frames = 4 * 48000;
    std::mt19937 gen(7);
    std::vector<uint8_t> data(9 * frames);
    for (auto& b : data) b = uint8_t(gen());
    // Chunks of varying size, so that transfers straddle the ring's end.
    for (size_t done = 0; done < frames;) {
        size_t want = std::min<size_t>(gen() % 3000 + 1, frames - done);
        snd_pcm_sframes_t n = snd_pcm_writei(pcm, &data[done * 9], want);
        ASSERT_GT(n, 0) << snd_strerror(int(n));
        done += size_t(n);
    }
    ASSERT_EQ(snd_pcm_drain(pcm), 0);
    snd_pcm_close(pcm);

    EXPECT_TRUE(fx.captured() == data);
    std::vector<VdacEvent> events = fx.events();
    std::string kinds;
    for (const VdacEvent& e : events) kinds += e.kind + " ";
    ASSERT_EQ(kinds, "open hw_params prepare start drain close ");
    EXPECT_EQ(events[1].fields["format"], "S24_3LE");
    EXPECT_EQ(events[4].bytes, data.size());
    EXPECT_NEAR(double(events[4].us - events[3].us) * 1e-6, 2.0, 0.04);
}

}  // namespace
