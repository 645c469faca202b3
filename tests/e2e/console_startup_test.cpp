// Start-up as the user sees it: banner, output line, settings report, hint
// line, and the device probe picking the output format.
#include <gtest/gtest.h>

#include "console_run.h"

namespace {

struct FormatCase {
    std::vector<std::string> formats;
    std::string outputLine;
    std::string nativeDsd;
};

class StartupReport : public testing::TestWithParam<FormatCase> {};

TEST_P(StartupReport, MatchesTheCardsFormats) {
    VdacConfig config;
    config.formats = GetParam().formats;
    PlayerFixture fx(config);
    fx.vdac.speed = 0;
    mkdir((fx.workdir + "/music").c_str(), 0755);
    writeText(fx.workdir + "/path.txt", fx.workdir + "/music");
    ProgramRun run;
    ASSERT_EQ(runSession(fx, run, "x\n"), 0) << run.err();
    std::string expected = "Tovrin for Linux. Console version\n\n" + GetParam().outputLine +
                           "\nMode: Full Memory\n" + processLines() +
                           "ALSA Period: default\nALSA Buffer: default\nDSD Mode: PCM\n"
                           "Supports DSD Native mode: " +
                           GetParam().nativeDsd +
                           "\nPCM Samplerate for DSD: 44100\nBuffer access mode: MMAP\n"
                           "Cores: no cores select\n\nh - view list of commands\n\n0    ..\n";
    EXPECT_EQ(run.out(), expected);
    EXPECT_EQ(run.err(), "\n> ");
}

INSTANTIATE_TEST_SUITE_P(
    Formats, StartupReport,
    testing::Values(FormatCase{{"S16_LE", "S24_3LE", "S32_LE"}, "32 bit output", "no"},
                    FormatCase{{"S32_LE", "DSD_U32_BE"}, "32 bit output", "yes"},
                    FormatCase{{"S16_LE", "S24_3LE", "DSD_U32_LE"}, "24 bit output", "yes"},
                    FormatCase{{"S16_LE"}, "16 bit output", "no"}));

TEST(Startup, RunModeFollowsTheFirstArgument) {
    PlayerFixture fx;
    mkdir((fx.workdir + "/music").c_str(), 0755);
    writeText(fx.workdir + "/path.txt", fx.workdir + "/music");
    writeText(fx.workdir + "/song.flac", "");
    // An existing playable file whose path does not fit a path slot.
    std::string longPath = std::string(250, 'd');
    mkdir((fx.workdir + "/" + longPath).c_str(), 0755);
    longPath += "/" + std::string(250, 'e');
    mkdir((fx.workdir + "/" + longPath).c_str(), 0755);
    longPath += "/" + std::string(20, 'f') + ".flac";
    writeText(fx.workdir + "/" + longPath, "");

    ProgramRun background;
    ASSERT_TRUE(fx.start(background, {"song.flac"}));
    EXPECT_EQ(background.waitExit(kWait), 0);
    EXPECT_EQ(background.out(), "");
    EXPECT_EQ(fileMode(fx.workdir + "/config.dat"), -1);  // background mode saves nothing

    for (const std::string& arg : {std::string("notes.txt"), std::string("gone.flac"), longPath}) {
        ProgramRun run;
        ASSERT_TRUE(fx.start(run, {arg, "song.flac"}));
        run.closeInput();  // end of input is the exit command
        EXPECT_EQ(run.waitExit(kWait), 0);
        EXPECT_EQ(run.out().rfind("Tovrin for Linux. Console version\n\n", 0), 0u);
    }
    EXPECT_EQ(fileText(fx.workdir + "/path.txt"), fx.workdir + "/music");
    EXPECT_EQ(fileMode(fx.workdir + "/config.dat"), 0666);
}

TEST(Startup, NoDeviceAndNoCardEndsWithStatusOne) {
    PlayerFixture fx;
    writeText(fx.confPath, "pcm.!default { type hw card 99 }\n");
    ProgramRun run;
    ASSERT_TRUE(fx.start(run, {}));
    run.closeInput();
    EXPECT_EQ(run.waitExit(kWait), 1);
    EXPECT_EQ(run.err().rfind("unable to open pcm device: ", 0), 0u) << run.err();
    EXPECT_EQ(run.out().find("bit output"), std::string::npos);
}

}  // namespace
