// Damaged, truncated and hostile inputs fail the open with a reason, or decode
// what they hold to their stated end; none crashes or hangs.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/decode/read_stream.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"

namespace {

TEST(Damage, HostileFilesFailCleanlyOrPlayTheirPart) {
    TempDir dir;
    std::vector<std::string> paths{"/nonexistent/tovrin.flac"};
    for (auto& entry :
         std::filesystem::directory_iterator(std::string(TOVRIN_SHARED_FIXTURES) + "/hostile"))
        paths.push_back(entry.path().string());
    auto write = [&](const std::string& name, const std::vector<uint8_t>& bytes) {
        writeFileBytes(dir.file(name), bytes);
        paths.push_back(dir.file(name));
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
        auto bytes = readFileBytes(fixture(file).path());
        write(std::string("cut-") + file,
              {bytes.begin(), bytes.begin() + long(bytes.size() * 3 / 5)});
        noise(bytes, bytes.size() * 2 / 5, bytes.size() / 2);
        write(std::string("garbled-") + file, bytes);
    }
    for (const std::string& path : paths)
        for (StreamKind kind : {StreamKind::Float, StreamKind::Int16}) {
            SCOPED_TRACE(path);
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

}  // namespace
