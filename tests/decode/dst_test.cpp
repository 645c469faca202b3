// DST-compressed DSDIFF against its uncompressed twin: raw bytes, DSD to PCM
// and seeks for DSD64 and DSD128 in 1, 2 and 6 channels; the test encoder's
// output checked by FFmpeg's own decoder; damaged frames, cut files and the
// shared hostile file.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstring>
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

// Where the DSTF contents lie in a DST file, in order.
struct Chunk {
    size_t pos, size;
};
std::vector<Chunk> frames(const std::vector<uint8_t>& f) {
    auto be = [&f](size_t at, int n) {
        uint64_t v = 0;
        for (int i = 0; i < n; ++i) v = v << 8 | f[at + size_t(i)];
        return size_t(v);
    };
    std::vector<Chunk> out;
    for (size_t pos = 16; pos + 12 <= f.size(); pos += 12 + be(pos + 4, 8) + (be(pos + 4, 8) & 1))
        if (memcmp(&f[pos], "DST ", 4) == 0)
            for (size_t at = pos + 12; at + 12 <= pos + 12 + be(pos + 4, 8);) {
                const size_t size = be(at + 4, 8);
                if (memcmp(&f[at], "DSTF", 4) == 0) out.push_back({at + 12, size});
                at += 12 + size + (size & 1);
            }
    return out;
}

// FFmpeg's own DST decoder recovers exactly the original bits from the test
// encoder's files only if they are valid: its PCM from the twin and from the
// plain file must be the same bytes.
TEST(DstEncoder, FfmpegDecodesItsFilesToTheTwinsPcm) {
    std::vector<uint8_t> probe;
    if (!run("ffmpeg -hide_banner -decoders 2>/dev/null | grep -q ' dst '", &probe))
        GTEST_SKIP() << "no ffmpeg with a DST decoder";
    TempDir dir;
    for (auto [multiple, channels, silence, taps] :
         {std::tuple{64, 2, false, 32}, std::tuple{64, 1, true, 32}, std::tuple{128, 6, false, 128},
          std::tuple{128, 2, true, 13}}) {
        SCOPED_TRACE("DSD" + std::to_string(multiple) + " " + std::to_string(channels) + "ch");
        const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
        writePlain(plain, multiple, channels, 4, silence);
        ASSERT_TRUE(dstenc::encodeFile(plain, dst, {.taps = taps}));
        std::vector<uint8_t> fromDst, fromPlain;
        const std::string ff = "ffmpeg -nostdin -v error -i ";
        ASSERT_TRUE(run(ff + dst + " -f f32le -", &fromDst));
        ASSERT_TRUE(run(ff + plain + " -f f32le -", &fromPlain));
        EXPECT_GT(fromPlain.size(), 0u);
        EXPECT_TRUE(fromDst == fromPlain);
    }
}

// Smaller than the input for tones and the modulator's silence, more than
// one filter and table in a frame when channels differ, shared ones when
// they do not, a DSTC chunk after every frame.
TEST(DstEncoder, WritesCompactFramesWithTheirChecks) {
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
    for (bool silence : {false, true}) {
        writePlain(plain, 64, 2, 3, silence);
        ASSERT_TRUE(dstenc::encodeFile(plain, dst));
        EXPECT_LT(fileSize(dst) * 10, fileSize(plain) * 9);
        const std::vector<uint8_t> f = readFileBytes(dst);
        const std::vector<Chunk> fs = frames(f);
        ASSERT_EQ(fs.size(), 3u);
        DstFrameDecoder dec(2, frameBytes(64));
        std::vector<uint8_t> out(2 * frameBytes(64));
        for (const Chunk& c : fs) {
            ASSERT_TRUE(dec.decode(&f[c.pos], c.size, out.data(), nullptr));
            EXPECT_EQ(std::tuple(dec.filters(), dec.tables(), dec.plain()),
                      std::tuple(2, 2, false));
            const size_t crc = c.pos + c.size + (c.size & 1);
            EXPECT_EQ(memcmp(&f[crc], "DSTC", 4), 0);
        }
    }
    // Both channels the same: one filter and table serve them.
    dsdgen::Signal s = dsdgen::toneSignal(64, 1, 0, 1000, -6);
    s.bits = frameBytes(64) * 8;
    const std::vector<uint8_t> mono = dsdgen::modulate(s);
    std::vector<uint8_t> twin;
    for (uint8_t b : mono) twin.insert(twin.end(), {b, b});
    const std::vector<uint8_t> frame = dstenc::encodeFrame(twin.data(), 2, frameBytes(64));
    DstFrameDecoder dec(2, frameBytes(64));
    std::vector<uint8_t> out(twin.size());
    ASSERT_TRUE(dec.decode(frame.data(), frame.size(), out.data(), nullptr));
    EXPECT_EQ(dec.filters(), 1);
    EXPECT_TRUE(out == twin);
}

// The less common codings decode exactly too: the longest filters (all
// sixteen 8-tap tables), a filter length off the 8-tap grid with the table map
// written apart, and noise, which does not compress and is stored as it is.
TEST(DstFrames, EveryCodingDecodesExactly) {
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
    for (auto [channels, taps, separate, noise] :
         {std::tuple{2, 128, false, false}, std::tuple{6, 13, true, false},
          std::tuple{2, 32, false, true}}) {
        SCOPED_TRACE(std::to_string(channels) + "ch, " + std::to_string(taps) + " taps");
        std::vector<uint8_t> dsd = writePlain(plain, 64, channels, 3);
        if (noise) {
            uint32_t x = 99;
            for (size_t i = dsd.size() / 3; i < dsd.size() * 2 / 3; ++i)
                dsd[i] = uint8_t((x = x * 1103515245 + 12345) >> 24);
            ASSERT_TRUE(dsdgen::writeDff(plain, dsd, channels, 64, dsd.size() / channels * 8));
        }
        ASSERT_TRUE(dstenc::encodeFile(
            plain, dst, {.index = true, .crc = true, .taps = taps, .separateMaps = separate}));
        const std::vector<uint8_t> f = readFileBytes(dst);
        DstFrameDecoder dec(channels, frameBytes(64));
        std::vector<uint8_t> out(dsd.size() / 3);
        const Chunk middle = frames(f)[1];
        ASSERT_TRUE(dec.decode(&f[middle.pos], middle.size, out.data(), nullptr));
        EXPECT_EQ(dec.plain(), noise);
        EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw) == dsd);
    }
}

// A damaged frame plays as DSD silence with one line on standard error naming
// the file and the frame; every other frame plays exactly.
TEST(DstDamage, AFailingFrameIsSilenceAndTheRestPlays) {
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
    const std::vector<uint8_t> dsd = writePlain(plain, 64, 2, 5);
    const size_t frame = size_t(frameBytes(64)) * 2;
    std::vector<uint8_t> expect = dsd;
    std::fill(expect.begin() + long(2 * frame), expect.begin() + long(3 * frame), kDsdIdleByte);
    for (bool crc : {true, false}) {
        ASSERT_TRUE(dstenc::encodeFile(plain, dst, {.index = true, .crc = crc}));
        std::vector<uint8_t> f = readFileBytes(dst);
        const Chunk c = frames(f)[2];
        if (crc) {
            for (size_t i = c.size / 2; i < c.size / 2 + 8; ++i) f[c.pos + i] ^= 0x5A;
        } else {
            f[c.pos] = 0;  // claims to be stored uncompressed, and is too short for that
        }
        const std::string bad = dir.file("bad.dff");
        writeFileBytes(bad, f);
        testing::internal::CaptureStderr();
        DecodeStream* s = decodeOpen(bad.c_str(), StreamKind::DsdRaw, 88200);
        ASSERT_NE(s, nullptr);
        EXPECT_TRUE(readStream(s, 2) == expect);
        ASSERT_TRUE(decodeSeek(s, 2 * frame + 10));  // again: no second line
        EXPECT_EQ(readStream(s, 2, 2 * frame + 10).size(), expect.size() - 2 * frame - 10);
        decodeClose(s);
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_NE(err.find(bad), std::string::npos) << err;
        EXPECT_NE(err.find("frame 3 "), std::string::npos) << err;
    }
    // Noise over a frame with no check: whatever it decodes to, the length
    // holds and the other frames are untouched.
    std::vector<uint8_t> f = readFileBytes(dst);
    const Chunk c = frames(f)[1];
    uint32_t x = 7;
    for (size_t i = 0; i < c.size; ++i) f[c.pos + i] = uint8_t((x = x * 1103515245 + 12345) >> 24);
    writeFileBytes(dir.file("noise.dff"), f);
    testing::internal::CaptureStderr();
    const std::vector<uint8_t> got = decodeAll(dir.file("noise.dff"), StreamKind::DsdRaw);
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(got.size(), dsd.size());
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + long(frame), dsd.begin()));
    EXPECT_TRUE(
        std::equal(got.begin() + long(2 * frame), got.end(), dsd.begin() + long(2 * frame)));
}

// A cut file ends where its data ends: a frame cut short is the last and plays
// as silence, a cut between frames ends cleanly, a cut before the sound data
// leaves nothing to play.
TEST(DstDamage, CutFilesEndWhereTheirDataEnds) {
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
    const std::vector<uint8_t> dsd = writePlain(plain, 64, 2, 5);
    ASSERT_TRUE(dstenc::encodeFile(plain, dst));
    const std::vector<uint8_t> f = readFileBytes(dst);
    const std::vector<Chunk> fs = frames(f);
    const size_t frame = size_t(frameBytes(64)) * 2;
    const size_t afterThird = fs[3].pos - 12;  // the third frame's DSTC included
    const std::string cut = dir.file("cut.dff");
    for (auto [keep, played, lastSilent] :
         {std::tuple{fs[3].pos + fs[3].size / 2, 4, true}, std::tuple{afterThird, 3, false},
          std::tuple{fs[3].pos + 4, 4, true}, std::tuple{size_t(100), 0, false}}) {
        SCOPED_TRACE("cut at " + std::to_string(keep));
        writeFileBytes(cut, std::vector<uint8_t>(f.begin(), f.begin() + long(keep)));
        std::string error;
        testing::internal::CaptureStderr();
        DecodeStream* s = decodeOpen(cut.c_str(), StreamKind::DsdRaw, 88200, &error);
        std::vector<uint8_t> got;
        if (s) got = readStream(s, 2);
        if (s) decodeClose(s);
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(s || played == 0) << error;
        ASSERT_EQ(got.size(), size_t(played) * frame);
        const size_t exact = size_t(played - lastSilent) * frame;
        EXPECT_TRUE(std::equal(got.begin(), got.begin() + long(exact), dsd.begin()));
        EXPECT_TRUE(std::all_of(got.begin() + long(exact), got.end(),
                                [](uint8_t b) { return b == kDsdIdleByte; }));
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), lastSilent ? 1 : 0) << err;
    }
}

// Frames are found through the index, by a walk without one, and by a walk
// when the index is wrong; the FRTE count bounds the length.
TEST(DstIndex, FramesAreFoundWithAndWithoutTheIndex) {
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
    const std::vector<uint8_t> dsd = writePlain(plain, 128, 2, 4);
    const size_t frame = size_t(frameBytes(128)) * 2;
    ASSERT_TRUE(dstenc::encodeFile(plain, dst, {.index = false, .crc = true}));
    EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw, 3 * frame - 2) ==
                std::vector<uint8_t>(dsd.end() - long(frame + 2), dsd.end()));

    ASSERT_TRUE(dstenc::encodeFile(plain, dst));
    std::vector<uint8_t> f = readFileBytes(dst);
    // The index is the last chunk: entry 2 points two bytes into its chunk,
    // which only shows when the frame is read.
    const size_t entry = f.size() - 2 * 12 + 7;
    ASSERT_LT(f[entry], 0xFE);
    f[entry] += 2;
    writeFileBytes(dst, f);
    EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw, 2 * frame) ==
                std::vector<uint8_t>(dsd.end() - long(2 * frame), dsd.end()));

    // FRTE says three frames of the four.
    f = readFileBytes(dst);
    const size_t frte = frames(f)[0].pos - 12 - 18;
    ASSERT_EQ(memcmp(&f[frte], "FRTE", 4), 0);
    f[frte + 15] = 3;
    writeFileBytes(dst, f);
    EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw) ==
                std::vector<uint8_t>(dsd.begin(), dsd.end() - long(frame)));
}

}  // namespace
