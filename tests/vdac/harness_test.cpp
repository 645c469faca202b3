#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "tests/support/harness.h"

namespace {

TEST(ProgramRunTest, TimeoutsHoldAndDestructorKillsTheWholeGroup) {
    TempDir dir;
    pid_t grandchild = 0;
    {
        ProgramRun run;
        ASSERT_TRUE(run.start("/bin/sh", {"-c", "sleep 30 & echo $!; wait"}, dir.path()));
        ASSERT_TRUE(run.waitFor(Stream::Out, "\n", 5));
        grandchild = std::stoi(run.out());
        EXPECT_FALSE(run.waitFor(Stream::Err, "never", 0.2));
        EXPECT_EQ(run.waitExit(0.2), -1);
    }
    // Gone, or a zombie waiting for its new parent.
    bool gone = false;
    for (int i = 0; i < 100 && !gone; ++i) {
        std::ifstream stat("/proc/" + std::to_string(grandchild) + "/stat");
        std::string pid, comm, state;
        gone = !(stat >> pid >> comm >> state) || state == "Z";
        if (!gone) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(gone);
}

}  // namespace
