// Temporary stand-ins until the player routines land; deleted by then.
#include "engine/player.h"

static void* endRun(void*) {
    playerRunning.store(0);
    playerThread.store(0);
    stopRequest.store(0);
    return nullptr;
}
void* fullMemoryPlayerS32(void* a) { return endRun(a); }
void* fullMemoryPlayerS24(void* a) { return endRun(a); }
void* fullMemoryPlayerS16(void* a) { return endRun(a); }
void* directInputPlayerS32(void* a) { return endRun(a); }
void* directInputPlayerS24(void* a) { return endRun(a); }
void* directInputPlayerS16(void* a) { return endRun(a); }
void releaseFullMemoryBuffer() {}
