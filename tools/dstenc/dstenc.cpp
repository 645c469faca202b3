// Frame coding. The encoder runs the decoder's own arithmetic (8-tap lookup
// tables, 16-bit prediction, the 12-bit coder) so that what it measures is
// exactly what a decoder will see.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "tools/dstenc/dstenc.h"

namespace dstenc {
namespace {

constexpr int kMaxBins = 64;  // probability table entries
constexpr int kMaxRice = 24;  // longest Rice code a decoder must read at once
constexpr int kFilterPredict[3][3] = {{-8, 0, 0}, {-16, 8, 0}, {-9, -5, 6}};
constexpr int kProbPredict[3][3] = {{-8, 0, 0}, {-16, 8, 0}, {-24, 24, -8}};

class BitWriter {
  public:
    void put(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) bits_.push_back(uint8_t(v >> i & 1));
    }
    // Adds one at the last written bit, carrying into earlier ones.
    void carry() {
        size_t i = bits_.size();
        while (i > 0 && bits_[i - 1]) bits_[--i] = 0;
        if (i > 0) bits_[i - 1] = 1;
    }
    size_t size() const { return bits_.size(); }
    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> out((bits_.size() + 7) / 8, 0);
        for (size_t i = 0; i < bits_.size(); ++i) out[i / 8] |= uint8_t(bits_[i] << (7 - i % 8));
        return out;
    }

  private:
    std::vector<uint8_t> bits_;
};

// The mirror of the decoder's coder: low is the bottom of the interval in the
// 12-bit window, a its width.
class ArithEncoder {
  public:
    explicit ArithEncoder(BitWriter& w) : w_(w) {}
    void encode(int e, uint32_t p) {
        const uint32_t q = ((a_ >> 8) | ((a_ >> 7) & 1)) * p;
        if (e) {
            a_ -= q;
        } else {
            low_ += a_ - q;
            a_ = q;
            if (low_ >= 4096) {
                low_ -= 4096;
                w_.carry();
            }
        }
        while (a_ < 2048) {
            w_.put(low_ >> 11 & 1, 1);
            low_ = (low_ << 1) & 4095;
            a_ <<= 1;
        }
    }
    void finish() { w_.put(low_, 12); }

  private:
    BitWriter& w_;
    uint32_t a_ = 4095, low_ = 0;
};

double bitsFor(double zeros, double total, int p) {
    const double pz = p / 256.0;
    return -(zeros * std::log2(pz) + (total - zeros) * std::log2(1.0 - pz));
}

int riceBits(int v, int k) {
    const int q = std::abs(v) >> k;
    return q + 1 + k + (v != 0);
}

int predictTerm(int x) {
    return x >= 0 ? (x + 4) / 8 : -((3 - x) / 8);
}

// The cheapest coding of one table: plain, or a method and Rice parameter
// for the residuals of the fixed prediction. Returns the bit count; method
// -1 means plain.
int planTable(const std::vector<int>& v, int valueBits, const int (*predict)[3], int* method,
              int* k) {
    int best = int(v.size()) * valueBits;
    *method = -1;
    for (int m = 0; m < 3; ++m) {
        if (int(v.size()) <= m + 1) break;
        for (int kk = 0; kk < 8; ++kk) {
            int bits = 2 + (m + 1) * valueBits + 3;
            bool fits = true;
            for (size_t i = size_t(m) + 1; i < v.size(); ++i) {
                int x = 0;
                for (int j = 0; j <= m; ++j) x += predict[m][j] * v[i - size_t(j) - 1];
                const int r = v[i] + predictTerm(x);
                fits = fits && riceBits(r, kk) <= kMaxRice;
                bits += riceBits(r, kk);
            }
            if (fits && bits < best) {
                best = bits;
                *method = m;
                *k = kk;
            }
        }
    }
    return best;
}

void writeTable(BitWriter& w, const std::vector<int>& v, int lengthBits, int valueBits, int offset,
                const int (*predict)[3]) {
    int method, k = 0;
    planTable(v, valueBits, predict, &method, &k);
    w.put(uint32_t(v.size() - 1), lengthBits);
    w.put(method >= 0, 1);
    const uint32_t mask = (1u << valueBits) - 1;
    if (method < 0) {
        for (int x : v) w.put(uint32_t(x - offset) & mask, valueBits);
        return;
    }
    w.put(uint32_t(method), 2);
    for (int i = 0; i <= method; ++i) w.put(uint32_t(v[size_t(i)] - offset) & mask, valueBits);
    w.put(uint32_t(k), 3);
    for (size_t i = size_t(method) + 1; i < v.size(); ++i) {
        int x = 0;
        for (int j = 0; j <= method; ++j) x += predict[method][j] * v[i - size_t(j) - 1];
        const int r = v[i] + predictTerm(x);
        const int m = std::abs(r);
        w.put(0, m >> k);
        w.put(1, 1);
        if (k) w.put(uint32_t(m) & ((1u << k) - 1), k);
        if (r) w.put(r < 0, 1);
    }
}

// One channel's plan: its filter, its table, and the symbols they give.
struct Plan {
    std::vector<int> coef, probs;
    bool half = false;
    std::vector<uint8_t> residual, bin;  // per bit: the coded symbol and its table entry
    double cost = 0;
};

// Levinson-Durbin on the autocorrelation of the +-1 bits.
std::vector<double> predictor(const std::vector<int8_t>& x, int order) {
    const size_t n = x.size();
    std::vector<double> r(size_t(order) + 1, 0.0);
    for (int k = 0; k <= order; ++k) {
        long s = 0;
        for (size_t i = size_t(k); i < n; ++i) s += x[i] * x[i - size_t(k)];
        r[size_t(k)] = double(s);
    }
    r[0] *= 1.0 + 1e-9;
    std::vector<double> a(size_t(order) + 1, 0.0), prev;
    double err = r[0];
    for (int i = 1; i <= order && err > 0; ++i) {
        double acc = r[size_t(i)];
        for (int j = 1; j < i; ++j) acc -= a[size_t(j)] * r[size_t(i - j)];
        const double k = acc / err;
        prev = a;
        a[size_t(i)] = k;
        for (int j = 1; j < i; ++j) a[size_t(j)] = prev[size_t(j)] - k * prev[size_t(i - j)];
        err *= 1.0 - k * k;
    }
    return std::vector<double>(a.begin() + 1, a.end());
}

// Runs the decoder's prediction with coef over the bits and measures the
// best table for it.
Plan measure(const std::vector<uint8_t>& bits, std::vector<int> coef) {
    Plan plan;
    const size_t n = bits.size();
    const int taps = int(coef.size()), tables = (taps + 7) / 8;
    std::vector<int16_t> lookup(size_t(tables) * 256);
    for (int t = 0; t < tables; ++t)
        for (int b = 0; b < 256; ++b) {
            int s = 0;
            for (int l = 0; l < 8 && 8 * t + l < taps; ++l)
                s += (b >> l & 1) ? coef[size_t(8 * t + l)] : -coef[size_t(8 * t + l)];
            lookup[size_t(t) * 256 + size_t(b)] = int16_t(s);
        }
    plan.residual.resize(n);
    plan.bin.resize(n);
    uint64_t lo = 0xAAAAAAAAAAAAAAAAull, hi = lo;
    double zeros[kMaxBins] = {}, total[kMaxBins] = {};
    for (size_t i = 0; i < n; ++i) {
        int sum = 0;
        for (int t = 0; t < tables; ++t) {
            const uint64_t h = t < 8 ? lo >> (8 * t) : hi >> (8 * (t - 8));
            sum += lookup[size_t(t) * 256 + (h & 255)];
        }
        const int16_t predict = int16_t(sum);
        const int e = bits[i] ^ (predict < 0);
        const int b = std::min(std::abs(int(predict)) >> 3, kMaxBins - 1);
        plan.residual[i] = uint8_t(e);
        plan.bin[i] = uint8_t(b);
        zeros[b] += !e;
        total[b] += 1;
        hi = hi << 1 | lo >> 63;
        lo = lo << 1 | bits[i];
    }
    int used = 1;
    for (int b = 0; b < kMaxBins; ++b)
        if (total[b] > 0) used = b + 1;
    int last = 128;
    for (int b = 0; b < used; ++b) {
        if (total[b] > 0) {
            last = std::clamp(int(std::lround(256.0 * zeros[b] / total[b])), 1, 128);
            plan.cost += bitsFor(zeros[b], total[b], last);
        }
        plan.probs.push_back(last);
    }
    // Half probability for the first taps, which see the made-up history, if
    // that is cheaper.
    double tableCost = 0;
    const size_t head = std::min(n, size_t(taps));
    for (size_t i = 0; i < head; ++i) {
        const double pz = plan.probs[plan.bin[i]] / 256.0;
        tableCost -= std::log2(plan.residual[i] ? 1.0 - pz : pz);
    }
    plan.half = double(head) < tableCost;
    if (plan.half) plan.cost += double(head) - tableCost;
    plan.coef = std::move(coef);
    return plan;
}

Plan planChannel(const std::vector<uint8_t>& bits, int taps) {
    std::vector<int8_t> x(bits.size());
    for (size_t i = 0; i < bits.size(); ++i) x[i] = bits[i] ? 1 : -1;
    const std::vector<double> a = predictor(x, std::clamp(taps, 1, 128));
    double peak = 1e-9;
    for (double v : a) peak = std::max(peak, std::abs(v));
    Plan best;
    bool have = false;
    // The scale sets how finely the table sees the prediction's confidence.
    for (double scale : {255.0 / peak, 128.0 / peak, 64.0 / peak, 32.0 / peak}) {
        std::vector<int> coef(a.size());
        for (size_t i = 0; i < a.size(); ++i)
            coef[i] = std::clamp(int(std::lround(a[i] * scale)), -255, 255);
        Plan p = measure(bits, coef);
        if (!have || p.cost < best.cost) best = std::move(p), have = true;
    }
    return best;
}

uint8_t reverse7(int v) {
    uint8_t r = 0;
    for (int i = 0; i < 7; ++i) r = uint8_t(r << 1 | ((v >> i) & 1));
    return r;
}

}  // namespace

std::vector<uint8_t> encodeFrame(const uint8_t* dsd, int channels, uint32_t frameBytes,
                                 const Options& options) {
    const size_t n = size_t(frameBytes) * 8;
    std::vector<Plan> plans;
    std::vector<int> element(static_cast<size_t>(channels));
    for (int ch = 0; ch < channels; ++ch) {
        int same = -1;
        for (int o = 0; o < ch && same < 0; ++o) {
            bool equal = true;
            for (size_t i = 0; i < frameBytes && equal; ++i)
                equal =
                    dsd[i * size_t(channels) + size_t(ch)] == dsd[i * size_t(channels) + size_t(o)];
            if (equal) same = element[size_t(o)];
        }
        if (same >= 0) {
            element[size_t(ch)] = same;
            continue;
        }
        std::vector<uint8_t> bits(n);
        for (size_t i = 0; i < n; ++i)
            bits[i] = dsd[(i / 8) * size_t(channels) + size_t(ch)] >> (7 - i % 8) & 1;
        element[size_t(ch)] = int(plans.size());
        plans.push_back(planChannel(bits, options.taps));
    }

    BitWriter w;
    w.put(1, 1);                      // coded
    w.put(7, 3);                      // one segment per channel, the same for filters and tables
    w.put(!options.separateMaps, 1);  // tables mapped like filters
    for (int map = 0; map < (options.separateMaps ? 2 : 1); ++map) {
        if (plans.size() == 1) {
            w.put(1, 1);
            continue;
        }
        w.put(0, 1);
        int count = 1;
        for (int ch = 1; ch < channels; ++ch) {
            w.put(uint32_t(element[size_t(ch)]), 32 - __builtin_clz(uint32_t(count)));
            count = std::max(count, element[size_t(ch)] + 1);
        }
    }
    for (int ch = 0; ch < channels; ++ch) w.put(plans[size_t(element[size_t(ch)])].half, 1);
    for (const Plan& p : plans) writeTable(w, p.coef, 7, 9, 0, kFilterPredict);
    for (const Plan& p : plans) writeTable(w, p.probs, 6, 7, 1, kProbPredict);
    w.put(0, 1);  // the coder's first bit, always zero

    ArithEncoder ac(w);
    ac.encode(0, reverse7(plans[0].coef[0] & 127) + 1u);
    for (size_t i = 0; i < n; ++i)
        for (int ch = 0; ch < channels; ++ch) {
            const Plan& p = plans[size_t(element[size_t(ch)])];
            const bool half = p.half && i < p.coef.size();
            ac.encode(p.residual[i], half ? 128u : uint32_t(p.probs[p.bin[i]]));
        }
    ac.finish();
    std::vector<uint8_t> coded = w.bytes();
    const size_t plain = size_t(frameBytes) * size_t(channels);
    if (coded.size() <= plain) return coded;
    coded.assign(1, 0);  // stored as it is
    coded.insert(coded.end(), dsd, dsd + plain);
    return coded;
}

uint32_t frameCrc(const uint8_t* dsd, size_t n) {
    uint32_t c = ~0u;
    for (size_t i = 0; i < n; ++i) {
        c ^= dsd[i];
        for (int k = 0; k < 8; ++k) c = c & 1 ? (c >> 1) ^ 0xEDB88320u : c >> 1;
    }
    return ~c;
}

}  // namespace dstenc
