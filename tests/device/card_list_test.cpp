// Card selection through its hint seam: what the console tests cannot reach
// with ALSA's own hints (a card that appears later, a failing hint source).
#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "device/device.h"
#include "tests/support/vdac.h"

namespace {

std::vector<NameHint> fedHints;
bool feedHints(std::vector<NameHint>& out) {
    out = fedHints;
    return true;
}
bool failHints(std::vector<NameHint>&) {
    return false;
}

// Runs one selection on the given input; the output is dropped.
bool select(const std::string& input) {
    std::istringstream in(input);
    std::streambuf* old = std::cin.rdbuf(in.rdbuf());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    bool ok = selectSoundCard();
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    std::cin.rdbuf(old);
    std::cin.clear();
    return ok;
}

TEST(CardList, ACardFoundLaterGetsTheNextNumberAndHintFailureFindsNone) {
    TempDir dir;
    deviceSeams.asoundConfPath = dir.file("asound.conf");
    deviceSeams.nameHints = feedHints;
    fedHints = {{"hw:CARD=DAC,DEV=0", "USB DAC", true}, {"sysdefault:CARD=DAC", "USB DAC", true}};
    EXPECT_FALSE(select("9\n"));
    fedHints.insert(fedHints.begin(), NameHint{"hw:CARD=PCH,DEV=3", "", false});
    EXPECT_TRUE(select("2\n"));
    EXPECT_EQ(soundCardIds, (std::vector<std::string>{"DAC,DEV=0", "DAC", "PCH,DEV=3"}));
    const std::vector<uint8_t> conf = readFileBytes(dir.file("asound.conf"));
    EXPECT_EQ(std::string(conf.begin(), conf.end()), asoundConfText("PCH,DEV=3"));
    EXPECT_NE(asoundConfText("PCH,DEV=3").find("card PCH\ndevice 3\n"), std::string::npos);
    EXPECT_NE(asoundConfText("X,Y,DEV=12").find("card X,Y\ndevice 1\n"), std::string::npos);
    EXPECT_TRUE(isKnownSoundCard("DAC"));
    EXPECT_FALSE(isKnownSoundCard("DA"));

    soundCardIds.clear();
    soundCardDescriptions.clear();
    deviceSeams.nameHints = failHints;
    EXPECT_FALSE(select("0\n"));
    EXPECT_TRUE(soundCardIds.empty());
    deviceSeams = DeviceSeams{};
}

}  // namespace
