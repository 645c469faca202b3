// Stop, pause and seek from another thread while a routine plays on its own
// thread at real-time speed, as the command loop drives it.
#include <gtest/gtest.h>

#include <thread>

#include "engine/packing.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

using std::chrono::milliseconds;

void startOn(const Fixture& f, bool di, bool rw, int32_t format) {
    settings.directInput = di;
    settings.rwAccess = rw;
    outputFormat.store(format);
    setQueue({f.path()});
}

// A pause inserted into the stream: the capture is the reference with one run
// of silence frames added at a frame boundary. Returns the silence's frames.
size_t insertedSilence(const std::vector<uint8_t>& cap, const std::vector<uint8_t>& ref,
                       size_t frame, const std::vector<uint8_t>& silenceFrame) {
    EXPECT_GT(cap.size(), ref.size());
    if (cap.size() <= ref.size()) return 0;
    size_t extra = cap.size() - ref.size();
    EXPECT_EQ(extra % frame, 0u);
    size_t at = 0;
    while (at < ref.size() && cap[at] == ref[at]) ++at;
    at -= at % frame;
    for (size_t i = 0; i < extra; ++i)
        if (cap[at + i] != silenceFrame[i % frame]) {
            ADD_FAILURE() << "not silence at byte " << at + i;
            return 0;
        }
    EXPECT_TRUE(std::equal(ref.begin() + long(at), ref.end(), cap.begin() + long(at + extra)))
        << "the stream does not resume at the sample where it paused";
    return extra / frame;
}

struct ControlCase {
    bool di, rw;
};

class Controls : public ::testing::TestWithParam<ControlCase> {
  protected:
    void SetUp() override { resetPlayerState(); }
};

TEST_P(Controls, StopDropsAtOnceAndPrintsNoPrompt) {
    Fixture f = fixture("wav-s16-44k1-stereo.wav");
    Card card({"S32_LE"}, 1);
    startOn(f, GetParam().di, GetParam().rw, kFormatS32);
    OutputCapture out;
    PlayerThread player(routineFor(GetParam().di, kFormatS32));
    ASSERT_TRUE(PlayerThread::waitRunning(1, 10));
    std::this_thread::sleep_for(milliseconds(300));
    stopRequest.store(1);
    pauseRequest.store(0);
    ASSERT_TRUE(PlayerThread::waitRunning(0, 5));
    player.join();
    out.finish();
    EXPECT_EQ(stopRequest.load(), 0);
    EXPECT_EQ(playerThread.load(), pthread_t(0));
    EXPECT_EQ(out.err().find("\n> "), std::string::npos) << out.err();
    EXPECT_EQ(eventsOfKind(card.events(), "drop").size(), 1u);
    EXPECT_LT(card.capture().size(), expectedCardBytes(f, kFormatS32).size() / 2);
}

TEST_P(Controls, PauseInsertsOnlySilenceAndResumesAtTheSameSample) {
    Fixture f = fixture("flac-s16-44k1-stereo.flac");
    Card card({"S32_LE"}, 1);
    startOn(f, GetParam().di, GetParam().rw, kFormatS32);
    OutputCapture out;
    PlayerThread player(routineFor(GetParam().di, kFormatS32));
    ASSERT_TRUE(PlayerThread::waitRunning(1, 10));
    std::this_thread::sleep_for(milliseconds(400));
    pauseRequest.store(1);
    std::this_thread::sleep_for(milliseconds(300));
    pauseRequest.store(0);
    ASSERT_TRUE(PlayerThread::waitRunning(0, 10));
    player.join();
    out.finish();
    EXPECT_TRUE(out.err().ends_with("\n> "));
    size_t frame = frameBytes(kFormatS32, f.channels);
    size_t silent = insertedSilence(card.capture(), expectedCardBytes(f, kFormatS32), frame,
                                    std::vector<uint8_t>(frame, 0));
    EXPECT_GT(silent, size_t(f.rate) / 10);  // most of the 300 ms pause
    EXPECT_TRUE(eventsOfKind(card.events(), "xrun").empty());
}

TEST_P(Controls, SeekContinuesWithTheReferenceFromThatSecond) {
    Fixture f = fixture("wav-s16-44k1-stereo.wav");
    Card card({"S32_LE"}, 1);
    startOn(f, GetParam().di, GetParam().rw, kFormatS32);
    OutputCapture out;
    PlayerThread player(routineFor(GetParam().di, kFormatS32));
    ASSERT_TRUE(PlayerThread::waitRunning(1, 10));
    std::this_thread::sleep_for(milliseconds(300));
    seekSeconds.store(2);
    ASSERT_TRUE(PlayerThread::waitRunning(0, 10));
    player.join();
    out.finish();
    std::vector<uint8_t> ref = expectedCardBytes(f, kFormatS32), cap = card.capture();
    size_t frame = frameBytes(kFormatS32, f.channels);
    size_t tail = ref.size() - 2 * size_t(f.rate) * frame;
    ASSERT_GT(cap.size(), tail);
    size_t head = cap.size() - tail;  // what played before the jump
    EXPECT_EQ(head % frame, 0u);
    EXPECT_TRUE(std::equal(cap.begin(), cap.begin() + long(head), ref.begin()));
    EXPECT_TRUE(std::equal(cap.begin() + long(head), cap.end(), ref.end() - long(tail)));
}

INSTANTIATE_TEST_SUITE_P(Modes, Controls,
                         ::testing::Values(ControlCase{false, false}, ControlCase{false, true},
                                           ControlCase{true, false}, ControlCase{true, true}),
                         [](const auto& info) {
                             return std::string(info.param.di ? "DI" : "FM") +
                                    (info.param.rw ? "_RW" : "_MMAP");
                         });

// DSD pause silence: the idle pattern for native words, and DoP words whose
// markers keep alternating through the pause into the resumed stream.
TEST(DsdControls, PauseSilenceKeepsTheDacInDsdMode) {
    Fixture f;
    for (const Fixture& d : fixtures("dsd"))
        if (d.container == "dsf" && d.rate == 2822400 && d.channels == 2) f = d;
    if (f.file.empty()) GTEST_SKIP() << "no DSD fixtures";
    for (bool dop : {false, true})
        for (ControlCase mode : {ControlCase{false, true}, ControlCase{true, false}}) {
            SCOPED_TRACE(testing::Message() << (dop ? "DoP" : "native") << mode.di << mode.rw);
            resetPlayerState();
            settings.dsdMode = dop ? kDsdDop : kDsdNative;
            dsdNativeBE.store(1);
            Card card({"DSD_U32_BE", "S32_LE"}, 1);
            startOn(f, mode.di, mode.rw, kFormatS32);
            OutputCapture out;
            PlayerThread player(routineFor(mode.di, kFormatS32));
            ASSERT_TRUE(PlayerThread::waitRunning(1, 10));
            std::this_thread::sleep_for(milliseconds(250));
            pauseRequest.store(1);
            std::this_thread::sleep_for(milliseconds(250));
            pauseRequest.store(0);
            ASSERT_TRUE(PlayerThread::waitRunning(0, 10));
            player.join();
            out.finish();
            std::vector<uint8_t> cap = card.capture();
            std::vector<uint8_t> dsd = readFileBytes(f.refPath());
            if (!dop) {
                packDsdU32BE(dsd.data(), uint32_t(dsd.size()), f.channels);
                EXPECT_GT(insertedSilence(cap, dsd, 8, std::vector<uint8_t>(8, 0x69)), 0u);
                continue;
            }
            // DoP: markers alternate across the whole capture; the silence
            // carries idle bytes and is cut out, the rest is the stream.
            ASSERT_EQ(cap.size() % 8, 0u);
            std::vector<uint8_t> data;
            uint8_t prev = 0;
            for (size_t i = 0; i < cap.size(); i += 8) {
                uint8_t marker = cap[i + 3];
                ASSERT_EQ(cap[i + 7], marker) << "frame " << i / 8;
                if (i) {
                    ASSERT_NE(marker, prev) << "marker break at frame " << i / 8;
                }
                prev = marker;
                data.insert(data.end(), {cap[i + 2], cap[i + 6], cap[i + 1], cap[i + 5]});
            }
            EXPECT_GT(insertedSilence(data, dsd, 4, std::vector<uint8_t>(4, 0x69)), 0u);
        }
}

}  // namespace
