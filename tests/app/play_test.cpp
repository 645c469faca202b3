// The whole program on the virtual card: an album played from a chosen file
// to its end, and CUE sheets: the printed track list, N.T and .T.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/support/harness.h"

namespace {

namespace fs = std::filesystem;

constexpr double kWait = 30;                // seconds; generous for sanitizer builds
constexpr size_t kSecondBytes = 44100 * 8;  // stereo S32 frames of one second

// The sheet's text: Cyrillic and a character outside the Basic Multilingual
// Plane, a pre-gap, a track performer, TITLE before and after PERFORMER.
const char16_t kSheet[] =
    u"PERFORMER \"Группа\"\r\n"
    u"TITLE \"Live 🎸\"\r\n"
    u"REM DATE 1999\r\n"
    u"FILE \"album.flac\" WAVE\r\n"
    u"  TRACK 01 AUDIO\r\n"
    u"    TITLE \"Один\"\r\n"
    u"    INDEX 01 00:00:00\r\n"
    u"  TRACK 02 AUDIO\r\n"
    u"    PERFORMER \"Guest\"\r\n"
    u"    TITLE \"Два\"\r\n"
    u"    INDEX 00 00:01:00\r\n"
    u"    INDEX 01 00:01:50\r\n"
    u"  TRACK 03 AUDIO\r\n"
    u"    TITLE \"Три\"\r\n"
    u"    INDEX 01 00:02:00\r\n";

std::vector<uint8_t> utf16le(const std::u16string& text) {
    std::vector<uint8_t> out{0xFF, 0xFE};
    for (char16_t unit : text) {
        out.push_back(uint8_t(unit & 0xFF));
        out.push_back(uint8_t(unit >> 8));
    }
    return out;
}

std::string sheetPrint(bool colors) {
    const std::string cyan = colors ? "\033[0;36m" : "", yellow = colors ? "\033[1;33m" : "",
                      reset = colors ? "\033[0m" : "";
    auto track = [&](const char* n, const char* at, const char* name) {
        return yellow + n + "   " + cyan + at + "   " + yellow + name + "\n";
    };
    return cyan + "Artist: " + yellow + "Группа" + cyan + "   Album: " + yellow + "Live 🎸" + cyan +
           "   Year: " + yellow + "1999\n" + track("01", "00:00:00", "Один") +
           track("02", "00:01:50", "Guest - Два") + track("03", "00:02:00", "Три") + reset + "\n";
}

// Left-justified 32-bit reference words are exactly what an S32_LE card takes.
std::vector<uint8_t> reference(const std::string& file = "flac-s16-44k1-stereo.flac") {
    return readFileBytes(std::string(TOVRIN_FIXTURES_DIR) + "/" + file + ".s32");
}

std::vector<uint8_t> tail(const std::vector<uint8_t>& bytes, size_t from) {
    return {bytes.begin() + std::min(from, bytes.size()), bytes.end()};
}

// A folder "album" that path.txt names, the program started on it.
class Console : public testing::Test {
  protected:
    explicit Console(VdacConfig config = {}) : fx_(std::move(config)) {
        album_ = fx_.workdir + "/album";
        fs::create_directories(album_);
        writeFileBytes(fx_.workdir + "/path.txt",
                       std::vector<uint8_t>(album_.begin(), album_.end()));
    }
    void copyFixture(const std::string& source, const std::string& name) {
        fs::copy_file(std::string(TOVRIN_FIXTURES_DIR) + "/" + source, album_ + "/" + name);
    }
    void start(const std::string& lastEntry) {
        ASSERT_TRUE(fx_.start(run_)) << run_.err();
        ASSERT_TRUE(run_.waitFor(Stream::Out, lastEntry, kWait)) << run_.out();
        ASSERT_TRUE(run_.waitFor(Stream::Err, "\n> ", kWait)) << run_.err();
    }
    void TearDown() override {
        run_.send("x\n");
        EXPECT_EQ(run_.waitExit(kWait), 0);
    }
    // What one idle command prints on stdout, once the next prompt is up.
    std::string idle(const std::string& line) {
        size_t out = run_.out().size(), err = run_.err().size();
        run_.send(line);
        EXPECT_TRUE(run_.waitFor(Stream::Err, "\n> ", kWait, err)) << line << ": " << run_.err();
        return run_.out().substr(out);
    }
    // Plays a command's file to its end; the capture grows by what it played.
    std::vector<uint8_t> play(const std::string& line) {
        const size_t before = fx_.captured().size();
        idle(line);
        return tail(fx_.captured(), before);
    }
    PlayerFixture fx_;
    ProgramRun run_;
    std::string album_;
};

TEST_F(Console, SelectedFileAndTheRestOfTheFolderPlayBitExact) {
    copyFixture("flac-s16-44k1-stereo.flac", "01 first.flac");
    copyFixture("wav-s16-44k1-stereo.wav", "02 second.wav");
    copyFixture("alac-s16-44k1-stereo.m4a", "03 third.m4a");
    start("03 third.m4a");
    std::vector<uint8_t> want = reference("wav-s16-44k1-stereo.wav");
    const std::vector<uint8_t> third = reference("alac-s16-44k1-stereo.m4a");
    want.insert(want.end(), third.begin(), third.end());

    EXPECT_EQ(play("2\n"), want);  // entry 0 is ".."
    EXPECT_NE(run_.out().find("(2/3)"), std::string::npos);
    EXPECT_NE(run_.out().find("Card: S32_LE, 44100 Hz, 2 channels, MMAP: bit-perfect\n"),
              std::string::npos)
        << run_.out();
    EXPECT_EQ(run_.out().find("(1/3)"), std::string::npos);
    // Full Memory: a session per file, each played out.
    EXPECT_EQ(eventsOfKind(fx_.events(), "drain").size(), 2u);
    EXPECT_TRUE(eventsOfKind(fx_.events(), "drop").empty());
}

// A card that plays at speed times real time.
VdacConfig paced(double speed) {
    VdacConfig config;
    config.speed = speed;
    return config;
}

class PacedConsole : public Console {
  protected:
    PacedConsole() : Console(paced(1)) {}
};

// A settings word typed with the play command waits until the player has
// started; by then it is a playing word (no seek), so the mode the player
// read is never changed under it. The report then shows what the card granted.
TEST_F(PacedConsole, WordsTypedWhilePlayingStartsWaitForThePlayer) {
    copyFixture("flac-s16-44k1-stereo.flac", "01.flac");
    start("01.flac");
    size_t err = run_.err().size(), out = run_.out().size();
    run_.send("1\ndi\n");
    ASSERT_TRUE(run_.waitFor(Stream::Out, "Card: ", kWait, out)) << run_.out();
    run_.send("s\n");
    ASSERT_TRUE(run_.waitFor(Stream::Err, "\n> ", kWait, err)) << run_.err();
    const std::string report = idle("st\n");
    EXPECT_NE(report.find("Mode: Full Memory\n"), std::string::npos) << report;
    EXPECT_NE(report.find("ALSA granted: period 5512 frames, buffer 22050 frames\n"),
              std::string::npos)
        << report;
    EXPECT_EQ(eventsOfKind(fx_.events(), "drop").size(), 1u);
}

// A rip of one file per track with gaps appended, as rippers write it: each
// track plays from its own file, found by its name as written, by its name in
// another case, or under another playable suffix.
constexpr const char* kFileSheet =
    "PERFORMER \"Band\"\r\nTITLE \"Split\"\r\n"
    "FILE \"01 a.flac\" WAVE\r\n  TRACK 01 AUDIO\r\n    INDEX 01 00:00:00\r\n"
    "  TRACK 02 AUDIO\r\n    INDEX 00 00:02:50\r\n"
    "FILE \"02 b.wav\" WAVE\r\n    INDEX 01 00:00:00\r\n"
    "  TRACK 03 AUDIO\r\n    INDEX 01 00:01:10\r\n"
    "FILE \"03 C.FLAC\" WAVE\r\n  TRACK 04 AUDIO\r\n    INDEX 01 00:00:00\r\n"
    "FILE \"04 d.wav\" WAVE\r\n  TRACK 05 AUDIO\r\n    INDEX 01 00:00:30\r\n";

class FileSheet : public PacedConsole {
  protected:
    void SetUp() override {
        copyFixture("flac-s16-44k1-stereo.flac", "01 a.flac");
        copyFixture("wav-s16-44k1-stereo.wav", "02 b.wav");
        copyFixture("flac-s16-44k1-stereo.flac", "03 c.flac");
        copyFixture("aiff-s16-44k1-stereo.aiff", "04 d.aiff");
        writeFileBytes(album_ + "/album.cue", {kFileSheet, kFileSheet + strlen(kFileSheet)});
        start("album.cue");  // entries: 1-4 the files, 5 the sheet
        idle("5\n");
    }
};

TEST_F(FileSheet, TracksPlayFromTheirOwnFiles) {
    const std::vector<uint8_t> b = reference("wav-s16-44k1-stereo.wav"),
                               d = reference("aiff-s16-44k1-stereo.aiff");
    // N.T plays the track's file, whatever N names, and the folder after it.
    size_t before = fx_.captured().size(), err = run_.err().size();
    run_.send("1.3\n");
    ASSERT_TRUE(run_.waitFor(Stream::Out, "02 b.wav", kWait)) << run_.out();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    run_.send("s\n");
    ASSERT_TRUE(run_.waitFor(Stream::Err, "\n> ", kWait, err)) << run_.err();
    std::vector<uint8_t> got = tail(fx_.captured(), before);
    const size_t from = 85 * 588 * 8;  // 00:01:10
    ASSERT_FALSE(got.empty());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), b.begin() + long(from)));

    // .T while playing moves to the other file: 03 C.FLAC is "03 c.flac" on
    // disk, and "04 d.wav" was re-encoded to "04 d.aiff".
    for (const auto& [jump, name, ref, at] :
         {std::tuple{".4\n", "03 c.flac", reference(), size_t(0)},
          std::tuple{".5\n", "04 d.aiff", d, size_t(30 * 588 * 8)}}) {
        SCOPED_TRACE(jump);
        run_.send("1\n");
        ASSERT_TRUE(run_.waitFor(Stream::Out, "(1/4)", kWait, run_.out().size()));
        size_t out = run_.out().size();
        err = run_.err().size();
        run_.send(jump);
        ASSERT_TRUE(run_.waitFor(Stream::Out, name, kWait, out)) << run_.out();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        run_.send("s\n");
        ASSERT_TRUE(run_.waitFor(Stream::Err, "\n> ", kWait, err)) << run_.err();
        // The last device session (the capture's tail) is the track's file.
        const std::vector<VdacEvent> closes = eventsOfKind(fx_.events(), "close");
        ASSERT_FALSE(closes.empty());
        got = fx_.captured();
        const std::vector<uint8_t> last = tail(got, got.size() - closes.back().bytes);
        ASSERT_FALSE(last.empty());
        EXPECT_TRUE(std::equal(last.begin(), last.end(), ref.begin() + long(at)));
    }
}

// Entries: 0 "..", 1 album.flac, 2 album.cue, 3 empty.cue, 4 gone.cue.
class CueConsole : public Console {
  protected:
    explicit CueConsole(VdacConfig config = {}) : Console(std::move(config)) {}
    void SetUp() override {
        copyFixture("flac-s16-44k1-stereo.flac", "album.flac");
        writeFileBytes(album_ + "/album.cue", utf16le(kSheet));
        writeFileBytes(album_ + "/empty.cue", {});
        writeFileBytes(album_ + "/gone.cue", {'X'});
        start("gone.cue");
    }
};

TEST_F(CueConsole, SheetPrintsAndStartsFilesAtItsTracks) {
    // Without a settings file the colour flag is on but nothing is coloured.
    EXPECT_EQ(idle("2\n"), sheetPrint(false));
    EXPECT_EQ(idle("cl1\n"), "Colors mode on\n");
    EXPECT_EQ(idle("2\n"), sheetPrint(true));

    const std::vector<uint8_t> ref = reference();
    // On the exact frame: 00:01:50 is 125 CD frames of 588 samples.
    EXPECT_EQ(play("1.2\n"), tail(ref, 125 * 588 * 8));
    EXPECT_EQ(play("1.3\n"), tail(ref, 2 * kSecondBytes));
    EXPECT_EQ(play("1.4\n"), ref);  // one past the last track: from the start

    // An empty sheet prints an empty header and empties the table.
    EXPECT_EQ(idle("3\n"), "\n\033[0m\n");
    EXPECT_EQ(play("1.2\n"), ref);

    // A sheet gone since the listing prints nothing.
    fs::remove(album_ + "/gone.cue");
    EXPECT_EQ(idle("4\n"), "");
    EXPECT_TRUE(eventsOfKind(fx_.events(), "xrun").empty());
}

// Real-time pacing and a short buffer, so the file is still playing when the
// jump arrives.
class CueJump : public CueConsole {
  protected:
    CueJump() : CueConsole(paced(0.5)) {}  // the 3 s file lasts 6 s
};

TEST_F(CueJump, DotTrackJumpsWithinTheRunningFile) {
    idle("bt200000\n");
    idle("2\n");
    const std::vector<uint8_t> ref = reference();
    size_t out = run_.out().size(), err = run_.err().size();
    run_.send("1\n");
    ASSERT_TRUE(run_.waitFor(Stream::Out, "(1/1)", kWait, out)) << run_.out();
    // Some of the file is heard first: a pause takes back only what was not.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    run_.send("b\n");  // paused, the jump cannot race the end of the file
    run_.send(".3\n");
    ASSERT_TRUE(run_.waitFor(Stream::Err, "\n> ", kWait, err)) << run_.err();

    // What was played before the jump, then track 3 to the end.
    const std::vector<uint8_t> got = fx_.captured();
    const std::vector<uint8_t> after = tail(ref, 2 * kSecondBytes);
    ASSERT_GT(got.size(), after.size());
    const size_t before = got.size() - after.size();
    EXPECT_LT(before, 2 * kSecondBytes) << "the jump came too late to show";
    EXPECT_EQ(tail(got, before), after);
    EXPECT_TRUE(std::equal(got.begin(), got.begin() + before, ref.begin()));
}

}  // namespace
