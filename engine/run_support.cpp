#include "engine/run_support.h"

#include <syslog.h>

#include <cstdio>
#include <ctime>

#include "control/shown_text.h"
#include "engine/now_playing.h"
#include "settings/tuning.h"

bool beginRun(PlayerControl& pc, RunObjects& run) {
    pc.streamRate.store(44100);
    pc.streamChannels.store(2);
    pc.streamBits.store(16);
    run.params = makeHwParams();
    applyCoreAffinity();
    return run.params != nullptr;
}

void announceFile(PlayerControl& pc, const snd_pcm_hw_params_t* params, bool extraLine) {
    pc.heardMs.store(-1);
    if (pc.showAlsaSetup.load()) {
        printAlsaSetup(params, extraLine);
        pc.showAlsaSetup.store(0);
        if (pc.showKeyHints.load()) {
            printKeyHints();
            pc.showKeyHints.store(0);
        }
    }
    printTrackInfo(pc);
    if (pc.seekSeconds.load() == -1) pc.playStartMs.store(nowMs());
}

void reportProblem(PlayerControl& pc, const std::string& text) {
    pc.runFailed.store(1);
    if (pc.backgroundMode.load()) syslog(LOG_ERR, "%s", text.c_str());
    std::fprintf(stderr, "\n%s\n", escapeControls(text).c_str());
    std::fflush(stderr);
}

void describeCard(PlayerControl& pc, const DecoderStream& ds, const DeviceGeometry& geometry,
                  bool rw) {
    const char* format = snd_pcm_format_name(snd_pcm_format_t(ds.alsaFormat));
    std::snprintf(pc.cardText, sizeof pc.cardText, "Card: %s, %d Hz, %d channels, %s: %s",
                  format ? format : "?", ds.rate, ds.channels, rw ? "RW" : "MMAP",
                  cardVerdict(ds).c_str());
    pc.cardPeriodFrames.store(int32_t(geometry.periodFrames));
    pc.cardBufferFrames.store(int32_t(geometry.bufferFrames));
}

bool queueHasNext(const PlayerControl& pc) {
    int32_t next = pc.queue.queueIndex.load() + 1;
    return next < pc.queue.queueCount.load();
}

bool advanceQueue(PlayerControl& pc) {
    int32_t next = pc.queue.queueIndex.load() + 1;
    if (next >= pc.queue.queueCount.load()) return false;
    pc.queue.queueIndex.store(next);
    copyPathSlot(pc.currentPath, pc.queue.queuePaths[size_t(next)].c_str());
    return true;
}

namespace {
// A CD frame is 1/75 s; every common rate holds a whole number of card
// frames per CD frame, others round to the nearest.
int64_t cdToCardFrame(int64_t cd, int32_t rate) {
    return (cd * int64_t(rate) * 2 + 75) / 150;
}
}  // namespace

int64_t takeSeek(PlayerControl& pc, int32_t rate, uint64_t frames) {
    const int32_t seconds = pc.seekSeconds.load();
    if (seconds < 0) return -1;
    const int64_t cd = pc.seekCdFrames.load();
    pc.seekCdFrames.store(-1);
    pc.seekSeconds.store(-1);
    if (cd >= 0) {
        const int64_t frame = cdToCardFrame(cd, rate);
        return uint64_t(frame) < frames ? frame : -1;
    }
    return seconds < pc.streamSeconds.load() ? int64_t(seconds) * rate : -1;
}

bool seekPastEnd(PlayerControl& pc, int32_t rate, uint64_t frames) {
    const int64_t cd = pc.seekCdFrames.load();
    if (pc.seekSeconds.load() < 0 || cd < 0 || uint64_t(cdToCardFrame(cd, rate)) < frames)
        return false;
    pc.seekCdFrames.store(-1);
    pc.seekSeconds.store(-1);
    return true;
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

void* endRun(PlayerControl& pc, RunEnd how, GetInfoReport report, const std::string& detail) {
    // Idle before the prompt shows: a command typed at it must not be taken
    // for a playing command. The command loop waits on playerRunning, so
    // stopRequest goes last.
    pc.playerRunning.store(0);
    pc.playerThread.store(0);
    switch (how) {
        case RunEnd::Natural:
            std::fputs("\n> ", stderr);
            break;
        case RunEnd::Stopped:
            break;
        case RunEnd::GetInfoFailure:
            printGetInfoError(report, detail);
            break;
        case RunEnd::MemoryFailure:
            std::fputs("\nMemory allocation error\n", stderr);
            std::fputs("\n> ", stderr);
            break;
        case RunEnd::Failed:
            std::fputs("\n> ", stderr);
            break;
    }
    std::fflush(stderr);
    pc.stopRequest.store(0);
    notePlayerChange(pc);
    return nullptr;
}
