// Every generated fixture decodes with the right format, the exact length and
// the reference samples, in both PCM kinds.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/decode/fixture_manifest.h"

namespace {

int16_t truncateToInt16(float x) {
    return int16_t(std::clamp(x * 32768.0f, -32768.0f, 32767.0f));
}

class Formats : public testing::TestWithParam<FixtureRow> {};

TEST_P(Formats, BothKindsMatchTheReference) {
    const FixtureRow& row = GetParam();
    const auto ref = readFile(fixturePath(row.ref));
    for (StreamKind kind : {StreamKind::Float, StreamKind::Int16}) {
        const bool asFloat = kind == StreamKind::Float;
        SCOPED_TRACE(asFloat ? "float" : "int16");
        std::string error;
        DecodeStream* s = decodeOpen(fixturePath(row.file).c_str(), kind, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        StreamInfo info = decodeInfo(s);
        EXPECT_EQ(info.rate, row.rate);
        EXPECT_EQ(info.channels, row.channels);
        EXPECT_EQ(info.sourceBits, row.bits);
        const uint32_t frameBytes = (asFloat ? 4u : 2u) * row.channels;
        EXPECT_EQ(decodeLength(s), row.frames * frameBytes);
        // Odd sizes, some below one frame, so the frame queue is cut everywhere.
        auto got = readStream(s, frameBytes, {frameBytes * 4099 + 3, 1, frameBytes, 777});
        decodeClose(s);

        // Exact, except that lossy output comes from the very decoder the
        // reference came from, and a lossy sample on a 16-bit step may land on either side.
        std::vector<double> want, have;
        if (row.kind == "lossless") {
            for (int32_t v : asSamples<int32_t>(ref)) want.push_back(asFloat ? v : v >> 16);
        } else {
            for (float v : asSamples<float>(ref)) want.push_back(asFloat ? v : truncateToInt16(v));
        }
        if (asFloat) {
            const double scale = row.kind == "lossless" ? 2147483648.0 : 1.0;
            for (float v : asSamples<float>(got)) have.push_back(v * scale);
        } else {
            for (int16_t v : asSamples<int16_t>(got)) have.push_back(v);
        }
        const double tolerance = row.kind != "lossy" ? 0 : asFloat ? 1e-6 : 1;
        ASSERT_EQ(have.size(), want.size());
        for (size_t i = 0; i < have.size(); ++i)
            ASSERT_NEAR(have[i], want[i], tolerance) << "sample " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Formats, testing::ValuesIn(pcmFixtureRows()),
                         [](const auto& i) { return testName(i.param.file); });

// Third-party files the generators cannot make.
TEST(Formats, SharedGoodFiles) {
    struct Case {
        const char* file;
        int rate, channels, bits;
    };
    for (Case c :
         {Case{"sine-stereo-16bit.ape", 44100, 2, 16}, Case{"dsd-stereo.wv", 352800, 2, 0}}) {
        SCOPED_TRACE(c.file);
        std::string path = std::string(TOVRIN_SHARED_FIXTURES) + "/good/" + c.file, error;
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::Float, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        StreamInfo info = decodeInfo(s);
        EXPECT_EQ(info.rate, c.rate);
        EXPECT_EQ(info.channels, c.channels);
        EXPECT_EQ(info.sourceBits, c.bits);
        float peak = 0;
        for (float v : asSamples<float>(readStream(s, 4u * c.channels)))
            peak = std::max(peak, std::fabs(v));
        EXPECT_GT(peak, 0.01f) << "decodes to silence";
        decodeClose(s);
    }
}

}  // namespace
