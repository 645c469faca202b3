// The command-line options through the built program: each answers without
// start-up (no card opened, no settings or path file touched), and --stop
// ends a real background run on the virtual card.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/harness.h"

namespace {

namespace fs = std::filesystem;

// A working folder with a path.txt to leave alone, and the pid file kept in it.
struct Options : PlayerFixture {
    explicit Options(VdacConfig config = {}) : PlayerFixture(std::move(config)) {
        setenv("XDG_RUNTIME_DIR", workdir.c_str(), 1);
        std::ofstream(workdir + "/path.txt") << kPathText;
    }
    // Neither settings nor the path file; unless a player ran, nor the card nor process tuning.
    void expectUntouched(bool playerRan = false) const {
        EXPECT_FALSE(fs::exists(workdir + "/config.dat"));
        EXPECT_EQ(readFileText(workdir + "/path.txt"), kPathText);
        if (playerRan) return;
        EXPECT_TRUE(events().empty());
        EXPECT_FALSE(fs::exists(sandbox + "/tuning.log"));
    }
    // A background player the test could not stop is killed on the way out.
    ~Options() {
        if (player > 0 && readFileText("/proc/" + std::to_string(player) + "/comm") == "tovrin\n")
            kill(player, SIGKILL);
    }
    pid_t player = 0;
    const std::string pidFile = workdir + "/tovrin-" + std::to_string(getuid()) + ".pid";
    static constexpr const char* kPathText = "/no/such/folder";
};

TEST(Options, HelpAndVersionAnswerWithoutStartingThePlayer) {
    Options fx;
    const std::vector<std::string> help = {
        "Usage: tovrin [FILE]\n       tovrin --help | --version | --stop\n", "background",
        "console", "--stop", "tovrin(1)"};
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"--help", help},
        {"-h", help},
        {"--version",
         {std::string("tovrin ") + TOVRIN_VERSION + "\nFFmpeg ", "(libavformat ", ", libavcodec ",
          ", libavutil ", std::string(")\nalsa-lib ") + snd_asoundlib_version() + "\n"}}};
    for (const auto& [arg, parts] : cases) {
        ProgramRun run;
        ASSERT_EQ(fx.session(run, "", {arg}), 0) << arg;
        EXPECT_EQ(run.out().rfind(parts[0], 0), 0u) << run.out();  // the first part leads
        for (const std::string& part : parts)
            EXPECT_NE(run.out().find(part), std::string::npos) << part;
        EXPECT_EQ(run.err(), "");
    }
    fx.expectUntouched();
    // Anything else is no option: the console starts as before.
    ProgramRun other;
    ASSERT_EQ(fx.session(other, "x\n", {"--helpme"}), 0);
    EXPECT_EQ(other.out().rfind("Tovrin for Linux. Console version\n", 0), 0u) << other.out();
}

TEST(Options, StopWithNoBackgroundPlayerFailsAndClearsAStaleRecord) {
    Options fx;
    // No record; a record of an ended process; one naming this test, which is
    // no player and must survive; one that is not a number.
    for (const std::string& record :
         std::vector<std::string>{"", "999999999\n", std::to_string(getpid()) + "\n", "abc\n"}) {
        if (!record.empty()) std::ofstream(fx.pidFile) << record;
        ProgramRun run;
        EXPECT_EQ(fx.session(run, "", {"--stop"}), 1) << record;
        EXPECT_EQ(run.err(), "tovrin: no background player is running\n");
        EXPECT_EQ(run.out(), "");
        EXPECT_TRUE(record == "abc\n" || !fs::exists(fx.pidFile)) << record;
    }
    fx.expectUntouched();
}

TEST(Options, StopEndsTheBackgroundPlayerWhichClosesTheCard) {
    VdacConfig card;
    card.speed = 1;  // real time, so the 30 s file is still playing when stopped
    Options fx(card);
    // A quiet square wave on the left channel.
    writeFileBytes(fx.workdir + "/song.wav", wav16(30 * 44100, [](uint32_t i) {
                       return uint16_t(i % 2 ? 0 : i / 100 % 2 ? 0x0400 : 0xfc00);
                   }));
    ProgramRun launch, stop, again;
    ASSERT_EQ(fx.session(launch, "", {"song.wav"}), 0);
    // The launcher records the player before it returns.
    fx.player = pid_t(std::atol(readFileText(fx.pidFile).c_str()));
    ASSERT_GT(fx.player, 0);
    for (int i = 0; i < 400 && eventsOfKind(fx.events(), "start").empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_FALSE(eventsOfKind(fx.events(), "start").empty()) << "the player never played";

    ASSERT_EQ(fx.session(stop, "", {"--stop"}), 0) << stop.err();
    EXPECT_EQ(stop.out(), "tovrin: stopped the background player (process " +
                              std::to_string(fx.player) + ")\n");
    // Ended (gone or a zombie), its record removed.
    const std::string stat = readFileText("/proc/" + std::to_string(fx.player) + "/stat");
    EXPECT_TRUE(stat.empty() || stat.find(") Z") == stat.rfind(')')) << stat;
    EXPECT_FALSE(fs::exists(fx.pidFile));
    // Stopped like the console's stop: the card was closed by the player, early.
    const std::vector<VdacEvent> events = fx.events();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().kind, "close");
    EXPECT_LT(vdacFramesAt(events, events.size() - 1), 30u * 44100);
    EXPECT_EQ(fx.session(again, "", {"--stop"}), 1);
    fx.expectUntouched(true);
}

}  // namespace
