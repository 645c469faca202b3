#include "decode/dst_frame.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "decode/dst_arith.h"

namespace {

// Zero bytes kept after a frame: enough for every read the decoder makes
// before it notices it has run past the end.
constexpr size_t kPad = 256;
// Coded bits a frame may read past its end before it counts as damaged. The
// decoder looks ahead of what it needs, and encoders flush differently.
constexpr uint64_t kOverrunBits = 256;

// Coefficient prediction of the table coding, per method, in eighths.
constexpr int kFilterPredict[3][3] = {{-8, 0, 0}, {-16, 8, 0}, {-9, -5, 6}};
constexpr int kProbPredict[3][3] = {{-8, 0, 0}, {-16, 8, 0}, {-24, 24, -8}};

// Header fields with a limit: a reader past the frame's end reads zeros, and
// the parse checks over() before trusting what it built.
struct HeaderBits {
    DstBits bits;
    uint64_t end;
    uint32_t take(int n) { return bits.take(n); }
    int32_t takeSigned(int n) {
        uint32_t v = take(n);
        return int32_t(v ^ (1u << (n - 1))) - int32_t(1u << (n - 1));
    }
    bool over() const { return bits.pos() > end; }
    // q zeros, a one, k bits of remainder; then a sign bit when not zero.
    bool rice(int k, int32_t* v) {
        uint32_t q = 0;
        while (take(1) == 0) {
            if (++q > 4096 || over()) return false;
        }
        int32_t m = int32_t((q << k) | (k ? take(k) : 0));
        *v = m && take(1) ? -m : m;
        return !over();
    }
};

bool readMap(HeaderBits& b, int channels, int* map, int* count) {
    *count = 1;
    map[0] = 0;
    if (b.take(1)) {
        std::fill(map, map + channels, 0);
        return true;
    }
    for (int ch = 1; ch < channels; ++ch) {
        const int width = 32 - __builtin_clz(uint32_t(*count));
        const int v = int(b.take(width));
        if (v > *count) return false;
        if (v == *count) ++*count;
        map[ch] = v;
    }
    return !b.over();
}

// One filter or probability table: its length, then its values either plain
// or as Rice-coded residuals of a fixed prediction from the values before.
bool readTable(HeaderBits& b, int lengthBits, int valueBits, bool isSigned, int offset,
               const int (*predict)[3], int lo, int hi, int* values, int* length) {
    *length = int(b.take(lengthBits)) + 1;
    auto plainValue = [&] {
        return (isSigned ? b.takeSigned(valueBits) : int32_t(b.take(valueBits))) + offset;
    };
    if (!b.take(1)) {
        for (int i = 0; i < *length; ++i) values[i] = plainValue();
        return !b.over();
    }
    const int method = int(b.take(2));
    if (method == 3) return false;
    for (int i = 0; i <= method; ++i) values[i] = plainValue();
    const int k = int(b.take(3));
    for (int i = method + 1; i < *length; ++i) {
        int x = 0;
        for (int m = 0; m <= method; ++m) x += predict[method][m] * values[i - m - 1];
        int32_t r;
        if (!b.rice(k, &r)) return false;
        const int v = r - (x >= 0 ? (x + 4) / 8 : -((3 - x) / 8));
        if (v < lo || v > hi) return false;
        values[i] = v;
    }
    return !b.over();
}

uint8_t reverse7(int v) {
    uint8_t r = 0;
    for (int i = 0; i < 7; ++i) r = uint8_t(r << 1 | ((v >> i) & 1));
    return r;
}

}  // namespace

DstFrameDecoder::DstFrameDecoder(int channels, uint32_t frameBytes)
    : channels_(std::clamp(channels, 1, kMaxChannels)), frameBytes_(frameBytes) {}

bool DstFrameDecoder::readHeader(size_t size, std::string* why) {
    HeaderBits b{DstBits(buf_.data()), uint64_t(size) * 8};
    b.take(1);  // the coded-frame flag, already seen
    if (b.take(3) != 7) return *why = "segmented frame not supported", false;
    const bool sameMap = b.take(1);
    if (!readMap(b, channels_, filterOf_, &filterCount_)) return *why = "bad filter map", false;
    if (sameMap) {
        tableCount_ = filterCount_;
        std::copy(filterOf_, filterOf_ + channels_, tableOf_);
    } else if (!readMap(b, channels_, tableOf_, &tableCount_)) {
        return *why = "bad probability table map", false;
    }
    for (int ch = 0; ch < channels_; ++ch) halfProb_[ch] = b.take(1);

    filters_.resize(size_t(filterCount_));
    int values[128];
    for (int f = 0; f < filterCount_; ++f) {
        Filter& flt = filters_[size_t(f)];
        if (!readTable(b, 7, 9, true, 0, kFilterPredict, -256, 255, values, &flt.length))
            return *why = "bad prediction filter", false;
        if (f == 0) firstCoef_ = values[0];
        flt.newestTap = values[0];
        flt.tables = (flt.length + 7) / 8;
        memset(&flt.lookup[0][0] + 256 * flt.tables, 0,
               sizeof(int16_t) * 256 * size_t(16 - flt.tables));
        for (int t = 0; t < flt.tables; ++t) {
            const int taps = std::min(8, flt.length - 8 * t);
            for (int k = 0; k < 256; ++k) {
                int sum = 0;
                for (int l = 0; l < taps; ++l)
                    sum += (k >> l & 1) ? values[8 * t + l] : -values[8 * t + l];
                flt.lookup[t][k] = int16_t(sum);
            }
        }
    }
    tables_.resize(size_t(tableCount_));
    for (int t = 0; t < tableCount_; ++t) {
        int length;
        if (!readTable(b, 6, 7, false, 1, kProbPredict, 1, 128, values, &length))
            return *why = "bad probability table", false;
        uint8_t* by = tables_[size_t(t)].byPrediction;
        // Past the table's end its last entry holds, on both sides of zero.
        const int spread = 8 * length;
        const uint8_t last = uint8_t(values[length - 1]);
        memset(by + spread, last, size_t(32768 - spread));
        memset(by + 32768, last, size_t(32768 - spread + 1));
        for (int m = 0; m < spread; ++m) by[m] = by[(65536 - m) & 65535] = uint8_t(values[m >> 3]);
    }
    if (b.take(1) != 0) return *why = "bad start of coded data", false;
    codeStart_ = b.bits.pos();
    if (b.over()) return *why = "header runs past the frame", false;
    return true;
}

bool DstFrameDecoder::decode(const uint8_t* data, size_t size, uint8_t* out, std::string* why) {
    std::string dummy;
    if (!why) why = &dummy;
    filterCount_ = tableCount_ = 0;
    plain_ = false;
    const size_t total = size_t(frameBytes_) * size_t(channels_);
    if (size < 1) return *why = "empty frame", false;
    if (!(data[0] & 0x80)) {
        plain_ = true;
        if (data[0] & 0x3F) return *why = "bad uncompressed frame", false;
        if (size - 1 < total) return *why = "uncompressed frame too short", false;
        memcpy(out, data + 1, total);
        return true;
    }
    buf_.assign(size + kPad, 0);
    memcpy(buf_.data(), data, size);
    if (!readHeader(size, why)) return false;
    return decodeBits(size, out, why);
}

namespace {

struct Channel {
    const int16_t (*lookup)[256];
    int newestTap2;      // twice the newest bit's coefficient
    uint32_t halfUntil;  // samples coded at probability one half
    const uint8_t* probs;
    uint64_t lo, hi;       // the last 128 bits, newest in bit 0 of lo
    uint32_t p, negative;  // for the next bit
};

template <int Tables>
int predict(const Channel& c, uint64_t lo, uint64_t hi) {
    int sum = 0;
#pragma GCC unroll 8
    for (int t = 0; t < Tables && t < 8; ++t) sum += c.lookup[t][(lo >> (8 * t)) & 255];
#pragma GCC unroll 8
    for (int t = 8; t < Tables; ++t) sum += c.lookup[t][(hi >> (8 * (t - 8))) & 255];
    return sum;
}

uint32_t probability(const Channel& c, int16_t predict) {
    return c.probs[uint16_t(predict)];
}

// The per-bit loop, unrolled for the number of 8-tap tables in use (unused
// ones are zero). The next bit's prediction is summed before the bit being
// decoded is known, which only adds its tap after, so that the table lookups
// stay off the arithmetic decoder's path from one bit to the next.
template <int Tables>
[[gnu::always_inline]] inline bool decodeLoop(Channel* chan, int channels, uint32_t samples,
                                              DstArith& coder, uint64_t limit, uint8_t* out) {
    DstArith ac = coder;  // in registers, not behind a reference
    for (int ch = 0; ch < channels; ++ch) {
        Channel& c = chan[ch];
        const int16_t first = int16_t(predict<Tables>(c, c.lo, c.hi));
        c.p = c.halfUntil > 0 ? 128u : probability(c, first);
        c.negative = first < 0;
    }
    for (uint32_t i = 0; i < samples; ++i) {
        for (int ch = 0; ch < channels; ++ch) {
            Channel& c = chan[ch];
            const uint64_t lo = c.lo << 1, hi = Tables > 8 ? c.hi << 1 | c.lo >> 63 : 0;
            const int base = predict<Tables>(c, lo, hi);
            const uint32_t bit = ac.decode(c.p) ^ c.negative;
            c.lo = lo | bit;
            if (Tables > 8) c.hi = hi;
            const int16_t next = int16_t(base + (c.newestTap2 & -int(bit)));
            c.p = probability(c, next);
            c.negative = next < 0;
            if (i + 1 < c.halfUntil) c.p = 128;
        }
        if ((i & 7) == 7) {
            for (int ch = 0; ch < channels; ++ch) out[ch] = uint8_t(chan[ch].lo);
            out += channels;
            if (ac.pos() > limit) return false;
        }
    }
    coder = ac;
    return true;
}

using Loop = bool (*)(Channel*, int, uint32_t, DstArith&, uint64_t, uint8_t*);

// The same loop twice: for any x86-64, and for processors with BMI2 and
// LZCNT, whose one-instruction variable shifts and leading-zero count make the
// arithmetic decoder's renormalisation markedly cheaper.
template <int Tables>
bool loopPlain(Channel* chan, int channels, uint32_t samples, DstArith& ac, uint64_t limit,
               uint8_t* out) {
    return decodeLoop<Tables>(chan, channels, samples, ac, limit, out);
}

#if defined(__x86_64__)
template <int Tables>
[[gnu::target("bmi2,lzcnt")]] bool loopBmi2(Channel* chan, int channels, uint32_t samples,
                                            DstArith& ac, uint64_t limit, uint8_t* out) {
    return decodeLoop<Tables>(chan, channels, samples, ac, limit, out);
}
#endif

template <int... T>
constexpr std::array<Loop, sizeof...(T)> plainLoops(std::integer_sequence<int, T...>) {
    return {loopPlain<T + 1>...};
}

const std::array<Loop, 16>& loops() {
    static constexpr auto plain = plainLoops(std::make_integer_sequence<int, 16>());
#if defined(__x86_64__)
    static constexpr auto bmi2 = []<int... T>(std::integer_sequence<int, T...>) {
        return std::array<Loop, sizeof...(T)>{loopBmi2<T + 1>...};
    }
    (std::make_integer_sequence<int, 16>());
    // Every processor with BMI2 also has LZCNT; not every compiler can ask for the latter.
    static const bool fast = __builtin_cpu_supports("bmi2");
    return fast ? bmi2 : plain;
#else
    return plain;
#endif
}

}  // namespace

bool DstFrameDecoder::decodeBits(size_t size, uint8_t* out, std::string* why) {
    Channel chan[kMaxChannels];
    int tables = 1;
    for (int ch = 0; ch < channels_; ++ch) {
        const Filter& f = filters_[size_t(filterOf_[ch])];
        tables = std::max(tables, f.tables);
        chan[ch] = {f.lookup,
                    2 * f.newestTap,
                    halfProb_[ch] ? uint32_t(f.length) : 0u,
                    tables_[size_t(tableOf_[ch])].byPrediction,
                    0xAAAAAAAAAAAAAAAAull,
                    0xAAAAAAAAAAAAAAAAull,
                    0,
                    0};
    }
    DstArith ac;
    if (!ac.start(buf_.data(), codeStart_)) return *why = "coded data out of range", false;
    ac.decode(reverse7(firstCoef_ & 127) + 1u);  // a reserved bit

    const uint64_t limit = uint64_t(size) * 8 + kOverrunBits;
    if (!loops()[size_t(tables - 1)](chan, channels_, frameBytes_ * 8, ac, limit, out))
        return *why = "coded data runs past the frame", false;
    return true;
}
