// The decoder as a transfer loop's source: each pass decodes just what the
// card has room for. Direct Input plays through it, and so does Full Memory
// for a file too large to hold. Player thread only.
#pragma once
#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "engine/decoder_setup.h"
#include "engine/frame_reader.h"

// Where a pass decodes when not straight into the card's area. Made once per
// run, before the first transfer that needs it; never inside a loop.
template <class Fmt>
struct DecodeBuffers {
    std::unique_ptr<uint8_t[]> staging;
    uint32_t bytes = 0;

    bool ensure(bool needed) {
        if (!needed || staging) return true;
        staging.reset(new (std::nothrow) uint8_t[Fmt::kDecodeBufferBytes]);
        bytes = staging ? Fmt::kDecodeBufferBytes : 0;
        return staging != nullptr;
    }
};

template <class Fmt>
class DecodeSource {
  public:
    static constexpr bool kReadEndStopsRun = Fmt::kMmapReadEndStopsRun;

    DecodeSource(const DecoderStream& ds, DecodeBuffers<Fmt>& bufs)
        : ds_(ds), reader_(ds), staging_(bufs.staging.get()), stagingBytes_(bufs.bytes) {}

    bool finished() const { return reader_.finished(); }
    uint64_t position() const { return reader_.position(); }
    uint64_t frames() const { return ds_.frames; }
    void seek(uint64_t frame) { reader_.seek(frame); }
    void back(uint64_t frames) { reader_.seek(position() - std::min(frames, position())); }
    // Decodes into the card's area (through the staging buffer when the
    // decoded frames are wider than the card's).
    int64_t fillArea(uint8_t* dst, uint32_t frames) {
        uint32_t n = reader_.read(dst, frames, staging_, stagingBytes_);
        return n ? int64_t(n) : -1;
    }
    const uint8_t* chunk(uint64_t avail, uint32_t& frames) {
        uint64_t cap = stagingBytes_ / reader_.widestFrameBytes();
        frames = reader_.read(staging_, uint32_t(std::min(avail, cap)), staging_, stagingBytes_);
        return frames ? staging_ : nullptr;
    }
    // What was decoded is consumed whether or not the write took it.
    void written(snd_pcm_sframes_t) {}
    uint8_t nextDopMarker() const { return reader_.nextDopMarker(); }

  private:
    const DecoderStream& ds_;
    FrameReader reader_;
    uint8_t* staging_;
    uint64_t stagingBytes_;
};
