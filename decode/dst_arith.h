// Bit reading and the binary arithmetic decoder of DST frames. Header-only so
// that the per-bit loop in dst_frame.cpp inlines it. Neither checks bounds: the
// frame decoder keeps zero padding after the data and stops a frame whose
// reading runs too far past its end.
#pragma once
#include <cstdint>
#include <cstring>

// MSB-first reader over a buffer with at least 8 readable bytes past any
// position it is asked to reach.
class DstBits {
  public:
    DstBits(const uint8_t* data, uint64_t bitPos = 0) : data_(data), pos_(bitPos) {}
    // n in 1..32.
    uint32_t take(int n) {
        uint64_t w;
        memcpy(&w, data_ + (pos_ >> 3), 8);
        w = __builtin_bswap64(w) << (pos_ & 7);
        pos_ += uint64_t(n);
        return uint32_t(w >> (64 - n));
    }
    uint64_t pos() const { return pos_; }

  private:
    const uint8_t* data_;
    uint64_t pos_;
};

// The interval is a 12-bit register a in [2048, 4095] after each step and c
// is the code's offset into it; p in 1..128 is the probability, in 256ths, of
// the less likely symbol 0, which takes the top of the interval. c lives in
// the top of a 64-bit word whose lower bits are the code bits still to come,
// so that renormalising is one shift and the bits are fetched four bytes at a
// time, off the path from one symbol to the next.
class DstArith {
  public:
    // From the bit at bitPos of data. False when the first code word already
    // lies outside the interval: no encoder writes that.
    bool start(const uint8_t* data, uint64_t bitPos) {
        DstBits bits(data, bitPos);
        const uint32_t c = bits.take(12);
        const int align = int(-bits.pos() & 7);
        word_ = uint64_t(c) << kShift;
        if (align) word_ |= uint64_t(bits.take(align)) << (kShift - align);
        ahead_ = align;
        next_ = data + (bits.pos() >> 3);
        start_ = data;
        refill();
        a_ = 4095;
        return c < a_;
    }
    uint32_t decode(uint32_t p) {
        const uint32_t q = ((a_ >> 8) | ((a_ >> 7) & 1)) * p;
        const uint32_t rest = a_ - q;
        // Both outcomes are renormalised while the comparison runs, and
        // chosen by masks, not branches: the symbol is what the branch
        // predictor cannot know.
        const int shiftQ = __builtin_clz(q) - 20, shiftRest = __builtin_clz(rest) - 20;
        const uint64_t restWide = uint64_t(rest) << kShift;
        const uint32_t e = word_ < restWide;
        const uint32_t keep = 0u - e;
        a_ = ((q << shiftQ) & ~keep) | ((rest << shiftRest) & keep);
        const int n = (shiftQ & ~int(keep)) | (shiftRest & int(keep));
        word_ = (word_ - (restWide & (uint64_t(e) - 1))) << n;
        ahead_ -= n;
        refill();
        return e;
    }
    // Bits consumed from the start of the data.
    uint64_t pos() const { return uint64_t(next_ - start_) * 8 - uint64_t(ahead_); }

  private:
    static constexpr int kShift = 48;  // c in bits 48..59, code bits below
    void refill() {
        if (ahead_ < 16) {
            uint32_t w;
            memcpy(&w, next_, 4);
            word_ |= uint64_t(__builtin_bswap32(w)) << (kShift - 32 - ahead_);
            next_ += 4;
            ahead_ += 32;
        }
    }
    uint64_t word_ = 0;
    uint32_t a_ = 4095;
    int ahead_ = 0;  // code bits below c
    const uint8_t* next_ = nullptr;
    const uint8_t* start_ = nullptr;
};
