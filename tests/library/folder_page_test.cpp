#include <gtest/gtest.h>

#include "library/folder.h"
#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

TEST(Paging, PositionRule) {
    struct Case {
        int position, lines, entries, down, up;
    };
    const Case cases[] = {
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

class Listing : public ::testing::Test {
  protected:
    void SetUp() override {
        settings = Settings{};
        folderList = {"..", "Scans", "01 Intro.flac", "02 Song.WV", "album.cue", "zz"};
        listedFolder = "/music/Album";
        atRoot = false;
    }
    void TearDown() override {
        settings = Settings{};
        setColors(false);
        folderList.clear();
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
};

TEST_F(Listing, LinesByKindWithAndWithoutColours) {
    EXPECT_EQ(
        "\n0    ..\n"
        "1    /music/Album/Scans\n"
        "2    /music/Album/01 Intro.flac\n"
        "3    /music/Album/02 Song.WV\n"
        "4    /music/Album/album.cue\n"
        "5    /music/Album/zz\n",
        page(0, 100, false));
    EXPECT_EQ(
        "\n0    ..\n"
        "1    /music/Album/Scans\n"
        "\033[1;32m2    /music/Album/01 Intro.flac\033[0m\n"
        "\033[1;32m3    /music/Album/02 Song.WV\033[0m\n"
        "\033[1;33m4    /music/Album/album.cue\033[0m\n"
        "5    /music/Album/zz\n",
        page(0, 100, true));
}

TEST_F(Listing, PageBoundsLengthAndRoot) {
    struct Case {
        int position, lines;
        const char* expected;
    };
    const Case cases[] = {
        {0, 3, "\n0    ..\n1    /music/Album/Scans\n2    /music/Album/01 Intro.flac\n"},
        {4, 3, "\n4    /music/Album/album.cue\n5    /music/Album/zz\n"},
        {1, -2, "\n1    /music/Album/Scans\n"},
        {6, 3, ""},  // past the end: not even the empty line
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.expected, page(c.position, c.lines, false)) << c.position << "/" << c.lines;
    folderList = {"bin", "home"};
    listedFolder = "/";
    atRoot = true;
    EXPECT_EQ("\n0    /bin\n1    /home\n", page(0, 100, false, 0));  // no double slash
}

}  // namespace
