// The two transfer loops, written once for both load modes. A source supplies
// the samples: the whole-file buffer (Full Memory) or the decoder (Direct
// Input). Each pass hands the card everything it has room for, then sleeps a
// sixteenth of the buffer time; stop, pause and seek are polled once per pass.
// No allocation, no locks. Player thread only.
//
// A source provides:
//   kReportUnderrun, kReadEndStopsRun   static rules of the load mode
//   finished()                          nothing left of the file
//   seek(seconds)                       move the play position
//   fillArea(dst, frames) -> int64      card bytes written at dst in frames, or -1: read failed
//   chunk(avail, frames&) -> ptr        read/write data (null: read failed)
//   written(result)                     what snd_pcm_writei returned for that chunk
//   nextDopMarker()                     the DoP marker of the stream's next frame
#pragma once
#include <alsa/asoundlib.h>

#include "engine/output_device.h"
#include "engine/run_support.h"
#include "engine/silence.h"

struct TransferContext {
    PlayerControl& pc;
    snd_pcm_t* pcm;
    snd_pcm_status_t* status;
    DeviceGeometry geometry;
    PauseSilence* silence;
};

enum class TransferEnd { Done, Stopped, ReadFailed };

template <class Source>
void applySeek(const TransferContext& c, Source& src) {
    int32_t target = takeSeek(c.pc);
    if (target >= 0) src.seek(target);
}

// The pause between passes; true, with the device dropped, when a stop came.
inline bool passEndsRun(const TransferContext& c) {
    passSleep(c.geometry.bufferTimeUs);
    if (!c.pc.stopRequest.load()) return false;
    snd_pcm_drop(c.pcm);
    return true;
}

// Grants the writable part of the ring, re-preparing once when there is none.
inline uint8_t* mmapRoom(snd_pcm_t* pcm, snd_pcm_uframes_t request, snd_pcm_uframes_t& offset,
                         snd_pcm_uframes_t& frames, bool& started) {
    const snd_pcm_channel_area_t* areas = nullptr;
    snd_pcm_avail_update(pcm);
    frames = request;
    int rc = snd_pcm_mmap_begin(pcm, &areas, &offset, &frames);
    if (rc < 0 || frames == 0) {
        snd_pcm_prepare(pcm);
        started = false;
        snd_pcm_avail_update(pcm);
        frames = request;
        rc = snd_pcm_mmap_begin(pcm, &areas, &offset, &frames);
    }
    if (rc < 0 || !areas) {
        frames = 0;
        return nullptr;
    }
    return static_cast<uint8_t*>(areas[0].addr) + (areas[0].first + areas[0].step * offset) / 8;
}

template <class Source>
TransferEnd mmapTransfer(const TransferContext& c, Source& src) {
    bool started = false;
    while (!src.finished()) {
        snd_pcm_status(c.pcm, c.status);
        if (snd_pcm_status_get_state(c.status) == SND_PCM_STATE_XRUN) {
            snd_pcm_prepare(c.pcm);
            started = false;
        }
        applySeek(c, src);
        snd_pcm_uframes_t offset = 0, frames = 0;
        uint8_t* dst = mmapRoom(c.pcm, c.geometry.bufferFrames, offset, frames, started);
        snd_pcm_uframes_t commit = 0;
        bool paused = c.pc.pauseRequest.load();
        if (dst && (paused || c.silence->owesFrame())) {
            uint32_t room = paused ? uint32_t(frames) : 1;
            commit = c.silence->fillArea(dst, room, src.nextDopMarker());
        } else if (dst) {
            int64_t got = src.fillArea(dst, uint32_t(frames));
            if (got < 0) {
                if (Source::kReadEndStopsRun) c.pc.stopRequest.store(1);
                if (c.pc.stopRequest.load()) snd_pcm_drop(c.pcm);
                return TransferEnd::ReadFailed;
            }
            commit = snd_pcm_uframes_t(got);
        }
        if (commit > 0) {
            snd_pcm_sframes_t rc = snd_pcm_mmap_commit(c.pcm, offset, commit);
            if (!started) snd_pcm_start(c.pcm);
            started = true;
            if (rc < 0) {
                snd_pcm_prepare(c.pcm);
                started = false;
            }
        }
        if (passEndsRun(c)) return TransferEnd::Stopped;
    }
    return TransferEnd::Done;
}

template <class Source>
TransferEnd rwTransfer(const TransferContext& c, Source& src) {
    while (!src.finished()) {
        snd_pcm_sframes_t avail = snd_pcm_avail(c.pcm);
        if (avail < 0) {
            // Never a read: the device is recovered and the next pass goes on.
            if (Source::kReportUnderrun) printUnderrun();
            snd_pcm_prepare(c.pcm);
        } else if (avail > 0) {
            applySeek(c, src);
            uint32_t frames = 0;
            if (c.pc.pauseRequest.load()) {
                const uint8_t* data =
                    c.silence->chunk(uint64_t(avail), src.nextDopMarker(), frames);
                if (frames && snd_pcm_writei(c.pcm, data, frames) < 0) snd_pcm_prepare(c.pcm);
            } else if (const uint8_t* data = src.chunk(uint64_t(avail), frames)) {
                snd_pcm_sframes_t r = frames ? snd_pcm_writei(c.pcm, data, frames) : 0;
                if (r < 0) {
                    // Once recovered, the same chunk goes again, so nothing is lost.
                    if (Source::kReportUnderrun) printUnderrun();
                    snd_pcm_prepare(c.pcm);
                    r = snd_pcm_writei(c.pcm, data, frames);
                }
                src.written(r);
            }
        }
        if (passEndsRun(c)) return TransferEnd::Stopped;
    }
    return TransferEnd::Done;
}

template <class Source>
TransferEnd runTransfer(const TransferContext& c, Source& src, bool rw) {
    return rw ? rwTransfer(c, src) : mmapTransfer(c, src);
}
