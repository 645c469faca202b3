// The state shared by the command loop (main thread) and the one detached
// player thread. No lock: each field is written whole by one side and polled
// by the other, so every flag and counter is an atomic with plain loads and
// stores. Paths are written before the thread starts (command loop) or by the
// player itself (queue advance).
#pragma once
#include <pthread.h>

#include <atomic>
#include <cstdint>

using PlayerRoutine = void* (*)(void*);

constexpr int kPathSlot = 512;  // 511 bytes of text and a NUL
constexpr int kQueueSlots = 1000;
constexpr int kSampleBufferBytes = 1 << 20;

// ALSA format codes used across the program.
enum OutputSampleFormat : int32_t {
    kFormatS16 = 2,
    kFormatS32 = 10,
    kFormatS24_3 = 32,
    kFormatDsdU32LE = 50,
    kFormatDsdU32BE = 52,
};

extern std::atomic<uint8_t> stopRequest;
extern std::atomic<uint8_t> playerRunning;
extern std::atomic<pthread_t> playerThread;  // 0 = none
extern std::atomic<uint8_t> pauseRequest;
extern std::atomic<int32_t> seekSeconds;  // -1 = none pending
extern std::atomic<int32_t> streamSeconds;
extern std::atomic<uint64_t> playStartMs;
extern std::atomic<uint64_t> pauseStartMs;
extern std::atomic<PlayerRoutine> playerRoutine;
extern std::atomic<int32_t> outputFormat;
extern std::atomic<uint8_t> dsdNativeBE;
extern std::atomic<uint8_t> dsdNativeLE;
extern std::atomic<uint8_t> showAlsaSetup;
extern std::atomic<int32_t> showKeyHints;  // 1 until the first run printed the hints
extern std::atomic<int32_t> streamRate;
extern std::atomic<int32_t> streamChannels;
extern std::atomic<int32_t> streamBits;

extern char currentPath[kPathSlot];
extern char lengthText[16];

extern char queuePaths[kQueueSlots][kPathSlot];
extern std::atomic<int32_t> queueCount;
extern std::atomic<int32_t> queueIndex;

// 1 MiB of zero bytes: the silence of the read/write transfer while paused.
extern uint8_t sampleBuffer[kSampleBufferBytes];

extern int32_t backgroundMode;

// CLOCK_REALTIME in milliseconds.
uint64_t nowMs();
// One nanosleep; an interrupted sleep is not resumed.
void sleepMs(uint32_t ms);

// Copies text into a path slot; false (and nothing written) when it does not fit.
bool copyPathSlot(char (&slot)[kPathSlot], const char* text);
