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

std::string readText(const std::string& path) {
    std::vector<uint8_t> bytes = readFileBytes(path);
    return {bytes.begin(), bytes.end()};
}

std::string firstLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

// A working folder with a path.txt to leave alone, and the pid file kept in it.
struct Options : PlayerFixture {
    explicit Options(VdacConfig config = {}) : PlayerFixture(std::move(config)) {
        setenv("XDG_RUNTIME_DIR", workdir.c_str(), 1);
        std::ofstream(workdir + "/path.txt") << kPathText;
    }
    int session(ProgramRun& run, std::vector<std::string> args, const std::string& input = "") {
        if (!start(run, args)) return -2;
        run.send(input);
        run.closeInput();
        return run.waitExit(20);  // seconds; generous for sanitizer builds
    }
    // Neither settings, nor the path file, nor the card, nor process tuning.
    void expectUntouched() const {
        EXPECT_FALSE(fs::exists(workdir + "/config.dat"));
        EXPECT_EQ(readText(workdir + "/path.txt"), kPathText);
        EXPECT_TRUE(events().empty());
        EXPECT_FALSE(fs::exists(sandbox + "/tuning.log"));
    }
    const std::string pidFile = workdir + "/tovrin-" + std::to_string(getuid()) + ".pid";
    static constexpr const char* kPathText = "/no/such/folder";
};

// A background player the test could not stop is killed on the way out.
struct Reaper {
    pid_t pid = 0;
    ~Reaper() {
        if (pid > 0 && firstLine("/proc/" + std::to_string(pid) + "/comm") == "tovrin")
            kill(pid, SIGKILL);
    }
};

bool ended(pid_t pid) {
    const std::string stat = firstLine("/proc/" + std::to_string(pid) + "/stat");
    size_t paren = stat.rfind(')');
    return paren == std::string::npos || stat.compare(paren, 3, ") Z") == 0;
}

// A 16-bit stereo WAV of `seconds` of a quiet square wave.
void writeWav(const std::string& path, int seconds) {
    const uint32_t rate = 44100, frames = rate * uint32_t(seconds), data = frames * 4;
    std::string bytes;
    auto put = [&](uint32_t v, int n) {
        for (int i = 0; i < n; ++i) bytes.push_back(char(v >> (8 * i)));
    };
    bytes += "RIFF", put(36 + data, 4), bytes += "WAVEfmt ", put(16, 4), put(1, 2), put(2, 2);
    put(rate, 4), put(rate * 4, 4), put(4, 2), put(16, 2), bytes += "data", put(data, 4);
    for (uint32_t f = 0; f < frames; ++f) put((f / 50) % 2 ? 0x0400 : 0xfc00, 2), put(0, 2);
    writeFileBytes(path, std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

TEST(Options, HelpAndVersionAnswerWithoutStartingThePlayer) {
    Options fx;
    for (const char* arg : {"--help", "-h"}) {
        ProgramRun run;
        ASSERT_EQ(fx.session(run, {arg}), 0) << arg;
        EXPECT_EQ(
            run.out().rfind("Usage: tovrin [FILE]\n       tovrin --help | --version | --stop\n", 0),
            0u)
            << run.out();
        for (const char* part : {"background", "console", "--stop", "tovrin(1)"})
            EXPECT_NE(run.out().find(part), std::string::npos) << part;
        EXPECT_EQ(run.err(), "");
    }
    ProgramRun version;
    ASSERT_EQ(fx.session(version, {"--version"}), 0);
    const std::string& out = version.out();
    EXPECT_EQ(out.rfind(std::string("tovrin ") + TOVRIN_VERSION + "\nFFmpeg ", 0), 0u) << out;
    for (const char* lib : {"(libavformat ", ", libavcodec ", ", libavutil "})
        EXPECT_NE(out.find(lib), std::string::npos) << lib;
    EXPECT_NE(out.find(std::string(")\nalsa-lib ") + snd_asoundlib_version() + "\n"),
              std::string::npos)
        << out;
    fx.expectUntouched();

    // Anything else is no option: the console starts as before.
    ProgramRun other;
    ASSERT_EQ(fx.session(other, {"--helpme"}, "x\n"), 0);
    EXPECT_EQ(other.out().rfind("Tovrin for Linux. Console version\n", 0), 0u) << other.out();
}

TEST(Options, StopWithNoBackgroundPlayerFailsAndClearsAStaleRecord) {
    Options fx;
    // No record; a record of an ended process; one naming this test, which is
    // no player and must survive; one that is not a number.
    const std::string records[] = {"", "999999999\n", std::to_string(getpid()) + "\n", "abc\n"};
    for (const std::string& record : records) {
        if (!record.empty()) std::ofstream(fx.pidFile) << record;
        ProgramRun run;
        EXPECT_EQ(fx.session(run, {"--stop"}), 1) << record;
        EXPECT_EQ(run.err(), "tovrin: no background player is running\n");
        EXPECT_EQ(run.out(), "");
        if (record != "abc\n") {
            EXPECT_FALSE(fs::exists(fx.pidFile)) << record;
        }
    }
    fx.expectUntouched();
}

TEST(Options, StopEndsTheBackgroundPlayerWhichClosesTheCard) {
    VdacConfig card;
    card.speed = 1;  // real time, so the 30 s file is still playing when stopped
    Options fx(card);
    writeWav(fx.workdir + "/song.wav", 30);
    Reaper reaper;
    ProgramRun launch, stop, again;
    ASSERT_EQ(fx.session(launch, {"song.wav"}), 0);
    // The launcher records the player before it returns.
    reaper.pid = pid_t(std::atol(firstLine(fx.pidFile).c_str()));
    ASSERT_GT(reaper.pid, 0);
    for (int i = 0; i < 400 && eventsOfKind(fx.events(), "start").empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_FALSE(eventsOfKind(fx.events(), "start").empty())
        << "the background player never played";

    ASSERT_EQ(fx.session(stop, {"--stop"}), 0) << stop.err();
    EXPECT_EQ(stop.out(), "tovrin: stopped the background player (process " +
                              std::to_string(reaper.pid) + ")\n");
    EXPECT_TRUE(ended(reaper.pid));
    EXPECT_FALSE(fs::exists(fx.pidFile));
    // Stopped like the console's stop: the card was closed by the player, early.
    const std::vector<VdacEvent> events = fx.events();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().kind, "close");
    EXPECT_LT(vdacFramesAt(events, events.size() - 1), 30u * 44100);

    EXPECT_EQ(fx.session(again, {"--stop"}), 1);
    EXPECT_FALSE(fs::exists(fx.workdir + "/config.dat"));
    EXPECT_EQ(readText(fx.workdir + "/path.txt"), Options::kPathText);
}

}  // namespace
