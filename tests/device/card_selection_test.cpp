// The card list from name hints, the number read from stdin, and the written
// configuration. The program's own use of it is in the console session test.
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

const std::vector<NameHint> kDacHints = {
    {"hw:CARD=DAC,DEV=0", "USB DAC, USB Audio\nDirect hardware device without conversions", true},
    {"plughw:CARD=DAC,DEV=0", "USB DAC, USB Audio\nHardware device with conversions", true},
    {"sysdefault:CARD=DAC", "USB DAC\nDefault Audio Device", true},
    {"null", "Discard all samples", true},
    {},
};
const char* kNotFound = "\nERROR: Not found sound devices!\n";

class CardSelection : public testing::Test {
  protected:
    void SetUp() override {
        deviceSeams = {dir_ / "asound.conf", feedHints};
        fedHints = kDacHints;
    }
    void TearDown() override {
        std::cin.rdbuf(oldCin_);
        std::cin.clear();
        deviceSeams = DeviceSeams{};
        soundCardIds.clear();
        soundCardDescriptions.clear();
    }
    // Runs the selection on `input`; returns stdout, and stderr in err_.
    std::string select(const std::string& input, bool ok) {
        input_.str(input);
        std::cin.rdbuf(input_.rdbuf());
        std::cin.clear();
        testfiles::Capture out(stdout), err(stderr);
        EXPECT_EQ(ok, selectSoundCard()) << input;
        std::string text = out.text();
        err_ = err.text();
        return text;
    }
    testfiles::TempDir dir_;
    std::stringstream input_;
    std::streambuf* oldCin_ = std::cin.rdbuf();
    std::string err_;
};

TEST_F(CardSelection, ListsEachCardOnceAndKeepsNumbersAcrossCalls) {
    EXPECT_EQ(select("1\n", true),
              "hw:CARD=DAC,DEV=0\nUSB DAC, USB Audio\n\nsysdefault:CARD=DAC\nUSB DAC\n\n"
              "Select Device:\n0   DAC,DEV=0\nUSB DAC, USB Audio\n\n1   DAC\nUSB DAC\n\n"
              "\nCard number>Device: DAC\n");
    EXPECT_EQ(err_, "");
    EXPECT_EQ(readFile(dir_ / "asound.conf"),
              "pcm.!default\n{\ntype hw\ncard DAC\ndevice 0\n}\n"
              "ctl.!default\n{\ntype hw\ncard DAC\ndevice 0\n}\n");
    fedHints.insert(fedHints.begin(), {"hw:CARD=PCH,DEV=3", "", false});
    std::string out = select("2\n", true);
    EXPECT_EQ(out.find("hw:CARD=PCH,DEV=3\nSelect Device:\n0   DAC,DEV=0\n"), 0u) << out;
    EXPECT_NE(out.find("2   PCH,DEV=3\n\n\n"), std::string::npos);
    EXPECT_NE(readFile(dir_ / "asound.conf").find("card PCH\ndevice 3\n"), std::string::npos);
    EXPECT_NE(asoundConfText("X,Y,DEV=12").find("card X,Y\ndevice 1\n"), std::string::npos);
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
        testfiles::writeFile(dir_ / "asound.conf", "before");
        select(input, false);
        EXPECT_EQ(err_, kNotFound);
        EXPECT_EQ(readFile(dir_ / "asound.conf"), "before");
        std::string word;
        std::cin >> word;
        EXPECT_EQ(rest, word) << input;
    }
}

TEST_F(CardSelection, NoCardsFailingHintsOrUnwritableConfiguration) {
    fedHints = {{"null", "Discard", true}, {"pulse", "", false}};
    for (auto source : {feedHints, failHints}) {
        deviceSeams.nameHints = source;
        EXPECT_EQ(select("0\n", false), "");
        EXPECT_EQ(err_, kNotFound);
    }
    deviceSeams = {dir_ / "missing/asound.conf", feedHints};
    fedHints = kDacHints;
    EXPECT_EQ(select("0\n", false).find("Device: "), std::string::npos);
    EXPECT_EQ(err_, "\nCan't open /etc/asound.conf\nPlease run player as root!\n");
}

}  // namespace
