// The settings report and the settings commands: what they store and confirm.
#include <gtest/gtest.h>

#include "app/frontend.h"
#include "device/device.h"
#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

class Reports : public testing::Test {
  protected:
    void SetUp() override {
        applySandbox(dir_.path().c_str());
        settings = Settings{};
        setColors(false);
        outputFormat.store(kFormatS32);
        dsdNativeBE.store(0);
        dsdNativeLE.store(0);
    }
    static std::string run(const std::string& word) {
        testfiles::Capture out(stdout);
        runIdleCommand(word);
        return out.text();
    }
    testfiles::TempDir dir_;
    testfiles::ScopedChdir cd_{dir_.path()};
};

TEST_F(Reports, SettingsReportFollowsTheStoredValues) {
    settings = {.periodFrames = -5,
                .periodTimeUs = 500,
                .bufferFrames = 0,
                .bufferTimeUs = 9000,
                .directInput = 3,
                .dsdMode = 2,
                .rwAccess = 1,
                .coresSelect = 7};
    dsdNativeLE.store(1);
    outputFormat.store(kFormatS24_3);
    std::string report = run("st");
    EXPECT_EQ(report.rfind("24 bit output\nMode: Direct Input\n", 0), 0u);
    EXPECT_NE(report.find("\nALSA Period: 500 us\nALSA Buffer: 0 frames\nDSD Mode: Native\n"
                          "Supports DSD Native mode: yes\nBuffer access mode: RW\n"
                          "Cores: double core\n"),
              std::string::npos);
    settings.periodTimeUs = -2;  // every negative value reads as not set
    EXPECT_NE(run("st").find("ALSA Period: default\n"), std::string::npos);
    EXPECT_EQ(run("st1"), "");  // "st" must be the whole word
}

TEST_F(Reports, SettingsCommandsClampConfirmAndSave) {
    const std::pair<const char*, const char*> cases[] = {
        {"pt500", "period time: 500 us\n"},
        {"pf", "period size: 0 frames\n"},
        {"pf-1", "default period size\n"},
        {"bf 4096", "buffer size: 4096 frames\n"},
        {"bf-3", "default buffer size\n"},
        {"pr150", "priority: 99\n"},
        {"ni25", "nice: 19\n"},
        {"nat", "DSD Native mode not supported by DAC or driver\n"},
        {"pcm88", "DSD Mode: PCM\nPCM Samplerate for DSD: 88200\n"},
        {"pcm99", "DSD Mode: PCM\nPCM Samplerate for DSD: 88200\n"},  // unknown: kept
        {"cl2", "Colors mode on\n"},
        {"lp-3", "Lines per page: -3\n"},
        {"cs7", "Cores: no cores select\n"},
        {"S", ""},
    };
    for (const auto& [word, printed] : cases) EXPECT_EQ(run(word), printed) << word;
    EXPECT_EQ(settings.bufferFrames, -3);  // stored as typed; the partner is cleared
    EXPECT_EQ(settings.bufferTimeUs, -1);
    EXPECT_STREQ(colorReset, "\033[0m");
    dsdNativeBE.store(1);
    EXPECT_EQ(run("nat"), "DSD Mode: Native\n");
    EXPECT_NE(run("dixyz").find("Mode: Direct Input\n"), std::string::npos);
    Settings before = settings;
    loadSettings();  // every change above was saved as it was made
    EXPECT_EQ(settings.dsdMode, 2);
    EXPECT_EQ(settings.directInput, before.directInput);
    EXPECT_EQ(settings.linesPerPage, -3);
}

}  // namespace
