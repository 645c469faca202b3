// The virtual DAC records exactly what a client writes, and its event log
// tells the stream's life in order.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/support/harness.h"

namespace {

TEST(Vdac, CaptureIsWhatWasWrittenAndTheLogTellsTheStream) {
    VdacConfig config;
    config.formats = {"S16_LE", "S24_3LE"};
    PlayerFixture fx(config);
    useAlsaConfig(fx.confPath);
    snd_pcm_t* pcm = nullptr;
    ASSERT_EQ(snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0), 0);
    ASSERT_EQ(snd_pcm_set_params(pcm, SND_PCM_FORMAT_S24_3LE, SND_PCM_ACCESS_RW_INTERLEAVED, 3,
                                 96000, 0, 20000),
              0);
    const size_t frames = 20011;  // not a whole number of buffers
    std::mt19937 gen(7);
    std::vector<uint8_t> data(9 * frames);
    for (auto& b : data) b = uint8_t(gen());
    // Chunks of varying size, so that transfers straddle the ring's end.
    for (size_t done = 0; done < frames;) {
        size_t want = std::min<size_t>(gen() % 700 + 1, frames - done);
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
    EXPECT_EQ(kinds, "open hw_params prepare start drain close ");
    auto hw = eventsOfKind(events, "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields["format"], "S24_3LE");
    EXPECT_EQ(hw[0].fields["channels"], "3");
    EXPECT_EQ(hw[0].fields["rate"], "96000");
    EXPECT_EQ(eventsOfKind(events, "drain")[0].bytes, data.size());
}

}  // namespace
