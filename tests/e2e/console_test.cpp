// The whole program at the console, one session per concern: start-up per
// card, settings across restarts, folders and path.txt, no device and the card
// selection, and background mode.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>

#include "tests/settings/test_files.h"
#include "tests/support/harness.h"

namespace {

namespace fs = std::filesystem;
using testfiles::readFile;
using testfiles::writeFile;

constexpr double kWait = 20;  // seconds; generous for sanitizer builds

int32_t fieldAt(const std::string& bytes, size_t offset) {
    uint32_t v = 0;
    for (int b = 0; b < 4; ++b) v |= uint32_t(uint8_t(bytes.at(offset + b))) << (8 * b);
    return int32_t(v);
}

// A working folder whose path.txt names its empty "music" folder.
struct Console : PlayerFixture {
    explicit Console(VdacConfig config = {}) : PlayerFixture(std::move(config)) {
        fs::create_directory(music);
        writeFile(workdir + "/path.txt", music);
    }
    // Runs the program on `input` (then end of input) and returns its exit status.
    int session(ProgramRun& run, const std::string& input, std::vector<std::string> args = {}) {
        if (!start(run, args)) return -2;
        run.send(input);
        run.closeInput();
        return run.waitExit(kWait);
    }
    const std::string music = workdir + "/music";
};

struct FormatCase {
    std::vector<std::string> formats;
    std::string outputLine, nativeDsd;
};

class StartupReport : public testing::TestWithParam<FormatCase> {};

TEST_P(StartupReport, MatchesTheCardsFormats) {
    VdacConfig config;
    config.formats = GetParam().formats;
    Console fx(config);
    ProgramRun run;
    ASSERT_EQ(fx.session(run, "x\n"), 0) << run.err();
    EXPECT_EQ(run.out(), "Tovrin for Linux. Console version\n\n" + GetParam().outputLine +
                             "\nMode: Full Memory\nProcess priority: 0\nProcess nice: " +
                             std::to_string(getpriority(PRIO_PROCESS, 0)) +
                             "\nALSA Period: default\nALSA Buffer: default\nDSD Mode: PCM\n"
                             "Supports DSD Native mode: " +
                             GetParam().nativeDsd +
                             "\nPCM Samplerate for DSD: 44100\nBuffer access mode: MMAP\n"
                             "Cores: no cores select\n\nh - view list of commands\n\n0    ..\n");
    EXPECT_EQ(run.err(), "\n> ");
}

INSTANTIATE_TEST_SUITE_P(
    Formats, StartupReport,
    testing::Values(FormatCase{{"S16_LE", "S24_3LE", "S32_LE"}, "32 bit output", "no"},
                    FormatCase{{"S32_LE", "DSD_U32_BE"}, "32 bit output", "yes"},
                    FormatCase{{"S16_LE", "S24_3LE", "DSD_U32_LE"}, "24 bit output", "yes"},
                    FormatCase{{"S16_LE"}, "16 bit output", "no"}));

TEST(Console, SettingsPersistAcrossRestartsInTheFileLayout) {
    Console fx;
    fs::create_directory(fx.music + "/Other");
    ProgramRun first, second;
    ASSERT_EQ(fx.session(first, "pf256\nbt50000\ndi\ncs1\nrw\npcm176\nlp0\ncl0\nni7\nx\n"), 0);
    std::string config = readFile(fx.workdir + "/config.dat");
    ASSERT_EQ(config.size(), 136u);
    EXPECT_EQ(fieldAt(config, 0), 256);      // period frames
    EXPECT_EQ(fieldAt(config, 12), 50000);   // buffer time
    EXPECT_EQ(fieldAt(config, 24), 176400);  // DSD to PCM rate
    EXPECT_EQ(fieldAt(config, 32), 0);       // lines per page, stored as typed
    EXPECT_EQ(fieldAt(config, 124), 1);      // single core
    ASSERT_EQ(fx.session(second, "x\n"), 0);
    EXPECT_NE(second.out().find("Mode: Direct Input\nProcess priority: 0\nProcess nice: 7\n"
                                "ALSA Period: 256 frames\nALSA Buffer: 50000 us\n"),
              std::string::npos);
    EXPECT_NE(second.out().find("176400\nBuffer access mode: RW\nCores: single core\n"),
              std::string::npos);
    // A stored page length of 0 lists as 100: the whole folder appears.
    EXPECT_NE(second.out().find("\n1    " + fx.music + "/Other\n"), std::string::npos);
}

TEST(Console, FoldersPagingAndThePathFile) {
    Console fx;
    const std::string album = fx.music + "/Album";
    fs::create_directory(album);
    for (const char* f : {"01.flac", "02.wav", "notes.txt", "03.FLAC", "disc.cue"})
        writeFile(album + "/" + f, "");
    ProgramRun run;
    ASSERT_EQ(fx.session(run, "cl0\n1\nlp2\nz\nZ\na\n0\n1\nx\n"), 0);
    // Album: .., 01.flac, 02.wav, 03.FLAC, disc.cue (notes.txt is not listed).
    const std::string page2 = "\n2    " + album + "/02.wav\n3    " + album + "/03.FLAC\n";
    EXPECT_NE(
        run.out().find("Lines per page: 2\n" + page2 + "\n4    " + album + "/disc.cue\n" + page2 +
                       "\n0    ..\n1    " + album + "\n\n0    ..\n1    " + album + "/01.flac\n"),
        std::string::npos)
        << run.out();
    EXPECT_EQ(readFile(fx.workdir + "/path.txt"), album);
    EXPECT_EQ(fs::status(fx.workdir + "/path.txt").permissions(), fs::perms(0666));

    // The next start lists the folder it left; Enter twice is entry 0 twice: up twice.
    ProgramRun again;
    ASSERT_EQ(fx.session(again, "\n\n"), 0);
    size_t at = again.out().find("\n0    ..\n1    " + album + "/01.flac\n");
    EXPECT_NE(at, std::string::npos) << again.out();
    EXPECT_NE(again.out().find("\n1    " + album + "\n", at), std::string::npos);
    EXPECT_EQ(readFile(fx.workdir + "/path.txt"), fx.workdir);
}

TEST(Console, NoDeviceSelectsACardOrEndsWithStatusOne) {
    Console fx;
    const std::string broken = "pcm.!default { type hw card 99 }\n";
    ProgramRun none;
    writeFile(fx.confPath, broken);
    EXPECT_EQ(fx.session(none, ""), 1);
    EXPECT_EQ(none.err().rfind("unable to open pcm device: ", 0), 0u) << none.err();
    EXPECT_EQ(none.err().substr(none.err().find('\n')), "\n\nERROR: Not found sound devices!\n");
    EXPECT_EQ(none.out(), "Tovrin for Linux. Console version\n\n");

    // Software name hints stand in for the cards ALSA would list. The chosen
    // card goes to the sandbox; "default" still fails, and the probe says nothing.
    writeFile(fx.confPath, broken +
                               "namehint.pcm {\n a \"hw:CARD=VDAC,DEV=0|Virtual DAC\"\n"
                               " b \"sysdefault:CARD=VDAC|Default\"\n}\n");
    const std::string etc = readFile("/etc/asound.conf");
    ProgramRun run;
    ASSERT_EQ(fx.session(run, "1\ncard\n7\nlp5\nx\n"), 0);
    EXPECT_NE(run.out().find("\nCard number>Device: VDAC\n16 bit output\n"), std::string::npos)
        << run.out();
    EXPECT_EQ(readFile(fx.sandbox + "/asound.conf"),
              "pcm.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n"
              "ctl.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n");
    // A number outside the list fails, and the loop reads on after it.
    EXPECT_EQ(run.err().substr(run.err().find('\n')),
              "\n\n> \nERROR: Not found sound devices!\n\n> \n> ")
        << run.err();
    EXPECT_NE(run.out().find("Lines per page: 5\n"), std::string::npos);
    EXPECT_EQ(readFile("/etc/asound.conf"), etc);
}

TEST(Console, AnExistingPlayableFileArgumentRunsInTheBackground) {
    Console fx;
    writeFile(fx.workdir + "/song.flac", "");
    ProgramRun background;
    ASSERT_EQ(fx.session(background, "", {"song.flac"}), 0);
    EXPECT_EQ(background.out(), "");
    EXPECT_FALSE(fs::exists(fx.workdir + "/config.dat"));  // background mode saves nothing

    // Otherwise the console starts: a path that does not fit a path slot is refused.
    std::string longPath = std::string(250, 'd') + "/" + std::string(250, 'e');
    fs::create_directories(fx.workdir + "/" + longPath);
    longPath += "/" + std::string(20, 'f') + ".flac";
    writeFile(fx.workdir + "/" + longPath, "");
    for (const std::string& arg : {std::string("notes.txt"), std::string("gone.flac"), longPath}) {
        ProgramRun run;
        EXPECT_EQ(fx.session(run, "", {arg, "song.flac"}), 0);
        EXPECT_EQ(run.out().rfind("Tovrin for Linux. Console version\n\n", 0), 0u) << arg;
    }
    EXPECT_EQ(readFile(fx.workdir + "/path.txt"), fx.music);
}

}  // namespace
