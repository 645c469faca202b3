// The state shared by the command loop (main thread) and the one detached
// player thread, below both: the console writes requests, the player writes
// what it is doing, and neither calls the other. No lock: each field is
// written whole by one side and polled by the other, so every flag and
// counter is an atomic used with plain loads and stores. The player routine
// receives the block as its thread argument.
#pragma once
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

constexpr int kPathSlot = 512;  // 511 bytes of text and a NUL

using PlayerRoutine = void* (*)(void*);

// The files of one play command, the whole folder however large. Filled by
// the command loop while no player thread exists; the player only reads it,
// and moves queueIndex as it advances.
struct PlayQueue {
    std::vector<std::string> queuePaths;
    std::atomic<int32_t> queueCount{0};
    std::atomic<int32_t> queueIndex{0};
};

struct PlayerControl {
    // Written by the command loop. The player sets stopRequest itself on a
    // fatal read and clears it last on every way out; it resets seekSeconds
    // when it takes the seek, clears showAlsaSetup after its report, sets
    // playStartMs when a Full Memory file begins, and moves currentPath along
    // the queue. Paths are written before the thread starts.
    std::atomic<uint8_t> stopRequest{0};
    std::atomic<uint8_t> pauseRequest{0};
    std::atomic<int32_t> seekSeconds{-1};  // -1 = none pending
    // The exact position of a pending seek in CD frames (75 a second), for a
    // CUE track start; -1: the whole seconds of seekSeconds. Written before
    // seekSeconds, which marks the seek as pending.
    std::atomic<int64_t> seekCdFrames{-1};
    std::atomic<uint64_t> playStartMs{0};
    std::atomic<uint64_t> pauseStartMs{0};
    std::atomic<uint8_t> showAlsaSetup{0};
    char currentPath[kPathSlot] = {};
    PlayQueue queue;

    // Written by start-up before any player thread exists.
    std::atomic<PlayerRoutine> playerRoutine{nullptr};
    std::atomic<int32_t> outputFormat{0};  // ALSA format code of PCM output
    std::atomic<uint8_t> dsdNativeBE{0};
    std::atomic<uint8_t> dsdNativeLE{0};
    std::atomic<int32_t> backgroundMode{0};

    // Written by the player (playerThread also by the command loop when it
    // creates the thread): what is playing, for the console and the reports.
    std::atomic<uint8_t> playerRunning{0};
    std::atomic<pthread_t> playerThread{0};  // 0 = none
    std::atomic<int32_t> showKeyHints{1};    // 1 until the first run printed them
    std::atomic<int32_t> streamSeconds{0};   // exclusive bound of a seek target
    std::atomic<int32_t> streamRate{44100};
    std::atomic<int32_t> streamChannels{2};
    std::atomic<int32_t> streamBits{16};
    char lengthText[16] = {};
    // Milliseconds into the current file of the frame being heard (frames
    // written minus what the card still holds); -1 before the first pass.
    std::atomic<int64_t> heardMs{-1};
    // What the card was configured with and how the file reaches it, shown
    // after the track report; empty before the first file.
    char cardText[96] = {};
    // What the card granted when it was last configured (0: not yet).
    std::atomic<int32_t> cardPeriodFrames{0};
    std::atomic<int32_t> cardBufferFrames{0};
    // 1 once a file of the run could not be played: background mode exits
    // with it.
    std::atomic<int32_t> runFailed{0};
    // Underruns since start, for the settings report.
    std::atomic<uint32_t> underruns{0};
    // Counts the player's changes of state (it started playing, it ended),
    // so the console can sleep until one instead of polling.
    std::atomic<uint32_t> playerChanges{0};
};

extern PlayerControl playerControl;

// Player side: after playerRunning was set, or the run has ended.
void notePlayerChange(PlayerControl& pc);
// Console side: returns once done() holds, sleeping between the player's
// changes of state.
template <class Done>
void awaitPlayer(PlayerControl& pc, Done done) {
    for (;;) {
        const uint32_t seen = pc.playerChanges.load();
        if (done()) return;
        pc.playerChanges.wait(seen);
    }
}

// CLOCK_REALTIME in milliseconds.
uint64_t nowMs();
// One nanosleep; an interrupted sleep is not resumed.
void sleepMs(uint32_t ms);

// Copies text into a path slot; false (and nothing written) when it does not fit.
bool copyPathSlot(char (&slot)[kPathSlot], const char* text);
