// Damaged, truncated and hostile inputs fail the open with a reason, or decode
// what they hold to their stated end; none crashes or hangs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/decode/fixture_manifest.h"

namespace {

namespace fs = std::filesystem;

void openOrFailCleanly(const std::string& path) {
    for (StreamKind kind : {StreamKind::Float, StreamKind::Int16}) {
        std::string error;
        DecodeStream* s = decodeOpen(path.c_str(), kind, 44100, &error);
        if (!s) {
            EXPECT_FALSE(error.empty());
            continue;
        }
        StreamInfo info = decodeInfo(s);
        ASSERT_GT(info.channels, 0);
        ASSERT_GT(info.rate, 0);
        readStream(s, (kind == StreamKind::Int16 ? 2u : 4u) * info.channels);
        decodeClose(s);
    }
}

TEST(Damage, HostileFilesFailCleanlyOrPlayTheirPart) {
    std::vector<std::string> paths{"/nonexistent/tovrin.flac"};
    for (auto& entry : fs::directory_iterator(fs::path(TOVRIN_SHARED_FIXTURES) / "hostile"))
        paths.push_back(entry.path().string());
    const fs::path dir = fs::temp_directory_path() / ("tovrin-damage-" + std::to_string(getpid()));
    fs::create_directories(dir);
    auto write = [&](const std::string& name, const std::vector<uint8_t>& bytes) {
        std::ofstream((dir / name).string(), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        paths.push_back((dir / name).string());
    };
    uint32_t x = 12345;
    auto noise = [&x](std::vector<uint8_t>& b, size_t from, size_t to) {
        for (size_t i = from; i < to; ++i) b[i] = uint8_t((x = x * 1103515245 + 12345) >> 24);
    };
    std::vector<uint8_t> junk(50000);
    noise(junk, 0, junk.size());
    write("noise.mp3", junk);
    write("empty.flac", {});
    for (const char* file :
         {"wav-s24-96k-stereo.wav", "flac-s16-44k1-stereo.flac", "mp3-44k1-stereo.mp3",
          "vorbis-44k1-stereo.ogg", "opus-48k-stereo.ogg", "aac-44k1-stereo.m4a",
          "aac-44k1-stereo.aac", "alac-s16-44k1-stereo.m4a", "wavpack-s24-44k1-stereo.wv"}) {
        auto bytes = readFile(fixturePath(file));
        ASSERT_FALSE(bytes.empty()) << file;
        write(std::string("cut-") + file,
              {bytes.begin(), bytes.begin() + long(bytes.size() * 3 / 5)});
        noise(bytes, bytes.size() * 2 / 5, bytes.size() / 2);
        write(std::string("garbled-") + file, bytes);
    }
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        openOrFailCleanly(path);
    }
    fs::remove_all(dir);
}

}  // namespace
