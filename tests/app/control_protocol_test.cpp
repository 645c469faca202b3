// The start/stop/next/previous/pause/seek protocol between the command loop and
// a player thread, driven with a player routine that keeps the thread contract.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <vector>

#include "app/frontend.h"
#include "device/device.h"
#include "library/folder.h"
#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

std::mutex seenLock;  // guards what the test player saw
std::vector<std::string> pathsPlayed;
std::vector<int32_t> seeksTaken;
std::atomic<int> startDelayMs{0}, liveThreads{0}, mostLiveThreads{0}, pausedPasses{0};
std::atomic<bool> failToStart{false};

// Starting for startDelayMs, then plays until stopped, taking seeks as they come.
void* testPlayer(void*) {
    int live = liveThreads.fetch_add(1) + 1;
    if (live > mostLiveThreads.load()) mostLiveThreads.store(live);
    sleepMs(startDelayMs.load());
    if (!failToStart.load()) {
        streamSeconds.store(300);
        playerRunning.store(1);
        std::lock_guard<std::mutex> lock(seenLock);
        pathsPlayed.push_back(currentPath);
    }
    while (playerRunning.load() != 0 && stopRequest.load() == 0) {
        if (int32_t seek = seekSeconds.load(); seek != -1) {
            std::lock_guard<std::mutex> lock(seenLock);
            seeksTaken.push_back(seek);
            seekSeconds.store(-1);
        }
        if (pauseRequest.load() != 0) pausedPasses.store(pausedPasses.load() + 1);
        sleepMs(2);
    }
    liveThreads.fetch_sub(1);
    playerRunning.store(0);
    playerThread.store(0);
    stopRequest.store(0);
    return nullptr;
}

bool eventually(bool (*pred)()) {
    for (int i = 0; i < 500 && !pred(); ++i) sleepMs(10);
    return pred();
}
bool playing() {
    return playerRunning.load() != 0;
}
bool seekTaken() {
    return seekSeconds.load() == -1;
}

class Protocol : public testing::Test {
  protected:
    void SetUp() override {
        applySandbox(dir_.path().c_str());
        settings = Settings{.directInput = 1};  // no "Loading" between the lines
        for (auto& row : playerVariants)
            for (auto& routine : row) routine = testPlayer;
        testing::internal::CaptureStdout();
        selectPlayerVariant();
        pathsPlayed.clear();
        seeksTaken.clear();
        startDelayMs.store(0);
        failToStart.store(false);
        mostLiveThreads.store(0);
        seekSeconds.store(-1);
        music_ = dir_.path() + "/music";
        mkdir(music_.c_str(), 0755);
        folderList = {"..", "a.flac", "b.txt", "c.FLAC", "e.wav"};
        for (size_t i = 1; i < folderList.size(); ++i) std::ofstream(music_ + "/" + folderList[i]);
        currentFolder = music_;
    }
    void TearDown() override {
        if (playerThread.load() != 0) stopPlayer();
        testing::internal::GetCapturedStdout();
    }
    std::vector<std::string> played() {
        std::lock_guard<std::mutex> lock(seenLock);
        return pathsPlayed;
    }
    void playEntry(const char* number) {
        runCommand(number);
        ASSERT_TRUE(eventually(playing));
    }
    testfiles::TempDir dir_;
    testfiles::ScopedChdir cd_{dir_.path()};
    std::string music_;
};

TEST_F(Protocol, StartBuildsTheQueueAndStopClearsTheBlock) {
    startDelayMs.store(150);
    runCommand("3");
    // Starting: a thread exists, nothing plays yet.
    EXPECT_NE(playerThread.load(), pthread_t(0));
    EXPECT_EQ(playerRunning.load(), 0);
    EXPECT_EQ(queueCount.load(), 3);
    EXPECT_EQ(queueIndex.load(), 1);
    EXPECT_STREQ(queuePaths[2], (music_ + "/e.wav").c_str());
    ASSERT_TRUE(eventually(playing));
    runCommand("s");
    EXPECT_EQ(playerRunning.load(), 0);
    EXPECT_EQ(playerThread.load(), pthread_t(0));
}

TEST_F(Protocol, NextAndPreviousWalkTheQueueAndStopAtItsEnds) {
    playEntry("3");
    runCommand("n");
    ASSERT_TRUE(eventually(playing));
    runCommand("N");  // at the last slot: only the stop
    EXPECT_EQ(playerThread.load(), pthread_t(0));
    playEntry("1");
    runCommand("p");  // at the first slot: only the stop
    EXPECT_EQ(playerThread.load(), pthread_t(0));
    playEntry("4");
    runCommand("P");
    ASSERT_TRUE(eventually(playing));
    std::string a = music_ + "/a.flac", c = music_ + "/c.FLAC", e = music_ + "/e.wav";
    EXPECT_EQ(played(), (std::vector<std::string>{c, e, a, e, c}));
    EXPECT_EQ(mostLiveThreads.load(), 1);
}

TEST_F(Protocol, PauseFreezesTheClockAndResumeShiftsIt) {
    playEntry("1");
    playStartMs.store(nowMs() - 9000);
    runCommand("b");
    ASSERT_TRUE(eventually([] { return pausedPasses.load() > 0; }));
    testing::internal::CaptureStderr();
    runCommand("t");
    sleepMs(1100);
    runCommand("T");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "time 00:09time 00:09");
    runCommand("B");
    EXPECT_EQ(pauseRequest.load(), 0);
    EXPECT_EQ(positionSeconds(), 9);  // the paused second does not count
}

TEST_F(Protocol, SeeksWhilePlayingAndSettingsWordsAreSeeks) {
    playEntry("1");
    playStartMs.store(nowMs() - 50000);  // 50 s in
    runCommand("90");
    ASSERT_TRUE(eventually(seekTaken));
    testing::internal::CaptureStderr();
    runCommand("+10");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "time 01:40");
    ASSERT_TRUE(eventually(seekTaken));
    for (const char* ignored : {"300", "pf100", "st", "l", "-101", "+abc"}) runCommand(ignored);
    runCommand(".1");  // no CUE sheet loaded: no track to jump to
    runCommand("1:05");
    ASSERT_TRUE(eventually(seekTaken));
    std::lock_guard<std::mutex> lock(seenLock);
    EXPECT_EQ(seeksTaken, (std::vector<int32_t>{90, 100, 65}));
    EXPECT_EQ(settings.periodFrames, -1);
}

TEST_F(Protocol, NumberWhileStartingWaitsForTheSetThatApplies) {
    startDelayMs.store(200);
    runCommand("1");
    runCommand("2");  // read as a seek to 0:02 once the first thread plays
    EXPECT_EQ(playerRunning.load(), 1);
    ASSERT_TRUE(eventually(seekTaken));
    runCommand("s");
    EXPECT_EQ(seeksTaken, std::vector<int32_t>{2});

    failToStart.store(true);
    startDelayMs.store(100);
    runCommand("1");
    runCommand("3");  // the first gives up: the number then starts the third entry
    failToStart.store(false);
    ASSERT_TRUE(eventually(playing));
    EXPECT_STREQ(currentPath, (music_ + "/c.FLAC").c_str());
    EXPECT_EQ(mostLiveThreads.load(), 1);
}

}  // namespace
