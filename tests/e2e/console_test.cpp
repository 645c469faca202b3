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

TEST(Console, SettingsCommandsConfirmPersistAndKeepTheFileLayout) {
    Console fx;
    fs::create_directory(fx.music + "/Other");
    ProgramRun first, second;
    ASSERT_EQ(
        fx.session(first,
                   "pf\npf256\npt500\nbf-3\nbf0\npr150\nni25\nnat\npcm99\npcm176\ndop\ndixyz\n"
                   "rw\ncs7\ncs2\nlp0\ncl0\nst1\nS\nx\n"),
        0);
    const std::string listed = "\n0    ..\n1    " + fx.music + "/Other\n";
    // No PCM rate line in DoP mode; real-time priority stays sandboxed.
    const std::string report =
        "32 bit output\nMode: Direct Input\nProcess priority: 0\nProcess nice: 19\n"
        "ALSA Period: 500 us\nALSA Buffer: 0 frames\nDSD Mode: DoP\nSupports DSD Native mode: no\n";
    ASSERT_NE(first.out().find(listed), std::string::npos) << first.out();
    EXPECT_EQ(
        first.out().substr(first.out().find(listed) + listed.size()),
        "period size: 0 frames\nperiod size: 256 frames\nperiod time: 500 us\n"
        "default buffer size\nbuffer size: 0 frames\n"
        "priority: 99\nnice: 19\nDSD Native mode not supported by DAC or driver\n"
        "DSD Mode: PCM\nPCM Samplerate for DSD: 44100\n"  // an unknown rate is kept
        "DSD Mode: PCM\nPCM Samplerate for DSD: 176400\nDSD Mode: DoP\n" +
            report +
            "Buffer access mode: MMAP\nCores: no cores select\nBuffer access mode: RW\n"
            "Cores: no cores select\nCores: double core\nLines per page: 0\nColors mode off\n");
    const std::string config = readFile(fx.workdir + "/config.dat");
    ASSERT_EQ(config.size(), 136u);
    EXPECT_EQ(fs::status(fx.workdir + "/config.dat").permissions(), fs::perms(0666));
    const std::pair<size_t, int32_t> fields[] = {
        {0, -1}, {4, 500}, {8, 0},   {12, -1}, {16, 1},   {20, 1},  {24, 176400},
        {28, 0}, {32, 0},  {120, 1}, {124, 2}, {128, 99}, {132, 19}};
    for (auto [offset, value] : fields) EXPECT_EQ(fieldAt(config, offset), value) << offset;

    ASSERT_EQ(fx.session(second, "x\n"), 0);  // a stored page length of 0 lists as 100
    EXPECT_EQ(second.out(), "Tovrin for Linux. Console version\n\n" + report +
                                "Buffer access mode: RW\nCores: double core\n\n"
                                "h - view list of commands\n" +
                                listed);
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

// What the program wrote to stderr after its first line (ALSA's own error text).
std::string errAfterFirstLine(const ProgramRun& run) {
    return run.err().substr(run.err().find('\n'));
}

TEST(Console, NoDeviceEndsWithStatusOneWithoutACardToChoose) {
    Console fx;
    const std::string broken = "pcm.!default { type hw card 99 }\n";
    ProgramRun none, unwritable;
    writeFile(fx.confPath, broken);
    EXPECT_EQ(fx.session(none, "0\n"), 1);
    EXPECT_EQ(none.err().rfind("unable to open pcm device: ", 0), 0u) << none.err();
    EXPECT_EQ(errAfterFirstLine(none), "\n\nERROR: Not found sound devices!\n");
    EXPECT_EQ(none.out(), "Tovrin for Linux. Console version\n\n");
    writeFile(fx.confPath, broken + "namehint.pcm.a \"hw:CARD=VDAC,DEV=0|Virtual DAC\"\n");
    fs::create_directories(fx.sandbox + "/asound.conf");
    EXPECT_EQ(fx.session(unwritable, "0\n"), 1);
    EXPECT_EQ(errAfterFirstLine(unwritable),
              "\n\nCan't open /etc/asound.conf\nPlease run player as root!\n");
}

TEST(Console, CardSelectionListsEachCardOnceAndWritesTheSandbox) {
    // Software name hints stand in for the cards ALSA would list; "default"
    // still fails after the choice, and the format probe says nothing about it.
    Console fx;
    writeFile(fx.confPath,
              "pcm.!default { type hw card 99 }\nnamehint.pcm {\n"
              " a \"hw:CARD=VDAC,DEV=0|Virtual DAC\nDirect hardware\"\n"
              " b \"plughw:CARD=VDAC,DEV=0|Plug\"\n"
              " c \"sysdefault:CARD=VDAC|Default\"\n d \"null|Discard\"\n}\n");
    const std::string etc = readFile("/etc/asound.conf");
    ProgramRun run;
    ASSERT_EQ(fx.session(run, "1\ncard\nabc def\ncard\n99999999999999999999\ncard\n7\nlp5\ncard\n"),
              0);
    const std::string list =
        "Select Device:\n0   VDAC,DEV=0\nVirtual DAC\n\n1   VDAC\nDefault\n\n"
        "\nCard number>";
    EXPECT_EQ(run.out().rfind("Tovrin for Linux. Console version\n\nhw:CARD=VDAC,DEV=0\n"
                              "Virtual DAC\n\nsysdefault:CARD=VDAC\nDefault\n\n" +
                                  list + "Device: VDAC\n16 bit output\n",
                              0),
              0u)
        << run.out();
    // Bad words, a number past the list and the end of input each fail; the
    // loop reads on after them, and later lists repeat no card.
    EXPECT_EQ(run.out().substr(run.out().find("\n0    ..\n") + 9),
              list + list + list + "Lines per page: 5\n" + list);
    const std::string failed = "\nERROR: Not found sound devices!\n\n> ";
    EXPECT_EQ(errAfterFirstLine(run), "\n\n> " + failed + failed + failed + "\n> " + failed);
    EXPECT_EQ(readFile(fx.sandbox + "/asound.conf"),
              "pcm.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n"
              "ctl.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n");
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
