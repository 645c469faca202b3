#include "decode/dsd_pcm.h"

#include <algorithm>
#include <atomic>

#include "decode/dsd_filters.h"

namespace {

constexpr double kAttenuationDb = 170.0;
constexpr int kBitTableBytes = 16;  // window of the first stage, in bytes
constexpr uint16_t kOutside = 256;  // table index of a byte before or after the file

int64_t floorDiv2(int64_t v) {
    return v >= 0 ? v / 2 : -((1 - v) / 2);
}

std::vector<double> halfBand(double rate) {
    int half = dsdHalfLength(0.5 - 44100.0 / rate, kAttenuationDb);
    return dsdLowPass(half, 0.25, kAttenuationDb);
}

}  // namespace

class DsdToPcm::Stage {
  public:
    virtual ~Stage() = default;
    // Output samples [first, first + n) of every channel into out[c].
    virtual void pull(int64_t first, int n, double* const* out) = 0;
};

namespace {

// Keeps a sliding window of some input sequence, by absolute index, and
// refills it from a producer: consecutive pulls reuse what they share.
template <typename T>
class Window {
  public:
    explicit Window(int channels) : data_(channels) {}
    int64_t start() const { return start_; }
    const T* at(int c, int64_t index) const { return data_[c].data() + (index - start_); }

    template <typename Produce>
    void cover(int64_t lo, int64_t hi, Produce produce) {
        int64_t end = start_ + int64_t(data_[0].size());
        if (data_[0].empty() || lo < start_ || lo > end) {
            for (auto& d : data_) d.clear();
            start_ = end = lo;
        } else if (lo > start_) {
            for (auto& d : data_) d.erase(d.begin(), d.begin() + (lo - start_));
            start_ = lo;
        }
        if (hi < end) return;
        size_t old = data_[0].size(), add = size_t(hi + 1 - end);
        std::vector<T*> tails;
        for (auto& d : data_) {
            d.resize(old + add);
            tails.push_back(d.data() + old);
        }
        produce(end, int(add), tails.data());
    }

  private:
    std::vector<std::vector<T>> data_;
    int64_t start_ = 0;
};

// The FIR kernel of every stage: out[k] = sum over j, in tap order, of
// h[j] * src[j][k]. Computed across outputs, several at a time, so each output
// keeps the scalar order of additions and the AVX2 and plain paths give
// identical bits (no fused multiply-add: the file builds with
// -ffp-contract=off). The plain path's two-lane vectors become SSE2 or NEON,
// or scalar code where neither exists.
template <int Lanes>
struct VecOf;
template <>
struct VecOf<2> {
    using type = double __attribute__((vector_size(16)));
};
template <>
struct VecOf<4> {
    using type = double __attribute__((vector_size(32)));
};

template <int Lanes, int Blocks>
inline void firKernel(const double* h, const double* const* src, int taps, int n, double* out) {
    using Vec = typename VecOf<Lanes>::type;
    constexpr int kWidth = Lanes * Blocks;
    int k = 0;
    for (; k + kWidth <= n; k += kWidth) {
        Vec acc[Blocks] = {};
        for (int j = 0; j < taps; ++j) {
            const double* x = src[j] + k;
            const double hj = h[j];
#pragma GCC unroll 8
            for (int b = 0; b < Blocks; ++b) {
                Vec v;
                __builtin_memcpy(&v, x + Lanes * b, sizeof v);
                acc[b] += hj * v;
            }
        }
        __builtin_memcpy(out + k, acc, sizeof acc);
    }
    for (; k < n; ++k) {
        double sum = 0;
        for (int j = 0; j < taps; ++j) sum += h[j] * src[j][k];
        out[k] = sum;
    }
}

using Kernel = void (*)(const double*, const double* const*, int, int, double*);

void firPlain(const double* h, const double* const* src, int taps, int n, double* out) {
    firKernel<2, 4>(h, src, taps, n, out);
}

#if defined(__x86_64__)
// Eight accumulators of four: enough independent additions to hide their latency.
[[gnu::target("avx2")]] void firAvx2(const double* h, const double* const* src, int taps, int n,
                                     double* out) {
    firKernel<4, 8>(h, src, taps, n, out);
}
#endif

std::atomic<bool> vectorAllowed{true};

Kernel firKernelForCpu() {
#if defined(__x86_64__)
    static const bool avx2 = __builtin_cpu_supports("avx2");
    return avx2 && vectorAllowed ? firAvx2 : firPlain;
#else
    return firPlain;
#endif
}

// First stage: 127 taps over the bits, decimating by 8, evaluated as one
// table lookup per byte. Output m is centred on bit 8m.
class BitStage : public DsdToPcm::Stage {
  public:
    BitStage(int channels, uint64_t bytes, DsdToPcm::Fetch fetch, bool* failed)
        : channels_(channels),
          bytes_(bytes),
          fetch_(std::move(fetch)),
          failed_(failed),
          window_(channels),
          table_(kBitTableBytes * 257) {
        std::vector<double> h = dsdLowPass(4 * kBitTableBytes - 1, 1.0 / 16, kAttenuationDb);
        // Tap 0 of the window stays empty so that the centre falls on a byte start.
        for (int j = 0; j < kBitTableBytes; ++j)
            for (int b = 0; b < 256; ++b) {
                double sum = 0;
                for (int i = 0; i < 8; ++i) {
                    int p = 8 * j + i;
                    double tap = p == 0 ? 0.0 : h[p - 1];
                    sum += (b >> (7 - i) & 1) ? tap : -tap;
                }
                table_[j * 257 + b] = sum;
            }
    }

    void pull(int64_t first, int n, double* const* out) override {
        constexpr int64_t kHalf = kBitTableBytes / 2;
        window_.cover(
            first - kHalf, first + n - 1 + kHalf - 1,
            [this](int64_t lo, int count, uint16_t* const* tails) { load(lo, count, tails); });
        for (int c = 0; c < channels_; ++c) {
            const uint16_t* b = window_.at(c, first - kHalf);
            double* o = out[c];
            int k = 0;
            // Eight outputs at a time: independent sums instead of one chain.
            // Unrolled, each position's table is a constant offset.
            for (; k + 8 <= n; k += 8) {
                double acc[8] = {};
#pragma GCC unroll 16
                for (int j = 0; j < kBitTableBytes; ++j) {
                    const double* t = table_.data() + j * 257;
#pragma GCC unroll 8
                    for (int i = 0; i < 8; ++i) acc[i] += t[b[k + i + j]];
                }
                std::copy_n(acc, 8, o + k);
            }
            for (; k < n; ++k) {
                double sum = 0;
                for (int j = 0; j < kBitTableBytes; ++j) sum += table_[j * 257 + b[k + j]];
                o[k] = sum;
            }
        }
    }

  private:
    void load(int64_t lo, int count, uint16_t* const* tails) {
        for (int c = 0; c < channels_; ++c) std::fill_n(tails[c], count, kOutside);
        int64_t a = std::max<int64_t>(lo, 0), z = std::min<int64_t>(lo + count, int64_t(bytes_));
        if (a >= z) return;
        raw_.resize(size_t(z - a) * channels_);
        if (!fetch_(uint64_t(a), uint32_t(z - a), raw_.data())) *failed_ = true;
        for (int64_t i = a; i < z; ++i)
            for (int c = 0; c < channels_; ++c)
                tails[c][i - lo] = raw_[size_t(i - a) * channels_ + c];
    }

    int channels_;
    uint64_t bytes_;
    DsdToPcm::Fetch fetch_;
    bool* failed_;
    Window<uint16_t> window_;
    std::vector<double> table_;  // [byte position][byte value, or kOutside -> 0]
    std::vector<uint8_t> raw_;
};

// Centred FIR that keeps every decim-th output, or (up) doubles the rate by
// inserting zeros before filtering. Only the outputs kept are computed, and
// the zeros inserted are never multiplied: each output parity has its own taps.
class FirStage : public DsdToPcm::Stage {
  public:
    FirStage(DsdToPcm::Stage* source, int channels, std::vector<double> taps, int decim, bool up)
        : source_(source),
          channels_(channels),
          taps_(std::move(taps)),
          decim_(decim),
          up_(up),
          window_(channels),
          kernel_(firKernelForCpu()) {
        if (up_) {
            for (size_t j = 0; j < taps_.size(); ++j)
                (j % 2 ? odd_ : even_).push_back(2 * taps_[j]);
        }
    }

    void pull(int64_t first, int n, double* const* out) override {
        const int64_t half = int64_t(taps_.size() / 2);
        int64_t lo = up_ ? floorDiv2(first - half + 1) : decim_ * first - half;
        int64_t hi = up_ ? floorDiv2(first + n - 1 + half) : decim_ * (first + n - 1) + half;
        window_.cover(lo, hi, [this](int64_t from, int count, double* const* tails) {
            for (int done = 0; done < count;) {
                int step = std::min(count - done, 4096);
                std::vector<double*> at(tails, tails + channels_);
                for (double*& p : at) p += done;
                source_->pull(from + done, step, at.data());
                done += step;
            }
        });
        for (int c = 0; c < channels_; ++c) {
            if (up_) {
                // Output k is input-rate sample s = first + k - half; taps of
                // s's parity meet inputs from (s + 1) / 2 on, one further per
                // output of the same parity.
                for (int k0 = 0; k0 < 2 && k0 < n; ++k0) {
                    const int64_t s = first + k0 - half;
                    const std::vector<double>& h = (s & 1) == 0 ? even_ : odd_;
                    const int count = (n - k0 + 1) / 2;
                    run(h, window_.at(c, floorDiv2(s + 1)), count);
                    for (int i = 0; i < count; ++i) out[c][k0 + 2 * i] = result_[size_t(i)];
                }
            } else if (decim_ == 1) {
                run(taps_, window_.at(c, first - half), n, out[c]);
            } else {
                // Deinterleave so that each tap reads its inputs contiguously.
                const double* x = window_.at(c, decim_ * first - half);
                const size_t span = size_t(n) + taps_.size() / size_t(decim_) + 1;
                const size_t have = size_t(hi - (decim_ * first - half) + 1);
                phases_.resize(size_t(decim_) * span);
                for (int p = 0; p < decim_; ++p)
                    for (size_t m = 0; m < span && size_t(decim_) * m + size_t(p) < have; ++m)
                        phases_[size_t(p) * span + m] = x[size_t(decim_) * m + size_t(p)];
                src_.resize(taps_.size());
                for (size_t j = 0; j < taps_.size(); ++j)
                    src_[j] = phases_.data() + (j % size_t(decim_)) * span + j / size_t(decim_);
                kernel_(taps_.data(), src_.data(), int(taps_.size()), n, out[c]);
            }
        }
    }

  private:
    // Contiguous input from x: tap j reads x[j + k] for output k.
    void run(const std::vector<double>& h, const double* x, int count, double* to = nullptr) {
        src_.resize(h.size());
        for (size_t j = 0; j < h.size(); ++j) src_[j] = x + j;
        if (!to) {
            result_.resize(size_t(count));
            to = result_.data();
        }
        kernel_(h.data(), src_.data(), int(h.size()), count, to);
    }

    DsdToPcm::Stage* source_;
    int channels_;
    std::vector<double> taps_, even_, odd_;
    int decim_;
    bool up_;
    Window<double> window_;
    Kernel kernel_;
    std::vector<const double*> src_;
    std::vector<double> phases_, result_;
};

}  // namespace

int32_t DsdToPcm::family(int32_t bitRate) {
    for (int32_t base : {44100, 48000})
        for (int32_t m = 64; m <= 512; m *= 2)
            if (bitRate == base * m) return base;
    return 0;
}

bool DsdToPcm::supports(int32_t bitRate, int32_t outRate) {
    const int32_t base = family(bitRate);
    return base &&
           (outRate == base || outRate == 2 * base || outRate == 4 * base || outRate == 8 * base);
}

void DsdToPcm::allowVectorPath(bool allow) {
    vectorAllowed = allow;
}

DsdToPcm::DsdToPcm(int channels, int32_t bitRate, uint64_t sampleBits, int32_t outRate,
                   Fetch fetch) {
    frames_ = (sampleBits * uint64_t(outRate) + uint64_t(bitRate) - 1) / uint64_t(bitRate);
    stages_.push_back(
        std::make_unique<BitStage>(channels, (sampleBits + 7) / 8, std::move(fetch), &failed_));
    // Twice the family's base rate: the 48 kHz family runs the same chain at 96 kHz.
    const int32_t core = 2 * family(bitRate);
    int32_t rate = bitRate / 8;
    auto add = [&](std::vector<double> taps, int decim, bool up) {
        stages_.push_back(
            std::make_unique<FirStage>(stages_.back().get(), channels, std::move(taps), decim, up));
    };
    for (; rate > core; rate /= 2) add(halfBand(rate), 2, false);
    // Pass to 20 kHz, stop from 22.05 kHz in both families: no alias at 44.1
    // kHz, and the same ultrasonic silence above whatever the output rate.
    int half = dsdHalfLength(2050.0 / core, kAttenuationDb);
    add(dsdLowPass(half, 21025.0 / core, kAttenuationDb), outRate * 2 == core ? 2 : 1, false);
    for (rate = core; rate < outRate;) add(halfBand(rate *= 2), 1, true);
}

DsdToPcm::~DsdToPcm() = default;

bool DsdToPcm::read(uint64_t first, uint32_t n, double* const* out) {
    stages_.back()->pull(int64_t(first), int(n), out);
    return !failed_;
}
