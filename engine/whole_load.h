// Full Memory's load: a whole file decoded and packed into one buffer, split
// into pieces at exact seek points and decoded on every core the player may
// run on, each piece straight into its place. Called on the player thread;
// the pieces' threads end before it returns.
#pragma once
#include <cstdint>
#include <functional>

#include "control/control.h"
#include "engine/decoder_setup.h"

// How many pieces a load may use; 0: one per core the player may run on.
// Tests set it so that the joins are exercised on any machine.
extern int wholeLoadPieces;

// Opens the same file again for another piece; a null handle when it cannot.
using ReopenStream = std::function<DecoderStream()>;

// Decodes all of ds into data (room for ds.frames card frames). Returns the
// packed bytes: every frame, or those before the first frame that could not
// be decoded or before a stop. dotFrameBytes paces the progress dots.
uint64_t loadWholeFile(const PlayerControl& pc, DecoderStream& ds, uint8_t* data,
                       uint32_t dotFrameBytes, const ReopenStream& reopen);
