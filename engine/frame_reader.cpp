#include "engine/frame_reader.h"

#include <algorithm>
#include <cstring>

#include "engine/packing.h"

FrameReader::FrameReader(const DecoderStream& ds)
    : ds_(ds),
      decodedFrameBytes_(ds.decodedFrameBytes),
      cardFrameBytes_(cardFrameBytes(ds.alsaFormat, ds.channels)),
      total_(ds.frames) {}

uint32_t FrameReader::widestFrameBytes() const {
    return std::max(decodedFrameBytes_, cardFrameBytes_);
}

uint8_t FrameReader::nextDopMarker() const {
    return dopMarkerFor(pos_);
}

void FrameReader::pack(uint8_t* decoded, uint8_t* dst, uint32_t frames) {
    const int channels = ds_.channels;
    switch (ds_.card) {
        case CardStream::Pcm:
            packPcm(decoded, ds_.sample, dst, size_t(frames) * channels, ds_.alsaFormat);
            break;
        case CardStream::DsdNative:
            packDsdNative(decoded, dst, frames, channels, ds_.alsaFormat);
            break;
        case CardStream::Dop:
            packDop(decoded, dst, frames, channels, ds_.alsaFormat, pos_);
            break;
    }
}

uint32_t FrameReader::read(uint8_t* dst, uint32_t frames, uint8_t* scratch, size_t scratchBytes) {
    uint64_t n = std::min<uint64_t>(frames, total_ - std::min(pos_, total_));
    uint8_t* decoded;
    if (needsScratch()) {
        n = std::min<uint64_t>(n, scratchBytes / decodedFrameBytes_);
        decoded = scratch;
    } else {
        // Decoded frames sit at the end of the card's room, so packing forward
        // (each frame copied before it is written) never overtakes them.
        decoded = dst + n * (cardFrameBytes_ - decodedFrameBytes_);
    }
    uint32_t got =
        n && decoded ? decodeRead(ds_.handle.get(), decoded, uint32_t(n * decodedFrameBytes_)) : 0;
    if (got == kDecodeEnd || got == 0) {
        ended_ = true;
        return 0;
    }
    // A DSD file's last bytes may not fill a card frame: idle bytes complete it.
    const uint32_t whole = (got + decodedFrameBytes_ - 1) / decodedFrameBytes_;
    std::memset(decoded + got, kDsdIdleByte, size_t(whole) * decodedFrameBytes_ - got);
    pack(decoded, dst, whole);
    pos_ += whole;
    return whole;
}

void FrameReader::seek(uint64_t frame) {
    pos_ = std::min(frame, total_);
    decodeSeek(ds_.handle.get(), pos_ * decodedFrameBytes_);
}
