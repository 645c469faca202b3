#include "engine/silence.h"

#include <algorithm>
#include <cstring>

#include "app/control.h"
#include "engine/packing.h"

namespace {
// Scratch for DSD silence in read/write access; sampleBuffer stays all zero.
uint8_t dsdSilence[kSampleBufferBytes];

// DoP silence must come in pairs of frames to keep the marker phase.
uint32_t evenFrames(SilenceKind kind, uint64_t frames) {
    return uint32_t(kind == SilenceKind::Dop ? frames & ~uint64_t(1) : frames);
}
}  // namespace

SilenceKind silenceKindFor(StreamKind kind) {
    if (kind == StreamKind::DsdRaw) return SilenceKind::DsdIdle;
    if (kind == StreamKind::Dop) return SilenceKind::Dop;
    return SilenceKind::Zero;
}

PauseSilence::PauseSilence(SilenceKind kind, int32_t alsaFormat, int32_t channels,
                           uint32_t frameBytes)
    : kind_(kind), alsaFormat_(alsaFormat), channels_(channels), frameBytes_(frameBytes) {}

uint32_t PauseSilence::fillArea(uint8_t* dst, uint32_t frames, uint8_t nextMarker) {
    frames = evenFrames(kind_, frames);
    size_t bytes = size_t(frames) * frameBytes_;
    switch (kind_) {
        case SilenceKind::Zero:
            std::memset(dst, 0, bytes);
            break;
        case SilenceKind::DsdIdle:
            fillDsdIdle(dst, bytes);
            break;
        case SilenceKind::Dop:
            fillDopSilence(dst, frames, channels_, alsaFormat_, nextMarker);
            break;
    }
    return frames;
}

const uint8_t* PauseSilence::chunk(uint64_t avail, uint8_t nextMarker, uint32_t& frames) {
    frames = evenFrames(kind_, std::min<uint64_t>(avail, kSampleBufferBytes / frameBytes_));
    if (kind_ == SilenceKind::Zero) return sampleBuffer;
    fillArea(dsdSilence, frames, nextMarker);
    return dsdSilence;
}
