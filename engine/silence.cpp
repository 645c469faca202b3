#include "engine/silence.h"

#include <algorithm>
#include <cstring>

#include "engine/packing.h"

namespace {
constexpr uint32_t kSilenceBytes = 1 << 20;
// The read/write transfer's silence: 1 MiB of zero samples, and scratch for
// the DSD kinds.
const uint8_t zeroSilence[kSilenceBytes] = {};
uint8_t dsdSilence[kSilenceBytes];

// DoP silence must come in pairs of frames to keep the marker phase.
uint32_t evenFrames(SilenceKind kind, uint64_t frames) {
    return uint32_t(kind == SilenceKind::Dop ? frames & ~uint64_t(1) : frames);
}
}  // namespace

SilenceKind silenceFor(CardStream card) {
    return card == CardStream::DsdNative ? SilenceKind::DsdIdle
           : card == CardStream::Dop     ? SilenceKind::Dop
                                         : SilenceKind::Zero;
}

PauseSilence::PauseSilence(SilenceKind kind, int32_t alsaFormat, int32_t channels,
                           uint32_t frameBytes)
    : kind_(kind), alsaFormat_(alsaFormat), channels_(channels), frameBytes_(frameBytes) {}

uint32_t PauseSilence::fillArea(uint8_t* dst, uint32_t frames, uint8_t nextMarker) {
    if (kind_ == SilenceKind::Dop) {
        // Bring the silence written so far back to an even count when this
        // area allows it; a lone frame is written anyway so the ring moves on.
        if ((frames & 1) != uint32_t(owed_) && frames > 1) --frames;
        uint8_t marker = owed_ ? marker_ : nextMarker;
        fillDopSilence(dst, frames, channels_, alsaFormat_, marker);
        marker_ = marker;
        owed_ = owed_ != bool(frames & 1);
        return frames;
    }
    size_t bytes = size_t(frames) * frameBytes_;
    if (kind_ == SilenceKind::DsdIdle)
        fillDsdIdle(dst, bytes);
    else
        std::memset(dst, 0, bytes);
    return frames;
}

const uint8_t* PauseSilence::chunk(uint64_t avail, uint8_t nextMarker, uint32_t& frames) {
    frames = evenFrames(kind_, std::min<uint64_t>(avail, kSilenceBytes / frameBytes_));
    if (kind_ == SilenceKind::Zero) return zeroSilence;
    fillArea(dsdSilence, frames, nextMarker);
    return dsdSilence;
}
