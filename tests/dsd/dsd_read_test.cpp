// Raw DSD and DoP from generated DSF and DSDIFF files against the
// generator's bits; seeks; damaged and shared files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>

#include <unistd.h>

#include "decode/dsd_source.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

struct Case {
    bool dff;
    int multiple;
    int channels;
    uint64_t bits;
};

std::string writeCase(const Case& c, std::vector<uint8_t>* ref) {
    dsdgen::Signal s = dsdgen::toneSignal(c.multiple, c.channels, 0, 1000, -6);
    s.bits = c.bits;
    *ref = dsdgen::modulate(s);
    std::string path = testing::TempDir() + "dsd_read_" + std::to_string(getpid()) + "_" +
                       std::to_string(c.dff) + "_" + std::to_string(c.multiple) + "_" +
                       std::to_string(c.channels) + "_" + std::to_string(c.bits) +
                       (c.dff ? ".dff" : ".dsf");
    bool ok = c.dff ? dsdgen::writeDff(path, *ref, c.channels, c.multiple, c.bits)
                    : dsdgen::writeDsf(path, *ref, c.channels, c.multiple, c.bits);
    EXPECT_TRUE(ok);
    return path;
}

// Reads to the end in awkward request sizes, checking that every read is a
// whole number of frames.
std::vector<uint8_t> readAll(DsdSource* s, uint32_t frameBytes) {
    std::vector<uint8_t> out, buf(frameBytes * 997 + 3);
    for (int i = 0;; ++i) {
        uint32_t ask = i % 2 ? uint32_t(buf.size()) : frameBytes * 13 + 1;
        uint32_t got = dsdRead(s, buf.data(), ask);
        if (got == kDecodeEnd) break;
        EXPECT_EQ(got % frameBytes, 0u);
        EXPECT_GT(got, 0u);
        if (got == 0) break;
        out.insert(out.end(), buf.begin(), buf.begin() + got);
    }
    return out;
}

int32_t dopWord(const uint8_t* p) {
    float f;
    memcpy(&f, p, 4);
    return int32_t(std::lround(double(f) * 8388608.0)) & 0xFFFFFF;
}

class DsdReadTest : public testing::TestWithParam<Case> {};

TEST_P(DsdReadTest, RawAndDopCarryTheSourceBits) {
    const Case c = GetParam();
    std::vector<uint8_t> ref;
    std::string path = writeCase(c, &ref);
    const uint64_t bytes = (c.bits + 7) / 8;
    const int ch = c.channels;

    std::string error;
    DsdSource* raw = dsdOpen(path.c_str(), StreamKind::DsdRaw, 44100, &error);
    ASSERT_NE(raw, nullptr) << error;
    EXPECT_EQ(dsdInfo(raw).rate, dsdgen::bitRate(c.multiple) / 8);
    EXPECT_EQ(dsdInfo(raw).channels, ch);
    EXPECT_EQ(dsdInfo(raw).sourceBits, 0);
    const uint64_t groups = (bytes + 3) / 4;
    EXPECT_EQ(dsdLength(raw), groups * 4 * ch);
    std::vector<uint8_t> got = readAll(raw, 4 * ch);
    ASSERT_EQ(got.size(), groups * 4 * ch);
    EXPECT_TRUE(std::equal(ref.begin(), ref.end(), got.begin()));
    for (size_t i = ref.size(); i < got.size(); ++i) EXPECT_EQ(got[i], 0x69) << i;

    // Seek into the middle of a DSF block, to the last group and to the end.
    for (uint64_t g : {groups / 3, groups - 1, groups}) {
        ASSERT_TRUE(dsdSeek(raw, g * 4 * ch + 1));
        std::vector<uint8_t> tail = readAll(raw, 4 * ch);
        ASSERT_EQ(tail.size(), got.size() - g * 4 * ch);
        EXPECT_TRUE(std::equal(tail.begin(), tail.end(), got.begin() + g * 4 * ch));
    }
    dsdClose(raw);

    DsdSource* dop = dsdOpen(path.c_str(), StreamKind::Dop, 44100, &error);
    ASSERT_NE(dop, nullptr) << error;
    EXPECT_EQ(dsdInfo(dop).rate, dsdgen::bitRate(c.multiple) / 16);
    const uint64_t frames = (bytes + 1) / 2;
    EXPECT_EQ(dsdLength(dop), frames * 4 * ch);
    std::vector<uint8_t> words = readAll(dop, 4 * ch);
    ASSERT_EQ(words.size(), frames * 4 * ch);
    auto byteAt = [&](uint64_t i, int k) { return i < bytes ? ref[i * ch + k] : 0x69; };
    for (uint64_t f = 0; f < frames; ++f)
        for (int k = 0; k < ch; ++k) {
            int32_t want =
                (f % 2 ? 0xFA : 0x05) << 16 | byteAt(2 * f, k) << 8 | byteAt(2 * f + 1, k);
            ASSERT_EQ(dopWord(&words[(f * ch + k) * 4]), want) << "frame " << f << " ch " << k;
        }
    // An odd frame after a seek still carries the odd marker.
    ASSERT_TRUE(dsdSeek(dop, (frames / 2 | 1) * 4 * ch));
    std::vector<uint8_t> tail = readAll(dop, 4 * ch);
    EXPECT_TRUE(std::equal(tail.begin(), tail.end(), words.end() - tail.size()));
    EXPECT_FALSE(dsdSeek(dop, dsdLength(dop) + 4 * ch));
    dsdClose(dop);
    std::remove(path.c_str());
}

// Sizes end mid-block, mid-group and (DSF) mid-byte.
INSTANTIATE_TEST_SUITE_P(Sweep, DsdReadTest,
                         testing::Values(Case{false, 64, 1, 8 * 5000 + 3},
                                         Case{false, 128, 3, 8 * 4096 * 2},
                                         Case{false, 128, 2, 8 * 4097 + 7},
                                         Case{true, 64, 1, 8 * 5001}, Case{true, 128, 3, 8 * 6003},
                                         Case{true, 128, 2, 8 * 4096}),
                         [](const testing::TestParamInfo<Case>& i) {
                             const Case& c = i.param;
                             return std::string(c.dff ? "dff" : "dsf") +
                                    std::to_string(c.multiple) + "_" + std::to_string(c.channels) +
                                    "ch_" + std::to_string(c.bits) + "bits";
                         });

std::vector<uint8_t> slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), {}};
}

void spit(const std::string& path, const std::vector<uint8_t>& data) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
}

// Every cut of a file either fails with text or plays what is there; no read
// goes past the stated length.
TEST(DsdDamage, CutFilesFailCleanlyOrPlayTheirPart) {
    for (bool dff : {false, true}) {
        std::vector<uint8_t> ref;
        std::string path = writeCase({dff, 64, 2, 8 * 5000}, &ref);
        std::vector<uint8_t> whole = slurp(path);
        for (size_t cut : {size_t(0), size_t(3), size_t(20), size_t(60), size_t(95), size_t(130),
                           whole.size() / 2, whole.size() - 1}) {
            std::string cutPath = path + ".cut";
            spit(cutPath, std::vector<uint8_t>(whole.begin(), whole.begin() + cut));
            for (StreamKind kind : {StreamKind::DsdRaw, StreamKind::Dop, StreamKind::DsdPcm}) {
                std::string error;
                DsdSource* s = dsdOpen(cutPath.c_str(), kind, 88200, &error);
                if (!s) {
                    EXPECT_FALSE(error.empty()) << cut;
                    continue;
                }
                uint32_t frame = dsdInfo(s).channels * 4;
                EXPECT_EQ(readAll(s, frame).size(), dsdLength(s)) << cut;
                dsdClose(s);
            }
            std::remove(cutPath.c_str());
        }
        std::remove(path.c_str());
    }
}

// A DSF whose header states no samples opens and ends at once; a
// DST-compressed DSDIFF cannot be carried bit for bit.
TEST(DsdShared, EmptyAndCompressedFiles) {
    const std::string dir = TOVRIN_SHARED_FIXTURES;
    std::string id3 = dir + "/good/silence-with-id3.dsf",
                dst = dir + "/hostile/silence-dst-compressed.dff";
    for (StreamKind kind : {StreamKind::DsdRaw, StreamKind::Dop, StreamKind::Float}) {
        std::string error;
        DsdSource* s = dsdOpen(id3.c_str(), kind, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        EXPECT_EQ(dsdLength(s), 0u);
        EXPECT_EQ(readAll(s, dsdInfo(s).channels * 4).size(), 0u);
        dsdClose(s);
        if (kind == StreamKind::Float) continue;
        EXPECT_EQ(dsdOpen(dst.c_str(), kind, 44100, &error), nullptr);
        EXPECT_FALSE(error.empty());
    }
    // WavPack DSD is not ours: the dispatcher sends it to FFmpeg.
    EXPECT_FALSE(dsdProbe((dir + "/good/dsd-stereo.wv").c_str()));
}

}  // namespace
