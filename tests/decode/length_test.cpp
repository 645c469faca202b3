// Lengths read from a header (FLAC's STREAMINFO, WavPack's block header, an
// MP3's Xing/LAME tag) are believed only while the file agrees with them: a
// header that is wrong, or a file cut since, is counted as before.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "decode/decode.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Frames decodeOpen states for these bytes; 0 when the file does not open.
uint64_t statedFrames(TempDir& dir, const std::string& name, const Bytes& bytes) {
    const std::string path = dir.file(name);
    writeFileBytes(path, bytes);
    DecodeStream* s = decodeOpen(path.c_str(), StreamKind::Pcm, 44100);
    if (!s) return 0;
    const uint64_t frames = decodeLength(s) / decodeFrameBytes(s);
    decodeClose(s);
    return frames;
}

void put32(Bytes& b, size_t at, uint32_t v, bool bigEndian) {
    for (int i = 0; i < 4; ++i) b[at + size_t(bigEndian ? 3 - i : i)] = uint8_t(v >> (8 * i));
}

TEST(HeaderLength, WrongOrStaleHeadersAreCounted) {
    TempDir dir;
    struct Case {
        const char* file;
        std::vector<std::pair<const char*, std::function<void(Bytes&, uint64_t)>>> wrong;
    };
    const Case cases[] = {
        // STREAMINFO's total samples: the low 36 bits of the 8 bytes at 18.
        {"flac-s16-44k1-stereo.flac",
         {{"more", [](Bytes& b, uint64_t n) { put32(b, 22, uint32_t(n + 4096), true); }},
          {"fewer", [](Bytes& b, uint64_t n) { put32(b, 22, uint32_t(n - 4096), true); }},
          {"unknown", [](Bytes& b, uint64_t) { put32(b, 22, 0, true); }}}},
        // The first block's total samples, little-endian at 12.
        {"wavpack-s16-44k1-stereo.wv",
         {{"more", [](Bytes& b, uint64_t n) { put32(b, 12, uint32_t(n + 100), false); }},
          {"fewer", [](Bytes& b, uint64_t n) { put32(b, 12, uint32_t(n - 100), false); }}}},
        // The Xing tag's byte count, one more than the file holds.
        {"mp3-44k1-stereo.mp3",
         {{"bytes",
           [](Bytes& b, uint64_t) {
               auto tag = std::search(b.begin(), b.begin() + 4096, "Info", "Info" + 4);
               ASSERT_NE(tag, b.begin() + 4096);
               const size_t at = size_t(tag - b.begin()) + 12;
               const uint32_t bytes =
                   uint32_t(b[at]) << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3];
               put32(b, at, bytes + 1, true);
           }}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const Fixture row = fixture(c.file);
        const Bytes bytes = readFileBytes(row.path());
        ASSERT_EQ(statedFrames(dir, "intact", bytes), row.frames);
        for (const auto& [name, spoil] : c.wrong) {
            Bytes b = bytes;
            spoil(b, row.frames);
            EXPECT_EQ(statedFrames(dir, name + std::string("-") + c.file, b), row.frames) << name;
        }
        // Cut short: the header's length is out of reach.
        const Bytes cut(bytes.begin(), bytes.begin() + long(bytes.size() * 3 / 5));
        EXPECT_LT(statedFrames(dir, std::string("cut-") + c.file, cut), row.frames * 4 / 5);
    }
}

}  // namespace
