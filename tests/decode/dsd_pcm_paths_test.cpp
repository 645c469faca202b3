// The converter's FIR paths: the vector path and the plain one, and every way
// of cutting a read into pieces, give the same bits. Each output is a fixed
// sum in a fixed order, so anything else is a bug in the block edges, the
// decimation phases or the two parities of interpolation.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "decode/dsd_pcm.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

struct Decoded {
    std::vector<std::vector<double>> channels;
    bool operator==(const Decoded& o) const {
        if (channels.size() != o.channels.size()) return false;
        for (size_t c = 0; c < channels.size(); ++c)
            if (channels[c].size() != o.channels[c].size() ||
                std::memcmp(channels[c].data(), o.channels[c].data(),
                            channels[c].size() * sizeof(double)) != 0)
                return false;
        return true;
    }
};

// Converts [from, end) in reads of the given sizes, taken in turn.
Decoded convert(const dsdgen::Signal& s, const std::vector<uint8_t>& dsd, int32_t rate,
                uint64_t from, const std::vector<uint32_t>& sizes) {
    const int ch = s.channels;
    DsdToPcm pcm(ch, s.rate(), s.bits, rate, [&](uint64_t first, uint32_t count, uint8_t* out) {
        std::memcpy(out, dsd.data() + first * uint64_t(ch), size_t(count) * ch);
        return true;
    });
    Decoded d{std::vector<std::vector<double>>(size_t(ch))};
    std::vector<double*> at(static_cast<size_t>(ch), nullptr);
    for (uint64_t pos = from, i = 0; pos < pcm.frames(); ++i) {
        const uint32_t n =
            uint32_t(std::min<uint64_t>(sizes[i % sizes.size()], pcm.frames() - pos));
        for (int c = 0; c < ch; ++c) {
            d.channels[size_t(c)].resize(pos - from + n);
            at[size_t(c)] = d.channels[size_t(c)].data() + (pos - from);
        }
        EXPECT_TRUE(pcm.read(pos, n, at.data()));
        pos += n;
    }
    return d;
}

TEST(DsdPcmPaths, VectorPlainAndEveryChunkingAgree) {
    for (auto [multiple, base] : {std::pair{64, 44100}, {128, 48000}}) {
        // Three channels of tones near the top of the audio band; odd length.
        dsdgen::Signal s{multiple,
                         3,
                         uint64_t(0.06 * dsdgen::bitRate(multiple, base)) + 5,
                         {{{997, -6, 0}}, {{19000, -10, 1}}, {{5000, -3, 2}, {18000, -20, 0}}},
                         base};
        const std::vector<uint8_t> dsd = dsdgen::modulate(s);
        for (int times : {1, 2, 4, 8}) {
            const int32_t rate = times * base;
            SCOPED_TRACE(testing::Message() << "DSD" << multiple << " to " << rate);
            const Decoded whole = convert(s, dsd, rate, 0, {1u << 20});
            DsdToPcm::allowVectorPath(false);
            const Decoded plain = convert(s, dsd, rate, 0, {1u << 20});
            DsdToPcm::allowVectorPath(true);
            EXPECT_TRUE(plain == whole);
            // Sizes around the vector widths and the inner stages' 4096.
            EXPECT_TRUE(convert(s, dsd, rate, 0, {1, 2, 3, 7, 31, 33, 65, 4099}) == whole);
            EXPECT_TRUE(convert(s, dsd, rate, 0, {5000, 1, 12345}) == whole);
            // An odd start: the other parity first in the interpolating stages.
            const Decoded late = convert(s, dsd, rate, 333, {17, 100});
            Decoded tail{};
            for (const auto& c : whole.channels)
                tail.channels.emplace_back(c.begin() + 333, c.end());
            EXPECT_TRUE(late == tail);
        }
    }
}

}  // namespace
