// What a paused player sends so the device keeps running: zero samples for
// PCM, the idle pattern for native DSD, and marker-carrying DoP words for DoP
// (so the DAC stays in DSD mode). DoP silence adds up to even frame counts, so
// the marker sequence continues unbroken into the stream's frames that follow.
// Player thread only; uses one static scratch area, so one player at a time.
#pragma once
#include <cstdint>

#include "engine/decoder_setup.h"

enum class SilenceKind { Zero, DsdIdle, Dop };
SilenceKind silenceFor(CardStream card);

class PauseSilence {
  public:
    PauseSilence(SilenceKind kind, int32_t alsaFormat, int32_t channels, uint32_t frameBytes);

    // Memory-mapped: fills up to frames frames at dst; returns the frames to
    // commit. nextMarker is the marker the stream's next frame carries. A
    // one-frame area (the end of the ring) still takes a DoP frame; the frame
    // it leaves owed is given with the next area.
    uint32_t fillArea(uint8_t* dst, uint32_t frames, uint8_t nextMarker);
    // A DoP frame is owed: one more silence frame must go before the stream.
    bool owesFrame() const { return owed_; }
    // The card was dropped: whatever was owed went with it.
    void reset() { owed_ = false; }
    // Read/write: silence for at most avail frames, never more than the 1 MiB
    // silence area; frames receives the count.
    const uint8_t* chunk(uint64_t avail, uint8_t nextMarker, uint32_t& frames);

    SilenceKind kind() const { return kind_; }

  private:
    SilenceKind kind_;
    int32_t alsaFormat_;
    int32_t channels_;
    uint32_t frameBytes_;
    uint8_t marker_ = 0;  // of the next silence frame while a frame is owed
    bool owed_ = false;
};
