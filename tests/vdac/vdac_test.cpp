// The virtual DAC records exactly what a client writes, its event log tells
// the stream's life in order, and it consumes at the clock's pace x speed:
// four seconds of audio at speed 2 take two from start to the end of drain.
// Its habits are driven here through alsa-lib as a player would meet them,
// where a player's test would pass even if the card lacked them: a stepped
// pointer, a lost resume, rewinds and the marks' estimate. Refusals, unplug
// and busy fail the player's own tests when missing.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "tests/support/harness.h"

namespace {

constexpr size_t kFrame = 4;  // S16_LE stereo

std::vector<uint8_t> noise(size_t frames, unsigned seed, size_t frame = kFrame) {
    std::mt19937 gen(seed);
    std::vector<uint8_t> data(frames * frame);
    for (auto& b : data) b = uint8_t(gen());
    return data;
}

// The first `head` frames of a, then b from frame `from` on.
std::vector<uint8_t> joined(const std::vector<uint8_t>& a, size_t head,
                            const std::vector<uint8_t>& b, size_t from) {
    std::vector<uint8_t> out(a.begin(), a.begin() + long(head * kFrame));
    out.insert(out.end(), b.begin() + long(from * kFrame), b.end());
    return out;
}

std::string kinds(const std::vector<VdacEvent>& events) {
    std::string out;
    for (const VdacEvent& e : events) out += e.kind + " ";
    return out;
}

VdacEvent only(const std::vector<VdacEvent>& events, const char* kind) {
    const std::vector<VdacEvent> found = eventsOfKind(events, kind);
    EXPECT_EQ(found.size(), 1u) << kind;
    return found.empty() ? VdacEvent{} : found[0];
}

// The vdac as "default", S16_LE stereo at 44.1 kHz with a 4410-frame buffer unless asked.
struct Card {
    explicit Card(VdacConfig config) : fx(std::move(config)) { useAlsaConfig(fx.confPath); }
    ~Card() { pcm&& snd_pcm_close(pcm); }
    int open() { return snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0); }
    void setup(snd_pcm_uframes_t startThreshold = 0,
               snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE, unsigned channels = 2,
               unsigned rate = 44100, unsigned latencyUs = 100000) {
        ASSERT_EQ(open(), 0);
        ASSERT_EQ(snd_pcm_set_params(pcm, format, SND_PCM_ACCESS_RW_INTERLEAVED, channels, rate, 0,
                                     latencyUs),
                  0);
        frame = size_t(snd_pcm_frames_to_bytes(pcm, 1));
        if (!startThreshold) return;
        snd_pcm_sw_params_t* sw;
        snd_pcm_sw_params_alloca(&sw);
        ASSERT_EQ(snd_pcm_sw_params_current(pcm, sw), 0);
        ASSERT_EQ(snd_pcm_sw_params_set_start_threshold(pcm, sw, startThreshold), 0);
        ASSERT_EQ(snd_pcm_sw_params(pcm, sw), 0);
    }
    snd_pcm_sframes_t write(const std::vector<uint8_t>& data, size_t from, size_t frames) {
        return snd_pcm_writei(pcm, &data[from * frame], frames);
    }
    // Writes data on from frame `done` in chunks of `most` frames (of random sizes up to it
    // with gen), calling after() after each; 0 at the end, or the first failure.
    snd_pcm_sframes_t writeAll(const std::vector<uint8_t>& data, size_t& done, size_t most,
                               std::mt19937* gen = nullptr,
                               const std::function<void()>& after = {}) {
        for (const size_t total = data.size() / frame; done < total;) {
            const snd_pcm_sframes_t n =
                write(data, done, std::min(gen ? (*gen)() % most + 1 : most, total - done));
            if (n <= 0) return n ? n : -EIO;
            done += size_t(n);
            if (after) after();
        }
        return 0;
    }
    // Drains and closes the stream, so that the log is complete; drain's answer.
    int finish() {
        const int drained = snd_pcm_drain(pcm);
        snd_pcm_close(pcm);
        pcm = nullptr;
        return drained;
    }

    PlayerFixture fx;
    snd_pcm_t* pcm = nullptr;
    size_t frame = kFrame;
};

// Chunks of varying size, so that transfers straddle the ring's end, in 9-byte
// frames. At speed 2 four seconds take two; a pointer that moves in steps, as
// written, stays on whole steps.
TEST(Vdac, CaptureIsExactAtTheClocksPaceAndASteppedPointerMovesInWholeSteps) {
    for (long step : {0L, 1024L, 2400L /* the period */}) {
        SCOPED_TRACE(step);
        Card card({.speed = step ? 0.0 : 2.0, .pointerStep = step});
        card.setup(0, SND_PCM_FORMAT_S24_3LE, 3, 48000, 200000);
        const std::vector<uint8_t> data = noise(step ? 30000 : 4 * 48000, unsigned(step + 7), 9);
        std::mt19937 gen(7);
        size_t done = 0, moves = 0, last = 0;
        auto onStep = [&] {
            snd_pcm_sframes_t delay = -1;
            ASSERT_EQ(snd_pcm_delay(card.pcm, &delay), 0);
            const size_t position = done - size_t(delay);
            EXPECT_EQ(position % size_t(step), 0u) << position;
            moves += position != last;
            last = position;
        };
        ASSERT_EQ(card.writeAll(data, done, 3000, &gen, step ? onStep : std::function<void()>()),
                  0);
        ASSERT_EQ(card.finish(), 0);
        EXPECT_TRUE(card.fx.captured() == data);
        if (step) {
            EXPECT_GT(moves, 5u);
            continue;
        }
        std::vector<VdacEvent> events = card.fx.events();
        ASSERT_EQ(kinds(events), "open hw_params prepare start drain close ");
        EXPECT_EQ(events[1].fields["format"], "S24_3LE");
        EXPECT_EQ(events[4].bytes, data.size());
        EXPECT_NEAR(double(events[4].us - events[3].us) * 1e-6, 2.0, 0.04);
    }
}

TEST(Vdac, SuspendThenResumeLosesNothingAndWithoutResumePrepareRestarts) {
    for (bool resumable : {true, false}) {
        SCOPED_TRACE(resumable);
        Card card({.suspendAfter = 5000, .resumeAllowed = resumable});
        card.setup();
        const std::vector<uint8_t> data = noise(20000, 11);
        size_t done = 0, restart = 5000;
        int suspends = 0;
        snd_pcm_sframes_t n;
        while ((n = card.writeAll(data, done, 700)) == -ESTRPIPE) {
            ++suspends;
            ASSERT_EQ(snd_pcm_state(card.pcm), SND_PCM_STATE_SUSPENDED);
            EXPECT_EQ(snd_pcm_drain(card.pcm), -ESTRPIPE);
            EXPECT_EQ(snd_pcm_resume(card.pcm), 0);  // alsa-lib's answer either way
            if (resumable) continue;
            EXPECT_EQ(card.write(data, done, 1), -EPIPE);
            ASSERT_EQ(snd_pcm_prepare(card.pcm), 0);
            restart = done;
        }
        ASSERT_EQ(n, 0) << snd_strerror(int(n));
        ASSERT_EQ(card.finish(), 0);
        EXPECT_EQ(suspends, 1);
        // Without resume, what the card held when it failed to resume is gone.
        EXPECT_TRUE(card.fx.captured() == joined(data, 5000, data, restart));
        const std::vector<VdacEvent> events = card.fx.events();
        EXPECT_EQ(only(events, "suspend").bytes, 5000 * kFrame);
        EXPECT_EQ(only(events, "resume").fields["ok"], resumable ? "1" : "0");
    }
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
        Card card({.pointerStep = c.step});
        card.setup(1);
        const std::vector<uint8_t> first = noise(3000, 1), second = noise(1500, 2);
        ASSERT_EQ(card.write(first, 0, 2000), 2000);
        ASSERT_EQ(card.write(first, 2000, 1000), 1000);
        ASSERT_EQ(c.paused ? snd_pcm_pause(card.pcm, 1) : 0, 0);
        ASSERT_EQ(snd_pcm_rewindable(card.pcm), snd_pcm_sframes_t(c.rewindable));
        const size_t back = c.all ? c.rewindable : 600;
        ASSERT_EQ(snd_pcm_rewind(card.pcm, back), snd_pcm_sframes_t(back));
        ASSERT_EQ(c.paused ? snd_pcm_pause(card.pcm, 0) : 0, 0);
        ASSERT_EQ(card.write(second, 0, 1500), 1500);
        ASSERT_EQ(card.finish(), 0);
        EXPECT_TRUE(card.fx.captured() == joined(first, 3000 - back + c.played, second, c.played));
        VdacEvent rewind = only(card.fx.events(), "rewind");
        EXPECT_EQ(rewind.fields["frames"], std::to_string(back));
        EXPECT_EQ(rewind.fields["played"], std::to_string(c.played));
    }
}

// Paced, so that writes wait for room: the card holds a buffer beyond what it reports;
// speed 2 is slow enough that a loaded machine keeps the card fed.
TEST(Vdac, CardWithoutRewindTakesNothingBack) {
    Card card({.speed = 2, .noRewind = true});
    card.setup(1);
    const std::vector<uint8_t> data = noise(44100, 9);
    size_t done = 0, refused = 0;
    // alsa-lib offers what the card holds at 7000 frames; the card refuses to give it up.
    auto check = [&] {
        if (done == 7000) {
            const snd_pcm_sframes_t stale = snd_pcm_rewindable(card.pcm);
            ASSERT_GT(stale, 0);
            ASSERT_EQ(snd_pcm_rewind(card.pcm, stale), stale);
            refused = size_t(stale);
        }
        snd_pcm_sframes_t delay = -1;
        ASSERT_GE(snd_pcm_avail(card.pcm), 0);
        ASSERT_EQ(snd_pcm_delay(card.pcm, &delay), 0);
        EXPECT_LE(delay, 4410);
    };
    ASSERT_EQ(card.writeAll(data, done, 700, nullptr, check), 0);
    ASSERT_EQ(card.finish(), 0);
    EXPECT_TRUE(card.fx.captured() == data);
    VdacEvent rewind = only(card.fx.events(), "rewind");
    EXPECT_EQ(rewind.fields["frames"], "0");
    EXPECT_EQ(rewind.fields["refused"], std::to_string(refused));
}

// A mark takes the count of its surroundings while the card stands still, and
// falls between them, on a frame boundary, while it plays.
TEST(Vdac, MarksCountThePlayedFramesInTheCardsClock) {
    Card card({.speed = 10});
    card.setup(1);
    const std::vector<uint8_t> data = noise(44100, 4);
    const std::string& log = card.fx.vdac.logPath;
    ASSERT_EQ(card.write(data, 0, 20000), 20000);
    markVdacLog(log, "key pressed");
    ASSERT_EQ(snd_pcm_pause(card.pcm, 1), 0);
    markVdacLog(log, "paused");
    ASSERT_EQ(snd_pcm_pause(card.pcm, 0), 0);
    ASSERT_EQ(card.write(data, 20000, 24100), 24100);
    ASSERT_EQ(snd_pcm_drain(card.pcm), 0);
    markVdacLog(log, "end");
    card.finish();

    std::vector<VdacEvent> events = card.fx.events();
    ASSERT_EQ(kinds(events),
              "open hw_params prepare start mark pause mark pause drain mark close ");
    EXPECT_EQ(events[4].fields["what"], "key_pressed");
    EXPECT_LE(events[4].bytes, events[5].bytes);
    EXPECT_EQ(events[4].bytes % kFrame, 0u);
    EXPECT_EQ(events[6].bytes, events[5].bytes);
    EXPECT_EQ(vdacFramesAt(events, 9), 44100u);
}

}  // namespace
