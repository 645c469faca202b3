// Opens mutated audio files through the whole decoding layer and reads a
// little of each. The first byte picks the file's suffix (FFmpeg's probe
// weighs it), the second the kind of stream asked for; the rest is the
// file. Reads must come in whole frames and never exceed the stated length.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "decode/decode.h"

namespace {

const char* const kSuffixes[] = {".wav", ".aiff", ".ogg", ".mp3", ".flac", ".ape",
                                 ".m4a", ".mp4",  ".aac", ".dff", ".dsf",  ".wv"};
constexpr int kSuffixCount = sizeof kSuffixes / sizeof kSuffixes[0];
const StreamKind kKinds[] = {StreamKind::Pcm, StreamKind::DsdRaw, StreamKind::DsdPcm};

std::string base;

void removeFiles() {
    for (const char* suffix : kSuffixes) unlink((base + suffix).c_str());
}

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

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* dir = std::getenv("TMPDIR");
    base = std::string(dir ? dir : "/tmp") + "/decode-fuzz-XXXXXX";
    int fd = mkstemp(base.data());
    if (fd < 0) std::abort();
    close(fd);
    unlink(base.c_str());
    std::atexit(removeFiles);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const std::string path = base + kSuffixes[data[0] % kSuffixCount];
    const StreamKind kind = kKinds[data[1] % 3];
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) std::abort();
    std::fwrite(data + 2, 1, size - 2, file);
    std::fclose(file);

    std::string error;
    DecodeStream* s = decodeOpen(path.c_str(), kind, 88200, &error);
    if (s) {
        readSome(s);
        decodeClose(s);
    }
    unlink(path.c_str());
    return 0;
}
