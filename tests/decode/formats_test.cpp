// Every generated fixture decodes with the right format, the exact length and
// the reference samples in both PCM kinds, and seeks to any frame exactly.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/decode/read_stream.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"

namespace {

double maxDifference(const std::vector<float>& part, const std::vector<float>& full, uint64_t frame,
                     int channels) {
    double worst = 0;
    for (size_t i = 0; i < part.size() && frame * channels + i < full.size(); ++i)
        worst = std::max(worst, std::fabs(double(part[i]) - full[frame * channels + i]));
    return worst;
}

// A seek gives the same samples as the full decode from that frame.
void checkSeeks(DecodeStream* s, const Fixture& row, const std::vector<float>& full) {
    const uint32_t frameBytes = 4u * row.channels;
    const uint64_t n = row.frames;
    // Far and near, backward and forward, frame and codec-block boundaries.
    const uint64_t targets[] = {n / 2 + 13, 17,          n - 3,        3457, 1152 * 3 + 1,
                                n / 5,      n / 5 + 900, n / 2 - 4000, 0,    1};
    std::vector<uint8_t> buf(2000 * frameBytes);
    // AAC fills some bands with noise from a generator that runs on from the
    // start of a decode, so only its position can be checked after a seek.
    const bool noisy = row.codec == "aac";
    const double tolerance = noisy ? 0.25 : row.kind == "lossy" ? 1e-6 : 0.0;
    for (uint64_t target : targets) {
        SCOPED_TRACE("frame " + std::to_string(target));
        ASSERT_TRUE(
            decodeSeek(s, target * frameBytes + (target % 2)));  // inside a frame: that frame
        uint32_t got = decodeRead(s, buf.data(), uint32_t(buf.size()));
        ASSERT_EQ(got, std::min<uint64_t>(2000, n - target) * frameBytes);
        const auto part = asSamples<float>({buf.begin(), buf.begin() + got});
        const double atTarget = maxDifference(part, full, target, row.channels);
        EXPECT_LE(atTarget, tolerance);
        if (noisy && target > 2 && part.size() == buf.size() / 4) {
            for (uint64_t off : {target - 2, target - 1, target + 1, target + 2})
                EXPECT_LT(atTarget, maxDifference(part, full, off, row.channels)) << "at " << off;
        }
    }
    ASSERT_TRUE(decodeSeek(s, n * frameBytes));
    EXPECT_EQ(decodeRead(s, buf.data(), frameBytes), kDecodeEnd);
    EXPECT_FALSE(decodeSeek(s, (n + 1) * frameBytes));
}

class Formats : public testing::TestWithParam<Fixture> {};

TEST_P(Formats, BothKindsMatchTheReferenceAndSeekExactly) {
    const Fixture& row = GetParam();
    const auto ref = readFileBytes(row.refPath());
    for (StreamKind kind : {StreamKind::Float, StreamKind::Int16}) {
        const bool asFloat = kind == StreamKind::Float;
        SCOPED_TRACE(asFloat ? "float" : "int16");
        std::string error;
        DecodeStream* s = decodeOpen(row.path().c_str(), kind, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        StreamInfo info = decodeInfo(s);
        EXPECT_EQ(info.rate, row.rate);
        EXPECT_EQ(info.channels, row.channels);
        EXPECT_EQ(info.sourceBits, row.bits);
        const uint32_t frameBytes = (asFloat ? 4u : 2u) * row.channels;
        EXPECT_EQ(decodeLength(s), row.frames * frameBytes);
        // Odd sizes, some below one frame, so the frame queue is cut everywhere.
        auto got = readStream(s, frameBytes, {frameBytes * 4099 + 3, 1, frameBytes, 777});
        if (asFloat) checkSeeks(s, row, asSamples<float>(got));
        decodeClose(s);

        // Exact, except that a lossy sample (from the decoder the reference
        // came from) on a 16-bit step may land on either side.
        std::vector<double> want, have;
        if (row.kind == "lossless")
            for (int32_t v : asSamples<int32_t>(ref))
                want.push_back(asFloat ? v / 0x1p31 : v >> 16);
        else
            for (float v : asSamples<float>(ref))
                want.push_back(asFloat ? v
                                       : std::clamp(std::trunc(v * 32768.0), -32768.0, 32767.0));
        if (asFloat)
            for (float v : asSamples<float>(got)) have.push_back(v);
        else
            for (int16_t v : asSamples<int16_t>(got)) have.push_back(v);
        const double tolerance = row.kind != "lossy" ? 0 : asFloat ? 1e-6 : 1;
        ASSERT_EQ(have.size(), want.size());
        for (size_t i = 0; i < have.size(); ++i)
            ASSERT_NEAR(have[i], want[i], tolerance) << "sample " << i;
    }
}

std::vector<Fixture> pcmRows() {
    std::vector<Fixture> rows = fixtures();
    std::erase_if(rows, [](const Fixture& f) { return f.kind == "dsd"; });
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Formats, testing::ValuesIn(pcmRows()),
                         [](const auto& i) { return testName(i.param.file); });

// Third-party files the generators cannot make.
TEST(Formats, SharedGoodFiles) {
    for (auto [file, rate, bits] :
         {std::tuple{"sine-stereo-16bit.ape", 44100, 16}, std::tuple{"dsd-stereo.wv", 352800, 0}}) {
        SCOPED_TRACE(file);
        std::string path = std::string(TOVRIN_SHARED_FIXTURES) + "/good/" + file, error;
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::Float, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        EXPECT_EQ(decodeInfo(s).rate, rate);
        EXPECT_EQ(decodeInfo(s).channels, 2);
        EXPECT_EQ(decodeInfo(s).sourceBits, bits);
        float peak = 0;
        for (float v : asSamples<float>(readStream(s, 8))) peak = std::max(peak, std::fabs(v));
        EXPECT_GT(peak, 0.01f) << "decodes to silence";
        decodeClose(s);
    }
}

}  // namespace
