// Raw DSD and DoP from every DSD fixture and from generated files that end
// mid-byte and mid-group, against the reference bytes; seeks; damaged files.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "decode/dsd_source.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

struct Case {
    std::string path;
    std::vector<uint8_t> ref;  // bytes interleaved by channel, earliest bit in the MSB
    int channels, multiple;
};

std::vector<Case> generated() {
    std::vector<Case> out;
    for (auto [dff, multiple, channels, bits] :
         {std::tuple{false, 64, 2, 8 * 5000 + 3}, std::tuple{true, 128, 3, 8 * 5001}}) {
        dsdgen::Signal s = dsdgen::toneSignal(multiple, channels, 0, 1000, -6);
        s.bits = uint64_t(bits);
        out.push_back(
            {testing::TempDir() + "dsd_read_" + std::to_string(getpid()) + (dff ? ".dff" : ".dsf"),
             dsdgen::modulate(s), channels, multiple});
        auto write = dff ? dsdgen::writeDff : dsdgen::writeDsf;
        EXPECT_TRUE(write(out.back().path, out.back().ref, channels, multiple, s.bits));
    }
    return out;
}

// Reads to the end in awkward request sizes; every read must be whole frames.
std::vector<uint8_t> readAll(DsdSource* s, uint32_t frameBytes) {
    std::vector<uint8_t> out, buf(frameBytes * 997 + 3);
    for (int i = 0;; ++i) {
        uint32_t got = dsdRead(s, buf.data(), i % 2 ? uint32_t(buf.size()) : frameBytes * 13 + 1);
        if (got == kDecodeEnd || got == 0) {
            EXPECT_NE(got, 0u) << "empty read before the end";
            return out;
        }
        EXPECT_EQ(got % frameBytes, 0u);
        out.insert(out.end(), buf.begin(), buf.begin() + got);
    }
}

// Raw: the reference, a last partial group per channel filled with the idle
// byte. DoP: per frame a marker alternating 0x05 / 0xFA, then two bytes.
void checkRawAndDop(const Case& c) {
    const uint32_t frame = 4 * uint32_t(c.channels);
    const size_t bytes = c.ref.size() / size_t(c.channels), groups = (bytes + 3) / 4;
    std::vector<uint8_t> raw = c.ref, dop;
    raw.resize(groups * frame, 0x69);
    for (size_t f = 0; f < (bytes + 1) / 2; ++f)
        for (size_t k = 0; k < size_t(c.channels); ++k) {
            auto at = [&](size_t i) {
                return i < bytes ? c.ref[i * size_t(c.channels) + k] : 0x69;
            };
            int32_t word = (f % 2 ? 0xFA : 0x05) << 16 | at(2 * f) << 8 | at(2 * f + 1);
            float x = float(int32_t(uint32_t(word) << 8) >> 8) / 8388608.0f;
            dop.insert(dop.end(), (uint8_t*)&x, (uint8_t*)&x + 4);
        }
    for (auto [kind, want, rate] :
         {std::tuple{StreamKind::DsdRaw, &raw, 8}, std::tuple{StreamKind::Dop, &dop, 16}}) {
        std::string error;
        DsdSource* s = dsdOpen(c.path.c_str(), kind, 44100, &error);
        ASSERT_NE(s, nullptr) << error;
        EXPECT_EQ(dsdInfo(s).rate, dsdgen::bitRate(c.multiple) / rate);
        EXPECT_EQ(dsdInfo(s).channels, c.channels);
        EXPECT_EQ(dsdLength(s), want->size());
        EXPECT_TRUE(readAll(s, frame) == *want);
        // Mid DSF block and off a frame boundary, an odd DoP frame, the last frame, the end.
        const uint64_t frames = want->size() / frame;
        for (uint64_t f : {frames / 3 | 1, frames - 1, frames}) {
            ASSERT_TRUE(dsdSeek(s, f * frame + 1));
            EXPECT_TRUE(readAll(s, frame) ==
                        std::vector<uint8_t>(want->begin() + long(f * frame), want->end()));
        }
        EXPECT_FALSE(dsdSeek(s, want->size() + frame));
        dsdClose(s);
    }
}

TEST(DsdRead, RawAndDopCarryTheReferenceBytes) {
    std::vector<Case> cases = generated();
    for (const Fixture& f : fixtures())
        if (f.kind == "dsd")
            cases.push_back({f.path(), readFileBytes(f.refPath()), f.channels, f.rate / 44100});
    EXPECT_GE(cases.size(), 14u);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        checkRawAndDop(c);
    }
    for (int i : {0, 1}) std::remove(cases[size_t(i)].path.c_str());
}

// Every cut of a file either fails with text or plays what is there.
TEST(DsdDamage, CutFilesFailCleanlyOrPlayTheirPart) {
    for (const Case& c : generated()) {
        std::vector<uint8_t> whole = readFileBytes(c.path);
        for (size_t cut : {size_t(0), size_t(3), size_t(20), size_t(60), size_t(95), size_t(130),
                           whole.size() / 2, whole.size() - 1}) {
            writeFileBytes(c.path, std::vector<uint8_t>(whole.begin(), whole.begin() + long(cut)));
            for (StreamKind kind : {StreamKind::DsdRaw, StreamKind::Dop, StreamKind::DsdPcm}) {
                std::string error;
                DsdSource* s = dsdOpen(c.path.c_str(), kind, 88200, &error);
                EXPECT_TRUE(s || !error.empty()) << cut;
                if (!s) continue;
                EXPECT_EQ(readAll(s, dsdInfo(s).channels * 4).size(), dsdLength(s)) << cut;
                dsdClose(s);
            }
        }
        std::remove(c.path.c_str());
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
        EXPECT_EQ(dsdRead(s, &error, 8), kDecodeEnd);
        dsdClose(s);
        if (kind != StreamKind::Float) {
            EXPECT_EQ(dsdOpen(dst.c_str(), kind, 44100, &error), nullptr);
        }
    }
}

}  // namespace
