// The start/stop/next/previous/pause/seek protocol between the command loop and
// a player thread, driven by a stand-in player that keeps the thread contract.
// The settings commands are checked by the whole-program console test.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <vector>

#include "app/frontend.h"
#include "device/device.h"
#include "library/folder.h"
#include "settings/settings.h"
#include "tests/support/vdac.h"

namespace {

namespace fs = std::filesystem;
std::mutex seenLock;  // guards played and seeks
std::vector<std::string> played;
std::vector<int32_t> seeks;
std::atomic<int> startDelayMs{0}, liveThreads{0}, mostLiveThreads{0}, pausedPasses{0};
std::atomic<bool> failToStart{false};

// Starts after startDelayMs (or gives up), then plays until stopped, taking seeks.
void* testPlayer(void*) {
    mostLiveThreads.store(std::max(mostLiveThreads.load(), ++liveThreads));
    sleepMs(startDelayMs.load());
    if (!failToStart.load()) {
        playerControl.streamSeconds.store(300);
        playerControl.playerRunning.store(1);
        notePlayerChange(playerControl);
        std::lock_guard<std::mutex> lock(seenLock);
        played.push_back(playerControl.currentPath);
    }
    while (playerControl.playerRunning.load() != 0 && playerControl.stopRequest.load() == 0) {
        if (int32_t seek = playerControl.seekSeconds.load(); seek != -1) {
            std::lock_guard<std::mutex> lock(seenLock);
            seeks.push_back(seek);
            playerControl.seekSeconds.store(-1);
        }
        if (playerControl.pauseRequest.load() != 0) ++pausedPasses;
        sleepMs(2);
    }
    --liveThreads;
    playerControl.playerRunning.store(0);
    playerControl.playerThread.store(0);
    playerControl.stopRequest.store(0);
    notePlayerChange(playerControl);
    return nullptr;
}

bool eventually(bool (*pred)()) {
    for (int i = 0; i < 500 && !pred(); ++i) sleepMs(10);
    return pred();
}
const auto playing = [] { return playerControl.playerRunning.load() != 0; };
const auto seekTaken = [] { return playerControl.seekSeconds.load() == -1; };

class Frontend : public testing::Test {
  protected:
    void SetUp() override {
        fs::current_path(dir_.path());  // a stray settings command saves here
        applySandbox(dir_.path().c_str());
        settings = Settings{.directInput = 1};  // no "Loading" between the lines
        playerControl.playerRoutine.store(testPlayer);
        played.clear();
        seeks.clear();
        startDelayMs.store(0);
        mostLiveThreads.store(0);
        playerControl.seekSeconds.store(-1);
        folderList = {"..", "a.flac", "b.txt", "c.FLAC", "e.wav"};
        for (size_t i = 1; i < folderList.size(); ++i) writeFileBytes(path(folderList[i]), {});
        currentFolder = dir_.path();
    }
    void TearDown() override {
        if (playerControl.playerThread.load() != 0) stopPlayer();
        fs::current_path(cwd_);
    }
    void play(const char* word) {
        runCommand(word);
        ASSERT_TRUE(eventually(playing));
    }
    std::string path(const std::string& name) { return dir_.file(name); }
    const fs::path cwd_ = fs::current_path();
    TempDir dir_;
};

TEST_F(Frontend, NextAndPreviousWalkTheQueueAndStopAtItsEnds) {
    play("3");
    play("n");
    runCommand("N");  // at the last slot: only the stop
    EXPECT_EQ(playerControl.playerThread.load(), pthread_t(0));
    play("1");
    runCommand("p");  // at the first slot: only the stop
    EXPECT_EQ(playerControl.playerThread.load(), pthread_t(0));
    play("4");
    play("P");
    std::lock_guard<std::mutex> lock(seenLock);
    EXPECT_EQ(played, (std::vector<std::string>{path("c.FLAC"), path("e.wav"), path("a.flac"),
                                                path("e.wav"), path("c.FLAC")}));
    EXPECT_EQ(mostLiveThreads.load(), 1);
}

TEST_F(Frontend, PauseFreezesTheClockAndOnlySeekWordsSeekWhilePlaying) {
    play("1");
    playerControl.playStartMs.store(nowMs() - 9000);
    runCommand("b");
    ASSERT_TRUE(eventually([] { return pausedPasses.load() > 0; }));
    testing::internal::CaptureStderr();
    runCommand("t");
    sleepMs(1100);
    runCommand("T");
    runCommand("B");
    EXPECT_EQ(playerControl.pauseRequest.load(), 0);
    EXPECT_EQ(positionSeconds(), 9);  // the paused second does not count
    runCommand("90");
    EXPECT_TRUE(eventually(seekTaken));
    runCommand("+10");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "time 00:09time 00:09time 01:40");
    ASSERT_TRUE(eventually(seekTaken));
    for (const char* ignored : {"300", "pf100", "st", "l", "-101", "+abc", ".1"})
        runCommand(ignored);
    runCommand("1:05");
    ASSERT_TRUE(eventually(seekTaken));
    std::lock_guard<std::mutex> lock(seenLock);
    EXPECT_EQ(seeks, (std::vector<int32_t>{90, 100, 65}));
    EXPECT_EQ(settings.periodFrames, -1);
}

TEST_F(Frontend, NumberWhileStartingWaitsForTheSetThatApplies) {
    startDelayMs.store(200);
    runCommand("1");
    runCommand("2");  // read as a seek to 0:02 once the first thread plays
    EXPECT_EQ(playerControl.playerRunning.load(), 1);
    ASSERT_TRUE(eventually(seekTaken));
    runCommand("s");
    EXPECT_EQ(playerControl.playerThread.load(), pthread_t(0));
    EXPECT_EQ(seeks, std::vector<int32_t>{2});

    failToStart.store(true);
    startDelayMs.store(100);
    runCommand("1");
    runCommand("3");  // the first gives up: the number then starts the third entry
    failToStart.store(false);
    ASSERT_TRUE(eventually(playing));
    EXPECT_STREQ(playerControl.currentPath, path("c.FLAC").c_str());
    EXPECT_EQ(mostLiveThreads.load(), 1);
}

}  // namespace
