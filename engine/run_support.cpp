#include "engine/run_support.h"

#include <cstdio>
#include <ctime>

#include "app/control.h"
#include "engine/now_playing.h"
#include "settings/tuning.h"

bool beginRun(RunObjects& run) {
    streamRate.store(44100);
    streamChannels.store(2);
    streamBits.store(16);
    run.params = makeHwParams();
    run.status = makePcmStatus();
    applyCoreAffinity();
    return run.params && run.status;
}

void announceFile(const snd_pcm_hw_params_t* params, bool extraLine) {
    if (showAlsaSetup.load()) {
        printAlsaSetup(params, extraLine);
        showAlsaSetup.store(0);
        if (showKeyHints.load()) {
            printKeyHints();
            showKeyHints.store(0);
        }
    }
    printTrackInfo();
    if (seekSeconds.load() == -1) playStartMs.store(nowMs());
}

bool advanceQueue() {
    int32_t next = queueIndex.load() + 1;
    if (next >= queueCount.load() || next >= kQueueSlots) return false;
    queueIndex.store(next);
    copyPathSlot(currentPath, queuePaths[next]);
    return true;
}

int32_t takeSeek() {
    int32_t target = seekSeconds.load();
    if (target < 0) return -1;
    seekSeconds.store(-1);
    return target < streamSeconds.load() ? target : -1;
}

void passSleep(unsigned bufferTimeUs) {
    unsigned us = bufferTimeUs / 16;
    timespec ts{};
    ts.tv_sec = us / 1000000;
    ts.tv_nsec = long(us % 1000000) * 1000L;
    nanosleep(&ts, nullptr);
}

void printUnderrun() {
    std::fputs("underrun occurred\n", stderr);
    std::fflush(stderr);
}

void* endRun(RunEnd how, GetInfoReport report) {
    // Idle before the prompt shows: a command typed at it must not be taken
    // for a playing command. The command loop waits on playerRunning, so
    // stopRequest goes last.
    playerRunning.store(0);
    playerThread.store(0);
    switch (how) {
        case RunEnd::Natural:
            std::fputs("\n> ", stderr);
            break;
        case RunEnd::Stopped:
            break;
        case RunEnd::GetInfoFailure:
            printGetInfoError(report);
            break;
        case RunEnd::MemoryFailure:
            std::fputs("\nMemory allocation error\n", stderr);
            std::fputs("\n> ", stderr);
            break;
    }
    std::fflush(stderr);
    stopRequest.store(0);
    return nullptr;
}
