// The whole program at the console, one session per concern: start-up per
// card, settings across restarts, folders and path.txt, no device and the card
// selection, and background mode.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "tests/support/harness.h"

namespace {

namespace fs = std::filesystem;

const std::string kBanner = "Tovrin for Linux. Console version\n\n";

// What the program wrote to stderr after its first line (ALSA's own error text).
std::string errAfterFirstLine(const ProgramRun& run) {
    return run.err().substr(run.err().find('\n'));
}

// A working folder whose path.txt names its empty "music" folder.
struct Console : PlayerFixture {
    explicit Console(VdacConfig config = {}) : PlayerFixture(std::move(config)) {
        fs::create_directory(music);
        std::ofstream(workdir + "/path.txt") << music;
    }
    const std::string music = workdir + "/music";
};

TEST(Console, StartupReportMatchesTheCardsFormats) {
    const std::tuple<std::vector<std::string>, const char*, const char*> cards[] = {
        {{"S32_LE", "DSD_U32_BE"}, "32", "yes"},
        {{"S16_LE", "S24_3LE", "DSD_U32_LE"}, "24", "yes"},
        {{"S16_LE"}, "16", "no"}};
    for (const auto& [formats, bits, native] : cards) {
        VdacConfig card;
        card.formats = formats;
        Console fx(card);
        ProgramRun run;
        ASSERT_EQ(fx.session(run, "x\n"), 0) << run.err();
        EXPECT_EQ(run.out(),
                  kBanner + bits + " bit output\nMode: Full Memory\nProcess priority: 0\n" +
                      "Process nice: " + std::to_string(getpriority(PRIO_PROCESS, 0)) +
                      "\nALSA Period: default\nALSA Buffer: default\nDSD Mode: PCM\n"
                      "Supports DSD Native mode: " +
                      native +
                      "\nPCM Samplerate for DSD: 44100 (48000 for 48 kHz-family DSD)\n"
                      "Buffer access mode: MMAP\n"
                      "Cores: no cores select\n\nh - view list of commands\n\n0    ..\n");
        EXPECT_EQ(run.err(), "\n> ");
    }
}

TEST(Console, SettingsCommandsConfirmPersistAndKeepTheFileLayout) {
    Console fx;
    fs::create_directory(fx.music + "/Other");
    ProgramRun first, second;
    const std::string input =
        "pf\npf256\npt500\nbf-3\nbf0\npr150\nni25\nnat\npcm99\npcm176\n"
        "dop\ndixyz\nrw\ncs7\ncs2\nlp0\ncl0\nst1\nS\nx\n";
    ASSERT_EQ(fx.session(first, input), 0);
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
    const std::vector<uint8_t> config = readFileBytes(fx.workdir + "/config.dat");
    ASSERT_EQ(config.size(), 136u);
    int32_t field[34];
    memcpy(field, config.data(), sizeof field);
    EXPECT_EQ(std::vector(field, field + 9), (std::vector{-1, 500, 0, -1, 1, 1, 176400, 0, 0}));
    EXPECT_EQ(std::vector(field + 30, field + 34), (std::vector{1, 2, 99, 19}));

    ASSERT_EQ(fx.session(second, "x\n"), 0);  // a stored page length of 0 lists as 100
    EXPECT_EQ(second.out(), kBanner + report +
                                "Buffer access mode: RW\nCores: double core\n\n"
                                "h - view list of commands\n" +
                                listed);
}

TEST(Console, FoldersPagingAndThePathFile) {
    Console fx;
    const std::string album = fx.music + "/Album";
    fs::create_directory(album);
    for (const char* f : {"01.flac", "02.wav", "notes.txt", "03.FLAC", "disc.cue"})
        writeFileBytes(album + "/" + f, {});
    ProgramRun run;
    ASSERT_EQ(fx.session(run, "cl0\n1\nlp2\nz\nZ\na\n0\n1\nx\n"), 0);
    // Album: .., 01.flac, 02.wav, 03.FLAC, disc.cue (notes.txt is not listed).
    const std::string page2 = "\n2    " + album + "/02.wav\n3    " + album + "/03.FLAC\n";
    EXPECT_NE(
        run.out().find("Lines per page: 2\n" + page2 + "\n4    " + album + "/disc.cue\n" + page2 +
                       "\n0    ..\n1    " + album + "\n\n0    ..\n1    " + album + "/01.flac\n"),
        std::string::npos)
        << run.out();
    EXPECT_EQ(readFileText(fx.workdir + "/path.txt"), album);
    EXPECT_EQ(fs::status(fx.workdir + "/path.txt").permissions(), fs::perms(0666));
}

// Software name hints stand in for the cards ALSA would list; "default" still
// fails after the choice, and the format probe says nothing about it.
TEST(Console, NoDeviceEndsWithStatusOneAndTheCardSelectionWritesTheSandbox) {
    Console fx;
    const std::string broken = "pcm.!default { type hw card 99 }\n";
    ProgramRun none, unwritable, run;
    std::ofstream(fx.confPath) << broken;
    EXPECT_EQ(fx.session(none, "0\n"), 1);
    EXPECT_EQ(none.err().rfind("unable to open pcm device: ", 0), 0u) << none.err();
    EXPECT_EQ(errAfterFirstLine(none), "\n\nERROR: Not found sound devices!\n");
    EXPECT_EQ(none.out(), kBanner);

    std::ofstream(fx.confPath)
        << broken +
               "namehint.pcm {\n a \"hw:CARD=VDAC,DEV=0|Virtual DAC\nDirect "
               "hardware\"\n b \"plughw:CARD=VDAC,DEV=0|Plug\"\n"
               " c \"sysdefault:CARD=VDAC|Default\"\n d \"null|Discard\"\n}\n";
    fs::create_directories(fx.sandbox + "/asound.conf");
    EXPECT_EQ(fx.session(unwritable, "0\n"), 1);
    EXPECT_EQ(errAfterFirstLine(unwritable),
              "\n\nCan't open /etc/asound.conf\nPlease run player as root!\n");
    fs::remove(fx.sandbox + "/asound.conf");

    const std::string etc = readFileText("/etc/asound.conf");
    ASSERT_EQ(fx.session(run, "1\ncard\nabc def\ncard\n99999999999999999999\ncard\n7\nlp5\ncard\n"),
              0);
    const std::string list =
        "Select Device:\n0   VDAC,DEV=0\nVirtual DAC\n\n1   VDAC\nDefault\n\n\nCard number>";
    EXPECT_EQ(run.out().rfind(kBanner +
                                  "hw:CARD=VDAC,DEV=0\nVirtual DAC\n\nsysdefault:CARD=VDAC\n"
                                  "Default\n\n" +
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
    EXPECT_EQ(readFileText(fx.sandbox + "/asound.conf"),
              "pcm.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n"
              "ctl.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n");
    EXPECT_EQ(readFileText("/etc/asound.conf"), etc);
}

TEST(Console, AnExistingPlayableFileArgumentRunsInTheBackground) {
    Console fx;
    writeFileBytes(fx.workdir + "/song.flac", {});
    ProgramRun background;
    ASSERT_EQ(fx.session(background, "", {"song.flac"}), 0);
    EXPECT_EQ(background.out(), "");
    EXPECT_FALSE(fs::exists(fx.workdir + "/config.dat"));  // background mode saves nothing

    // Otherwise the console starts: a path that does not fit a path slot is refused.
    std::string longPath = std::string(250, 'd') + "/" + std::string(250, 'e');
    fs::create_directories(fx.workdir + "/" + longPath);
    longPath += "/" + std::string(20, 'f') + ".flac";
    writeFileBytes(fx.workdir + "/" + longPath, {});
    for (const std::string& arg : {std::string("notes.txt"), std::string("gone.flac"), longPath}) {
        ProgramRun run;
        EXPECT_EQ(fx.session(run, "", {arg, "song.flac"}), 0);
        EXPECT_EQ(run.out().rfind(kBanner, 0), 0u) << arg;
    }
    EXPECT_EQ(readFileText(fx.workdir + "/path.txt"), fx.music);
}

}  // namespace
