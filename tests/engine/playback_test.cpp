// Whole routines against the virtual card, run to their end on this thread
// as background mode does, at the card's fastest speed.
#include <gtest/gtest.h>

#include <cstdio>

#include "engine/decoder_setup.h"
#include "engine/packing.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

// Reports where two byte strings first differ instead of dumping them.
::testing::AssertionResult sameBytes(const std::vector<uint8_t>& got,
                                     const std::vector<uint8_t>& want) {
    size_t n = std::min(got.size(), want.size());
    for (size_t i = 0; i < n; ++i)
        if (got[i] != want[i])
            return ::testing::AssertionFailure()
                   << "first difference at byte " << i << " of " << want.size();
    if (got.size() != want.size())
        return ::testing::AssertionFailure()
               << "captured " << got.size() << " bytes, expected " << want.size();
    return ::testing::AssertionSuccess();
}

RunText play(const std::vector<std::string>& paths, bool di, bool rw, int32_t format) {
    settings.directInput = di;
    settings.rwAccess = rw;
    outputFormat.store(format);
    setQueue(paths);
    return playInline(routineFor(di, format));
}

size_t countKind(const std::vector<VdacEvent>& ev, const std::string& kind) {
    return eventsOfKind(ev, kind).size();
}

// ---- the bit-perfect matrix ------------------------------------------------

struct MatrixCase {
    Fixture f;
    bool di, rw;
    int32_t card;
};

std::vector<MatrixCase> matrixCases() {
    std::vector<MatrixCase> cases;
    for (const char* kind : {"lossless", "float"})
        for (const Fixture& f : fixtures(kind))
            for (int32_t card : {kFormatS32, kFormatS24_3, kFormatS16}) {
                if (card == kFormatS16 && (f.kind == "float" || f.bits > 16)) continue;
                for (bool di : {false, true})
                    for (bool rw : {false, true}) cases.push_back({f, di, rw, card});
            }
    return cases;
}

void PrintTo(const MatrixCase& c, std::ostream* os) {
    *os << c.f.file << (c.di ? " Direct Input" : " Full Memory") << (c.rw ? " RW " : " MMAP ")
        << formatName(c.card);
}

class BitPerfect : public ::testing::TestWithParam<MatrixCase> {};

TEST_P(BitPerfect, CaptureIsTheReferenceInTheCardsFormat) {
    const MatrixCase& c = GetParam();
    resetPlayerState();
    Card card({formatName(c.card)});
    RunText text = play({c.f.path()}, c.di, c.rw, c.card);
    EXPECT_TRUE(sameBytes(card.capture(), expectedCardBytes(c.f, c.card)));
    std::vector<VdacEvent> hw = eventsOfKind(card.events(), "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields["rate"], std::to_string(c.f.rate));
    EXPECT_EQ(hw[0].fields["access"], c.rw ? "RW_INTERLEAVED" : "MMAP_INTERLEAVED");
    EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
    EXPECT_EQ(playerRunning.load(), 0);
}

std::string caseName(const ::testing::TestParamInfo<MatrixCase>& info) {
    const MatrixCase& c = info.param;
    std::string name =
        c.f.file + (c.di ? "_DI" : "_FM") + (c.rw ? "_RW_" : "_MMAP_") + formatName(c.card);
    for (char& ch : name)
        if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, BitPerfect, ::testing::ValuesIn(matrixCases()), caseName);

// ---- lengths, queues and device sessions ------------------------------------

TEST(Playback, LossyFilesPlayExactlyTheirGaplessLength) {
    for (const Fixture& f : fixtures("lossy"))
        for (bool di : {false, true}) {
            SCOPED_TRACE(f.file + (di ? " DI" : " FM"));
            resetPlayerState();
            Card card({"S32_LE"});
            play({f.path()}, di, false, kFormatS32);
            EXPECT_EQ(card.capture().size(), f.frames * f.channels * 4);
        }
}

TEST(Playback, DirectInputKeepsOneSessionAcrossSameFormatFiles) {
    const std::vector<std::string> names = {"wav-s16-44k1-stereo.wav", "flac-s16-44k1-stereo.flac",
                                            "alac-s16-44k1-stereo.m4a"};
    std::vector<std::string> paths;
    std::vector<uint8_t> want;
    for (const std::string& n : names) {
        Fixture f = fixture(n);
        paths.push_back(f.path());
        std::vector<uint8_t> part = expectedCardBytes(f, kFormatS32);
        want.insert(want.end(), part.begin(), part.end());
    }
    for (bool rw : {false, true}) {
        SCOPED_TRACE(rw ? "RW" : "MMAP");
        resetPlayerState();
        Card card({"S32_LE"});
        RunText text = play(paths, true, rw, kFormatS32);
        std::vector<VdacEvent> ev = card.events();
        EXPECT_EQ(countKind(ev, "open"), 1u);
        EXPECT_EQ(countKind(ev, "hw_params"), 1u);
        EXPECT_EQ(countKind(ev, "drain"), 1u);
        EXPECT_TRUE(sameBytes(card.capture(), want));
        EXPECT_NE(text.out.find("(3/3)"), std::string::npos);
        EXPECT_EQ(queueIndex.load(), 2);
    }
}

TEST(Playback, ChangedConfigurationReopensTheDevice) {
    struct Case {
        std::vector<std::string> files;
        bool di;
        size_t opens;
    } cases[] = {
        {{"wav-s16-44k1-stereo.wav", "flac-s24-96k-stereo.flac", "flac-s16-44k1-stereo.flac"},
         true,
         3},
        {{"flac-s16-44k1-stereo.flac", "flac-s16-44k1-mono.flac"}, true, 2},
        {{"wav-s16-44k1-stereo.wav", "flac-s16-44k1-stereo.flac"}, false, 2},
    };
    for (const Case& c : cases) {
        resetPlayerState();
        Card card({"S32_LE"});
        std::vector<std::string> paths;
        std::vector<uint8_t> want;
        for (const std::string& n : c.files) {
            Fixture f = fixture(n);
            paths.push_back(f.path());
            std::vector<uint8_t> part = expectedCardBytes(f, kFormatS32);
            want.insert(want.end(), part.begin(), part.end());
        }
        RunText text = play(paths, c.di, false, kFormatS32);
        EXPECT_EQ(countKind(card.events(), "hw_params"), c.opens) << c.files[1];
        EXPECT_TRUE(sameBytes(card.capture(), want)) << c.files[1];
        // One ALSA report per run, however many files it plays.
        EXPECT_EQ(text.out.find("ALSA period"), text.out.rfind("ALSA period"));
    }
}

TEST(Playback, PendingSeekStartsAtThatSecondAndOutOfRangeIsDropped) {
    Fixture f = fixture("flac-s16-44k1-stereo.flac");
    std::vector<uint8_t> full = expectedCardBytes(f, kFormatS32);
    const size_t second = size_t(f.rate) * frameBytes(kFormatS32, f.channels);
    for (bool di : {false, true})
        for (bool rw : {false, true})
            for (int32_t target : {2, 3, 99}) {
                SCOPED_TRACE(testing::Message() << di << rw << " seek " << target);
                resetPlayerState();
                Card card({"S32_LE"});
                seekSeconds.store(target);
                play({f.path()}, di, rw, kFormatS32);
                EXPECT_EQ(seekSeconds.load(), -1);
                // The file lasts 3.0 s: 3 is at its length, so it is ignored.
                size_t from = target < 3 ? size_t(target) * second : 0;
                EXPECT_TRUE(sameBytes(card.capture(),
                                      std::vector<uint8_t>(full.begin() + long(from), full.end())));
            }
}

TEST(Playback, UnderrunsInReadWriteAccessLoseNoSamples) {
    Fixture f = fixture("wav-s16-44k1-stereo.wav");
    for (bool di : {true, false}) {
        SCOPED_TRACE(di ? "DI" : "FM");
        resetPlayerState();
        settings.bufferFrames = 2048;
        // Consumed 50 times faster than real time, the card runs dry between
        // passes that sleep a sixteenth of its buffer time.
        Card card({"S32_LE"}, 50);
        RunText text = play({f.path()}, di, true, kFormatS32);
        EXPECT_GT(countKind(card.events(), "xrun"), 0u);
        EXPECT_TRUE(sameBytes(card.capture(), expectedCardBytes(f, kFormatS32)));
        EXPECT_EQ(text.err.find("underrun occurred\n") != std::string::npos, !di);
    }
}

// ---- reports ----------------------------------------------------------------

TEST(Playback, AlsaReportShowsWhatTheDeviceAccepted) {
    Fixture f = fixture("wav-s16-44k1-stereo.wav");
    for (bool di : {false, true})
        for (int32_t format : {kFormatS32, kFormatS24_3, kFormatS16}) {
            SCOPED_TRACE(testing::Message() << di << " " << formatName(format));
            resetPlayerState();
            Card card({formatName(format)});
            RunText text = play({f.path()}, di, false, format);
            unsigned periodUs = 0, bufferUs = 0;
            ASSERT_EQ(std::sscanf(text.out.c_str(),
                                  "\nALSA period: 1024 frames, %u us\nALSA buffer: 4096 frames, %u",
                                  &periodUs, &bufferUs),
                      2)
                << text.out;
            ASSERT_EQ(text.out.rfind("\nALSA period", 0), 0u) << text.out;
            EXPECT_EQ(bufferUs, periodUs * 4096ull / 1024);
            // Only Full Memory S32_LE omits the empty line after the report;
            // the track report then starts with its own line end.
            bool extra = di || format != kFormatS32;
            size_t end = text.out.find(" us\n", text.out.find("ALSA buffer")) + 4;
            EXPECT_EQ(text.out.substr(end, extra ? 3 : 2), extra ? "\n\n(" : "\n(");
            EXPECT_EQ(showAlsaSetup.load(), 0);
        }
}

TEST(Playback, UndecodableFileEndsTheRunWithTheRoutinesReport) {
    TempDir dir;
    std::string junk = dir.file("junk.flac");
    writeFileBytes(junk, std::vector<uint8_t>(4000, 0x5A));
    const std::string good = fixture("wav-s16-44k1-stereo.wav").path();
    struct Case {
        bool di;
        int32_t format;
        const char* out;
        const char* err;
    } cases[] = {
        {false, kFormatS32, "", "\nGetInfo error\n> "},
        {false, kFormatS24_3, "", "\nGetInfo error\n\n> "},
        {false, kFormatS16, "", "\nGetInfo error\n\n> "},
        {true, kFormatS32, "\nGetInfo error\n", "\n> "},
        {true, kFormatS24_3, "\nGetInfo error\n", "\n> "},
        {true, kFormatS16, "\nGetInfo error\n", "\n> "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.di << " " << formatName(c.format));
        resetPlayerState();
        Card card({formatName(c.format)});
        stopRequest.store(1);  // a stale request must be cleared too
        RunText text = play({junk, good}, c.di, false, c.format);
        EXPECT_EQ(text.out, c.out);
        EXPECT_EQ(text.err, c.err);
        EXPECT_TRUE(card.capture().empty());  // the rest of the queue is not tried
        EXPECT_EQ(playerRunning.load(), 0);
        EXPECT_EQ(playerThread.load(), pthread_t(0));
        EXPECT_EQ(stopRequest.load(), 0);
    }
    // A later file that fails still lets the earlier one play out.
    resetPlayerState();
    Card card({"S32_LE"});
    RunText text = play({good, junk}, true, true, kFormatS32);
    EXPECT_TRUE(text.err.ends_with("\n> "));
    EXPECT_TRUE(sameBytes(card.capture(),
                          expectedCardBytes(fixture("wav-s16-44k1-stereo.wav"), kFormatS32)));
    EXPECT_EQ(countKind(card.events(), "close"), 1u);
}

TEST(Playback, PublishedStreamFields) {
    struct Case {
        const char* file;
        bool di;
        int32_t format;
        int32_t bits;
    } cases[] = {
        {"mp3-44k1-stereo.mp3", false, kFormatS32, 32},
        {"mp3-44k1-stereo.mp3", false, kFormatS24_3, 24},
        {"mp3-44k1-stereo.mp3", true, kFormatS24_3, 32},
        {"mp3-44k1-stereo.mp3", true, kFormatS16, 16},
        {"flac-s24-96k-stereo.flac", true, kFormatS32, 24},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.file << c.di << formatName(c.format));
        resetPlayerState();
        Card card({formatName(c.format)});
        play({fixture(c.file).path()}, c.di, false, c.format);
        EXPECT_EQ(streamBits.load(), c.bits);
        EXPECT_EQ(streamSeconds.load(), 3);
        EXPECT_STREQ(lengthText, "00:03");
    }
}

TEST(DecoderSetup, DsdFilesAreKnownByTheirSuffixOnly) {
    for (const char* p : {"/a/b.dsf", "/a/b.DSF", "/a/b.dff", "/a/b.DFF"})
        EXPECT_TRUE(isDsdFile(p));
    for (const char* p : {"/a/b.Dsf", "/a/b.dsff", "/a/dsf", "/a/b.wav", "/a/b.dsf/"})
        EXPECT_FALSE(isDsdFile(p)) << p;
}

}  // namespace
