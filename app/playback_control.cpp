// Starting and stopping the player thread, the play queue, pause and jumps.
#include <pthread.h>

#include <cstdio>
#include <cstring>

#include "app/frontend.h"
#include "app/rules.h"
#include "library/cue.h"
#include "library/folder.h"
#include "settings/settings.h"

namespace {

void printLoading() {
    if (settings.directInput != 0) return;
    std::fputs("\nLoading", stdout);
    std::fflush(stdout);
}

// The player clears stopRequest last; until it has, a stop in flight belongs
// to the old thread and a new one must not start beside it.
bool playerLetGo() {
    if (playerControl.playerRunning.load() != 0) return false;
    return playerControl.playerThread.load() == 0 || playerControl.stopRequest.load() == 0;
}

void startThread() {
    playerControl.showAlsaSetup.store(1);
    playerControl.stopRequest.store(0);
    // A nonzero handle marks "a thread exists" before the thread can run: a
    // player that ends at once then clears it after this store, never before.
    playerControl.playerThread.store(pthread_self());
    pthread_t thread;
    if (pthread_create(&thread, nullptr, playerControl.playerRoutine.load(), &playerControl) != 0) {
        playerControl.playerThread.store(0);
        playerControl.showAlsaSetup.store(0);
        std::fputs("unable to start player thread\n", stderr);
        std::fflush(stderr);
        return;
    }
    pthread_detach(thread);
}

void playSlot(int index) {
    playerControl.queue.queueIndex.store(index);
    copyPathSlot(playerControl.currentPath, playerControl.queue.queuePaths[size_t(index)].c_str());
    printLoading();
    startThread();
}

}  // namespace

void buildPlayQueue(const std::string& selectedPath) {
    QueuePlan plan =
        planQueue(folderList, currentFolder, selectedPath, folderList.size(), kPathSlot);
    playerControl.queue.queueCount.store(static_cast<int32_t>(plan.paths.size()));
    playerControl.queue.queuePaths = std::move(plan.paths);
    playerControl.queue.queueIndex.store(plan.index < 0 ? 0 : plan.index);
}

void startPlayback(const std::string& selectedPath) {
    if (!copyPathSlot(playerControl.currentPath, selectedPath.c_str())) return;
    buildPlayQueue(selectedPath);
    printLoading();
    int32_t seek = playerControl.seekSeconds.load();
    uint64_t now = nowMs();
    playerControl.playStartMs.store(seek == -1 ? now : now - uint64_t(int64_t(seek) * 1000));
    startThread();
}

void stopPlayer() {
    playerControl.stopRequest.store(1);
    playerControl.pauseRequest.store(0);
    // The player drops the card within a pass and says when it has let go.
    awaitPlayer(playerControl, playerLetGo);
}

void playNext() {
    stopPlayer();
    int index = playerControl.queue.queueIndex.load();
    if (index < playerControl.queue.queueCount.load() - 1) playSlot(index + 1);
}

void playPrevious() {
    stopPlayer();
    int index = playerControl.queue.queueIndex.load();
    if (index > 0 && index <= playerControl.queue.queueCount.load()) playSlot(index - 1);
}

void togglePause() {
    if (playerControl.pauseRequest.load() == 0) {
        playerControl.pauseStartMs.store(nowMs());
        playerControl.pauseRequest.store(1);
        return;
    }
    playerControl.pauseRequest.store(0);
    playerControl.playStartMs.store(playerControl.playStartMs.load() +
                                    (nowMs() - playerControl.pauseStartMs.load()));
}

bool trackStart(size_t track, std::string& file) {
    const int64_t cd = trackStartFrames[track];
    if (cd < 0) {
        std::fprintf(stderr, "track %zu: its start is not a valid time\n", track + 1);
        std::fflush(stderr);
        return false;
    }
    if (cueHasManyFiles()) {
        file = resolveTrackFile(track);
        if (file.empty() || file.size() >= size_t(kPathSlot)) {
            std::fprintf(stderr, "track %zu: \"%s\" is not beside the sheet\n", track + 1,
                         trackFiles[track].c_str());
            std::fflush(stderr);
            return false;
        }
    }
    return true;
}

void setPendingStart(int64_t cdFrames) {
    playerControl.seekCdFrames.store(cdFrames);  // before the flag that makes it pending
    playerControl.seekSeconds.store(int32_t(cdFrames / 75));
}

void jumpTo(int32_t seconds) {
    playerControl.pauseRequest.store(0);
    playerControl.playStartMs.store(nowMs() - uint64_t(int64_t(seconds) * 1000));
    playerControl.seekSeconds.store(seconds);
}
