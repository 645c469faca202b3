// Which files a folder lists, in which order, and folders that cannot be read.
#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "library/folder.h"
#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

namespace fs = std::filesystem;

TEST(PlayableFile, SuffixesInExactlyTwoCases) {
    for (std::string suffix :
         {"wav", "aiff", "ogg", "mp3", "flac", "ape", "m4a", "mp4", "aac", "dff", "dsf", "wv"}) {
        std::string upper = suffix;
        std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
        EXPECT_TRUE(isPlayableFile(("x." + suffix).c_str()) &&
                    isPlayableFile(("x." + upper).c_str()))
            << suffix;
    }
    for (const char* name : {".wv", "/music/a b/01.flac", "a.cue", "A.CUE", ".cue"})
        EXPECT_NE(isPlayableFile(name), isCueFile(name)) << name;
    for (const char* name : {"x.Flac", "wv", "x.flac ", "x.flac.txt", "x.aif", "", "x_wav", "a.Cue",
                             "cue", "a.cue.bak"})
        EXPECT_FALSE(isPlayableFile(name) || isCueFile(name)) << name;
}

// Scans into a list holding a stale entry; returns the list, and what was printed.
FolderList scan(const std::string& path, std::string* out = nullptr, std::string* err = nullptr) {
    FolderList list{"stale"};
    testfiles::Capture o(stdout), e(stderr);
    scanFolder(path.c_str(), list);
    std::string printed = o.text(), complaint = e.text();
    if (out) *out = printed;
    if (err) *err = complaint;
    return list;
}

TEST(FolderScan, GroupsFiltersAndByteOrder) {
    testfiles::TempDir dir;
    for (const char* f : {"b.flac", "A.FLAC", "c.Flac", "notes.txt", "disc.cue", "B.CUE",
                          "10 Track.wav", "2 Track.wav", "\xc3\xa9t\xc3\xa9.mp3", "z.mp3"})
        testfiles::writeFile(dir / f, "");
    for (const char* d : {"Art", ".hidden", "live.flac", "a folder"}) fs::create_directory(dir / d);
    fs::create_symlink(dir / "Art", dir / "link to art");
    fs::create_symlink(dir / "nowhere", dir / "broken.mp3");
    fs::create_symlink(dir / "nowhere", dir / "broken dir");
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
    EXPECT_EQ(expected, scan(dir.path()));
    EXPECT_EQ(dir.path(), listedFolder);
    EXPECT_FALSE(atRoot);
}

TEST(FolderScan, EmptyRootAndMissingFolders) {
    testfiles::TempDir dir;
    fs::create_directory(dir / "empty");
    std::string out, err;
    EXPECT_EQ(FolderList{".."}, scan(dir / "empty", &out));
    EXPECT_EQ("\n0    ..\n", out);
    FolderList list = scan("/");
    EXPECT_TRUE(atRoot);
    ASSERT_FALSE(list.empty());
    EXPECT_NE("..", list[0]);
    EXPECT_TRUE(scan(dir / "gone", &out, &err).empty());
    EXPECT_EQ("", out);
    EXPECT_EQ("Can't read " + dir / "gone" + "\n", err);
    EXPECT_EQ(dir / "gone", listedFolder);
    EXPECT_FALSE(atRoot);
}

}  // namespace
