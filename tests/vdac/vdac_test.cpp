// The virtual DAC records exactly what a client writes, its event log tells
// the stream's life in order, and it consumes at the clock's pace x speed:
// four seconds of audio at speed 2 take two from start to the end of drain.
// Its habits are driven here through alsa-lib as a player would meet them.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/support/harness.h"

namespace {

constexpr size_t kFrame = 4;  // S16_LE stereo

std::vector<uint8_t> noise(size_t frames, unsigned seed) {
    std::mt19937 gen(seed);
    std::vector<uint8_t> data(frames * kFrame);
    for (auto& b : data) b = uint8_t(gen());
    return data;
}

std::vector<uint8_t> frameSlice(const std::vector<uint8_t>& data, size_t from, size_t to) {
    return {data.begin() + long(from * kFrame), data.begin() + long(to * kFrame)};
}

std::string kinds(const std::vector<VdacEvent>& events) {
    std::string out;
    for (const VdacEvent& e : events) out += e.kind + " ";
    return out;
}

// The vdac as "default", S16_LE stereo at 44.1 kHz with a 4410-frame buffer.
struct Card {
    explicit Card(VdacConfig config) : fx(std::move(config)) { useAlsaConfig(fx.confPath); }
    ~Card() {
        if (pcm) snd_pcm_close(pcm);
    }
    int open() { return snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0); }
    void setup(snd_pcm_uframes_t startThreshold = 0) {
        ASSERT_EQ(open(), 0);
        ASSERT_EQ(snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2,
                                     44100, 0, 100000),
                  0);
        if (!startThreshold) return;
        snd_pcm_sw_params_t* sw;
        snd_pcm_sw_params_alloca(&sw);
        ASSERT_EQ(snd_pcm_sw_params_current(pcm, sw), 0);
        ASSERT_EQ(snd_pcm_sw_params_set_start_threshold(pcm, sw, startThreshold), 0);
        ASSERT_EQ(snd_pcm_sw_params(pcm, sw), 0);
    }
    snd_pcm_sframes_t write(const std::vector<uint8_t>& data, size_t from, size_t frames) {
        return snd_pcm_writei(pcm, &data[from * kFrame], frames);
    }
    // Closes the stream, so that the log is complete.
    void finish() {
        snd_pcm_close(pcm);
        pcm = nullptr;
    }

    PlayerFixture fx;
    snd_pcm_t* pcm = nullptr;
};

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
    ASSERT_EQ(kinds(events), "open hw_params prepare start drain close ");
    EXPECT_EQ(events[1].fields["format"], "S24_3LE");
    EXPECT_EQ(events[4].bytes, data.size());
    EXPECT_NEAR(double(events[4].us - events[3].us) * 1e-6, 2.0, 0.04);
}

TEST(Vdac, SteppedPointerMovesInWholeStepsWhileTheCaptureStaysExact) {
    for (long step : {1024L, 1102L /* the period */}) {
        SCOPED_TRACE(step);
        VdacConfig config;
        config.pointerStep = step;
        Card card(config);
        card.setup();
        std::vector<uint8_t> data = noise(30000, unsigned(step));
        std::mt19937 gen(3);
        size_t moves = 0, last = 0;
        for (size_t done = 0; done < 30000;) {
            snd_pcm_sframes_t n =
                card.write(data, done, std::min<size_t>(gen() % 900 + 1, 30000 - done));
            ASSERT_GT(n, 0) << snd_strerror(int(n));
            done += size_t(n);
            snd_pcm_sframes_t delay = -1;
            ASSERT_EQ(snd_pcm_delay(card.pcm, &delay), 0);
            size_t position = done - size_t(delay);
            EXPECT_EQ(position % size_t(step), 0u) << position;
            moves += position != last;
            last = position;
        }
        ASSERT_EQ(snd_pcm_drain(card.pcm), 0);
        card.finish();
        EXPECT_GT(moves, 5u);
        EXPECT_TRUE(card.fx.captured() == data);
    }
}

TEST(Vdac, RefusesWhatItDoesNotListAndNearGivesAListedRate) {
    VdacConfig config;
    config.formats = {"S16_LE", "S32_LE"};
    config.rates = {44100, 96000};
    config.channelsMin = config.channelsMax = 2;
    Card card(config);
    ASSERT_EQ(card.open(), 0);
    snd_pcm_hw_params_t *any, *hw;
    snd_pcm_hw_params_alloca(&any);
    snd_pcm_hw_params_alloca(&hw);
    ASSERT_GE(snd_pcm_hw_params_any(card.pcm, any), 0);

    snd_pcm_hw_params_copy(hw, any);
    EXPECT_LT(snd_pcm_hw_params_set_rate(card.pcm, hw, 48000, 0), 0);
    EXPECT_LT(snd_pcm_hw_params_set_format(card.pcm, hw, SND_PCM_FORMAT_S24_3LE), 0);
    EXPECT_LT(snd_pcm_hw_params_set_channels(card.pcm, hw, 1), 0);
    EXPECT_LT(snd_pcm_hw_params_set_channels(card.pcm, hw, 6), 0);
    // Always a listed rate; alsa-lib stops at the first listed one above when only one is.
    struct {
        unsigned asked, granted;
    } nearest[] = {{48000, 96000}, {88200, 96000}, {192000, 96000}, {8000, 44100}, {44100, 44100}};
    for (auto [asked, granted] : nearest) {
        snd_pcm_hw_params_copy(hw, any);
        unsigned rate = asked;
        EXPECT_EQ(snd_pcm_hw_params_set_rate_near(card.pcm, hw, &rate, nullptr), 0);
        EXPECT_EQ(rate, granted) << asked;
    }
    // A client that insists on an unlisted rate without resampling gets nothing.
    EXPECT_LT(snd_pcm_set_params(card.pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 2,
                                 48000, 0, 100000),
              0);
    unsigned rate = 48000;
    snd_pcm_hw_params_copy(hw, any);
    ASSERT_EQ(snd_pcm_hw_params_set_rate_near(card.pcm, hw, &rate, nullptr), 0);
    ASSERT_EQ(snd_pcm_hw_params_set_format(card.pcm, hw, SND_PCM_FORMAT_S32_LE), 0);
    ASSERT_EQ(snd_pcm_hw_params(card.pcm, hw), 0);
    card.finish();
    std::vector<VdacEvent> hwParams = eventsOfKind(card.fx.events(), "hw_params");
    ASSERT_EQ(hwParams.size(), 1u);
    EXPECT_EQ(hwParams[0].fields["rate"], "96000");
    EXPECT_EQ(hwParams[0].fields["format"], "S32_LE");
}

TEST(Vdac, SuspendThenResumeLosesNothingAndWithoutResumePrepareRestarts) {
    for (bool resumable : {true, false}) {
        SCOPED_TRACE(resumable);
        VdacConfig config;
        config.suspendAfter = 5000;
        config.resumeAllowed = resumable;
        Card card(config);
        card.setup();
        const size_t frames = 20000;
        std::vector<uint8_t> data = noise(frames, 11);
        size_t done = 0, restart = 0;
        int suspends = 0;
        while (done < frames) {
            snd_pcm_sframes_t n = card.write(data, done, std::min<size_t>(700, frames - done));
            if (n == -ESTRPIPE) {
                ++suspends;
                ASSERT_EQ(snd_pcm_state(card.pcm), SND_PCM_STATE_SUSPENDED);
                EXPECT_EQ(snd_pcm_drain(card.pcm), -ESTRPIPE);
                EXPECT_EQ(snd_pcm_resume(card.pcm), 0);  // alsa-lib's answer either way
                if (resumable) continue;
                EXPECT_EQ(card.write(data, done, 1), -EPIPE);
                ASSERT_EQ(snd_pcm_prepare(card.pcm), 0);
                restart = done;
                continue;
            }
            ASSERT_GT(n, 0) << snd_strerror(int(n));
            done += size_t(n);
        }
        ASSERT_EQ(snd_pcm_drain(card.pcm), 0);
        card.finish();
        EXPECT_EQ(suspends, 1);
        std::vector<uint8_t> expected = data;
        if (!resumable) {
            // What the card held when it failed to resume is gone.
            expected = frameSlice(data, 0, 5000);
            std::vector<uint8_t> rest = frameSlice(data, restart, frames);
            expected.insert(expected.end(), rest.begin(), rest.end());
        }
        EXPECT_TRUE(card.fx.captured() == expected);
        std::vector<VdacEvent> events = card.fx.events();
        std::vector<VdacEvent> suspend = eventsOfKind(events, "suspend");
        std::vector<VdacEvent> resume = eventsOfKind(events, "resume");
        ASSERT_EQ(suspend.size(), 1u);
        ASSERT_EQ(resume.size(), 1u);
        EXPECT_EQ(suspend[0].bytes, 5000 * kFrame);
        EXPECT_EQ(resume[0].fields["ok"], resumable ? "1" : "0");
    }
}

TEST(Vdac, DisconnectedCardFailsEveryCallAndABusyOneCannotOpen) {
    VdacConfig config;
    config.disconnectAfter = 3000;
    Card card(config);
    card.setup();
    std::vector<uint8_t> data = noise(10000, 5);
    snd_pcm_sframes_t n = 0;
    for (size_t done = 0; done < 10000 && n >= 0; done += size_t(std::max<long>(n, 0)))
        n = card.write(data, done, 500);
    EXPECT_EQ(n, -ENODEV);
    EXPECT_EQ(snd_pcm_state(card.pcm), SND_PCM_STATE_DISCONNECTED);
    EXPECT_EQ(snd_pcm_drop(card.pcm), -ENODEV);
    EXPECT_EQ(snd_pcm_prepare(card.pcm), -ENODEV);
    EXPECT_EQ(snd_pcm_drain(card.pcm), -ENODEV);
    card.finish();
    EXPECT_TRUE(card.fx.captured() == frameSlice(data, 0, 3000));
    std::vector<VdacEvent> gone = eventsOfKind(card.fx.events(), "disconnect");
    ASSERT_EQ(gone.size(), 1u);
    EXPECT_EQ(gone[0].fields["pos"], "3000");

    VdacConfig busyConfig;
    busyConfig.busy = true;
    Card busy(busyConfig);
    EXPECT_EQ(busy.open(), -EBUSY);
    EXPECT_EQ(kinds(busy.fx.events()), "busy ");
}

// 2000 frames played, 1000 queued; a rewind takes some back and 1500 new ones follow.
// On a card whose position moves in steps, what alsa-lib calls rewindable reaches
// frames already played: those stay in the capture and their rewrites are dropped.
TEST(Vdac, RewindTakesBackUnplayedFramesAndTheRewriteReplacesThem) {
    struct {
        long step;
        bool paused, all;
        size_t rewindable, played;
    } cases[] = {
        {0, false, false, 1000, 0}, {0, true, true, 1000, 0}, {1024, false, true, 1976, 976}};
    for (auto c : cases) {
        SCOPED_TRACE(c.step * 10 + c.paused);
        VdacConfig config;
        config.pointerStep = c.step;
        Card card(config);
        card.setup(1);
        std::vector<uint8_t> first = noise(3000, 1), second = noise(1500, 2);
        ASSERT_EQ(card.write(first, 0, 2000), 2000);
        ASSERT_EQ(card.write(first, 2000, 1000), 1000);
        if (c.paused) {
            ASSERT_EQ(snd_pcm_pause(card.pcm, 1), 0);
        }
        ASSERT_EQ(snd_pcm_rewindable(card.pcm), snd_pcm_sframes_t(c.rewindable));
        size_t back = c.all ? c.rewindable : 600;
        ASSERT_EQ(snd_pcm_rewind(card.pcm, back), snd_pcm_sframes_t(back));
        if (c.paused) {
            ASSERT_EQ(snd_pcm_pause(card.pcm, 0), 0);
        }
        ASSERT_EQ(card.write(second, 0, 1500), 1500);
        ASSERT_EQ(snd_pcm_drain(card.pcm), 0);
        card.finish();

        std::vector<uint8_t> expected = frameSlice(first, 0, 3000 - back + c.played);
        std::vector<uint8_t> rest = frameSlice(second, c.played, 1500);
        expected.insert(expected.end(), rest.begin(), rest.end());
        EXPECT_TRUE(card.fx.captured() == expected);
        std::vector<VdacEvent> rewinds = eventsOfKind(card.fx.events(), "rewind");
        ASSERT_EQ(rewinds.size(), 1u);
        EXPECT_EQ(rewinds[0].fields["frames"], std::to_string(back));
        EXPECT_EQ(rewinds[0].fields["played"], std::to_string(c.played));
    }
}

// Paced, so that writes wait for room: the card holds a buffer beyond what it reports.
TEST(Vdac, CardWithoutRewindTakesNothingBack) {
    VdacConfig config;
    config.noRewind = true;
    config.speed = 2;  // slow enough that a loaded machine keeps the card fed
    Card card(config);
    card.setup(1);
    const size_t frames = 44100;
    std::vector<uint8_t> data = noise(frames, 9);
    size_t refused = 0;
    for (size_t done = 0; done < frames;) {
        snd_pcm_sframes_t n = card.write(data, done, std::min<size_t>(700, frames - done));
        ASSERT_GT(n, 0) << snd_strerror(int(n));
        done += size_t(n);
        if (done == 7000) {
            // alsa-lib offers what the card holds; the card refuses to give it up.
            snd_pcm_sframes_t stale = snd_pcm_rewindable(card.pcm);
            ASSERT_GT(stale, 0);
            ASSERT_EQ(snd_pcm_rewind(card.pcm, stale), stale);
            refused = size_t(stale);
        }
        ASSERT_GE(snd_pcm_avail(card.pcm), 0);
        snd_pcm_sframes_t delay = -1;
        ASSERT_EQ(snd_pcm_delay(card.pcm, &delay), 0);
        EXPECT_LE(delay, 4410);
    }
    ASSERT_EQ(snd_pcm_drain(card.pcm), 0);
    card.finish();
    EXPECT_TRUE(card.fx.captured() == data);
    std::vector<VdacEvent> rewinds = eventsOfKind(card.fx.events(), "rewind");
    ASSERT_EQ(rewinds.size(), 1u);
    EXPECT_EQ(rewinds[0].fields["frames"], "0");
    EXPECT_EQ(rewinds[0].fields["refused"], std::to_string(refused));
}

// A mark takes the count of its surroundings while the card stands still, and
// falls between them, on a frame boundary, while it plays.
TEST(Vdac, MarksCountThePlayedFramesInTheCardsClock) {
    VdacConfig config;
    config.speed = 10;
    Card card(config);
    card.setup(1);
    std::vector<uint8_t> data = noise(44100, 4);
    ASSERT_EQ(card.write(data, 0, 20000), 20000);
    markVdacLog(card.fx.vdac.logPath, "key pressed");
    ASSERT_EQ(snd_pcm_pause(card.pcm, 1), 0);
    markVdacLog(card.fx.vdac.logPath, "paused");
    ASSERT_EQ(snd_pcm_pause(card.pcm, 0), 0);
    ASSERT_EQ(card.write(data, 20000, 24100), 24100);
    ASSERT_EQ(snd_pcm_drain(card.pcm), 0);
    markVdacLog(card.fx.vdac.logPath, "end");
    card.finish();

    std::vector<VdacEvent> events = card.fx.events();
    ASSERT_EQ(kinds(events),
              "open hw_params prepare start mark pause mark pause drain mark close ");
    EXPECT_EQ(events[4].fields["what"], "key_pressed");
    EXPECT_GE(events[4].bytes, events[3].bytes);
    EXPECT_LE(events[4].bytes, events[5].bytes);
    EXPECT_EQ(events[4].bytes % kFrame, 0u);
    EXPECT_EQ(events[6].bytes, events[5].bytes);
    EXPECT_EQ(vdacFramesAt(events, 9), 44100u);
}

}  // namespace
