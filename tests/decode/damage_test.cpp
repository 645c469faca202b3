// Damaged, truncated and hostile inputs fail the open with a reason, or decode
// what they hold to the end; none crashes or hangs.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "tests/decode/fixture_manifest.h"

namespace {

namespace fs = std::filesystem;

// Opens path in both PCM kinds; an opened stream must read to its stated end.
void openOrFailCleanly(const std::string& path) {
    for (StreamKind kind : {StreamKind::Float, StreamKind::Int16}) {
        std::string error;
        DecodeStream* s = decodeOpen(path.c_str(), kind, 44100, &error);
        if (!s) {
            EXPECT_FALSE(error.empty()) << path;
            continue;
        }
        StreamInfo info = decodeInfo(s);
        ASSERT_GT(info.channels, 0);
        ASSERT_GT(info.rate, 0);
        readStream(s, (kind == StreamKind::Int16 ? 2u : 4u) * info.channels);
        decodeClose(s);
    }
}

TEST(Damage, SharedHostileFiles) {
    const fs::path dir = fs::path(TOVRIN_SHARED_FIXTURES) / "hostile";
    int seen = 0;
    for (auto& entry : fs::directory_iterator(dir)) {
        SCOPED_TRACE(entry.path().filename().string());
        openOrFailCleanly(entry.path().string());
        ++seen;
    }
    EXPECT_GT(seen, 0);
}

class DamagedCopies : public testing::TestWithParam<const char*> {
  protected:
    std::string copyWith(const char* what, void (*change)(std::vector<uint8_t>&)) {
        auto bytes = readFile(fixturePath(GetParam()));
        EXPECT_FALSE(bytes.empty());
        change(bytes);
        std::string path =
            (fs::temp_directory_path() /
             ("tovrin-damage-" + std::to_string(getpid()) + "-" + what + "-" + GetParam()))
                .string();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<char*>(bytes.data()), bytes.size());
        return path;
    }
};

TEST_P(DamagedCopies, TruncatedPlaysItsPart) {
    std::string path = copyWith("cut", [](std::vector<uint8_t>& b) { b.resize(b.size() * 3 / 5); });
    openOrFailCleanly(path);
    fs::remove(path);
}

TEST_P(DamagedCopies, GarbledMiddleKeepsLengthAndStart) {
    std::string path = copyWith("garbled", [](std::vector<uint8_t>& b) {
        uint32_t x = 12345;
        for (size_t i = b.size() * 2 / 5; i < b.size() / 2; ++i)
            b[i] = (x = x * 1103515245 + 12345) >> 24;
    });
    std::string error;
    DecodeStream* garbled = decodeOpen(path.c_str(), StreamKind::Float, 44100, &error);
    DecodeStream* clean =
        decodeOpen(fixturePath(GetParam()).c_str(), StreamKind::Float, 44100, &error);
    ASSERT_NE(clean, nullptr) << error;
    if (garbled) {
        const uint32_t frameBytes = 4u * decodeInfo(clean).channels;
        auto damaged = readStream(garbled, frameBytes);
        auto good = readStream(clean, frameBytes);
        // The start, well before the damage, is untouched.
        const size_t head = good.size() / 5 / frameBytes * frameBytes;
        ASSERT_GE(damaged.size(), head);
        EXPECT_TRUE(std::equal(good.begin(), good.begin() + head, damaged.begin()));
        decodeClose(garbled);
    }
    decodeClose(clean);
    fs::remove(path);
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamagedCopies,
                         testing::Values("wav-s24-96k-stereo.wav", "flac-s16-44k1-stereo.flac",
                                         "mp3-44k1-stereo.mp3", "vorbis-44k1-stereo.ogg",
                                         "opus-48k-stereo.ogg", "aac-44k1-stereo.m4a",
                                         "aac-44k1-stereo.aac", "alac-s16-44k1-stereo.m4a",
                                         "wavpack-s24-44k1-stereo.wv"),
                         [](const testing::TestParamInfo<const char*>& i) {
                             return testName(i.param);
                         });

TEST(Damage, UnreadableFilesFailWithText) {
    const std::string noise = (fs::temp_directory_path() / "tovrin-noise.mp3").string();
    {
        std::ofstream out(noise, std::ios::binary);
        uint32_t x = 99;
        for (int i = 0; i < 50000; ++i)
            out.put(static_cast<char>((x = x * 1664525 + 1013904223) >> 24));
    }
    const std::string empty = (fs::temp_directory_path() / "tovrin-empty.flac").string();
    std::ofstream(empty).close();
    for (const std::string& path : {noise, empty, std::string("/nonexistent/tovrin.flac")}) {
        std::string error;
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::Float, 44100, &error);
        if (s) {  // noise may pass for MPEG audio; then it must at least read to its end
            readStream(s, 4u * decodeInfo(s).channels);
            decodeClose(s);
        } else {
            EXPECT_FALSE(error.empty()) << path;
        }
    }
    fs::remove(noise);
    fs::remove(empty);
}

}  // namespace
