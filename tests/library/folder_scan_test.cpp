#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "library/folder.h"
#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

namespace fs = std::filesystem;
using testfiles::Capture;

TEST(PlayableFile, SuffixesInExactlyTwoCases) {
    for (std::string suffix :
         {"wav", "aiff", "ogg", "mp3", "flac", "ape", "m4a", "mp4", "aac", "dff", "dsf", "wv"}) {
        std::string upper = suffix;
        std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
        EXPECT_TRUE(isPlayableFile(("x." + suffix).c_str()) &&
                    isPlayableFile(("x." + upper).c_str()))
            << suffix;
    }
    for (const char* name : {".wv", "/music/a b/01.flac"}) EXPECT_TRUE(isPlayableFile(name));
    for (const char* name :
         {"x.Flac", "wv", "x.flac ", "x.flac.txt", "x.aif", "", "x.cue", "x_wav"})
        EXPECT_FALSE(isPlayableFile(name)) << name;
    for (const char* name : {"a.cue", "A.CUE", ".cue"}) EXPECT_TRUE(isCueFile(name)) << name;
    for (const char* name : {"a.Cue", "cue", "a.cue.bak"}) EXPECT_FALSE(isCueFile(name)) << name;
}

class FolderScan : public ::testing::Test {
  protected:
    void SetUp() override {
        settings = Settings{};
        setColors(false);
    }
    void TearDown() override { settings = Settings{}; }
    void touch(const std::string& rel) { testfiles::writeFile(dir_ / rel, ""); }
    FolderList scan(const std::string& path, std::string* out = nullptr,
                    std::string* err = nullptr) {
        FolderList list{"stale"};
        Capture o(stdout), e(stderr);
        scanFolder(path.c_str(), list);
        std::string so = o.text(), se = e.text();
        if (out) *out = so;
        if (err) *err = se;
        return list;
    }
    testfiles::TempDir dir_;
};

TEST_F(FolderScan, GroupsFiltersAndByteOrder) {
    for (const char* f : {"b.flac", "A.FLAC", "c.Flac", "notes.txt", "disc.cue", "B.CUE",
                          "10 Track.wav", "2 Track.wav", "\xc3\xa9t\xc3\xa9.mp3", "z.mp3"})
        touch(f);
    for (const char* d : {"Art", ".hidden", "live.flac", "a folder"})
        fs::create_directory(dir_ / d);
    fs::create_symlink(dir_ / "Art", dir_ / "link to art");
    fs::create_symlink(dir_ / "nowhere", dir_ / "broken.mp3");
    fs::create_symlink(dir_ / "nowhere", dir_ / "broken dir");

    const FolderList expected = {"..",
                                 ".hidden",
                                 "Art",
                                 "a folder",
                                 "link to art",
                                 "live.flac",
                                 "10 Track.wav",
                                 "2 Track.wav",
                                 "A.FLAC",
                                 "b.flac",
                                 "broken.mp3",
                                 "z.mp3",
                                 "\xc3\xa9t\xc3\xa9.mp3",
                                 "B.CUE",
                                 "disc.cue"};
    EXPECT_EQ(expected, scan(dir_.path()));
    EXPECT_EQ(dir_.path(), listedFolder);
    EXPECT_FALSE(atRoot);
}

TEST_F(FolderScan, EmptyRootAndUnreadableFolders) {
    fs::create_directory(dir_ / "empty");
    std::string out, err;
    EXPECT_EQ(FolderList{".."}, scan(dir_ / "empty", &out));
    EXPECT_EQ("\n0    ..\n", out);

    FolderList list = scan("/");
    EXPECT_TRUE(atRoot);
    ASSERT_FALSE(list.empty());
    EXPECT_NE("..", list[0]);

    const std::string missing = dir_ / "gone";
    EXPECT_TRUE(scan(missing, &out, &err).empty());
    EXPECT_EQ("", out);
    EXPECT_EQ("Can't read " + missing + "\n", err);
    EXPECT_EQ(missing, listedFolder);
    EXPECT_FALSE(atRoot);
}

}  // namespace
