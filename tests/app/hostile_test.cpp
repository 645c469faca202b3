// The whole program against what a careless or hostile setup hands it:
// termination signals while playing, FIFOs and oversized sheets in the
// folder, settings files that are no files or cannot be replaced.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/support/harness.h"

namespace {

namespace fs = std::filesystem;

constexpr double kWait = 30;  // seconds; generous for sanitizer builds

// A working folder whose path.txt names the folder itself; "music" below it.
struct Session : PlayerFixture {
    explicit Session(double speed = 0) : PlayerFixture(VdacConfig{.speed = speed}) {
        fs::create_directory(music);
        std::ofstream(workdir + "/path.txt") << workdir;
    }
    const std::string music = workdir + "/music";
};

// Each signal while a file plays: the device is dropped and closed, the
// folder entered since start and the settings are saved, status 128 + N.
TEST(Signals, EachStopsPlaybackSavesAndExitsWithItsNumber) {
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(sig);
        Session fx(1);  // real time: the file is still playing when the signal comes
        writeFileBytes(fx.music + "/a.wav",
                       wav16(30 * 44100, [](uint32_t) { return uint16_t(0); }));
        ProgramRun run;
        ASSERT_TRUE(fx.start(run));
        // Entry 1 is "music" (then "sandbox"); in it, entry 1 is a.wav.
        run.send("lp7\n1\n1\n");
        ASSERT_TRUE(run.waitFor(Stream::Out, "Card: ", kWait)) << run.out() << run.err();
        ASSERT_TRUE(run.sendSignal(sig));
        EXPECT_EQ(run.waitExit(kWait), 128 + sig) << run.err();
        EXPECT_EQ(readFileText(fx.workdir + "/path.txt"), fx.music);
        std::vector<uint8_t> config = readFileBytes(fx.workdir + "/config.dat");
        EXPECT_TRUE(config.size() == 136 && config[32] == 7);  // linesPerPage
        std::vector<VdacEvent> events = fx.events();
        ASSERT_FALSE(events.empty());
        EXPECT_EQ(events.back().kind, "close");
        EXPECT_EQ(eventsOfKind(events, "drop").size(), 1u);
        EXPECT_LT(events.back().bytes, 30u * 44100 * 8);  // not played out
    }
}

// The card prompt reads the console on its own and holds the first signal
// back; a second one ends the program at once, with its own number.
TEST(Signals, ASecondSignalEndsAtOnceWhereTheFirstMustWait) {
    Session fx;
    std::ofstream(fx.confPath, std::ios::app)
        << "namehint.pcm {\n a \"hw:CARD=VDAC,DEV=0|Virtual DAC\"\n}\n";
    ProgramRun run;
    ASSERT_TRUE(fx.start(run));
    run.send("card\n");
    ASSERT_TRUE(run.waitFor(Stream::Out, "Card number>", kWait)) << run.out();
    ASSERT_TRUE(run.sendSignal(SIGHUP));
    ASSERT_TRUE(run.sendSignal(SIGINT));
    EXPECT_EQ(run.waitExit(kWait), 128 + SIGINT);
    EXPECT_FALSE(fs::exists(fx.workdir + "/config.dat"));  // nothing was saved
}

// FIFOs named like a song, a sheet and the settings file, and a sheet past
// 1 MiB: each is refused with its reason, nothing blocks, and the exit
// replaces the FIFO config.dat with the settings.
TEST(OddFiles, FifosAndHugeSheetsAreRefusedWithTheirReason) {
    Session fx;
    std::ofstream(fx.workdir + "/path.txt", std::ios::trunc) << fx.music;
    for (const std::string& name :
         {fx.music + "/x.wav", fx.music + "/z.cue", fx.workdir + "/config.dat"})
        ASSERT_EQ(mkfifo(name.c_str(), 0644), 0) << name;
    std::vector<uint8_t> huge(1024 * 1024 + 1, 'A');
    writeFileBytes(fx.music + "/big.cue", huge);
    huge.pop_back();  // exactly 1 MiB is still a sheet (with one very long line)
    writeFileBytes(fx.music + "/edge.cue", huge);
    ProgramRun run;
    // Entries: .., x.wav, big.cue, edge.cue, z.cue. Enter before any command
    // does nothing (it used to mean "0", the parent folder).
    ASSERT_EQ(fx.session(run, "\n\n1\n2\n4\n3\nx\n"), 0) << run.err();
    const std::string& err = run.err();
    for (const std::string& line :
         {std::string("config.dat: not a regular file (a FIFO); default settings used\n"),
          fx.music + "/x.wav: not a regular file (a FIFO)\n",
          fx.music + "/big.cue: sheet larger than 1 MiB, not read\n",
          fx.music + "/z.cue: not a regular file (a FIFO)\n"})
        EXPECT_NE(err.find(line), std::string::npos) << line << " in " << err;
    EXPECT_EQ(err.find("edge.cue"), std::string::npos) << err;
    EXPECT_TRUE(eventsOfKind(fx.events(), "start").empty());  // nothing was played
    EXPECT_TRUE(fs::is_regular_file(fx.workdir + "/config.dat"));
    EXPECT_EQ(readFileBytes(fx.workdir + "/config.dat").size(), 136u);
}

// config.dat a folder, path.txt a FIFO: named at start, every failed save
// is one line and leaves the folder in place; the FIFO is replaced.
TEST(OddFiles, SettingsThatCannotBeReadOrSavedAreNamed) {
    Session fx;
    fs::create_directory(fx.workdir + "/config.dat");
    fs::remove(fx.workdir + "/path.txt");
    ASSERT_EQ(mkfifo((fx.workdir + "/path.txt").c_str(), 0644), 0);
    ProgramRun run;
    ASSERT_EQ(fx.session(run, "lp5\nx\n"), 0) << run.err();
    const std::string failed = "Can't save config.dat: Is a directory\n";
    EXPECT_EQ(run.err(),
              "config.dat: not a regular file (a folder); default settings used\n"
              "path.txt: not a regular file (a FIFO)\n\n> " +
                  failed + "\n> " + failed);
    EXPECT_TRUE(fs::is_directory(fx.workdir + "/config.dat"));
    EXPECT_EQ(readFileText(fx.workdir + "/path.txt"), "/");
}

}  // namespace
