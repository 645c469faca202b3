#include "app/control.h"

#include <cstring>
#include <ctime>

std::atomic<uint8_t> stopRequest{0};
std::atomic<uint8_t> playerRunning{0};
std::atomic<pthread_t> playerThread{0};
std::atomic<uint8_t> pauseRequest{0};
std::atomic<int32_t> seekSeconds{-1};
std::atomic<int32_t> streamSeconds{0};
std::atomic<uint64_t> playStartMs{0};
std::atomic<uint64_t> pauseStartMs{0};
std::atomic<PlayerRoutine> playerRoutine{nullptr};
std::atomic<int32_t> outputFormat{0};
std::atomic<uint8_t> dsdNativeBE{0};
std::atomic<uint8_t> dsdNativeLE{0};
std::atomic<uint8_t> showAlsaSetup{0};
std::atomic<int32_t> showKeyHints{1};
std::atomic<int32_t> streamRate{44100};
std::atomic<int32_t> streamChannels{2};
std::atomic<int32_t> streamBits{16};

char currentPath[kPathSlot];
char lengthText[16];

char queuePaths[kQueueSlots][kPathSlot];
std::atomic<int32_t> queueCount{0};
std::atomic<int32_t> queueIndex{0};

uint8_t sampleBuffer[kSampleBufferBytes];

int32_t backgroundMode = 0;

uint64_t nowMs() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return uint64_t(ts.tv_sec) * 1000u + uint64_t(ts.tv_nsec) / 1000000u;
}

void sleepMs(uint32_t ms) {
    timespec ts{};
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = long(ms % 1000) * 1000000L;
    nanosleep(&ts, nullptr);
}

bool copyPathSlot(char (&slot)[kPathSlot], const char* text) {
    size_t n = std::strlen(text);
    if (n >= size_t(kPathSlot)) return false;
    std::memcpy(slot, text, n + 1);
    return true;
}
