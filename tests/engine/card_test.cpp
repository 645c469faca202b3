// Cards that are not ideal: ones that refuse a rate, a channel count or a
// format, get suspended, unplugged or are held busy. A file is never played in anything but its own
// format; the queue goes on with the files the card takes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <thread>

#include "device/recovery.h"

#include "engine/packing.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

class Refusals : public testing::TestWithParam<Mode> {};

TEST_P(Refusals, RefusedFilesPlayNoFrameAndTheQueueGoesOn) {
    const Fixture hiRate = fixture("flac-s24-96k-stereo.flac"),
                  sixCh = fixture("flac-s24-48k-6ch.flac"), dsd = fixture("dsf-dsd64-2ch.dsf"),
                  plain = fixture("flac-s16-44k1-stereo.flac");
    Card card({"S32_LE"});
    card.config.rates = {44100, 48000, 88200};
    card.config.channelsMax = 2;
    card.reconfigure();
    settings.dsdMode = kDsdDop;  // DoP of DSD64 needs 176400 Hz
    RunText text =
        play({hiRate.path(), sixCh.path(), dsd.path(), plain.path()}, GetParam(), kFormatS32);
    for (const std::string& want :
         {hiRate.path() + ": card does not take 96000 Hz (it takes 44100, 48000, 88200)\n",
          sixCh.path() + ": card does not take 6 channels (it takes 1 to 2 channels)\n",
          dsd.path() + ": card does not take 176400 Hz (it takes 44100, 48000, 88200)\n"})
        EXPECT_NE(text.err.find(want), std::string::npos) << text.err;
    EXPECT_TRUE(card.capture() == expectedCardBytes(plain, kFormatS32));
    const auto hw = eventsOfKind(readVdacLog(card.config.logPath), "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields.at("rate"), "44100");
    EXPECT_EQ(playerControl.runFailed.load(), 1);
    EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
}

// A card with none of the player's PCM formats is told so and fed nothing.
TEST_P(Refusals, AFormatTheCardLacksIsNeverPacked) {
    const Fixture wav = fixture("wav-s16-44k1-stereo.wav");
    Card card({"FLOAT_LE", "S24_LE"});
    RunText text = play({wav.path()}, GetParam(), kFormatS16);
    EXPECT_NE(text.err.find(wav.path() + ": card does not take S16_LE (it takes S24_LE, FLOAT_LE)"),
              std::string::npos)
        << text.err;
    EXPECT_TRUE(card.capture().empty());
    EXPECT_EQ(card.count("hw_params"), 0u);
}

class Faults : public testing::TestWithParam<Mode> {};

// A suspended card is resumed and loses no frame; one that cannot resume is
// prepared and the file plays on to its end; an unplugged one ends the run
// with its name and the prompt, never a hang or a spin.
TEST_P(Faults, SuspendAndUnplugMidFile) {
    const Fixture f = fixture("wav-s16-44k1-stereo.wav");
    const std::vector<uint8_t> ref = expectedCardBytes(f, kFormatS32);
    for (bool resume : {true, false}) {
        SCOPED_TRACE(resume ? "resume" : "no resume");
        Card card({"S32_LE"});
        card.config.suspendAfter = 50000;
        card.config.resumeAllowed = resume;
        card.reconfigure();
        RunText text = play({f.path()}, GetParam(), kFormatS32);
        EXPECT_EQ(card.count("suspend"), 1u);
        EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
        const std::vector<uint8_t> cap = card.capture();
        if (resume) {
            EXPECT_TRUE(cap == ref) << cap.size() << " of " << ref.size();
        } else {
            // What the card held when it stopped is gone with it; the rest plays.
            ASSERT_GE(cap.size(), 50000u * 8);
            EXPECT_TRUE(std::equal(cap.begin(), cap.begin() + 50000 * 8, ref.begin()));
            EXPECT_TRUE(std::equal(cap.end() - 8192, cap.end(), ref.end() - 8192));
        }
    }
    // A card that cannot rewind is dropped and refilled at a pause: the file
    // goes on from the frame the card stopped at, give or take the one frame
    // it may play between the reading of its position and the drop.
    {
        Card card({"S32_LE"}, 4);
        card.config.noRewind = true;
        card.reconfigure();
        RunText text = play({f.path()}, GetParam(), kFormatS32, [] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            playerControl.pauseRequest.store(1);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            playerControl.pauseRequest.store(0);
        });
        std::vector<uint8_t> cap = card.capture();
        // Remove the one run of silence the pause left, then compare.
        size_t at = 0;
        while (at < cap.size() && at < ref.size() && cap[at] == ref[at]) ++at;
        at -= at % 8;
        size_t end = at;
        while (end + 8 <= cap.size() &&
               std::all_of(&cap[end], &cap[end + 8], [](uint8_t b) { return !b; }))
            end += 8;
        cap.erase(cap.begin() + long(at), cap.begin() + long(end));
        EXPECT_NEAR(double(cap.size()), double(ref.size()), 8);
        const size_t tail = ref.size() - at - 16;
        EXPECT_TRUE(std::equal(cap.end() - long(tail), cap.end(), ref.end() - long(tail)));
    }
    Card card({"S32_LE"});
    card.config.disconnectAfter = 50000;
    card.reconfigure();
    RunText text = play({f.path(), f.path()}, GetParam(), kFormatS32);
    EXPECT_NE(text.err.find("\nsound device \"default\" is gone: No such device\n"),
              std::string::npos)
        << text.err;
    EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
    EXPECT_EQ(card.capture().size(), 50000u * 8);
    EXPECT_EQ(playerControl.runFailed.load(), 1);
}

// Busy at open: the message says so and, where the kernel shows it, who
// holds the card.
TEST(Faults, BusyCardNamesItsHolder) {
    const Fixture f = fixture("wav-s16-44k1-stereo.wav");
    Card card({"S32_LE"});
    card.config.busy = true;
    card.reconfigure();
    const std::string saved = procAsoundRoot;
    for (bool shown : {false, true}) {
        procAsoundRoot = card.dir.file("asound");
        if (shown) {
            std::filesystem::create_directories(procAsoundRoot + "/card1/pcm0p/sub0");
            writeFileBytes(procAsoundRoot + "/card1/pcm0p/sub0/status",
                           {'s', 't', 'a', 't', 'e', ':', ' ', 'R', '\n', 'o', 'w', 'n', 'e',
                            'r', '_', 'p', 'i', 'd', ' ', ' ', ' ', ':',  ' ', '4', '2', '\n'});
        }
        RunText text = play({f.path()}, {true, false}, kFormatS32);
        const std::string why = shown ? "in use by process 42" : "another program is using it";
        EXPECT_NE(
            text.err.find(f.path() + ": unable to open pcm device: Device or resource busy (" +
                          why + ")\n"),
            std::string::npos)
            << text.err;
        EXPECT_TRUE(text.err.ends_with("\n> "));
    }
    procAsoundRoot = saved;
    EXPECT_TRUE(card.capture().empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, Faults, testing::ValuesIn(kModes),
                         [](const auto& info) { return modeName(info.param); });

INSTANTIATE_TEST_SUITE_P(Modes, Refusals, testing::ValuesIn(kModes),
                         [](const auto& info) { return modeName(info.param); });

}  // namespace
