// The start/stop/next/previous/pause/seek protocol between the command loop and
// a player thread, driven with a player routine that keeps the thread contract.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <mutex>
#include <vector>

#include "app/frontend.h"
#include "device/device.h"
#include "library/folder.h"
#include "scratch_dir.h"
#include "settings/settings.h"

namespace {

// What the test player saw, and how it behaves.
std::mutex seenLock;
std::vector<std::string> pathsPlayed;
std::vector<int32_t> seeksTaken;
std::atomic<int> startDelayMs{0};
std::atomic<bool> failToStart{false};
std::atomic<int> fileLengthMs{1 << 30};
std::atomic<int> liveThreads{0};
std::atomic<int> mostLiveThreads{0};
std::atomic<int> pausedPasses{0};

void note(std::vector<std::string>& list, const char* path) {
    std::lock_guard<std::mutex> lock(seenLock);
    list.push_back(path);
}

void endRun() {
    liveThreads.fetch_sub(1);
    playerRunning.store(0);
    playerThread.store(0);
    stopRequest.store(0);
}

// Plays currentPath, then the queue after queueIndex; polls the requests each pass.
void* testPlayer(void*) {
    int live = liveThreads.fetch_add(1) + 1;
    if (live > mostLiveThreads.load()) mostLiveThreads.store(live);
    sleepMs(startDelayMs.load());
    if (failToStart.load()) {
        endRun();
        return nullptr;
    }
    streamSeconds.store(300);
    playerRunning.store(1);
    for (;;) {
        note(pathsPlayed, currentPath);
        uint64_t fileStart = nowMs();
        while (stopRequest.load() == 0 && nowMs() - fileStart < uint64_t(fileLengthMs.load())) {
            int32_t seek = seekSeconds.load();
            if (seek != -1) {
                std::lock_guard<std::mutex> lock(seenLock);
                seeksTaken.push_back(seek);
                seekSeconds.store(-1);
            }
            if (pauseRequest.load() != 0) pausedPasses.store(pausedPasses.load() + 1);
            sleepMs(2);
        }
        int next = queueIndex.load() + 1;
        if (stopRequest.load() != 0 || next >= queueCount.load()) break;
        queueIndex.store(next);
        std::memcpy(currentPath, queuePaths[next], kPathSlot);
    }
    endRun();
    return nullptr;
}

template <typename Pred>
bool eventually(Pred pred) {
    for (int i = 0; i < 500; ++i) {
        if (pred()) return true;
        sleepMs(10);
    }
    return false;
}

class Protocol : public testing::Test {
  protected:
    void SetUp() override {
        applySandbox(dir_.path().c_str());
        settings = Settings{};
        settings.directInput = 1;  // no "Loading" between the lines
        for (auto& row : playerVariants)
            for (auto& routine : row) routine = testPlayer;
        testing::internal::CaptureStdout();
        selectPlayerVariant();
        pathsPlayed.clear();
        seeksTaken.clear();
        startDelayMs.store(0);
        failToStart.store(false);
        fileLengthMs.store(1 << 30);
        mostLiveThreads.store(0);
        pausedPasses.store(0);
        seekSeconds.store(-1);
        makeFolder();
    }
    void TearDown() override {
        if (playerThread.load() != 0) stopPlayer();
        testing::internal::GetCapturedStdout();
    }
    void makeFolder() {
        music_ = dir_.path() + "/music";
        mkdir(music_.c_str(), 0755);
        for (const char* name : {"a.flac", "b.txt", "c.FLAC", "e.wav"})
            std::ofstream(music_ + "/" + name) << "x";
        currentFolder = music_;
        folderList = {"..", "a.flac", "b.txt", "c.FLAC", "e.wav"};
    }
    std::vector<std::string> played() {
        std::lock_guard<std::mutex> lock(seenLock);
        return pathsPlayed;
    }
    std::vector<int32_t> seeks() {
        std::lock_guard<std::mutex> lock(seenLock);
        return seeksTaken;
    }
    void playEntry(const char* number) {
        runCommand(number);
        ASSERT_TRUE(eventually([] { return playerRunning.load() != 0; }));
    }
    ScratchDir dir_;
    std::string music_;
};

TEST_F(Protocol, StartBuildsTheQueueAndStopClearsTheBlock) {
    startDelayMs.store(150);
    runCommand("3");
    // Starting: a thread exists, nothing plays yet, the idle set still applies.
    EXPECT_NE(playerThread.load(), pthread_t(0));
    EXPECT_EQ(playerRunning.load(), 0);
    EXPECT_EQ(queueCount.load(), 3);
    EXPECT_EQ(queueIndex.load(), 1);
    EXPECT_STREQ(queuePaths[2], (music_ + "/e.wav").c_str());
    EXPECT_EQ(showAlsaSetup.load(), 1);
    ASSERT_TRUE(eventually([] { return playerRunning.load() != 0; }));
    runCommand("s");
    EXPECT_EQ(playerRunning.load(), 0);
    EXPECT_EQ(playerThread.load(), pthread_t(0));
    EXPECT_EQ(stopRequest.load(), 0);
    EXPECT_EQ(played(), std::vector<std::string>{music_ + "/c.FLAC"});
}

TEST_F(Protocol, NextAndPreviousWalkTheQueueAndStopAtItsEnds) {
    playEntry("3");
    runCommand("n");
    ASSERT_TRUE(eventually([] { return playerRunning.load() != 0; }));
    EXPECT_EQ(queueIndex.load(), 2);
    runCommand("N");  // at the last slot: only the stop
    EXPECT_EQ(playerThread.load(), pthread_t(0));
    playEntry("1");
    runCommand("p");  // at the first slot: only the stop
    EXPECT_EQ(playerThread.load(), pthread_t(0));
    playEntry("4");
    runCommand("P");
    ASSERT_TRUE(eventually([] { return playerRunning.load() != 0; }));
    runCommand("s");
    EXPECT_EQ(played(),
              (std::vector<std::string>{music_ + "/c.FLAC", music_ + "/e.wav", music_ + "/a.flac",
                                        music_ + "/e.wav", music_ + "/c.FLAC"}));
    EXPECT_EQ(mostLiveThreads.load(), 1);
}

TEST_F(Protocol, ThePlayerAdvancesAndEndsOnItsOwn) {
    fileLengthMs.store(30);
    runCommand("1");
    ASSERT_TRUE(eventually([] { return playerThread.load() == 0; }));
    EXPECT_EQ(played().size(), 3u);
    EXPECT_EQ(queueIndex.load(), 2);
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
    uint64_t before = playStartMs.load();
    uint64_t pausedAt = pauseStartMs.load();
    runCommand("B");
    EXPECT_EQ(pauseRequest.load(), 0);
    EXPECT_GE(playStartMs.load() - before, nowMs() - pausedAt - 50);
    EXPECT_EQ(positionSeconds(), 9 + 0);  // the paused second does not count
}

TEST_F(Protocol, SeeksWhilePlayingAndSettingsWordsAreSeeks) {
    playEntry("1");
    playStartMs.store(nowMs() - 50000);  // 50 s in
    runCommand("90");
    ASSERT_TRUE(eventually([] { return seekSeconds.load() == -1; }));
    testing::internal::CaptureStderr();
    runCommand("+10");  // 90 + 10
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "time 01:40");
    ASSERT_TRUE(eventually([] { return seekSeconds.load() == -1; }));
    for (const char* ignored : {"300", "pf100", "st", "l", "-101", "+abc"}) runCommand(ignored);
    runCommand("-0.10");
    ASSERT_TRUE(eventually([] { return seekSeconds.load() == -1; }));
    EXPECT_EQ(seeks(), (std::vector<int32_t>{90, 100, 90}));
    EXPECT_EQ(settings.periodFrames, -1);
}

TEST_F(Protocol, NumberWhileStartingWaitsForTheSetThatApplies) {
    startDelayMs.store(200);
    runCommand("1");
    runCommand("2");  // read as a seek to 0:02 once the first thread plays
    EXPECT_EQ(playerRunning.load(), 1);
    ASSERT_TRUE(eventually([] { return seekSeconds.load() == -1; }));
    EXPECT_EQ(seeks(), std::vector<int32_t>{2});
    runCommand("s");

    failToStart.store(true);
    startDelayMs.store(100);
    runCommand("1");
    runCommand("3");  // the first gives up: the number then starts the third entry
    failToStart.store(false);
    ASSERT_TRUE(eventually([] { return playerRunning.load() != 0; }));
    EXPECT_STREQ(currentPath, (music_ + "/c.FLAC").c_str());
    EXPECT_EQ(mostLiveThreads.load(), 1);
}

TEST_F(Protocol, ExitStopsAPausedPlayerAndWritesTheFolder) {
    playEntry("1");
    runCommand("b");
    EXPECT_FALSE(runCommand("X"));
    EXPECT_EQ(exitProgram(), 0);
    EXPECT_EQ(playerThread.load(), pthread_t(0));
    std::ifstream file("path.txt");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    EXPECT_EQ(text, music_);
    struct stat st {};
    ASSERT_EQ(stat("path.txt", &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0666u);
}

}  // namespace
