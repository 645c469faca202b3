// DST-compressed DSDIFF against its uncompressed twin: raw bytes, DSD to PCM
// and seeks for DSD64 and DSD128 in 1, 2 and 6 channels and every coding the
// test encoder writes; its output checked by FFmpeg's own decoder; damaged
// frames, cut files and the frame index.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
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

enum Sound { kTone, kSilence, kNoise, kSameChannels };

// A plain DSDIFF of whole frames: a tone per channel, the modulator idling,
// noise over the middle third, or every channel a copy of the first.
std::vector<uint8_t> writePlain(const std::string& path, int multiple, int channels, int frames,
                                Sound sound = kTone) {
    dsdgen::Signal s = dsdgen::toneSignal(multiple, channels, 0, 1000, -6);
    s.bits = uint64_t(frames) * frameBytes(multiple) * 8;
    if (sound == kSilence) s.tones.clear();
    std::vector<uint8_t> dsd = dsdgen::modulate(s);
    uint32_t x = 99;
    for (size_t i = 0; i < dsd.size(); ++i) {
        if (sound == kNoise && i >= dsd.size() / 3 && i < dsd.size() * 2 / 3)
            dsd[i] = uint8_t((x = x * 1103515245 + 12345) >> 24);
        if (sound == kSameChannels) dsd[i] = dsd[i - i % size_t(channels)];
    }
    EXPECT_TRUE(dsdgen::writeDff(path, dsd, channels, multiple, s.bits));
    return dsd;
}

// Decodes path from `from` on; nothing when it does not open. What it said on
// standard error goes to *said, or must be nothing.
std::vector<uint8_t> decodeAll(const std::string& path, StreamKind kind, uint64_t from = 0,
                               std::string* said = nullptr) {
    std::string error;
    testing::internal::CaptureStderr();
    DecodeStream* s = decodeOpen(path.c_str(), kind, 88200, &error);
    std::vector<uint8_t> out;
    if (s && decodeSeek(s, from)) out = readStream(s, decodeFrameBytes(s), from);
    if (s) decodeClose(s);
    error = testing::internal::GetCapturedStderr() + (s ? "" : error);
    EXPECT_TRUE(said || error.empty()) << error;
    if (said) *said = error;
    return out;
}

std::vector<uint8_t> tail(const std::vector<uint8_t>& v, size_t from) {
    return {v.begin() + long(from), v.end()};
}

// Where the DSTF contents lie in a DST file, in order.
struct Chunk {
    size_t pos, size;
};
std::vector<Chunk> frames(const std::vector<uint8_t>& f) {
    auto be = [&f](size_t at) {
        uint64_t v = 0;
        for (int i = 0; i < 8; ++i) v = v << 8 | f[at + size_t(i)];
        return size_t(v);
    };
    std::vector<Chunk> out;
    for (size_t pos = 16; pos + 12 <= f.size(); pos += 12 + be(pos + 4) + (be(pos + 4) & 1))
        if (memcmp(&f[pos], "DST ", 4) == 0)
            for (size_t at = pos + 12; at + 12 <= pos + 12 + be(pos + 4);) {
                const size_t size = be(at + 4);
                if (memcmp(&f[at], "DSTF", 4) == 0) out.push_back({at + 12, size});
                at += 12 + size + (size & 1);
            }
    return out;
}

// Every frame decodes alone and is followed by its DSTC
// check; tones and silence shrink by a tenth, noise is stored as it is, and
// channels alike share one filter and table. The whole file decodes to the
// twin's bytes and PCM, from the start and after seeks inside a frame, on a
// frame boundary and in the last frame. The less common codings too: the
// longest filters (all sixteen 8-tap tables), and a length off the 8-tap grid
// with the table map written apart.
TEST(Dst, DecodesToTheUncompressedTwin) {
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
    struct {
        int multiple, channels;
        Sound sound;
        int taps;
        bool separateMaps;
    } cases[] = {
        {64, 1, kTone, 32, false},    {64, 2, kTone, 32, false},  {64, 6, kTone, 32, false},
        {128, 1, kTone, 32, false},   {128, 2, kTone, 32, false}, {128, 6, kTone, 32, false},
        {64, 2, kSilence, 32, false}, {64, 2, kNoise, 32, false}, {64, 2, kSameChannels, 32, false},
        {64, 2, kTone, 128, false},   {64, 6, kTone, 13, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "DSD" << c.multiple << " " << c.channels << "ch, sound "
                                        << c.sound << ", " << c.taps << " taps");
        const int count = 5;
        const std::vector<uint8_t> dsd = writePlain(plain, c.multiple, c.channels, count, c.sound);
        std::string error;
        ASSERT_TRUE(dstenc::encodeFile(plain, dst, {.taps = c.taps, .separateMaps = c.separateMaps},
                                       &error))
            << error;
        EXPECT_LT(std::filesystem::file_size(dst) * 10,
                  std::filesystem::file_size(plain) * (c.sound == kNoise ? 10 : 9));

        const std::vector<uint8_t> f = readFileBytes(dst);
        const std::vector<Chunk> fs = frames(f);
        ASSERT_EQ(fs.size(), size_t(count));
        const size_t frame = size_t(frameBytes(c.multiple)) * size_t(c.channels);
        DstFrameDecoder dec(c.channels, frameBytes(c.multiple));
        std::vector<uint8_t> out(frame);
        for (size_t i = 0; i < fs.size(); ++i) {
            ASSERT_TRUE(dec.decode(&f[fs[i].pos], fs[i].size, out.data(), nullptr));
            EXPECT_EQ(dec.plain(), c.sound == kNoise && i == 2) << i;
            EXPECT_EQ(memcmp(&f[fs[i].pos + fs[i].size + (fs[i].size & 1)], "DSTC", 4), 0);
            const int n = dec.plain() ? 0 : c.sound == kSameChannels ? 1 : c.channels;
            EXPECT_EQ(std::pair(dec.filters(), dec.tables()), std::pair(n, n)) << i;
        }

        EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw) == dsd);
        const std::vector<uint8_t> pcm = decodeAll(plain, StreamKind::DsdPcm);
        EXPECT_TRUE(decodeAll(dst, StreamKind::DsdPcm) == pcm);
        const uint64_t fb = frameBytes(c.multiple);
        for (uint64_t at : {fb * 2 + 17, fb * 3, fb * count - 5}) {
            const uint64_t pos = at * uint64_t(c.channels);
            EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw, pos) == tail(dsd, pos)) << at;
        }
        const uint64_t mid = pcm.size() / 8 / size_t(c.channels) / 2 * 8 * size_t(c.channels);
        EXPECT_TRUE(decodeAll(dst, StreamKind::DsdPcm, mid) == tail(pcm, mid));
    }
}

// FFmpeg's own DST decoder recovers exactly the original bits from the test
// encoder's files only if they are valid: its PCM from the twin and from the
// plain file must be the same bytes.
TEST(DstEncoder, FfmpegDecodesItsFilesToTheTwinsPcm) {
    if (std::system("ffmpeg -hide_banner -decoders 2>/dev/null | grep -q ' dst '") != 0)
        GTEST_SKIP() << "no ffmpeg with a DST decoder";
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff");
    for (auto [multiple, channels, sound, taps] :
         {std::tuple{64, 2, kTone, 32}, std::tuple{64, 1, kSilence, 32},
          std::tuple{128, 6, kTone, 128}, std::tuple{128, 2, kSilence, 13}}) {
        SCOPED_TRACE("DSD" + std::to_string(multiple) + " " + std::to_string(channels) + "ch");
        writePlain(plain, multiple, channels, 4, sound);
        ASSERT_TRUE(dstenc::encodeFile(plain, dst, {.taps = taps}));
        for (const std::string& in : {plain, dst}) {
            const std::string cmd =
                "ffmpeg -nostdin -y -v error -i " + in + " -f f32le " + in + ".pcm";
            ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        }
        const std::vector<uint8_t> fromPlain = readFileBytes(plain + ".pcm");
        EXPECT_GT(fromPlain.size(), 0u);
        EXPECT_TRUE(readFileBytes(dst + ".pcm") == fromPlain);
        std::filesystem::remove(plain + ".pcm"), std::filesystem::remove(dst + ".pcm");
    }
}

// Two-channel DSD64 of five frames and its DST twin, for damaging.
struct DstDamage : testing::Test {
    TempDir dir;
    const std::string plain = dir.file("plain.dff"), dst = dir.file("dst.dff"),
                      bad = dir.file("bad.dff");
    const std::vector<uint8_t> dsd = writePlain(plain, 64, 2, 5);
    const size_t frame = size_t(frameBytes(64)) * 2;
};

// A damaged frame plays as DSD silence with one line on standard error naming
// the file and the frame, even when read again; every other frame plays exactly.
// Noise over a frame with no check: whatever it decodes to, the length holds
// and the other frames are untouched.
TEST_F(DstDamage, AFailingFrameIsSilenceAndTheRestPlays) {
    std::vector<uint8_t> expect = dsd;
    std::fill(expect.begin() + long(2 * frame), expect.begin() + long(3 * frame), kDsdIdleByte);
    for (int damage : {0, 1, 2}) {  // check fails, stored frame too short, noise with no check
        SCOPED_TRACE(damage);
        ASSERT_TRUE(dstenc::encodeFile(plain, dst, {.crc = damage == 0}));
        std::vector<uint8_t> f = readFileBytes(dst);
        const Chunk c = frames(f)[2];
        uint32_t x = 7;  // noise
        if (damage == 0)
            for (size_t i = c.size / 2; i < c.size / 2 + 8; ++i) f[c.pos + i] ^= 0x5A;
        if (damage == 1) f[c.pos] = 0;  // claims to be stored uncompressed
        if (damage == 2)
            for (size_t i = 0; i < c.size; ++i)
                f[c.pos + i] = uint8_t((x = x * 1103515245 + 12345) >> 24);
        writeFileBytes(bad, f);
        // Read, then again on the same stream after a seek.
        testing::internal::CaptureStderr();
        DecodeStream* s = decodeOpen(bad.c_str(), StreamKind::DsdRaw, 88200);
        ASSERT_NE(s, nullptr);
        std::vector<uint8_t> got = readStream(s, 2);
        ASSERT_TRUE(decodeSeek(s, 2 * frame + 10));
        const std::vector<uint8_t> again = readStream(s, 2, 2 * frame + 10);
        decodeClose(s);
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(again == tail(got, 2 * frame + 10));
        // Noise may decode to anything, but only in its own frame.
        if (damage == 2)
            std::fill(got.begin() + long(2 * frame), got.begin() + long(3 * frame), kDsdIdleByte);
        EXPECT_TRUE(got == expect);
        if (damage == 2) continue;
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
        EXPECT_NE(said.find(bad), std::string::npos) << said;
        EXPECT_NE(said.find("frame 3 "), std::string::npos) << said;
    }
}

// A cut file ends where its data ends: a frame cut short is the last and plays
// as silence with one line, a cut between frames ends cleanly, a cut before the
// sound data leaves nothing to play.
TEST_F(DstDamage, CutFilesEndWhereTheirDataEnds) {
    ASSERT_TRUE(dstenc::encodeFile(plain, dst));
    const std::vector<uint8_t> f = readFileBytes(dst);
    const std::vector<Chunk> fs = frames(f);
    for (auto [keep, played, lastSilent] :
         {std::tuple{fs[3].pos + fs[3].size / 2, 4, true}, std::tuple{fs[3].pos - 12, 3, false},
          std::tuple{fs[3].pos + 4, 4, true}, std::tuple{size_t(100), 0, false}}) {
        SCOPED_TRACE("cut at " + std::to_string(keep));
        writeFileBytes(bad, std::vector<uint8_t>(f.begin(), f.begin() + long(keep)));
        std::string said;
        const std::vector<uint8_t> got = decodeAll(bad, StreamKind::DsdRaw, 0, &said);
        std::vector<uint8_t> want(dsd.begin(),
                                  dsd.begin() + long(size_t(played - lastSilent) * frame));
        want.resize(size_t(played) * frame, kDsdIdleByte);
        EXPECT_TRUE(got == want);
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), lastSilent ? 1 : 0) << said;
    }
}

// Frames are found by a walk without an index, by a walk when the index is
// wrong (the last entry but one points two bytes into its chunk, which only
// shows when the frame is read); an FRTE count of four of the five bounds the length.
TEST_F(DstDamage, FramesAreFoundWithAndWithoutTheIndex) {
    ASSERT_TRUE(dstenc::encodeFile(plain, dst, {.index = false}));
    EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw, 3 * frame - 2) == tail(dsd, 3 * frame - 2));

    ASSERT_TRUE(dstenc::encodeFile(plain, dst));
    std::vector<uint8_t> f = readFileBytes(dst);
    const size_t entry = f.size() - 2 * 12 + 7;  // the index is the last chunk
    ASSERT_LT(f[entry], 0xFE);
    f[entry] += 2;
    writeFileBytes(dst, f);
    EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw, 2 * frame) == tail(dsd, 2 * frame));

    const size_t frte = frames(f)[0].pos - 12 - 18;
    ASSERT_EQ(memcmp(&f[frte], "FRTE", 4), 0);
    f[frte + 15] = 4;
    writeFileBytes(dst, f);
    EXPECT_TRUE(decodeAll(dst, StreamKind::DsdRaw) ==
                std::vector<uint8_t>(dsd.begin(), dsd.end() - long(frame)));
}

}  // namespace
