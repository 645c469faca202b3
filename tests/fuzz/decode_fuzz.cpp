// Opens mutated audio files through the whole decoding layer and reads a
// little of each. The first byte picks the file's suffix (FFmpeg's probe
// weighs it), the second the kind of stream asked for; the rest is the
// file. Reads must come in whole frames and never exceed the stated length.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "decode/decode.h"
#include "tests/fuzz/scratch.h"

namespace {

const char* const kSuffixes[] = {".wav", ".aiff", ".ogg", ".mp3", ".flac", ".ape",
                                 ".m4a", ".mp4",  ".aac", ".dff", ".dsf",  ".wv"};
constexpr int kSuffixCount = sizeof kSuffixes / sizeof kSuffixes[0];
const StreamKind kKinds[] = {StreamKind::Pcm, StreamKind::DsdRaw, StreamKind::DsdPcm};

// A few reads and one seek; returns the bytes delivered.
void readSome(DecodeStream* s) {
    const uint32_t frame = decodeFrameBytes(s);
    const uint64_t length = decodeLength(s);
    if (frame == 0) std::abort();
    std::vector<uint8_t> buffer(65536);
    uint64_t total = 0;
    for (int i = 0; i < 8; ++i) {
        uint32_t n = decodeRead(s, buffer.data(), uint32_t(buffer.size()));
        if (n == kDecodeEnd) break;
        if (n % frame != 0 || n > buffer.size()) std::abort();
        total += n;
    }
    if (total > length) std::abort();
    if (decodeSeek(s, length / 2)) {
        uint32_t n = decodeRead(s, buffer.data(), uint32_t(buffer.size()));
        if (n != kDecodeEnd && n % frame != 0) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const std::string path =
        writeInput(std::string("input") + kSuffixes[data[0] % kSuffixCount], data + 2, size - 2);
    const StreamKind kind = kKinds[data[1] % 3];

    std::string error;
    DecodeStream* s = decodeOpen(path.c_str(), kind, 88200, &error);
    if (s) {
        readSome(s);
        decodeClose(s);
    }
    return 0;
}
