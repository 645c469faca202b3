// Whole routines against the virtual card, run to their end on this thread as
// background mode does: every capture is compared with the references, on
// ideal cards and on ones with a real card's habits.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "device/recovery.h"
#include "engine/decoder_setup.h"
#include "engine/memory_fit.h"
#include "engine/packing.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

struct Case {
    std::vector<std::string> files;
    Mode mode;
    int32_t card = kFormatS32;  // playerControl.outputFormat
    int seek = -1;              // pending seek in seconds when the run starts
    size_t sessions = 1;        // device opens the run needs
    double speed = 0;           // card speed; 50 makes read/write access underrun
    int32_t dsdMode = kDsdDop;
    std::string native = "";  // DSD_U32_BE or DSD_U32_LE: the card takes native DSD words
    long step = 0;            // the card reports its position in steps of this many frames
};

std::vector<Case> cases() {
    std::vector<Case> out;
    size_t n = 0;
    // Fixtures differ in decoding, modes in transfer loop and source: each
    // fixture plays in one mode, the modes taken in turn.
    for (const Fixture& f : fixtures()) {
        const Mode m = kModes[n++ % 4];
        const std::vector<std::string> one{f.file};
        if (f.kind == "dsd") {
            for (const char* native : {"DSD_U32_BE", "DSD_U32_LE"})
                out.push_back({.files = one, .mode = m, .dsdMode = kDsdNative, .native = native});
            out.push_back({one, m});
            // A 24-bit card has no native words: DoP either way.
            for (int32_t dsdMode : {kDsdDop, kDsdNative})
                out.push_back({.files = one, .mode = m, .card = kFormatS24_3, .dsdMode = dsdMode});
        }
        // Integer sources of every width on every card: each keeps its top bits.
        for (int32_t card : {kFormatS32, kFormatS24_3, kFormatS16})
            if (f.kind == "lossless" || (f.kind == "float" && card != kFormatS16))
                out.push_back({one, m, card});
        if (f.kind == "lossy") out.push_back({one, m});
    }
    const std::string wav = "wav-s16-44k1-stereo.wav", flac = "flac-s16-44k1-stereo.flac";
    for (Mode m : kModes) {
        for (int seek : {2, 3, 99}) out.push_back({{flac}, m, kFormatS32, seek});
        for (int32_t card : {kFormatS32, kFormatS24_3, kFormatS16})
            for (const char* dsd : {"dsf-dsd64-2ch.dsf", "dff-dsd64x48k-2ch.dff",
                                    "dsf-dsd256-2ch.dsf", "dff-dsd512-2ch.dff"})
                out.push_back({.files = {dsd}, .mode = m, .card = card, .dsdMode = kDsdPcm});
    }
    // Direct Input keeps one session across files of one configuration.
    for (bool rw : {false, true})
        out.push_back({{wav, flac, "alac-s16-44k1-stereo.m4a"}, {true, rw}});
    out.push_back({{wav, "flac-s24-96k-stereo.flac", flac}, {true, false}, kFormatS32, -1, 3});
    out.push_back({{flac, "flac-s16-44k1-mono.flac"}, {true, false}, kFormatS32, -1, 2});
    out.push_back({{wav, flac}, {false, false}, kFormatS32, -1, 2});
    for (bool di : {false, true}) out.push_back({{wav}, {di, true}, kFormatS32, -1, 1, 50});
    // A card whose position moves by periods often has no room at all: every
    // mode must wait for it, never take it for the end of the file.
    for (Mode m : kModes) {
        out.push_back({.files = {wav, flac}, .mode = m, .sessions = m.di ? 1u : 2u, .step = 1024});
        out.push_back({.files = {"dsf-dsd64-2ch.dsf"}, .mode = m, .step = 1024});
    }
    for (bool rw : {false, true})
        out.push_back({.files = {wav, flac, "alac-s16-44k1-stereo.m4a"},
                       .mode = {true, rw},
                       .speed = 1,
                       .step = 1024});
    return out;
}

void PrintTo(const Case& c, std::ostream* os) {
    for (const std::string& f : c.files) *os << f << " ";
    *os << modeName(c.mode) << " " << formatName(c.card) << " seek " << c.seek << " speed "
        << c.speed << " DSD mode " << c.dsdMode << " " << c.native << " step " << c.step;
}

// Raw DSD (interleaved by channel, earliest byte first) in the card's words:
// native 32-bit words, or DoP words with markers alternating from marker.
std::vector<uint8_t> dsdWords(const Fixture& f, const Case& c, uint8_t marker) {
    const std::vector<uint8_t> dsd = readFileBytes(f.refPath());
    const size_t ch = size_t(f.channels), take = c.native.empty() ? 2 : 4;
    const bool be = c.native == "DSD_U32_BE";
    std::vector<uint8_t> out;
    for (size_t i = 0; i + take * ch <= dsd.size(); i += take * ch, marker ^= 0xFF)
        for (size_t k = 0; k < ch; ++k) {
            if (c.native.empty() && c.card == kFormatS32) out.push_back(0);
            for (size_t b = 0; b < take; ++b)
                out.push_back(dsd[i + (be ? b : take - 1 - b) * ch + k]);
            if (c.native.empty()) out.push_back(marker);
        }
    return out;
}

// The rate the setting asks of 44.1 kHz-family DSD, as the same multiple of
// 48 kHz for the other family.
int pcmRateFor(const Fixture& f, int setting) {
    return f.rate % 48000 == 0 ? setting / 44100 * 48000 : setting;
}

class Playback : public testing::TestWithParam<Case> {};

TEST_P(Playback, CaptureIsTheReferenceInTheCardsFormat) {
    const Case& c = GetParam();
    const std::string cardFormat = c.native.empty() ? formatName(c.card) : c.native;
    Card card({cardFormat}, c.speed);
    card.config.pointerStep = c.step;
    card.reconfigure();
    settings.bufferFrames = c.speed > 1 ? 2048 : 4096;
    settings.dsdMode = c.dsdMode;
    const int setting = settings.dsdPcmRate = c.card == kFormatS32 ? 176400 : 88200;
    if (!c.native.empty())
        (c.native == "DSD_U32_BE" ? playerControl.dsdNativeBE : playerControl.dsdNativeLE).store(1);
    std::vector<std::string> paths;
    for (const std::string& name : c.files) paths.push_back(fixture(name).path());
    if (c.seek >= 0) playerControl.seekSeconds.store(c.seek);
    RunText text = play(paths, c.mode, c.card);

    const std::vector<uint8_t> cap = card.capture();
    std::vector<uint8_t> want;
    Fixture f;
    for (const std::string& name : c.files) {
        f = fixture(name);
        // DoP may start on either marker; anything else fails as a wrong first byte.
        const size_t at = frameBytes(c.card, 1) - 1;
        const uint8_t marker =
            cap.size() > at && cap[at] == kDopMarkerB ? kDopMarkerB : kDopMarkerA;
        std::vector<uint8_t> part =
            f.kind != "dsd"        ? expectedCardBytes(f, c.card)
            : c.dsdMode == kDsdPcm ? std::vector<uint8_t>(f.frames * 8 * pcmRateFor(f, setting) /
                                                          f.rate * frameBytes(c.card, f.channels))
                                   : dsdWords(f, c, marker);
        want.insert(want.end(), part.begin(), part.end());
    }
    const int seconds = int(f.frames * (f.kind == "dsd" ? 8 : 1) / uint64_t(f.rate));
    if (c.seek >= 0 && c.seek < seconds)  // at or past the end it is dropped
        want.erase(want.begin(), want.begin() + c.seek * f.rate * frameBytes(c.card, f.channels));
    // Lossy files come from another decoder than the reference's.
    EXPECT_TRUE(f.kind == "lossy" || c.dsdMode == kDsdPcm || cap == want)
        << cap.size() << " bytes captured of " << want.size();
    EXPECT_EQ(cap.size(), want.size());

    for (const char* kind : {"open", "hw_params"}) EXPECT_EQ(card.count(kind), c.sessions);
    // A card that keeps running dry ends in an underrun, not a drain.
    if (c.speed <= 1) {
        EXPECT_EQ(card.count("drain"), c.sessions);
    }
    EXPECT_EQ(card.count("xrun") > 0, c.speed > 1);
    const Fixture first = fixture(c.files[0]);
    const int rate = first.kind != "dsd"    ? first.rate
                     : c.dsdMode == kDsdPcm ? pcmRateFor(first, setting)
                                            : first.rate / (c.native.empty() ? 16 : 32);
    std::vector<VdacEvent> hw = eventsOfKind(readVdacLog(card.config.logPath), "hw_params");
    ASSERT_FALSE(hw.empty());
    EXPECT_EQ(hw[0].fields["rate"] + " " + hw[0].fields["format"] + " " + hw[0].fields["access"],
              std::to_string(rate) + " " + cardFormat +
                  (c.mode.rw ? " RW_INTERLEAVED" : " MMAP_INTERLEAVED"));
    EXPECT_EQ(std::tuple(playerControl.queue.queueIndex.load(), playerControl.seekSeconds.load(),
                         playerControl.playerRunning.load()),
              std::tuple(int32_t(c.files.size() - 1), -1, 0));
    EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
    EXPECT_EQ(text.err.find("underrun occurred\n") != std::string::npos, c.speed > 1);
    // Published for the now-playing line (the last file's); native DSD shows its bit rate.
    // A source's own depth whatever the card (32 for a 32-bit file on S16_LE).
    const int bits = c.card == kFormatS16 ? 16 : c.card == kFormatS24_3 && !c.mode.di ? 24 : 32;
    const int shownBits = !c.native.empty() ? 1 : f.bits ? f.bits : bits;
    EXPECT_EQ(playerControl.streamBits.load(), shownBits);
    // Then what the card was given and how the file reaches it.
    const int cardBits = c.card == kFormatS16 ? 16 : c.card == kFormatS24_3 ? 24 : 32;
    const std::string verdict =
        f.kind == "dsd" ? (!c.native.empty()      ? "native DSD"
                           : c.dsdMode == kDsdPcm ? "DSD to PCM"
                                                  : "DoP")
        : f.kind == "lossless" && f.bits <= cardBits
            ? "bit-perfect"
            : "truncated to " +
                  std::to_string(f.kind == "lossless" ? cardBits : std::min(cardBits, 24)) +
                  " bits";
    EXPECT_NE(text.out.find("Bits per sample: " + std::to_string(shownBits) + "\nCard: "),
              std::string::npos)
        << text.out;
    EXPECT_TRUE(text.out.ends_with(": " + verdict + "\n\n")) << text.out;
    EXPECT_EQ(playerControl.streamSeconds.load(), seconds);
    EXPECT_EQ(playerControl.lengthText, "00:0" + std::to_string(seconds));
    const int shown = c.native.empty() ? rate : first.rate;
    EXPECT_NE(text.out.find("Samplerate: " + std::to_string(shown) + " "), std::string::npos);

    // One ALSA report per run, of what the device accepted; only Full Memory
    // on S32_LE leaves out the empty line after it.
    unsigned us = 0;
    std::sscanf(text.out.c_str(), "\nALSA period: 1024 frames, %u", &us);
    const unsigned buffer = unsigned(settings.bufferFrames);
    EXPECT_TRUE(text.out.starts_with("\nALSA period: 1024 frames, " + std::to_string(us) +
                                     " us\nALSA buffer: " + std::to_string(buffer) + " frames, " +
                                     std::to_string(uint64_t(us) * buffer / 1024) + " us\n" +
                                     (c.mode.di || c.card != kFormatS32 ? "\n\n(" : "\n(")))
        << text.out;
    EXPECT_EQ(text.out.find("ALSA period", 2), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Playback, testing::ValuesIn(cases()));

// A CUE track starts on the exact frame its INDEX names (1/75 s steps), in
// PCM at every rate family and in native DSD and DoP, in both load modes.
TEST(Playback, CueStartsLandOnTheirExactFrame) {
    struct Start {
        const char* file;
        int32_t dsdMode;
        const char* card;
    } starts[] = {{"wav-s16-44k1-stereo.wav", kDsdDop, "S32_LE"},
                  {"wav-s24-48k-6ch.wav", kDsdDop, "S32_LE"},
                  {"flac-s24-96k-stereo.flac", kDsdDop, "S32_LE"},
                  {"dsf-dsd64-2ch.dsf", kDsdDop, "S32_LE"},
                  {"dff-dsd64-2ch.dff", kDsdNative, "DSD_U32_BE"}};
    const int64_t cd = 52;  // 00:00:52, inside the shortest (1 s) file
    for (const Start& s : starts)
        for (Mode mode : {Mode{false, false}, Mode{true, true}}) {
            SCOPED_TRACE(std::string(s.file) + " " + modeName(mode));
            const Fixture f = fixture(s.file);
            Card card({s.card});
            settings.dsdMode = s.dsdMode;
            if (s.dsdMode == kDsdNative) playerControl.dsdNativeBE.store(1);
            playerControl.seekCdFrames.store(cd);
            playerControl.seekSeconds.store(int32_t(cd / 75));
            play({f.path()}, mode, kFormatS32);
            std::vector<uint8_t> want;
            size_t frameBytes = 4 * size_t(f.channels);
            if (f.kind != "dsd") {
                want = expectedCardBytes(f, kFormatS32);
            } else {
                // Card frames: DoP carries 2 DSD bytes a channel, native words 4.
                Case c{.files = {s.file}, .mode = mode};
                if (s.dsdMode == kDsdNative) c.native = "DSD_U32_BE";
                want = dsdWords(f, c, kDopMarkerA);
            }
            const int rate =
                f.kind != "dsd" ? f.rate : f.rate / (s.dsdMode == kDsdNative ? 32 : 16);
            const size_t from = size_t(cd * rate / 75) * frameBytes;
            const std::vector<uint8_t> cap = card.capture();
            ASSERT_EQ(cap.size(), want.size() - from);
            // DoP markers follow the file's frame count, so the tail is the very bytes.
            EXPECT_TRUE(std::equal(cap.begin(), cap.end(), want.begin() + long(from)));
        }
    // A sheet whose track starts after the file's end plays nothing and says so.
    const Fixture wav = fixture("wav-s16-44k1-stereo.wav");
    for (Mode mode : {Mode{false, false}, Mode{true, true}}) {
        Card card({"S32_LE"});
        playerControl.seekCdFrames.store(75 * 10);
        playerControl.seekSeconds.store(10);
        RunText text = play({wav.path()}, mode, kFormatS32);
        EXPECT_NE(text.err.find(wav.path() + ": the track starts after its end\n"),
                  std::string::npos)
            << text.err;
        EXPECT_TRUE(card.capture().empty());
    }
}

// Twenty 50 ms tracks in Direct Input at real time: one device session, no
// underrun, and the card gets them back to back.
TEST(Playback, ShortTracksPlayGaplessInDirectInput) {
    TempDir dir;
    std::vector<std::string> paths;
    std::vector<uint8_t> want;
    for (int i = 0; i < 20; ++i) {
        paths.push_back(dir.file(std::to_string(i) + ".wav"));
        const std::vector<uint8_t> w =
            wav16(2205, [i](uint32_t n) { return uint16_t(i * 1000 + int(n) * 7); });
        writeFileBytes(paths.back(), w);
        for (size_t at = 44; at < w.size(); at += 2)  // left-justified in S32_LE
            want.insert(want.end(), {0, 0, w[at], w[at + 1]});
    }
    for (bool rw : {false, true}) {
        Card card({"S32_LE"}, 1);
        settings.periodFrames = settings.bufferFrames = -1;
        RunText text = play(paths, {true, rw}, kFormatS32);
        EXPECT_EQ(card.count("xrun"), 0u) << rw;
        EXPECT_EQ(card.count("open"), 1u);
        EXPECT_TRUE(card.capture() == want) << rw;
    }
}

// Full Memory asks first whether the decoded file fits; one that does not
// plays decoded as it goes, bit for bit, with a line that says so.
TEST(Playback, AFileTooLargeForMemoryPlaysDecodedAsItGoes) {
    const Fixture wav = fixture("wav-s16-44k1-stereo.wav");
    TempDir dir;
    writeFileBytes(dir.file("meminfo"), {'M', 'e', 'm', 'A', 'v', 'a', 'i', 'l', 'a', 'b', 'l',
                                         'e', ':', ' ', '5', '0', '0', ' ', 'k', 'B', '\n'});
    const std::string saved = meminfoPath;
    meminfoPath = dir.file("meminfo");
    for (bool rw : {false, true}) {
        Card card({"S32_LE"});
        RunText text = play({wav.path(), wav.path()}, {false, rw}, kFormatS32);
        EXPECT_NE(text.err.find(wav.path() + ": does not fit in memory (2 MiB needed, 1 MiB "
                                             "available); playing it decoded as it goes\n"),
                  std::string::npos)
            << text.err;
        const std::vector<uint8_t> one = expectedCardBytes(wav, kFormatS32);
        std::vector<uint8_t> want = one;
        want.insert(want.end(), one.begin(), one.end());
        EXPECT_TRUE(card.capture() == want);
        EXPECT_TRUE(text.err.ends_with("\n> "));
    }
    meminfoPath = saved;
}

TEST(Playback, UndecodableFileEndsTheRunWithTheRoutinesReport) {
    TempDir dir;
    const std::string junk = dir.file("junk.flac");
    const Fixture wav = fixture("wav-s16-44k1-stereo.wav");
    writeFileBytes(junk, std::vector<uint8_t>(4000, 0x5A));
    for (bool di : {false, true})
        for (int32_t format : {kFormatS32, kFormatS24_3, kFormatS16}) {
            SCOPED_TRACE(testing::Message() << di << " " << formatName(format));
            Card card({formatName(format)});
            playerControl.stopRequest.store(1);  // a stale request must be cleared too
            RunText text = play({junk, wav.path()}, {di, false}, format);
            const std::string error = "\nGetInfo error\n";
            EXPECT_EQ(text.out, di ? error : "");
            // After the report's own words, the file and the decoder's reason.
            const size_t why = text.err.find(junk + ": ");
            ASSERT_NE(why, std::string::npos) << text.err;
            const std::string reason = text.err.substr(why, text.err.find('\n', why) + 1 - why);
            EXPECT_EQ(text.err,
                      (di ? "" : error) + reason + (!di && format == kFormatS32 ? "> " : "\n> "));
            EXPECT_TRUE(card.capture().empty());  // the rest of the queue is not tried
            EXPECT_EQ(
                std::tuple(playerControl.playerRunning.load(), playerControl.stopRequest.load()),
                std::tuple(0, 0));
            EXPECT_EQ(playerControl.playerThread.load(), pthread_t(0));
        }
    // A later file that fails still lets the earlier one play out.
    Card card({"S32_LE"});
    RunText text = play({wav.path(), junk}, {true, true}, kFormatS32);
    EXPECT_TRUE(text.err.ends_with("\n> "));
    EXPECT_EQ(card.capture(), expectedCardBytes(wav, kFormatS32));
    EXPECT_EQ(card.count("close"), 1u);
}

// Cards that are not ideal: ones that refuse a rate, a channel count or a
// format, get suspended, unplugged or are held busy. A file is never played in
// anything but its own format; the queue goes on with the files the card takes.
class CardHabits : public testing::TestWithParam<Mode> {};

TEST_P(CardHabits, RefusedFilesPlayNoFrameAndTheQueueGoesOn) {
    const Fixture hiRate = fixture("flac-s24-96k-stereo.flac"),
                  sixCh = fixture("flac-s24-48k-6ch.flac"), dsd = fixture("dsf-dsd64-2ch.dsf"),
                  plain = fixture("flac-s16-44k1-stereo.flac");
    Card card({"S32_LE"});
    card.config.rates = {44100, 48000, 88200};
    card.config.channelsMax = 2;
    card.reconfigure();
    settings.dsdMode = kDsdDop;  // DoP of DSD64 needs 176400 Hz
    RunText text =
        play({hiRate.path(), sixCh.path(), dsd.path(), plain.path()}, GetParam(), kFormatS32);
    for (const std::string& want :
         {hiRate.path() + ": card does not take 96000 Hz (it takes 44100, 48000, 88200)\n",
          sixCh.path() + ": card does not take 6 channels (it takes 1 to 2 channels)\n",
          dsd.path() + ": card does not take 176400 Hz (it takes 44100, 48000, 88200)\n"})
        EXPECT_NE(text.err.find(want), std::string::npos) << text.err;
    EXPECT_TRUE(card.capture() == expectedCardBytes(plain, kFormatS32));
    const auto hw = eventsOfKind(readVdacLog(card.config.logPath), "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields.at("rate"), "44100");
    EXPECT_EQ(playerControl.runFailed.load(), 1);
    EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
}

// A card with none of the player's PCM formats is told so and fed nothing.
TEST_P(CardHabits, AFormatTheCardLacksIsNeverPacked) {
    const Fixture wav = fixture("wav-s16-44k1-stereo.wav");
    Card card({"FLOAT_LE", "S24_LE"});
    RunText text = play({wav.path()}, GetParam(), kFormatS16);
    EXPECT_NE(text.err.find(wav.path() + ": card does not take S16_LE (it takes S24_LE, FLOAT_LE)"),
              std::string::npos)
        << text.err;
    EXPECT_TRUE(card.capture().empty());
    EXPECT_EQ(card.count("hw_params"), 0u);
}

// A suspended card is resumed and loses no frame; one that cannot resume is
// prepared and the file plays on to its end; an unplugged one ends the run
// with its name and the prompt, never a hang or a spin. (A card that cannot
// rewind, at a pause: tests/engine/controls_test.cpp.)
TEST_P(CardHabits, SuspendAndUnplugMidFile) {
    const Fixture f = fixture("wav-s16-44k1-stereo.wav");
    const std::vector<uint8_t> ref = expectedCardBytes(f, kFormatS32);
    for (bool resume : {true, false}) {
        SCOPED_TRACE(resume ? "resume" : "no resume");
        Card card({"S32_LE"});
        card.config.suspendAfter = 50000;
        card.config.resumeAllowed = resume;
        card.reconfigure();
        RunText text = play({f.path()}, GetParam(), kFormatS32);
        EXPECT_EQ(card.count("suspend"), 1u);
        EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
        const std::vector<uint8_t> cap = card.capture();
        if (resume) {
            EXPECT_TRUE(cap == ref) << cap.size() << " of " << ref.size();
        } else {
            // What the card held when it stopped is gone with it; the rest plays.
            ASSERT_GE(cap.size(), 50000u * 8);
            EXPECT_TRUE(std::equal(cap.begin(), cap.begin() + 50000 * 8, ref.begin()));
            EXPECT_TRUE(std::equal(cap.end() - 8192, cap.end(), ref.end() - 8192));
        }
    }
    Card card({"S32_LE"});
    card.config.disconnectAfter = 50000;
    card.reconfigure();
    RunText text = play({f.path(), f.path()}, GetParam(), kFormatS32);
    EXPECT_NE(text.err.find("\nsound device \"default\" is gone: No such device\n"),
              std::string::npos)
        << text.err;
    EXPECT_TRUE(text.err.ends_with("\n> ")) << text.err;
    EXPECT_EQ(card.capture().size(), 50000u * 8);
    EXPECT_EQ(card.count("close"), 1u);
    EXPECT_EQ(playerControl.runFailed.load(), 1);
}

// Busy at open: the message says so and, where the kernel shows it, who
// holds the card.
TEST(CardHabit, BusyCardNamesItsHolder) {
    const Fixture f = fixture("wav-s16-44k1-stereo.wav");
    Card card({"S32_LE"});
    card.config.busy = true;
    card.reconfigure();
    const std::string saved = procAsoundRoot;
    for (bool shown : {false, true}) {
        procAsoundRoot = card.dir.file("asound");
        if (shown) {
            std::filesystem::create_directories(procAsoundRoot + "/card1/pcm0p/sub0");
            const std::string status = "state: R\nowner_pid   : 42\n";
            writeFileBytes(procAsoundRoot + "/card1/pcm0p/sub0/status",
                           {status.begin(), status.end()});
        }
        RunText text = play({f.path()}, {true, false}, kFormatS32);
        const std::string why = shown ? "in use by process 42" : "another program is using it";
        EXPECT_NE(
            text.err.find(f.path() + ": unable to open pcm device: Device or resource busy (" +
                          why + ")\n"),
            std::string::npos)
            << text.err;
        EXPECT_TRUE(text.err.ends_with("\n> "));
    }
    procAsoundRoot = saved;
    EXPECT_TRUE(card.capture().empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, CardHabits, testing::ValuesIn(kModes),
                         [](const auto& info) { return modeName(info.param); });

TEST(DecoderSetup, DsdFilesAreKnownByTheirSuffixOnly) {
    for (const char* p : {"/a/b.dsf", "/a/b.DSF", "/a/b.dff", "/a/b.DFF"})
        EXPECT_TRUE(isDsdFile(p));
    for (const char* p : {"/a/b.Dsf", "/a/b.dsff", "/a/dsf", "/a/b.wav", "/a/b.dsf/"})
        EXPECT_FALSE(isDsdFile(p)) << p;
}

}  // namespace
