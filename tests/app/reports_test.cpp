// Help, settings report and the settings commands' confirmations, as printed.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "app/frontend.h"
#include "device/device.h"
#include "scratch_dir.h"
#include "settings/settings.h"

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
        testing::internal::CaptureStdout();
        runIdleCommand(word);
        return testing::internal::GetCapturedStdout();
    }
    static std::string head(const char* bits, const char* mode) {
        return std::string(bits) + " bit output\nMode: " + mode +
               "\nProcess priority: 0\nProcess nice: " +
               std::to_string(getpriority(PRIO_PROCESS, 0)) + "\n";
    }
    ScratchDir dir_;
};

TEST_F(Reports, HelpKeepsItsTrailingBlanks) {
    std::string help = run("h");
    EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), 25);
    EXPECT_EQ(help.rfind("Commands:\n<value> - play file number <value>\n", 0), 0u);
    EXPECT_NE(help.find("\npcm - DSD->PCM mode (pcm, pcm44, pcm88, pcm176, pcm352) \n"),
              std::string::npos);
    EXPECT_NE(help.find("(0/1/2)  \nst - view settings  \nl - list of files\n"), std::string::npos);
}

TEST_F(Reports, SettingsReportVariants) {
    EXPECT_EQ(run("st"), head("32", "Full Memory") +
                             "ALSA Period: default\nALSA Buffer: default\nDSD Mode: PCM\n"
                             "Supports DSD Native mode: no\nPCM Samplerate for DSD: 44100\n"
                             "Buffer access mode: MMAP\nCores: no cores select\n");
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
    EXPECT_EQ(run("st"), head("24", "Direct Input") +
                             "ALSA Period: 500 us\nALSA Buffer: 0 frames\nDSD Mode: Native\n"
                             "Supports DSD Native mode: yes\nBuffer access mode: RW\n"
                             "Cores: double core\n");
    settings.periodTimeUs = -2;  // every negative value reads as not set
    outputFormat.store(kFormatS16);
    EXPECT_EQ(run("st").substr(0, 14), "16 bit output\n");
    EXPECT_NE(run("st").find("ALSA Period: default\n"), std::string::npos);
    EXPECT_EQ(run("st1"), "");  // "st" must be the whole word
}

TEST_F(Reports, SettingsCommandsConfirmWhatTheyStore) {
    struct Case {
        const char* word;
        const char* printed;
    } cases[] = {
        {"pt500", "period time: 500 us\n"},
        {"pf", "period size: 0 frames\n"},
        {"pf-1", "default period size\n"},
        {"pt-9", "default period time\n"},
        {"bf 4096", "buffer size: 4096 frames\n"},
        {"bt100000", "buffer time: 100000 us\n"},
        {"bf-3", "default buffer size\n"},
        {"pr150", "priority: 99\n"},
        {"pr-4", "priority: 0\n"},
        {"ni25", "nice: 19\n"},
        {"dop", "DSD Mode: DoP\n"},
        {"nat", "DSD Native mode not supported by DAC or driver\n"},
        {"pcm88", "DSD Mode: PCM\nPCM Samplerate for DSD: 88200\n"},
        {"pcm99", "DSD Mode: PCM\nPCM Samplerate for DSD: 88200\n"},
        {"pcm", "DSD Mode: PCM\n"},
        {"cl2", "Colors mode on\n"},
        {"lp-3", "Lines per page: -3\n"},
        {"rw", "Buffer access mode: RW\n"},
        {"cs2", "Cores: double core\n"},
        {"cs7", "Cores: no cores select\n"},
        {"S", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(run(c.word), c.printed) << c.word;
    EXPECT_EQ(settings.bufferFrames, -3);  // stored as typed; the partner is cleared
    EXPECT_EQ(settings.bufferTimeUs, -1);
    EXPECT_EQ(settings.colorsOn, 2);
    EXPECT_STREQ(colorReset, "\033[0m");
    dsdNativeBE.store(1);
    EXPECT_EQ(run("nat"), "DSD Mode: Native\n");
    EXPECT_EQ(run("dixyz").substr(0, 33), head("32", "Direct Input").substr(0, 33));
    Settings before = settings;
    loadSettings();  // every change above was saved as it was made
    EXPECT_EQ(settings.dsdMode, 2);
    EXPECT_EQ(settings.directInput, before.directInput);
    EXPECT_EQ(settings.linesPerPage, -3);
}

}  // namespace
