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
// the less likely symbol 0, which takes the top of the interval.
class DstArith {
  public:
    // False when the first code word already lies outside the interval: no
    // encoder writes that.
    bool start(DstBits& bits) {
        a_ = 4095;
        c_ = bits.take(12);
        return c_ < a_;
    }
    uint32_t decode(DstBits& bits, uint32_t p) {
        const uint32_t q = ((a_ >> 8) | ((a_ >> 7) & 1)) * p;
        const uint32_t rest = a_ - q;
        uint32_t e;
        if (c_ < rest) {
            a_ = rest;
            e = 1;
        } else {
            a_ = q;
            c_ -= rest;
            e = 0;
        }
        if (a_ < 2048) {
            const int n = __builtin_clz(a_) - 20;
            a_ <<= n;
            c_ = (c_ << n) | bits.take(n);
        }
        return e;
    }

  private:
    uint32_t a_ = 4095, c_ = 0;
};
