// A seek to any frame gives the same samples as a full decode from there.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/decode/fixture_manifest.h"

namespace {

double maxDifference(const std::vector<float>& part, const std::vector<float>& full, uint64_t frame,
                     int channels) {
    double worst = 0;
    for (size_t i = 0; i < part.size() && frame * channels + i < full.size(); ++i)
        worst = std::max(worst, std::fabs(double(part[i]) - full[frame * channels + i]));
    return worst;
}

class Seek : public testing::TestWithParam<FixtureRow> {};

TEST_P(Seek, MatchesFullDecodeFromThatFrame) {
    const FixtureRow& row = GetParam();
    const uint32_t frameBytes = 4u * row.channels;
    std::string error;
    DecodeStream* s = decodeOpen(fixturePath(row.file).c_str(), StreamKind::Float, 44100, &error);
    ASSERT_NE(s, nullptr) << error;
    const auto full = asSamples<float>(readStream(s, frameBytes));
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
        // A byte inside a frame means that frame.
        ASSERT_TRUE(decodeSeek(s, target * frameBytes + (target % 2)));
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
    decodeClose(s);
}

// Upper-case copies of a file decode the same; seeking them again adds nothing.
std::vector<FixtureRow> seekRows() {
    std::vector<FixtureRow> rows;
    for (auto& r : pcmFixtureRows())
        if (std::any_of(r.file.begin(), r.file.end(), ::islower)) rows.push_back(r);
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Seek, testing::ValuesIn(seekRows()),
                         [](const auto& i) { return testName(i.param.file); });

}  // namespace
