// One DST frame (1/75 s of every channel) into the internal DSD form: its
// channel-to-element maps, prediction filters and probability tables, then
// the arithmetic-coded bits. Frames are independent, so one decoder serves any
// frame in any order. Not thread-safe.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class DstFrameDecoder {
  public:
    // frameBytes: DSD bytes per channel in one frame.
    DstFrameDecoder(int channels, uint32_t frameBytes);

    // Writes frameBytes x channels bytes to out. False with a reason when the
    // frame is malformed or its coded data runs out; out is then undefined.
    bool decode(const uint8_t* data, size_t size, uint8_t* out, std::string* why);

    // Of the last decoded frame: distinct filters and probability tables, and
    // whether it was stored uncompressed.
    int filters() const { return filterCount_; }
    int tables() const { return tableCount_; }
    bool plain() const { return plain_; }

    static constexpr int kMaxChannels = 8;

  private:
    struct Filter {
        int length = 0;
        int tables = 0;  // 8-tap lookup tables in use
        int newestTap = 0;
        int16_t lookup[16][256];
    };
    struct Probs {
        // Indexed by the 16-bit prediction itself (|prediction| / 8, clamped
        // to the table's last entry), so that no arithmetic stands between a
        // decoded bit and the probability of the channel's next one.
        uint8_t byPrediction[65536];
    };
    bool readHeader(size_t size, std::string* why);
    bool decodeBits(size_t size, uint8_t* out, std::string* why);

    int channels_;
    uint32_t frameBytes_;
    std::vector<uint8_t> buf_;  // the frame with zero padding
    uint64_t codeStart_ = 0;    // bit position of the arithmetic-coded data
    int filterOf_[kMaxChannels] = {}, tableOf_[kMaxChannels] = {};
    bool halfProb_[kMaxChannels] = {};
    int filterCount_ = 0, tableCount_ = 0;
    bool plain_ = false;
    int firstCoef_ = 0;  // of filter 0, which sets the probability of the first coded bit
    std::vector<Filter> filters_;
    std::vector<Probs> tables_;
};
