#include <iostream>
#include <sstream>

#include <gtest/gtest.h>

#include "device/device.h"
#include "tests/settings/test_files.h"

namespace {

using testfiles::readFile;

std::vector<NameHint> fedHints;
bool feedHints(std::vector<NameHint>& out) {
    out = fedHints;
    return true;
}
bool failHints(std::vector<NameHint>&) {
    return false;
}

NameHint hint(const std::string& name, const char* desc = nullptr) {
    return NameHint{name, desc ? desc : "", desc != nullptr};
}

const std::vector<NameHint> kDacHints = {
    hint("hw:CARD=DAC,DEV=0", "USB DAC, USB Audio\nDirect hardware device without conversions"),
    hint("plughw:CARD=DAC,DEV=0", "USB DAC, USB Audio\nHardware device with conversions"),
    hint("sysdefault:CARD=DAC", "USB DAC\nDefault Audio Device"),
    hint("null", "Discard all samples"),
    hint(""),
};

struct Result {
    bool ok;
    std::string out, err;
};

class CardSelection : public ::testing::Test {
  protected:
    void SetUp() override {
        soundCardIds.clear();
        soundCardDescriptions.clear();
        deviceSeams.asoundConfPath = dir_ / "asound.conf";
        deviceSeams.nameHints = feedHints;
        fedHints = kDacHints;
        oldCin_ = std::cin.rdbuf();
    }
    void TearDown() override {
        std::cin.rdbuf(oldCin_);
        std::cin.clear();
        deviceSeams = DeviceSeams{};
        soundCardIds.clear();
        soundCardDescriptions.clear();
    }
    Result select(const std::string& input) {
        input_.str(input);
        input_.clear();
        std::cin.rdbuf(input_.rdbuf());
        std::cin.clear();
        testfiles::Capture out(stdout), err(stderr);
        bool ok = selectSoundCard();
        return {ok, out.text(), err.text()};
    }
    testfiles::TempDir dir_;
    std::stringstream input_;
    std::streambuf* oldCin_ = nullptr;
};

TEST_F(CardSelection, ListsEachCardOnceAndWritesTheChosenOne) {
    Result r = select("1\n");
    ASSERT_TRUE(r.ok) << r.err;
    EXPECT_EQ(
        "hw:CARD=DAC,DEV=0\nUSB DAC, USB Audio\n\n"
        "sysdefault:CARD=DAC\nUSB DAC\n\n"
        "Select Device:\n"
        "0   DAC,DEV=0\nUSB DAC, USB Audio\n\n"
        "1   DAC\nUSB DAC\n\n"
        "\nCard number>"
        "Device: DAC\n",
        r.out);
    EXPECT_EQ("", r.err);
    EXPECT_EQ(
        "pcm.!default\n{\ntype hw\ncard DAC\ndevice 0\n}\n"
        "ctl.!default\n{\ntype hw\ncard DAC\ndevice 0\n}\n",
        readFile(dir_ / "asound.conf"));
}

TEST_F(CardSelection, SecondCallKeepsNumbersAndListsOnlyNewCards) {
    select("9\n");
    fedHints.insert(fedHints.begin(), hint("hw:CARD=PCH,DEV=3"));
    Result r = select("2\n");
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(0u, r.out.find("hw:CARD=PCH,DEV=3\nSelect Device:\n0   DAC,DEV=0\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("2   PCH,DEV=3\n\n\n"));
    EXPECT_EQ((std::vector<std::string>{"DAC,DEV=0", "DAC", "PCH,DEV=3"}), soundCardIds);
    EXPECT_NE(std::string::npos, readFile(dir_ / "asound.conf").find("card PCH\ndevice 3\n"));
    EXPECT_TRUE(isKnownSoundCard("DAC"));
    EXPECT_FALSE(isKnownSoundCard("DA"));
    EXPECT_NE(std::string::npos, asoundConfText("X,Y,DEV=12").find("card X,Y\ndevice 1\n"));
}

TEST_F(CardSelection, BadInputFailsWithoutWritingAndLeavesTheStreamUsable) {
    // rest: what the command loop reads next ("" = end of input)
    const std::pair<const char*, const char*> cases[] = {
        {"2\nnext\n", "next"},
        {"abc def\nnext\n", "next"},
        {"99999999999999999999\nnext\n", "next"},
        {"\n\n", ""},
    };
    for (const auto& [input, rest] : cases) {
        SCOPED_TRACE(input);
        testfiles::writeFile(dir_ / "asound.conf", "before");
        Result r = select(input);
        EXPECT_FALSE(r.ok);
        EXPECT_EQ("\nERROR: Not found sound devices!\n", r.err);
        EXPECT_EQ("before", readFile(dir_ / "asound.conf"));
        std::string word;
        std::cin >> word;
        EXPECT_EQ(rest, word);
    }
}

TEST_F(CardSelection, NoCardsFailingHintsOrUnwritableConfiguration) {
    for (auto source : {feedHints, failHints}) {
        deviceSeams.nameHints = source;
        fedHints = {hint("null", "Discard"), hint("pulse")};
        Result r = select("0\n");
        EXPECT_FALSE(r.ok);
        EXPECT_EQ("", r.out);
        EXPECT_EQ("\nERROR: Not found sound devices!\n", r.err);
    }
    deviceSeams.nameHints = feedHints;
    fedHints = kDacHints;
    deviceSeams.asoundConfPath = dir_ / "missing/asound.conf";
    Result r = select("0\n");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ("\nCan't open /etc/asound.conf\nPlease run player as root!\n", r.err);
    EXPECT_EQ(std::string::npos, r.out.find("Device: "));
}

}  // namespace
