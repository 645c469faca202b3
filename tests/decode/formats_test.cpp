// Every generated fixture decodes with the right format, the exact length and
// the reference samples, and seeks to any frame exactly;
// damaged, truncated and hostile inputs fail the open with a reason or decode
// what they hold to their stated end.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>

#include "decode/decode.h"
#include "tests/decode/read_stream.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"
#include "tools/dstenc/dstenc.h"

namespace {

template <typename T>
std::vector<double> samples(const std::vector<uint8_t>& bytes, size_t count = SIZE_MAX) {
    std::vector<T> v(std::min(count, bytes.size() / sizeof(T)));
    std::memcpy(v.data(), bytes.data(), v.size() * sizeof(T));
    return {v.begin(), v.end()};
}

double maxDifference(const std::vector<double>& part, const std::vector<double>& full,
                     uint64_t from) {
    double worst = 0;
    for (size_t i = 0; i < part.size() && from + i < full.size(); ++i)
        worst = std::max(worst, std::fabs(part[i] - full[from + i]));
    return worst;
}

// A seek gives the same samples as the full decode from that frame.
void checkSeeks(DecodeStream* s, const Fixture& row, const std::vector<double>& full,
                bool integer) {
    const uint32_t frameBytes = 4u * row.channels;
    const uint64_t n = row.frames, ch = uint64_t(row.channels);
    std::vector<uint8_t> buf(2000 * frameBytes);
    // AAC fills some bands with noise from a generator that runs on from the
    // start of a decode, so only its position can be checked after a seek.
    const bool noisy = row.codec == "aac";
    // Far and near, backward and forward, frame and codec-block boundaries.
    const uint64_t targets[] = {n / 2 + 13, 17,          n - 3,        3457, 1152 * 3 + 1,
                                n / 5,      n / 5 + 900, n / 2 - 4000, 0,    1};
    for (uint64_t target : targets) {
        SCOPED_TRACE("frame " + std::to_string(target));
        ASSERT_TRUE(decodeSeek(s, target * frameBytes + target % 2));  // inside a frame: that frame
        uint32_t got = decodeRead(s, buf.data(), uint32_t(buf.size()));
        ASSERT_EQ(got, std::min<uint64_t>(2000, n - target) * frameBytes);
        const auto part = integer ? samples<int32_t>(buf, got / 4) : samples<float>(buf, got / 4);
        const double atTarget = maxDifference(part, full, target * ch);
        EXPECT_LE(atTarget, noisy ? 0.25 : row.kind == "lossy" ? 1e-6 : 0.0);
        if (!noisy || target <= 2 || got < buf.size()) continue;
        for (uint64_t off : {target - 2, target - 1, target + 1, target + 2})
            EXPECT_LT(atTarget, maxDifference(part, full, off * ch)) << "at " << off;
    }
    ASSERT_TRUE(decodeSeek(s, n * frameBytes));
    EXPECT_EQ(decodeRead(s, buf.data(), frameBytes), kDecodeEnd);
    EXPECT_FALSE(decodeSeek(s, (n + 1) * frameBytes));
}

class Formats : public testing::TestWithParam<Fixture> {};

// Lossless sources arrive as left-justified integers, every bit of the
// reference; lossy ones as float.
TEST_P(Formats, MatchTheReferenceAndSeekExactly) {
    const Fixture& row = GetParam();
    const auto ref = readFileBytes(row.refPath());
    std::string error;
    DecodeStream* s = decodeOpen(row.path().c_str(), StreamKind::Pcm, 44100, &error);
    ASSERT_NE(s, nullptr) << error;
    const StreamInfo info = decodeInfo(s);
    const bool lossless = row.kind == "lossless";
    EXPECT_EQ(std::tuple(info.rate, info.channels, info.sourceBits, info.sample),
              std::tuple(row.rate, row.channels, row.bits,
                         lossless ? SampleType::Int32 : SampleType::Float32));
    const uint32_t frameBytes = 4u * row.channels;
    EXPECT_EQ(decodeFrameBytes(s), frameBytes);
    EXPECT_EQ(decodeLength(s), row.frames * frameBytes);
    const auto got = readStream(s, frameBytes);
    const std::vector<double> have = lossless ? samples<int32_t>(got) : samples<float>(got);
    checkSeeks(s, row, have, lossless);
    decodeClose(s);

    // Exact, except that a lossy sample (from the decoder the reference came
    // from) may differ in its last float bits.
    const std::vector<double> want = lossless ? samples<int32_t>(ref) : samples<float>(ref);
    ASSERT_EQ(have.size(), want.size());
    for (size_t i = 0; i < have.size(); ++i)
        ASSERT_NEAR(have[i], want[i], lossless ? 0 : 1e-6) << i;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Formats, testing::ValuesIn([] {
                             std::vector<Fixture> rows = fixtures();
                             std::erase_if(rows, [](const Fixture& f) { return f.kind == "dsd"; });
                             return rows;
                         }()),
                         [](const auto& i) { return testName(i.param.file); });

// Third-party files the generators cannot make.
TEST(Formats, SharedGoodFiles) {
    for (auto [file, rate, bits] :
         {std::tuple{"sine-stereo-16bit.ape", 44100, 16}, std::tuple{"dsd-stereo.wv", 352800, 0}}) {
        SCOPED_TRACE(file);
        std::string path = std::string(TOVRIN_SHARED_FIXTURES) + "/good/" + file, error;
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::Pcm, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        const StreamInfo info = decodeInfo(s);
        EXPECT_EQ(std::tuple(info.rate, info.channels, info.sourceBits), std::tuple(rate, 2, bits));
        double peak = 0;
        const auto got = readStream(s, 8);
        const auto all = info.sample == SampleType::Int32     ? samples<int32_t>(got)
                         : info.sample == SampleType::Float64 ? samples<double>(got)
                                                              : samples<float>(got);
        const double full = info.sample == SampleType::Int32 ? 0x1p31 : 1.0;
        for (double v : all) peak = std::max(peak, std::fabs(v) / full);
        EXPECT_GT(peak, 0.01) << "decodes to silence";
        decodeClose(s);
    }
}

TEST(Damage, HostileFilesFailCleanlyOrPlayTheirPart) {
    TempDir dir;
    std::vector<std::string> paths{"/nonexistent/tovrin.flac", dir.file("empty.flac")};
    writeFileBytes(paths.back(), {});
    for (auto& entry :
         std::filesystem::directory_iterator(std::string(TOVRIN_SHARED_FIXTURES) + "/hostile"))
        paths.push_back(entry.path().string());
    uint32_t x = 12345;
    auto noise = [&x](std::vector<uint8_t> b, size_t from, size_t to) {
        for (size_t i = from; i < to; ++i) b[i] = uint8_t((x = x * 1103515245 + 12345) >> 24);
        return b;
    };
    std::vector<std::pair<std::string, std::string>> sources;  // name, path
    for (const char* file :
         {"wav-s24-96k-stereo.wav", "flac-s16-44k1-stereo.flac", "mp3-44k1-stereo.mp3",
          "vorbis-44k1-stereo.ogg", "opus-48k-stereo.ogg", "aac-44k1-stereo.m4a",
          "aac-44k1-stereo.aac", "alac-s16-44k1-stereo.m4a", "wavpack-s24-44k1-stereo.wv",
          "dsf-dsd64-2ch.dsf", "dff-dsd128-3ch.dff"})
        sources.emplace_back(file, fixture(file).path());
    sources.emplace_back("dst-dsd128-3ch.dff", dir.file("dst-dsd128-3ch.dff"));
    ASSERT_TRUE(dstenc::encodeFile(fixture("dff-dsd128-3ch.dff").path(), sources.back().second));
    for (const auto& [file, source] : sources) {
        const std::vector<uint8_t> bytes = readFileBytes(source);
        const size_t n = bytes.size();
        // Garbled in the middle, noise throughout, cut in the headers and in the data.
        std::vector<std::vector<uint8_t>> damaged{noise(bytes, n * 2 / 5, n / 2),
                                                  noise(bytes, 0, n)};
        for (size_t keep :
             std::initializer_list<size_t>{3, 20, 60, 95, 130, n / 2, n * 3 / 5, n - 1})
            damaged.emplace_back(bytes.begin(), bytes.begin() + long(keep));
        for (const std::vector<uint8_t>& b : damaged) {
            paths.push_back(dir.file(std::to_string(paths.size()) + "-" + file));
            writeFileBytes(paths.back(), b);
        }
    }
    for (const std::string& path : paths)
        for (StreamKind kind : {StreamKind::Pcm, StreamKind::DsdRaw, StreamKind::DsdPcm}) {
            SCOPED_TRACE(path + " as " + std::to_string(int(kind)));
            std::string error;
            DecodeStream* s = decodeOpen(path.c_str(), kind, 88200, &error);
            EXPECT_TRUE(s || !error.empty());
            if (!s) continue;
            StreamInfo info = decodeInfo(s);
            ASSERT_TRUE(info.channels > 0 && info.rate > 0);
            readStream(s, decodeFrameBytes(s));
            decodeClose(s);
        }
}

}  // namespace
