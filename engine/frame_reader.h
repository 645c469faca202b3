// Card frames from an opened file: decoded, then packed by the one packer
// into the card's format. Both load modes read through it. Player thread
// only; allocation-free.
#pragma once
#include <cstddef>
#include <cstdint>

#include "engine/decoder_setup.h"

class FrameReader {
  public:
    explicit FrameReader(const DecoderStream& ds);

    // Whether decoded frames are wider than card frames: read() then needs
    // scratch to decode into.
    bool needsScratch() const { return decodedFrameBytes_ > cardFrameBytes_; }
    // Bytes one frame takes at its widest, decoded or packed.
    uint32_t widestFrameBytes() const;

    // Up to frames card frames, packed, at dst (room for frames whole card
    // frames). When needsScratch(), the decoded data goes through scratch
    // first (dst may equal scratch) and frames are capped by its size.
    // Returns the frames written; 0 at the end of the file or when a read
    // failed, and then finished() holds.
    uint32_t read(uint8_t* dst, uint32_t frames, uint8_t* scratch = nullptr,
                  size_t scratchBytes = 0);
    // The next read starts at card frame `frame` (clamped to the end).
    void seek(uint64_t frame);

    bool finished() const { return ended_ || pos_ >= total_; }
    uint64_t position() const { return pos_; }
    // The DoP marker the next frame carries.
    uint8_t nextDopMarker() const;

  private:
    void pack(uint8_t* decoded, uint8_t* dst, uint32_t frames);

    const DecoderStream& ds_;
    uint32_t decodedFrameBytes_, cardFrameBytes_;
    uint64_t total_;
    uint64_t pos_ = 0;
    bool ended_ = false;
};
