// What a transfer loop knows of the card between passes: whether it runs,
// whether the player is paused, and how to take back frames it has not
// played. Player thread only.
#pragma once
#include <alsa/asoundlib.h>

#include <cstdint>

#include "control/control.h"
#include "engine/output_device.h"

class CardState {
  public:
    CardState(snd_pcm_t* pcm, const DeviceGeometry& geometry, uint32_t rate)
        : pcm_(pcm), geometry_(geometry), rate_(rate) {}

    bool started = false;
    bool paused = false;
    uint64_t silenceFrames = 0;  // written since the pause began

    // Drops what the card holds and prepares it for a fresh start.
    void restart();
    // Starts a prepared card once frames are queued.
    void startIfPrepared();
    // Takes back up to limit frames the card has not played and returns how
    // many. Where the device cannot rewind it is dropped instead (dropped
    // set), when all it holds lies within limit. keepEven takes back an even
    // count, so DoP silence keeps its marker phase.
    uint64_t takeBack(uint64_t limit, bool keepEven, bool& dropped);
    // True once everything written has been played (starting a card that
    // never started, so a short file is heard too).
    bool playedOut();
    // Publishes the position of the frame being heard: the write position
    // less what the card still holds; while paused, where play resumes.
    void publishHeard(PlayerControl& pc, uint64_t position, int32_t rate) const;

  private:
    snd_pcm_sframes_t queued() const;

    snd_pcm_t* pcm_;
    DeviceGeometry geometry_;
    uint32_t rate_;
};

// Lets the card play out what it holds, dropping it at once when a stop
// comes; for a device that is closed between files.
void playOut(PlayerControl& pc, snd_pcm_t* pcm, const DeviceGeometry& geometry, uint32_t rate);
