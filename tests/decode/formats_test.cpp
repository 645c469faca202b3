// Every generated fixture decodes with the right format, the exact length and
// the reference samples, in both PCM kinds.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>

#include "tests/decode/fixture_manifest.h"

namespace {

std::vector<FixtureRow> pcmRows() {
    std::vector<FixtureRow> rows;
    for (auto& r : fixtureRows())
        if (r.kind != "dsd") rows.push_back(r);
    return rows;
}

template <typename T>
std::vector<T> asSamples(const std::vector<uint8_t>& bytes) {
    std::vector<T> v(bytes.size() / sizeof(T));
    std::memcpy(v.data(), bytes.data(), v.size() * sizeof(T));
    return v;
}

int16_t truncateToInt16(float x) {
    float p = x * 32768.0f;
    if (p >= 32767.0f) return 32767;
    if (p <= -32768.0f) return -32768;
    return static_cast<int16_t>(p);
}

// Lossy decodes run through the very decoder the reference came from.
constexpr float kLossyTolerance = 1e-6f;

class Formats : public testing::TestWithParam<FixtureRow> {
  protected:
    DecodeStream* open(StreamKind kind) {
        std::string error;
        DecodeStream* s = decodeOpen(fixturePath(GetParam().file).c_str(), kind, 44100, &error);
        EXPECT_NE(s, nullptr) << error;
        return s;
    }
    std::vector<uint8_t> ref() { return readFile(fixturePath(GetParam().ref)); }
};

TEST_P(Formats, FloatKindMatchesReference) {
    const FixtureRow& row = GetParam();
    DecodeStream* s = open(StreamKind::Float);
    ASSERT_NE(s, nullptr);
    StreamInfo info = decodeInfo(s);
    EXPECT_EQ(info.rate, row.rate);
    EXPECT_EQ(info.channels, row.channels);
    EXPECT_EQ(info.sourceBits, row.bits);
    const uint32_t frameBytes = 4u * row.channels;
    EXPECT_EQ(decodeLength(s), row.frames * frameBytes);
    // Odd sizes, some below one frame, so the frame queue is cut everywhere.
    auto got =
        asSamples<float>(readStream(s, frameBytes, {frameBytes * 4099 + 3, 1, frameBytes, 777}));
    decodeClose(s);

    if (row.kind == "lossless") {
        auto want = asSamples<int32_t>(ref());
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); ++i)
            ASSERT_EQ(static_cast<double>(got[i]) * 2147483648.0, want[i]) << "sample " << i;
    } else {
        auto want = asSamples<float>(ref());
        ASSERT_EQ(got.size(), want.size());
        const float tolerance = row.kind == "lossy" ? kLossyTolerance : 0.0f;
        for (size_t i = 0; i < got.size(); ++i)
            ASSERT_NEAR(got[i], want[i], tolerance) << "sample " << i;
    }
}

TEST_P(Formats, Int16KindMatchesReference) {
    const FixtureRow& row = GetParam();
    DecodeStream* s = open(StreamKind::Int16);
    ASSERT_NE(s, nullptr);
    const uint32_t frameBytes = 2u * row.channels;
    EXPECT_EQ(decodeLength(s), row.frames * frameBytes);
    auto got = asSamples<int16_t>(readStream(s, frameBytes, {frameBytes * 1001 + 1, 65536}));
    decodeClose(s);

    std::vector<int16_t> want;
    if (row.kind == "lossless") {
        for (int32_t v : asSamples<int32_t>(ref())) want.push_back(static_cast<int16_t>(v >> 16));
    } else {
        for (float v : asSamples<float>(ref())) want.push_back(truncateToInt16(v));
    }
    ASSERT_EQ(got.size(), want.size());
    // A lossy sample sitting on a step of the 16-bit grid may land on either side.
    const int tolerance = row.kind == "lossy" ? 1 : 0;
    for (size_t i = 0; i < got.size(); ++i)
        ASSERT_NEAR(got[i], want[i], tolerance) << "sample " << i;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Formats, testing::ValuesIn(pcmRows()),
                         [](const testing::TestParamInfo<FixtureRow>& i) {
                             return rowName(i.param);
                         });

TEST(Formats, ManifestCoversEveryContainer) {
    std::set<std::string> containers;
    for (auto& r : pcmRows()) containers.insert(r.container);
    for (const char* c : {"wav", "aiff", "flac", "ogg", "mp3", "mp4", "adts", "wv"})
        EXPECT_TRUE(containers.count(c)) << c;
}

// Third-party files the generators cannot make.
TEST(Formats, SharedGoodFiles) {
    struct Case {
        const char* file;
        int rate, channels, bits;
    };
    for (Case c :
         {Case{"sine-stereo-16bit.ape", 44100, 2, 16}, Case{"dsd-stereo.wv", 352800, 2, 0}}) {
        SCOPED_TRACE(c.file);
        std::string path = std::string(TOVRIN_SHARED_FIXTURES) + "/good/" + c.file;
        std::string error;
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::Float, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        StreamInfo info = decodeInfo(s);
        EXPECT_EQ(info.rate, c.rate);
        EXPECT_EQ(info.channels, c.channels);
        EXPECT_EQ(info.sourceBits, c.bits);
        auto data = asSamples<float>(readStream(s, 4u * c.channels));
        float peak = 0;
        for (float v : data) peak = std::max(peak, std::fabs(v));
        EXPECT_GT(peak, 0.01f) << "decodes to silence";
        decodeClose(s);
    }
}

TEST(Formats, DsdKindsRefusePcmContent) {
    std::string path = fixturePath("flac-s16-44k1-stereo.flac");
    for (StreamKind kind : {StreamKind::DsdRaw, StreamKind::Dop, StreamKind::DsdPcm}) {
        std::string error;
        EXPECT_EQ(decodeOpen(path.c_str(), kind, 44100, &error), nullptr);
        EXPECT_FALSE(error.empty());
    }
    EXPECT_FALSE(decodeIsDsdContent(path.c_str()));
}

}  // namespace
