#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "tests/support/harness.h"

namespace {

bool processGone(pid_t pid) {
    // A killed grandchild is either gone or a zombie waiting for its new parent.
    for (int i = 0; i < 100; ++i) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string pidField, comm, state;
        if (!(stat >> pidField >> comm >> state) || state == "Z") return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

TEST(ProgramRunTest, EchoesInputAndReportsExitAndEnvironment) {
    TempDir dir;
    ProgramRun run;
    ASSERT_TRUE(run.start("/bin/sh",
                          {"-c",
                           "read line; echo \"got $line\"; echo oops >&2; "
                           "echo \"$TOVRIN_SANDBOX|$ALSA_CONFIG_PATH|$EXTRA|$(pwd)\"; exit 3"},
                          dir.path(), {{"EXTRA", "x y"}}));
    ASSERT_TRUE(run.send("hello\n"));
    EXPECT_TRUE(run.waitFor(Stream::Out, "got hello", 5));
    EXPECT_TRUE(run.waitFor(Stream::Err, "oops", 5));
    EXPECT_EQ(run.waitExit(5), 3);
    EXPECT_NE(
        run.out().find(dir.file("sandbox") + "|" + dir.file("alsa.conf") + "|x y|" + dir.path()),
        std::string::npos)
        << run.out();
    struct stat st;
    EXPECT_EQ(stat(dir.file("sandbox").c_str(), &st), 0);
}

TEST(ProgramRunTest, WaitsSearchFromOffsetAndSeeEndOfInput) {
    TempDir dir;
    ProgramRun run;
    ASSERT_TRUE(run.start("/bin/cat", {}, dir.path()));
    run.send("ready\n");
    ASSERT_TRUE(run.waitFor(Stream::Out, "ready", 5));
    size_t mark = run.out().size();
    EXPECT_FALSE(run.waitFor(Stream::Out, "ready", 0.1, mark));
    run.send("ready again\n");
    EXPECT_TRUE(run.waitFor(Stream::Out, "ready", 5, mark));
    run.closeInput();
    EXPECT_EQ(run.waitExit(5), 0);
    EXPECT_EQ(run.out(), "ready\nready again\n");
}

TEST(ProgramRunTest, TimeoutsHoldAndDestructorKillsTheWholeGroup) {
    TempDir dir;
    pid_t grandchild = 0;
    {
        ProgramRun run;
        ASSERT_TRUE(run.start("/bin/sh", {"-c", "sleep 30 & echo $!; wait"}, dir.path()));
        ASSERT_TRUE(run.waitFor(Stream::Out, "\n", 5));
        grandchild = std::stoi(run.out());
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_FALSE(run.waitFor(Stream::Err, "never", 0.2));
        EXPECT_EQ(run.waitExit(0.2), -1);
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(3));
    }
    EXPECT_TRUE(processGone(grandchild));
}

TEST(ProgramRunTest, SignalReachesTheChildAndMissingBinaryExitsNonZero) {
    TempDir dir;
    ProgramRun run;
    ASSERT_TRUE(run.start("/bin/sleep", {"30"}, dir.path()));
    run.signal(SIGINT);
    EXPECT_EQ(run.waitExit(5), 128 + SIGINT);

    ProgramRun missing;
    if (missing.start(dir.file("no-such-program"), {}, dir.path())) {
        EXPECT_EQ(missing.waitExit(5), 127);
    }
}

}  // namespace
