// The parts of a player run that every routine shares: the run's start, the
// per-file reports and clock, queue advance, pending seeks, pacing, and the
// one way every run ends. Player thread only.
#pragma once
#include <alsa/asoundlib.h>

#include <cstdint>
#include <string>

#include "control/control.h"
#include "engine/decoder_setup.h"
#include "engine/output_device.h"

// The objects one run keeps for all its files.
struct RunObjects {
    HwParams params;
};

// Resets the stream fields, makes the run objects and applies the core
// selection. False when the objects could not be allocated.
bool beginRun(PlayerControl& pc, RunObjects& run);

// The ALSA report and key hints for the first file of a run, then the track
// report; then the file's clock starts unless a seek is pending.
void announceFile(PlayerControl& pc, const snd_pcm_hw_params_t* params, bool extraLine);

// Moves to the next queue slot and makes it currentPath; false at the end.
bool advanceQueue(PlayerControl& pc);

// Consumes a pending seek: the card frame it names when inside the file
// (rate: card frames per second; frames: the file's), else -1.
int64_t takeSeek(PlayerControl& pc, int32_t rate, uint64_t frames);

// True when a pending CUE start lies at or past the end of the file; the
// seek is then consumed.
bool seekPastEnd(PlayerControl& pc, int32_t rate, uint64_t frames);

// One pacing sleep of a sixteenth of the device's buffer time.
void passSleep(unsigned bufferTimeUs);

void printUnderrun();

// A problem with the file or the device: on stderr, and in background mode
// (where stderr goes nowhere) in the system log. Marks the run as failed.
void reportProblem(PlayerControl& pc, const std::string& text);

// Records what the card was configured with for the track report.
void describeCard(PlayerControl& pc, const DecoderStream& ds, const DeviceGeometry& geometry,
                  bool rw);

// True when the queue holds a file after the current one.
bool queueHasNext(const PlayerControl& pc);

// Failed: a problem already reported; the prompt comes back.
enum class RunEnd { Natural, Stopped, GetInfoFailure, MemoryFailure, Failed };

// Prints what the ending calls for, then clears playerRunning, playerThread
// and last stopRequest. Returns the thread result (null).
// detail: the reason line of a GetInfo failure.
void* endRun(PlayerControl& pc, RunEnd how, GetInfoReport report = GetInfoReport::DirectInput,
             const std::string& detail = {});
