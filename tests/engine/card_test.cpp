// Cards that are not ideal: ones that refuse a rate, a channel count or a
// format. A file is never played in anything but its own format; the queue
// goes on with the files the card takes.
#include <gtest/gtest.h>

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

INSTANTIATE_TEST_SUITE_P(Modes, Refusals, testing::ValuesIn(kModes),
                         [](const auto& info) { return modeName(info.param); });

}  // namespace
