// The whole program on the virtual card: pick a file of a folder and let the
// album play from there to its end.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/harness.h"

namespace {

namespace fs = std::filesystem;

// Left-justified 32-bit reference words are exactly what an S32_LE card takes.
std::vector<uint8_t> reference(const std::string& file) {
    return readFileBytes(std::string(TOVRIN_FIXTURES_DIR) + "/" + file + ".s32");
}

bool waitForSize(const PlayerFixture& fx, size_t want, double seconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (fx.captured().size() < want) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

TEST(AlbumPlay, SelectedFileAndTheRestOfTheFolderPlayBitExact) {
    PlayerFixture fx;
    const std::string album = fx.workdir + "/album";
    fs::create_directories(album);
    const std::pair<const char*, const char*> tracks[] = {
        {"01 first.flac", "flac-s16-44k1-stereo.flac"},
        {"02 second.wav", "wav-s16-44k1-stereo.wav"},
        {"03 third.m4a", "alac-s16-44k1-stereo.m4a"},
    };
    for (const auto& [name, source] : tracks)
        fs::copy_file(std::string(TOVRIN_FIXTURES_DIR) + "/" + source, album + "/" + name);
    writeFileBytes(fx.workdir + "/path.txt", std::vector<uint8_t>(album.begin(), album.end()));

    std::vector<uint8_t> want = reference(tracks[1].second);
    std::vector<uint8_t> third = reference(tracks[2].second);
    want.insert(want.end(), third.begin(), third.end());

    ProgramRun run;
    ASSERT_TRUE(fx.start(run, {})) << run.err();
    ASSERT_TRUE(run.waitFor(Stream::Out, "03 third.m4a", 20)) << run.out();
    size_t errMark = run.err().size();
    run.send("2\n");  // entry 0 is "..", so 2 is the second file
    ASSERT_TRUE(run.waitFor(Stream::Out, "(3/3)", 60)) << run.out() << run.err();
    ASSERT_TRUE(waitForSize(fx, want.size(), 60));
    // The natural end of the queue brings the prompt back.
    ASSERT_TRUE(run.waitFor(Stream::Err, "\n> ", 30, errMark)) << run.err();
    EXPECT_EQ(fx.captured(), want);
    EXPECT_NE(run.out().find("(2/3)"), std::string::npos);
    EXPECT_EQ(run.out().find("(1/3)"), std::string::npos);
    EXPECT_EQ(eventsOfKind(fx.events(), "drop").size(), 0u);
    // Full Memory: a session per file. The log is another process's file, so
    // give its last lines a moment to land under a loaded machine.
    for (int i = 0; i < 100 && eventsOfKind(fx.events(), "drain").size() < 2; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(eventsOfKind(fx.events(), "drain").size(), 2u);

    run.send("x\n");
    EXPECT_EQ(run.waitExit(20), 0);
}

}  // namespace
