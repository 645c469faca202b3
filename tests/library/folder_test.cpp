// Which files a folder lists and in which order, page positions, and the
// listed page's lines by entry kind.
#include <array>
#include <filesystem>

#include <gtest/gtest.h>

#include "library/cue.h"
#include "library/folder.h"
#include "settings/settings.h"
#include "tests/support/vdac.h"

namespace {

namespace fs = std::filesystem;

TEST(PlayableFile, SuffixesInExactlyTwoCases) {
    const char* playable[] = {
        "x.wav",  "x.WAV", "x.aiff", "x.AIFF", "x.ogg", "x.OGG", "x.mp3", "x.MP3",     "x.flac",
        "x.FLAC", "x.ape", "x.APE",  "x.m4a",  "x.M4A", "x.mp4", "x.MP4", "x.aac",     "x.AAC",
        "x.dff",  "x.DFF", "x.dsf",  "x.DSF",  "x.wv",  "x.WV",  ".wv",   "a b/1.ape",
    };
    for (const char* name : playable) EXPECT_TRUE(isPlayableFile(name) && !isCueFile(name)) << name;
    for (const char* name : {"a.cue", "A.CUE", ".cue"})
        EXPECT_TRUE(isCueFile(name) && !isPlayableFile(name)) << name;
    for (const char* name : {"x.Flac", "wv", "x.flac ", "x.flac.txt", "x.aif", "", "x_wav", "a.Cue",
                             "cue", "a.cue.bak"})
        EXPECT_FALSE(isPlayableFile(name) || isCueFile(name)) << name;
}

// Scans into a list holding a stale entry; returns the entries and stdout, stderr.
std::array<std::string, 3> scan(const std::string& path) {
    FolderList list{"stale"};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    scanFolder(path.c_str(), list);
    std::string listed;
    for (const std::string& name : list) listed += name + "|";
    return {listed, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(FolderScan, GroupsFiltersByteOrderEmptyRootAndMissingFolders) {
    TempDir dir;
    for (const char* f : {"b.flac", "A.FLAC", "c.Flac", "notes.txt", "disc.cue", "B.CUE",
                          "10 Track.wav", "2 Track.wav", "\xc3\xa9t\xc3\xa9.mp3", "z.mp3"})
        writeFileBytes(dir.file(f), {});
    for (const char* d : {"Art", ".hidden", "live.flac", "a folder", "Art/empty"})
        fs::create_directory(dir.file(d));
    fs::create_symlink(dir.file("Art"), dir.file("link to art"));
    fs::create_symlink(dir.file("nowhere"), dir.file("broken.mp3"));
    fs::create_symlink(dir.file("nowhere"), dir.file("broken dir"));
    EXPECT_EQ(scan(dir.path())[0],
              "..|.hidden|Art|a folder|link to art|live.flac|10 Track.wav|2 Track.wav|"
              "A.FLAC|b.flac|broken.mp3|z.mp3|\xc3\xa9t\xc3\xa9.mp3|B.CUE|disc.cue|");
    EXPECT_EQ(scan(dir.file("Art/empty")), (std::array<std::string, 3>{"..|", "\n0    ..\n", ""}));
    const std::string root = scan("/")[0];
    EXPECT_FALSE(root.empty() || root.rfind("..|", 0) == 0) << root;
    EXPECT_TRUE(atRoot);
    EXPECT_EQ(scan(dir.file("gone")),
              (std::array<std::string, 3>{"", "", "Can't read " + dir.file("gone") + "\n"}));
    EXPECT_EQ(dir.file("gone"), listedFolder);
    EXPECT_FALSE(atRoot);
}

TEST(Paging, PositionRule) {
    // position, lines, entries, then down and up; a page length below 1 counts as 1
    const std::array<int, 5> cases[] = {
        {0, 100, 150, 100, 0}, {100, 100, 150, 50, 0}, {0, 100, 10, 0, 0},
        {6, 3, 10, 9, 3},      {9, 3, 10, 7, 6},       {0, 0, 5, 1, 0},
        {2, -7, 5, 3, 1},      {0, 5, 0, 0, 0},        {2147483600, 100, 10, 0, 2147483500}};
    for (auto [position, lines, entries, down, up] : cases) {
        SCOPED_TRACE(testing::Message() << position << "/" << lines << "/" << entries);
        EXPECT_EQ(down, pageDownPosition(position, lines, entries));
        EXPECT_EQ(up, pageUpPosition(position, lines));
    }
}

std::string page(int position, int lines, bool colours, int depth = 4) {
    setColors(colours);
    settings.folderDepth = depth;
    settings.listPositions[depth] = position;
    settings.linesPerPage = lines;
    testing::internal::CaptureStdout();
    printFolderPage();
    return testing::internal::GetCapturedStdout();
}

TEST(Listing, LinesByKindPageBoundsAndRoot) {
    folderList = {"..", "Scans", "01 Intro.flac", "02 Song.WV", "album.cue", "zz"};
    listedFolder = "/music/Album";
    atRoot = false;
    const std::string d = "/music/Album/";
    EXPECT_EQ(page(1, 4, true), "\n1    " + d + "Scans\n\033[1;32m2    " + d +
                                    "01 Intro.flac\033[0m\n\033[1;32m3    " + d +
                                    "02 Song.WV\033[0m\n\033[1;33m4    " + d +
                                    "album.cue\033[0m\n");
    EXPECT_EQ(page(1, -2, false), "\n1    " + d + "Scans\n");
    EXPECT_EQ(page(6, 3, false), "");  // past the end: not even the empty line
    folderList = {"bin", "home"};
    listedFolder = "/";
    atRoot = true;
    EXPECT_EQ("\n0    /bin\n1    /home\n", page(0, 100, false, 0));  // no double slash
}

// Names and sheet texts come from anyone's files: no control character may
// reach the terminal, while printable UTF-8 stays as it is.
TEST(Listing, ControlCharactersAreShownEscaped) {
    const std::pair<std::string, std::string> texts[] = {
        {"plain \xc3\xa9t\xc3\xa9 \xe2\x82\xac", "plain \xc3\xa9t\xc3\xa9 \xe2\x82\xac"},
        {"\x1b[31mred", "\\x1b[31mred"},
        {std::string("a\0b\tc\n\r\x7f", 8), "a\\x00b\\x09c\\x0a\\x0d\\x7f"},
        {"csi \xc2\x9b"
         "2J \xc2\xa0 \xc2",
         "csi \\xc2\\x9b2J \xc2\xa0 \xc2"},  // U+009B, U+00A0
    };
    for (const auto& [raw, shown] : texts) EXPECT_EQ(escapeControls(raw), shown);

    folderList = {"..", "\x1b]0;title\x07", "bell\x07.flac", "sheet\x1b.cue"};
    listedFolder = "/m\x1bx";
    atRoot = false;
    EXPECT_EQ(page(0, 10, false),
              "\n0    ..\n1    /m\\x1bx/\\x1b]0;title\\x07\n"
              "2    /m\\x1bx/bell\\x07.flac\n3    /m\\x1bx/sheet\\x1b.cue\n");

    TempDir dir;
    const std::string sheet =
        "PERFORMER \"\x1b[2JA\"\nTITLE \"T\x07\"\nREM DATE \"\x1b\"\n"
        "TITLE \"one\x1b[0m\"\nINDEX 01 00:\x1b:00\n";
    writeFileBytes(dir.file("s.cue"), {sheet.begin(), sheet.end()});
    setColors(false);
    testing::internal::CaptureStdout();
    loadCueSheet(dir.file("s.cue"));
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "Artist: \\x1b[2JA   Album: T\\x07   Year: \\x1b\n01   00:\\x1b:00   one\\x1b[0m\n\n");
}

}  // namespace
