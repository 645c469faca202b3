// Whole routines against the virtual card, run to their end on this thread as
// background mode does: every capture is compared with the references.
#include <gtest/gtest.h>

#include <cstdio>

#include "engine/decoder_setup.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

struct Case {
    std::vector<std::string> files;
    Mode mode;
    int32_t card = kFormatS32;
    int seek = -1;        // pending seek in seconds when the run starts
    size_t sessions = 1;  // device opens the run needs
    double speed = 0;     // card speed; 50 makes read/write access underrun
};

std::vector<Case> cases() {
    const Mode modes[] = {{false, false}, {false, true}, {true, false}, {true, true}};
    std::vector<Case> out;
    for (const Fixture& f : fixtures()) {
        for (bool di : {false, true})
            if (f.kind == "lossy") out.push_back({{f.file}, {di, false}});
        if (f.kind != "lossless" && f.kind != "float") continue;
        for (int32_t card : {kFormatS32, kFormatS24_3, kFormatS16})
            for (Mode m : modes)
                if (card != kFormatS16 || (f.bits && f.bits <= 16))
                    out.push_back({{f.file}, m, card});
    }
    const std::string wav = "wav-s16-44k1-stereo.wav", flac = "flac-s16-44k1-stereo.flac";
    for (Mode m : modes)
        for (int seek : {2, 3, 99}) out.push_back({{flac}, m, kFormatS32, seek});
    // Direct Input keeps one session across files of one configuration.
    for (bool rw : {false, true})
        out.push_back({{wav, flac, "alac-s16-44k1-stereo.m4a"}, {true, rw}});
    out.push_back({{wav, "flac-s24-96k-stereo.flac", flac}, {true, false}, kFormatS32, -1, 3});
    out.push_back({{flac, "flac-s16-44k1-mono.flac"}, {true, false}, kFormatS32, -1, 2});
    out.push_back({{wav, flac}, {false, false}, kFormatS32, -1, 2});
    for (bool di : {false, true}) out.push_back({{wav}, {di, true}, kFormatS32, -1, 1, 50});
    return out;
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
    const Case& c = info.param;
    std::string name;
    for (const std::string& f : c.files) name += f + "_";
    name +=
        std::string(c.mode.di ? "DI" : "FM") + (c.mode.rw ? "_RW_" : "_MMAP_") + formatName(c.card);
    if (c.seek >= 0) name += "_seek" + std::to_string(c.seek);
    return testName(name + (c.speed ? "_underrun" : ""));
}

// Reports where two byte strings first differ instead of dumping them.
testing::AssertionResult sameBytes(const std::vector<uint8_t>& got,
                                   const std::vector<uint8_t>& want) {
    auto diff = std::mismatch(got.begin(), got.end(), want.begin(), want.end());
    if (got.size() == want.size() && diff.first == got.end()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "captured " << got.size() << " bytes of " << want.size()
                                       << ", first difference at " << diff.first - got.begin();
}

class Playback : public testing::TestWithParam<Case> {};

TEST_P(Playback, CaptureIsTheReferenceInTheCardsFormat) {
    const Case& c = GetParam();
    resetPlayerState();
    if (c.speed) settings.bufferFrames = 2048;
    Card card({formatName(c.card)}, c.speed);
    std::vector<std::string> paths;
    std::vector<uint8_t> want;
    Fixture f;
    for (const std::string& name : c.files) {
        f = fixture(name);
        paths.push_back(f.path());
        std::vector<uint8_t> part = expectedCardBytes(f, c.card);
        want.insert(want.end(), part.begin(), part.end());
    }
    const int seconds = int(f.frames / uint64_t(f.rate));
    if (c.seek >= 0) seekSeconds.store(c.seek);
    if (c.seek >= 0 && c.seek < seconds)  // at or past the end it is dropped
        want.erase(want.begin(), want.begin() + c.seek * f.rate * frameBytes(c.card, f.channels));
    RunText text = play(paths, c.mode, c.card);

    const std::vector<uint8_t> cap = card.capture();
    if (f.kind == "lossy")  // decoded by another decoder than the reference's
        EXPECT_EQ(cap.size(), want.size());
    else
        EXPECT_TRUE(sameBytes(cap, want));
    for (const char* kind : {"open", "hw_params", "drain"}) EXPECT_EQ(card.count(kind), c.sessions);
    std::vector<VdacEvent> hw = eventsOfKind(card.events(), "hw_params");
    ASSERT_FALSE(hw.empty());
    EXPECT_EQ(hw[0].fields["rate"], std::to_string(fixture(c.files[0]).rate));
    EXPECT_EQ(hw[0].fields["access"], c.mode.rw ? "RW_INTERLEAVED" : "MMAP_INTERLEAVED");
    EXPECT_EQ(queueIndex.load(), int32_t(c.files.size() - 1));
    EXPECT_EQ(seekSeconds.load(), -1);
    EXPECT_EQ(playerRunning.load(), 0);
    EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
    EXPECT_EQ(text.err.find("underrun occurred\n") != std::string::npos, c.speed && !c.mode.di);
    EXPECT_EQ(card.count("xrun") > 0, c.speed > 0);
    // Published for the now-playing line: the last file's.
    int bits = c.card == kFormatS16 ? 16 : c.card == kFormatS24_3 && !c.mode.di ? 24 : 32;
    EXPECT_EQ(streamBits.load(), f.bits ? f.bits : bits);
    EXPECT_EQ(streamSeconds.load(), seconds);
    EXPECT_EQ(lengthText, "00:0" + std::to_string(seconds));

    // One ALSA report per run, of what the device accepted; only Full Memory
    // on S32_LE leaves out the empty line after it.
    unsigned period = 0, periodUs = 0, buffer = 0, bufferUs = 0;
    ASSERT_TRUE(text.out.starts_with("\nALSA period: ")) << text.out;
    ASSERT_EQ(
        std::sscanf(text.out.c_str(), "\nALSA period: %u frames, %u us\nALSA buffer: %u frames, %u",
                    &period, &periodUs, &buffer, &bufferUs),
        4);
    EXPECT_EQ(period, 1024u);
    EXPECT_EQ(buffer, unsigned(settings.bufferFrames));
    EXPECT_EQ(bufferUs, uint64_t(periodUs) * buffer / period);
    EXPECT_EQ(text.out.find("ALSA period", 2), std::string::npos);
    const bool extra = c.mode.di || c.card != kFormatS32;
    size_t end = text.out.find(" us\n", text.out.find("ALSA buffer")) + 4;
    EXPECT_EQ(text.out.substr(end, extra ? 3 : 2), extra ? "\n\n(" : "\n(");
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Playback, testing::ValuesIn(cases()), caseName);

TEST(Playback, UndecodableFileEndsTheRunWithTheRoutinesReport) {
    TempDir dir;
    const std::string junk = dir.file("junk.flac"), wav = "wav-s16-44k1-stereo.wav";
    writeFileBytes(junk, std::vector<uint8_t>(4000, 0x5A));
    for (bool di : {false, true})
        for (int32_t format : {kFormatS32, kFormatS24_3, kFormatS16}) {
            SCOPED_TRACE(testing::Message() << di << " " << formatName(format));
            resetPlayerState();
            Card card({formatName(format)});
            stopRequest.store(1);  // a stale request must be cleared too
            RunText text = play({junk, fixture(wav).path()}, {di, false}, format);
            const std::string error = "\nGetInfo error\n";
            EXPECT_EQ(text.out, di ? error : "");
            EXPECT_EQ(text.err, di ? "\n> " : error + (format == kFormatS32 ? "> " : "\n> "));
            EXPECT_TRUE(card.capture().empty());  // the rest of the queue is not tried
            EXPECT_EQ(playerRunning.load(), 0);
            EXPECT_EQ(playerThread.load(), pthread_t(0));
            EXPECT_EQ(stopRequest.load(), 0);
        }
    // A later file that fails still lets the earlier one play out.
    resetPlayerState();
    Card card({"S32_LE"});
    RunText text = play({fixture(wav).path(), junk}, {true, true}, kFormatS32);
    EXPECT_TRUE(text.err.ends_with("\n> "));
    EXPECT_EQ(card.capture(), expectedCardBytes(fixture(wav), kFormatS32));
    EXPECT_EQ(card.count("close"), 1u);
}

TEST(DecoderSetup, DsdFilesAreKnownByTheirSuffixOnly) {
    for (const char* p : {"/a/b.dsf", "/a/b.DSF", "/a/b.dff", "/a/b.DFF"})
        EXPECT_TRUE(isDsdFile(p));
    for (const char* p : {"/a/b.Dsf", "/a/b.dsff", "/a/dsf", "/a/b.wav", "/a/b.dsf/"})
        EXPECT_FALSE(isDsdFile(p)) << p;
}

}  // namespace
