// The two transfer loops, written once for both load modes. A source supplies
// the samples: the whole-file buffer (Full Memory) or the decoder (Direct
// Input). Each pass hands the card everything it has room for (nothing when
// it has none), then sleeps a sixteenth of the buffer time; stop, pause and
// seek are polled once per pass and act on what the card holds, so they are
// heard within a pass or two, not a buffer later. No allocation, no locks.
// Player thread only.
//
// A source provides:
//   kReadEndStopsRun                    static rule of the load mode
//   finished()                          nothing left of the file to write
//   position()                          frames of the file written so far
//   frames()                            frames of the whole file
//   seek(frame), back(frames)           move the write position
//   fillArea(dst, frames) -> int64      card frames written at dst, or -1: read failed
//   chunk(avail, frames&) -> ptr        read/write data (null: read failed)
//   written(result)                     what snd_pcm_writei returned for that chunk
//   nextDopMarker()                     the DoP marker of the stream's next frame
#pragma once
#include <alsa/asoundlib.h>

#include "device/recovery.h"
#include "engine/card_state.h"
#include "engine/output_device.h"
#include "engine/run_support.h"
#include "engine/silence.h"

struct TransferContext {
    PlayerControl& pc;
    snd_pcm_t* pcm;
    DeviceGeometry geometry;
    PauseSilence* silence;
    int32_t rate;
    // Let the card play out everything before returning (the last file of a
    // run, or a file the next one cannot follow on the same device).
    bool playOut;
};

enum class TransferEnd { Done, Stopped, ReadFailed, DeviceGone };

// Follows the console's pause and seek requests. A pause takes back what the
// card has not played yet, so silence starts at once; leaving it takes back
// the queued silence. Where the device cannot take frames back, it is dropped
// and refilled from the first frame not heard.
template <class Source>
void followControls(const TransferContext& c, Source& src, CardState& card) {
    const int64_t target = takeSeek(c.pc, c.rate, src.frames());
    if (target >= 0) {
        card.restart();
        c.silence->reset();
        src.seek(uint64_t(target));
        card.publishHeard(c.pc, src.position(), c.rate);
    }
    const bool want = c.pc.pauseRequest.load() != 0;
    if (want == card.paused) return;
    card.paused = want;
    bool dropped = false;
    if (want) {
        src.back(card.takeBack(src.position(), false, dropped));
    } else {
        card.takeBack(card.silenceFrames, c.silence->kind() == SilenceKind::Dop, dropped);
        if (dropped) c.silence->reset();
    }
    card.silenceFrames = 0;
}

// Handles a failed call: false when the run cannot go on on this device.
template <class Source>
bool recovered(const TransferContext& c, CardState& card, int err) {
    if (err == -EPIPE) {
        // Said the same way in every mode, and counted for the settings report.
        c.pc.underruns.fetch_add(1);
        printUnderrun();
    }
    if (recoverPcm(c.pcm, err) == PcmRecovery::Gone) return false;
    card.started = false;
    return true;
}

// One memory-mapped pass: fills what the ring grants. Returns 0 to go on,
// else the way the transfer ends.
template <class Source>
int mmapPass(const TransferContext& c, Source& src, CardState& card, snd_pcm_uframes_t avail,
             TransferEnd& end) {
    const snd_pcm_channel_area_t* areas = nullptr;
    snd_pcm_uframes_t offset = 0, frames = avail;
    int rc = snd_pcm_mmap_begin(c.pcm, &areas, &offset, &frames);
    if (rc < 0) {
        if (!recovered<Source>(c, card, rc)) return end = TransferEnd::DeviceGone, 1;
        return 0;
    }
    if (frames == 0 || !areas) return 0;
    uint8_t* dst =
        static_cast<uint8_t*>(areas[0].addr) + (areas[0].first + areas[0].step * offset) / 8;
    snd_pcm_uframes_t commit = 0;
    if (card.paused || c.silence->owesFrame()) {
        uint32_t room = card.paused ? uint32_t(frames) : 1;
        commit = c.silence->fillArea(dst, room, src.nextDopMarker());
        if (card.paused) card.silenceFrames += commit;
    } else if (!src.finished()) {
        int64_t got = src.fillArea(dst, uint32_t(frames));
        if (got < 0) {
            if (Source::kReadEndStopsRun) c.pc.stopRequest.store(1);
            if (c.pc.stopRequest.load()) snd_pcm_drop(c.pcm);
            return end = TransferEnd::ReadFailed, 1;
        }
        commit = snd_pcm_uframes_t(got);
    }
    snd_pcm_sframes_t done = snd_pcm_mmap_commit(c.pcm, offset, commit);
    if (done < 0 && !recovered<Source>(c, card, int(done))) return end = TransferEnd::DeviceGone, 1;
    if (done > 0) card.startIfPrepared();
    return 0;
}

// One read/write pass.
template <class Source>
int rwPass(const TransferContext& c, Source& src, CardState& card, snd_pcm_uframes_t avail,
           TransferEnd& end) {
    uint32_t frames = 0;
    const uint8_t* data = nullptr;
    if (card.paused) {
        data = c.silence->chunk(avail, src.nextDopMarker(), frames);
        card.silenceFrames += frames;
    } else if (!src.finished()) {
        data = src.chunk(avail, frames);
        if (!data) return end = TransferEnd::ReadFailed, 1;
    }
    if (frames == 0) return 0;
    snd_pcm_sframes_t r = snd_pcm_writei(c.pcm, data, frames);
    if (r < 0) {
        // Once recovered, the same chunk goes again, so nothing is lost.
        if (!recovered<Source>(c, card, int(r))) return end = TransferEnd::DeviceGone, 1;
        r = snd_pcm_writei(c.pcm, data, frames);
        if (r < 0 && pcmGone(c.pcm, int(r))) return end = TransferEnd::DeviceGone, 1;
    }
    if (!card.paused) src.written(r);
    return 0;
}

template <class Source>
TransferEnd runTransfer(const TransferContext& c, Source& src, bool rw) {
    CardState card(c.pcm, c.geometry, uint32_t(c.rate));
    TransferEnd end = TransferEnd::Done;
    for (;;) {
        if (c.pc.stopRequest.load()) {
            snd_pcm_drop(c.pcm);
            return TransferEnd::Stopped;
        }
        // A suspended or unplugged card shows in its state first; avail may
        // still answer with a count.
        const snd_pcm_state_t state = snd_pcm_state(c.pcm);
        if (state == SND_PCM_STATE_DISCONNECTED) return TransferEnd::DeviceGone;
        if (state == SND_PCM_STATE_SUSPENDED && !recovered<Source>(c, card, -ESTRPIPE))
            return TransferEnd::DeviceGone;
        followControls(c, src, card);
        if (src.finished() && !card.paused && !c.silence->owesFrame()) {
            if (!c.playOut || card.playedOut()) return TransferEnd::Done;
        } else {
            snd_pcm_sframes_t avail = rw ? snd_pcm_avail(c.pcm) : snd_pcm_avail_update(c.pcm);
            if (avail < 0) {
                if (!recovered<Source>(c, card, int(avail))) return TransferEnd::DeviceGone;
            } else if (avail > 0) {
                const snd_pcm_uframes_t room =
                    std::min<snd_pcm_uframes_t>(snd_pcm_uframes_t(avail), c.geometry.bufferFrames);
                if ((rw ? rwPass(c, src, card, room, end) : mmapPass(c, src, card, room, end)) != 0)
                    return end;
            }
        }
        card.publishHeard(c.pc, src.position(), c.rate);
        // The next file goes on at once: tracks shorter than a pass must not
        // each cost one.
        if (!c.playOut && src.finished() && !card.paused && !c.silence->owesFrame())
            return TransferEnd::Done;
        passSleep(c.geometry.bufferTimeUs);
    }
}
