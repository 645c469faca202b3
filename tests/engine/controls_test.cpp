// Stop, pause and seek from this thread while a routine plays at real-time
// speed on its own, as the command loop drives it; every mode has its own
// transfer loop and source, so each is swept.
#include <gtest/gtest.h>

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

TEST_P(Controls, StopDropsAtOnceAndPrintsNoPrompt) {
    Fixture f = fixture("wav-s16-44k1-stereo.wav");
    Card card({"S32_LE"}, 1);
    RunText text = play({f.path()}, GetParam(), kFormatS32, [] {
        hold(300);
        playerControl.stopRequest.store(1);
        playerControl.pauseRequest.store(0);
    });
    EXPECT_EQ(std::tuple(playerControl.stopRequest.load(), playerControl.playerRunning.load()),
              std::tuple(0, 0));
    EXPECT_EQ(playerControl.playerThread.load(), pthread_t(0));
    EXPECT_EQ(text.err.find("\n> "), std::string::npos) << text.err;
    EXPECT_EQ(card.count("drop"), 1u);
    EXPECT_LT(card.capture().size(), expectedCardBytes(f, kFormatS32).size() / 2);
}

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
        EXPECT_EQ(card.count("xrun"), 0u);
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

INSTANTIATE_TEST_SUITE_P(Modes, Controls, testing::ValuesIn(kModes),
                         [](const auto& info) { return modeName(info.param); });

}  // namespace
