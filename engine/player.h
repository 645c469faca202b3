// The six player routines: thread entries that play currentPath and then the
// queue slots after queueIndex, under the protocol of the control block.
#pragma once
#include "app/control.h"

void* fullMemoryPlayerS32(void*);
void* fullMemoryPlayerS24(void*);
void* fullMemoryPlayerS16(void*);
void* directInputPlayerS32(void*);
void* directInputPlayerS24(void*);
void* directInputPlayerS16(void*);

// Releases the Full Memory whole-file buffer ("di"); main thread, idle only.
void releaseFullMemoryBuffer();
