// Page positions, and the listed page's lines by entry kind.
#include <gtest/gtest.h>

#include "library/folder.h"
#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

TEST(Paging, PositionRule) {
    struct Case {
        int position, lines, entries, down, up;
    } cases[] = {
        {0, 100, 150, 100, 0},  // 150 entries: 100, then the last full page
        {100, 100, 150, 50, 0},
        {0, 100, 10, 0, 0},  // fewer entries than a page
        {6, 3, 10, 9, 3},
        {9, 3, 10, 7, 6},
        {0, 0, 5, 1, 0},  // page length below 1 counts as 1
        {2, -7, 5, 3, 1},
        {0, 5, 0, 0, 0},                       // empty list
        {2147483600, 100, 10, 0, 2147483500},  // damaged positions do not overflow
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.position << "/" << c.lines << "/" << c.entries);
        EXPECT_EQ(c.down, pageDownPosition(c.position, c.lines, c.entries));
        EXPECT_EQ(c.up, pageUpPosition(c.position, c.lines));
    }
}

std::string page(int position, int lines, bool colours, int depth = 4) {
    setColors(colours);
    settings.folderDepth = depth;
    settings.listPositions[depth] = position;
    settings.linesPerPage = lines;
    testfiles::Capture out(stdout);
    printFolderPage();
    return out.text();
}

TEST(Listing, LinesByKindPageBoundsAndRoot) {
    folderList = {"..", "Scans", "01 Intro.flac", "02 Song.WV", "album.cue", "zz"};
    listedFolder = "/music/Album";
    atRoot = false;
    const std::string d = "/music/Album/";
    struct Case {
        int position, lines;
        bool colours;
        std::string expected;
    } cases[] = {
        {0, 100, false,
         "\n0    ..\n1    " + d + "Scans\n2    " + d + "01 Intro.flac\n3    " + d +
             "02 Song.WV\n4    " + d + "album.cue\n5    " + d + "zz\n"},
        {1, 4, true,
         "\n1    " + d + "Scans\n\033[1;32m2    " + d + "01 Intro.flac\033[0m\n\033[1;32m3    " +
             d + "02 Song.WV\033[0m\n\033[1;33m4    " + d + "album.cue\033[0m\n"},
        {4, 3, false, "\n4    " + d + "album.cue\n5    " + d + "zz\n"},
        {1, -2, false, "\n1    " + d + "Scans\n"},
        {6, 3, false, ""},  // past the end: not even the empty line
    };
    for (const Case& c : cases) EXPECT_EQ(c.expected, page(c.position, c.lines, c.colours));
    folderList = {"bin", "home"};
    listedFolder = "/";
    atRoot = true;
    EXPECT_EQ("\n0    /bin\n1    /home\n", page(0, 100, false, 0));  // no double slash
    settings = Settings{};
    setColors(false);
    folderList.clear();
}

}  // namespace
