// Starting and stopping the player thread, the play queue, pause and jumps.
#include <pthread.h>

#include <cstdio>
#include <cstring>

#include "app/frontend.h"
#include "app/rules.h"
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
    if (playerRunning.load() != 0) return false;
    return playerThread.load() == 0 || stopRequest.load() == 0;
}

void startThread() {
    showAlsaSetup.store(1);
    stopRequest.store(0);
    // A nonzero handle marks "a thread exists" before the thread can run: a
    // player that ends at once then clears it after this store, never before.
    playerThread.store(pthread_self());
    pthread_t thread;
    if (pthread_create(&thread, nullptr, playerRoutine.load(), nullptr) != 0) {
        playerThread.store(0);
        showAlsaSetup.store(0);
        std::fputs("unable to start player thread\n", stderr);
        std::fflush(stderr);
        return;
    }
    pthread_detach(thread);
}

void playSlot(int index) {
    queueIndex.store(index);
    std::memcpy(currentPath, queuePaths[index], kPathSlot);
    printLoading();
    startThread();
}

}  // namespace

void buildPlayQueue(const std::string& selectedPath) {
    QueuePlan plan = planQueue(folderList, currentFolder, selectedPath, kQueueSlots, kPathSlot);
    for (size_t i = 0; i < plan.paths.size(); ++i)
        copyPathSlot(queuePaths[i], plan.paths[i].c_str());
    queueCount.store(static_cast<int32_t>(plan.paths.size()));
    queueIndex.store(plan.index < 0 ? 0 : plan.index);
}

void startPlayback(const std::string& selectedPath) {
    if (!copyPathSlot(currentPath, selectedPath.c_str())) return;
    buildPlayQueue(selectedPath);
    printLoading();
    int32_t seek = seekSeconds.load();
    uint64_t now = nowMs();
    playStartMs.store(seek == -1 ? now : now - uint64_t(int64_t(seek) * 1000));
    startThread();
}

void stopPlayer() {
    stopRequest.store(1);
    pauseRequest.store(0);
    while (!playerLetGo()) sleepMs(200);
}

void playNext() {
    stopPlayer();
    int index = queueIndex.load();
    if (index < queueCount.load() - 1) playSlot(index + 1);
}

void playPrevious() {
    stopPlayer();
    int index = queueIndex.load();
    if (index > 0 && index <= queueCount.load()) playSlot(index - 1);
}

void togglePause() {
    if (pauseRequest.load() == 0) {
        pauseStartMs.store(nowMs());
        pauseRequest.store(1);
        return;
    }
    pauseRequest.store(0);
    playStartMs.store(playStartMs.load() + (nowMs() - pauseStartMs.load()));
}

void jumpTo(int32_t seconds) {
    pauseRequest.store(0);
    playStartMs.store(nowMs() - uint64_t(int64_t(seconds) * 1000));
    seekSeconds.store(seconds);
}
