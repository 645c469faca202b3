#include "control/control.h"

#include <cstring>
#include <ctime>

PlayerControl playerControl;

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

void notePlayerChange(PlayerControl& pc) {
    pc.playerChanges.fetch_add(1);
    pc.playerChanges.notify_all();
}
