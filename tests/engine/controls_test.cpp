// Stop, pause and seek from this thread while a routine plays at real-time
// speed on its own, as the command loop drives it; every mode has its own
// transfer loop and source, so each is swept.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "engine/packing.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

const auto hold = [](int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); };

// cap must be ref with one run of idle frames inserted at a frame boundary
// and, when tail > 0, ref's last tail bytes after a jump. Returns the run's
// frames.
size_t pausedFrames(const std::vector<uint8_t>& cap, const std::vector<uint8_t>& ref, size_t tail,
                    const std::vector<uint8_t>& idle) {
    const size_t frame = idle.size();
    if (cap.size() < std::max(ref.size() * !tail, tail) ||
        !std::equal(ref.end() - long(tail), ref.end(), cap.end() - long(tail))) {
        ADD_FAILURE() << "captured " << cap.size() << " bytes, not ending in the reference's";
        return 0;
    }
    const size_t end = cap.size() - tail;
    size_t at = 0;
    while (at < end && at < ref.size() && cap[at] == ref[at]) ++at;
    at -= at % frame;
    // Without a jump the length tells the run; after one, idle frames are counted.
    size_t resume = tail ? at : at + cap.size() - ref.size();
    while (tail && resume + frame <= end && std::equal(idle.begin(), idle.end(), &cap[resume]))
        resume += frame;
    size_t idleEnd = at;
    while (idleEnd < resume && cap[idleEnd] == idle[(idleEnd - at) % frame]) ++idleEnd;
    EXPECT_EQ(idleEnd, resume) << "the pause is not all idle frames";
    EXPECT_TRUE(
        std::equal(cap.begin() + long(resume), cap.begin() + long(end), ref.begin() + long(at)))
        << "the stream does not resume at the sample where it paused";
    return (resume - at) / frame;
}

class Controls : public testing::TestWithParam<Mode> {};

// The pause fills with idle frames of the stream's kind: zeros for PCM, the
// idle pattern for native DSD words, and DoP words whose markers keep
// alternating, so the DAC stays in DSD mode. PCM seeks after the pause.
TEST_P(Controls, PauseInsertsIdleFramesAndSeekJumpsToTheSecond) {
    for (int dsdMode : {-1, int(kDsdNative), int(kDsdDop)}) {
        SCOPED_TRACE(dsdMode);
        const bool pcm = dsdMode < 0;
        const Fixture f = fixture(pcm ? "flac-s16-44k1-stereo.flac" : "dsf-dsd64-2ch.dsf");
        Card card({"DSD_U32_BE", "S32_LE"}, 1);
        settings.dsdMode = dsdMode;
        playerControl.dsdNativeBE.store(1);
        RunText text = play({f.path()}, GetParam(), kFormatS32, [pcm] {
            hold(300);
            playerControl.pauseRequest.store(1);
            hold(300);
            playerControl.pauseRequest.store(0);
            hold(pcm ? 200 : 0);
            if (pcm) playerControl.seekSeconds.store(2);
        });
        EXPECT_TRUE(text.err.ends_with("\n> "));
        if (kRealTiming) {
            EXPECT_EQ(card.count("xrun"), 0u);
        }
        std::vector<uint8_t> cap = card.capture(), data;
        std::vector<uint8_t> ref =
            pcm ? expectedCardBytes(f, kFormatS32) : readFileBytes(f.refPath());
        if (pcm) {
            const size_t tail = ref.size() - 2 * size_t(f.rate) * 8;
            EXPECT_GT(pausedFrames(cap, ref, tail, std::vector<uint8_t>(8, 0)),
                      size_t(f.rate) / 10);  // most of the 300 ms pause
        } else if (dsdMode == kDsdNative) {
            packDsdNative(ref.data(), ref.data(), uint32_t(ref.size() / (4 * f.channels)),
                          f.channels, kFormatDsdU32BE);
            EXPECT_GT(pausedFrames(cap, ref, 0, std::vector<uint8_t>(8, kDsdIdleByte)), 0u);
        } else {
            ASSERT_EQ(cap.size() % 8, 0u);
            for (size_t i = 0; i < cap.size(); i += 8) {
                ASSERT_EQ(cap[i + 7], cap[i + 3]) << "frame " << i / 8;
                ASSERT_TRUE(i == 0 || cap[i + 3] != cap[i - 5])
                    << "marker break at frame " << i / 8;
                data.insert(data.end(), {cap[i + 2], cap[i + 6], cap[i + 1], cap[i + 5]});
            }
            EXPECT_GT(pausedFrames(data, ref, 0, std::vector<uint8_t>(4, kDsdIdleByte)), 0u);
        }
    }
}

// Index in events of the first event of kind at or after from.
size_t eventAfter(const std::vector<VdacEvent>& events, size_t from, const std::string& kind) {
    while (from < events.size() && events[from].kind != kind) ++from;
    return from;
}

// With the default buffer (half a second) a pause is heard, and a stop
// acts, within one period of the key, on a card that rewinds and on one that
// cannot: counted in frames from the card's own log, not by a clock.
TEST_P(Controls, PauseAndStopAreHeardWithinAPeriod) {
    const Fixture f = fixture("flac-s16-44k1-stereo.flac");
    for (bool noRewind : {false, true}) {
        // The virtual card fakes "no rewind" by reporting every written frame
        // as fetched, which makes its read/write room a lie: memory-mapped only.
        if (noRewind && GetParam().rw) continue;
        SCOPED_TRACE(noRewind ? "no rewind" : "rewind");
        Card card({"S32_LE"}, 1);
        card.config.noRewind = noRewind;
        card.reconfigure();
        settings.periodFrames = settings.bufferFrames = -1;
        const std::string log = card.config.logPath;
        int64_t heardWhilePaused = -1;
        RunText text = play({f.path()}, GetParam(), kFormatS32, [&] {
            hold(700);
            markVdacLog(log, "pause");
            playerControl.pauseRequest.store(1);
            hold(300);
            heardWhilePaused = playerControl.heardMs.load();
            markVdacLog(log, "stop");
            playerControl.stopRequest.store(1);
            playerControl.pauseRequest.store(0);
        });
        const std::vector<VdacEvent> events = readVdacLog(log);
        const size_t hw = eventAfter(events, 0, "hw_params");
        ASSERT_LT(hw, events.size());
        const uint64_t period = std::stoull(events[hw].fields.at("period"));
        const uint64_t buffer = std::stoull(events[hw].fields.at("buffer"));
        EXPECT_NEAR(double(buffer), 22050, 2048);  // about half a second
        const size_t pause = eventAfter(events, 0, "mark"),
                     stop = eventAfter(events, pause + 1, "mark");
        const size_t drop = eventAfter(events, stop, "drop");
        ASSERT_LT(drop, events.size());
        EXPECT_EQ(eventAfter(events, drop + 1, "drop"), events.size());
        // A stop leaves no request behind and prints no prompt.
        EXPECT_EQ(std::tuple(playerControl.stopRequest.load(), playerControl.playerRunning.load()),
                  std::tuple(0, 0));
        EXPECT_EQ(playerControl.playerThread.load(), pthread_t(0));
        EXPECT_EQ(text.err.find("\n> "), std::string::npos) << text.err;
        if (!kRealTiming) continue;
        EXPECT_LE(vdacFramesAt(events, drop) - vdacFramesAt(events, stop), period);

        // The first silent frame after the key, in the capture.
        const std::vector<uint8_t> cap = card.capture();
        uint64_t frame = vdacFramesAt(events, pause);
        while (frame * 8 + 8 <= cap.size() &&
               !std::all_of(&cap[frame * 8], &cap[frame * 8 + 8], [](uint8_t b) { return !b; }))
            ++frame;
        EXPECT_LE(frame - vdacFramesAt(events, pause), period + buffer / 16);
        // The elapsed time is that of the last frame heard, not of the last
        // written (the card without rewind reports its position as all written).
        if (!noRewind) {
            EXPECT_NEAR(double(heardWhilePaused), double(frame) * 1000 / 44100, 5);
        }
    }
}

// A card that cannot rewind is dropped and refilled at a pause: the file
// goes on from the frame the card stopped at, give or take the one frame
// it may play between the reading of its position and the drop.
TEST_P(Controls, PauseOnACardThatCannotRewindGoesOnWhereItStopped) {
    const Fixture f = fixture("wav-s16-44k1-stereo.wav");
    const std::vector<uint8_t> ref = expectedCardBytes(f, kFormatS32);
    Card card({"S32_LE"}, kRealTiming ? 4 : 1);  // still playing at the pause
    card.config.noRewind = true;
    card.reconfigure();
    play({f.path()}, GetParam(), kFormatS32, [] {
        hold(200);
        playerControl.pauseRequest.store(1);
        hold(100);
        playerControl.pauseRequest.store(0);
    });
    std::vector<uint8_t> cap = card.capture();
    // Remove the one run of silence the pause left, then compare.
    size_t at = 0;
    while (at < cap.size() && at < ref.size() && cap[at] == ref[at]) ++at;
    at -= at % 8;
    ASSERT_LT(at + 16, ref.size()) << "the file ended before the pause";
    size_t end = at;
    while (end + 8 <= cap.size() &&
           std::all_of(&cap[end], &cap[end + 8], [](uint8_t b) { return !b; }))
        end += 8;
    cap.erase(cap.begin() + long(at), cap.begin() + long(end));
    EXPECT_NEAR(double(cap.size()), double(ref.size()), 8);
    const size_t tail = ref.size() - at - 16;
    EXPECT_TRUE(std::equal(cap.end() - long(tail), cap.end(), ref.end() - long(tail)));
}

// A stop that meets a Full Memory load in its pieces ends the run with
// nothing played, every piece's thread gone and the card closed; the half
// load is not kept, so the next run of the same file plays it whole.
TEST(Controls, StopDuringAFullMemoryLoadKeepsNothing) {
    const Fixture f = fixture("flac-s24-96k-stereo.flac");
    Card card({"S32_LE"});
    playerControl.stopRequest.store(1);  // seen by each piece at its first chunk
    RunText text = play({f.path()}, {false, false}, kFormatS32);
    EXPECT_EQ(std::tuple(playerControl.stopRequest.load(), playerControl.runFailed.load()),
              std::tuple(0, 0));
    EXPECT_TRUE(card.capture().empty());
    EXPECT_EQ(card.count("close"), 1u);
    EXPECT_EQ(text.err.find("error"), std::string::npos) << text.err;
    play({f.path()}, {false, false}, kFormatS32);
    EXPECT_TRUE(card.capture() == expectedCardBytes(f, kFormatS32));
}

INSTANTIATE_TEST_SUITE_P(Modes, Controls, testing::ValuesIn(kModes),
                         [](const auto& info) { return modeName(info.param); });

}  // namespace
