// Help, settings report and the settings commands' confirmations, as printed.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "app/frontend.h"
#include "device/device.h"
#include "scratch_dir.h"
#include "settings/settings.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

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
    std::string run(const std::string& word) {
        CaptureStdout();
        runIdleCommand(word);
        return GetCapturedStdout();
    }
    static std::string liveHead(const char* mode) {
        return std::string("Mode: ") + mode + "\nProcess priority: 0\nProcess nice: " +
               std::to_string(getpriority(PRIO_PROCESS, 0)) + "\n";
    }
    ScratchDir dir_;
};

TEST_F(Reports, HelpKeepsItsTrailingBlanks) {
    CaptureStdout();
    printHelp();
    std::string help = GetCapturedStdout();
    EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), 25);
    EXPECT_EQ(help.rfind("Commands:\n<value> - play file number <value>\n", 0), 0u);
    EXPECT_NE(help.find("\npcm - DSD->PCM mode (pcm, pcm44, pcm88, pcm176, pcm352) \n"),
              std::string::npos);
    EXPECT_NE(help.find("\ncs<value> - no cores select / single / double (0/1/2)  \nst - view "
                        "settings  \nl - list of files\n"),
              std::string::npos);
    EXPECT_EQ(help.substr(help.size() - 28), "Enter - repeat last command\n");
}

TEST_F(Reports, SettingsReportVariants) {
    std::string tail =
        "ALSA Period: default\nALSA Buffer: default\nDSD Mode: PCM\nSupports DSD Native mode: "
        "no\nPCM Samplerate for DSD: 44100\nBuffer access mode: MMAP\nCores: no cores select\n";
    EXPECT_EQ(run("st"), "32 bit output\n" + liveHead("Full Memory") + tail);

    settings.periodFrames = -5;  // any negative value reads as not set
    settings.periodTimeUs = 500;
    settings.bufferFrames = 0;
    settings.bufferTimeUs = 9000;
    settings.dsdMode = 2;
    settings.rwAccess = 1;
    settings.coresSelect = 7;
    settings.directInput = 3;
    dsdNativeLE.store(1);
    outputFormat.store(kFormatS24_3);
    EXPECT_EQ(run("st"), "24 bit output\n" + liveHead("Direct Input") +
                             "ALSA Period: 500 us\nALSA Buffer: 0 frames\nDSD Mode: "
                             "Native\nSupports DSD Native mode: yes\nBuffer access mode: "
                             "RW\nCores: double core\n");
    settings.periodTimeUs = -2;
    settings.dsdMode = 1;
    outputFormat.store(kFormatS16);
    std::string out = run("st");
    EXPECT_EQ(out.rfind("16 bit output\n", 0), 0u);
    EXPECT_NE(out.find("ALSA Period: default\n"), std::string::npos);
    EXPECT_NE(out.find("DSD Mode: DoP\n"), std::string::npos);
    EXPECT_EQ(out.find("PCM Samplerate"), std::string::npos);
    EXPECT_EQ(run("st1"), "");  // "st" must be the whole word
}

TEST_F(Reports, SettingsCommandsConfirmWhatTheyStore) {
    struct Case {
        const char* word;
        const char* printed;
    } cases[] = {
        {"pf", "period size: 0 frames\n"},
        {"pf-1", "default period size\n"},
        {"pf 256", "period size: 256 frames\n"},
        {"pt500", "period time: 500 us\n"},
        {"pt-9", "default period time\n"},
        {"bf4096", "buffer size: 4096 frames\n"},
        {"bf-3", "default buffer size\n"},
        {"bt100000", "buffer time: 100000 us\n"},
        {"bt-1", "default buffer time\n"},
        {"pr150", "priority: 99\n"},
        {"pr-4", "priority: 0\n"},
        {"ni25", "nice: 19\n"},
        {"dop", "DSD Mode: DoP\n"},
        {"pcm", "DSD Mode: PCM\n"},
        {"pcm88", "DSD Mode: PCM\nPCM Samplerate for DSD: 88200\n"},
        {"pcm99", "DSD Mode: PCM\nPCM Samplerate for DSD: 88200\n"},
        {"pcm352", "DSD Mode: PCM\nPCM Samplerate for DSD: 352800\n"},
        {"nat", "DSD Native mode not supported by DAC or driver\n"},
        {"cl0", "Colors mode off\n"},
        {"lp-3", "Lines per page: -3\n"},
        {"rw", "Buffer access mode: RW\n"},
        {"mm", "Buffer access mode: MMAP\n"},
        {"cs2", "Cores: double core\n"},
        {"cs7", "Cores: no cores select\n"},
        {"S", ""},
        {"i", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.word);
        EXPECT_EQ(run(c.word), c.printed);
    }
    EXPECT_EQ(settings.niceValue, 19);
    EXPECT_EQ(settings.rtPriority, 0);
    EXPECT_EQ(settings.linesPerPage, -3);
}

TEST_F(Reports, PairsClearTheirPartnerAndEveryChangeIsSaved) {
    run("pt500");
    run("pf256");
    EXPECT_EQ(settings.periodFrames, 256);
    EXPECT_EQ(settings.periodTimeUs, -1);
    run("bf100");
    run("bt2000");
    EXPECT_EQ(settings.bufferFrames, -1);
    EXPECT_EQ(settings.bufferTimeUs, 2000);
    run("cl2");
    EXPECT_EQ(settings.colorsOn, 2);
    EXPECT_STREQ(colorReset, "\033[0m");

    struct stat st {};
    ASSERT_EQ(stat("config.dat", &st), 0);
    EXPECT_EQ(st.st_size, 136);
    EXPECT_EQ(st.st_mode & 0777, 0666u);
    Settings saved = settings;
    settings = Settings{};
    loadSettings();
    EXPECT_EQ(settings.periodFrames, saved.periodFrames);
    EXPECT_EQ(settings.bufferTimeUs, 2000);
    EXPECT_EQ(settings.colorsOn, 2);
}

TEST_F(Reports, NativeModeOnlyWithACapableCard) {
    run("pcm");
    EXPECT_EQ(settings.dsdMode, 0);
    dsdNativeBE.store(1);
    EXPECT_EQ(run("nat"), "DSD Mode: Native\n");
    EXPECT_EQ(settings.dsdMode, 2);
}

TEST_F(Reports, LoadModeCommandsReselectAndReport) {
    std::string out = run("di");
    EXPECT_EQ(out.rfind("32 bit output\nMode: Direct Input\n", 0), 0u);
    EXPECT_EQ(settings.directInput, 1);
    EXPECT_EQ(run("dixyz").rfind("32 bit output\nMode: Direct Input\n", 0), 0u);  // prefix match
    EXPECT_EQ(run("fm").rfind("32 bit output\nMode: Full Memory\n", 0), 0u);
    EXPECT_EQ(settings.directInput, 0);
}

}  // namespace
