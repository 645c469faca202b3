// The player routines: thread entries that take the PlayerControl block as
// their argument and play its currentPath, then the queue slots after
// queueIndex, under the block's protocol.
#pragma once
#include <cstdint>

#include "control/control.h"

// The routine for a load mode and the card's PCM format (S32_LE, S24_3LE or
// S16_LE; anything else is taken as S16_LE).
PlayerRoutine playerRoutineFor(bool directInput, int32_t outputFormat);

// Releases the Full Memory whole-file buffer ("di"); main thread, idle only.
void releaseFullMemoryBuffer();
