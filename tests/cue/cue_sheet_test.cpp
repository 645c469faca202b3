// Loading a sheet: the track table it leaves and the text it prints.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "library/cue.h"
#include "settings/settings.h"
#include "sheet_files.h"

namespace {

std::string loadAndCapture(const std::string& sheetBytes) {
    ScratchDir dir;
    std::string path = dir.write("album.cue", sheetBytes);
    return captureStdout([&] { loadCueSheet(path); });
}

class CueSheet : public testing::Test {
  protected:
    void SetUp() override { setColors(false); }
    void TearDown() override { setColors(false); }
};

const char kExampleSheet[] =
    "REM DATE 1999\n"
    "PERFORMER \"Band\"\n"
    "TITLE \"Live\"\n"
    "FILE \"live.flac\" WAVE\n"
    "  TRACK 01 AUDIO\n"
    "    TITLE \"One\"\n"
    "    PERFORMER \"Band\"\n"
    "    INDEX 01 00:00:00\n"
    "  TRACK 02 AUDIO\n"
    "    TITLE \"Two\"\n"
    "    PERFORMER \"Guest\"\n"
    "    INDEX 00 04:10:00\n"
    "    INDEX 01 04:12:37\n";

TEST_F(CueSheet, PrintsHeaderAndTracksWithoutColours) {
    EXPECT_EQ(loadAndCapture(kExampleSheet),
              "Artist: Band   Album: Live   Year: 1999\n"
              "01   00:00:00   One\n"
              "02   04:12:37   Guest - Two\n"
              "\n");
    EXPECT_EQ(trackStartsMs, (std::vector<int32_t>{0, 252493}));
    EXPECT_EQ(trackStartTexts, (std::vector<std::string>{"00:00:00", "04:12:37"}));
    EXPECT_EQ(cueLines.size(), 14u);  // the final line feed gives an empty line
}

TEST_F(CueSheet, PrintsHeaderAndTracksWithColours) {
    setColors(true);
    const std::string c = colorCyan, y = colorBrightYellow, r = colorReset;
    ASSERT_FALSE(c.empty());
    EXPECT_EQ(loadAndCapture(kExampleSheet),
              c + "Artist: " + y + "Band" + c + "   Album: " + y + "Live" + c + "   Year: " + y +
                  "1999\n" + y + "01   " + c + "00:00:00   " + y + "One\n" + y + "02   " + c +
                  "04:12:37   " + y + "Guest - Two\n" + r + "\n");
    EXPECT_EQ(loadAndCapture(""), "\n" + r + "\n");
}

struct NamingCase {
    const char* name;
    std::string sheet;
    std::string printed;
};

const NamingCase kNamingCases[] = {
    {"AlbumFromFirstTrack",
     "TRACK 01 AUDIO\nPERFORMER A\nTITLE T1\nINDEX 01 00:00:00\nTITLE T2\nPERFORMER B\n"
     "INDEX 01 01:00:00\n",
     "Artist: A   Album: T1\n01   00:00:00   \n02   01:00:00   B - T2\n\n"},
    {"PerformerBeforeOrAfterTitle",
     "PERFORMER A\nTITLE L\nPERFORMER B\nTITLE X\nINDEX 01 0\nTITLE Y\nPERFORMER A\n"
     "INDEX 01 1\nTITLE Z\nPERFORMER C\nINDEX 01 2\n",
     "Artist: A   Album: L\n01   0   B - X\n02   1   Y\n03   2   C - Z\n\n"},
    {"TitleAfterIndexNamesNextTrack",
     "PERFORMER A\nTITLE L\nINDEX 01 0\nTITLE One\nINDEX 01 1\nTITLE Lost\nPERFORMER Lost\n",
     "Artist: A   Album: L\n01   0   \n02   1   One\n\n"},
    {"OnlyIndex01WithTimeMakesTrack",
     "INDEX 00 0\nINDEX 1 1\nINDEX 02 2\nINDEX 01\nINDEX \"01\" 3\nINDEX 01 4\n",
     "\n01   \"   \n02   4   \n\n"},  // the lone quote is a time
    {"TabIndentedSheetYieldsNothing",
     "\tPERFORMER \"A\"\n\tTITLE \"L\"\n\tREM DATE 2000\n\tINDEX 01 00:00:00\n", "\n\n"},
    {"StackedNamesAndLaterDate",
     "REM DATE 1\nPERFORMER A\nTITLE L\nPERFORMER P1\nPERFORMER P2\nTITLE T\nTITLE U\n"
     "REM DATE\nREM DATE 2\nINDEX 01 0\n",
     "Artist: A   Album: L   Year: 2\n01   0   P2 - P1 - T - U\n\n"},
    {"KeywordAloneIsItsValue", "TITLE\nPERFORMER\nREM DATE \"\"\n",
     "Artist: PERFORMER   Album: TITLE\n\n"},
    {"EmptyValuesCountAsSeen", "PERFORMER \"\"\nTITLE \"\"\nTITLE One\nPERFORMER X\nINDEX 01 0\n",
     "\n01   0   X - One\n\n"},
    {"QuotedTitleNotLoneQuote", "TITLE \"A B\"\nTITLE \"Song Name\"\nINDEX 01 00:01:00\n",
     "   Album: A B\n01   00:01:00   Song Name\n\n"},
};

void PrintTo(const NamingCase& c, std::ostream* os) {
    *os << c.name;
}

class CueSheetNaming : public CueSheet, public testing::WithParamInterface<NamingCase> {};

TEST_P(CueSheetNaming, PrintsExpectedList) {
    EXPECT_EQ(loadAndCapture(GetParam().sheet), GetParam().printed);
}

INSTANTIATE_TEST_SUITE_P(Load, CueSheetNaming, testing::ValuesIn(kNamingCases),
                         [](const auto& info) { return std::string(info.param.name); });

// The same Cyrillic sheet in every encoding and line end prints the same.
TEST_F(CueSheet, EncodingsPrintAlike) {
    const std::u16string text =
        u"PERFORMER \"Кино\"\nTITLE \"Группа крови\"\nREM DATE 1988\n"
        u"TITLE \"Закрой за мной дверь\"\nINDEX 01 00:00:00\n";
    const std::string cp1251 =
        "PERFORMER \"\xCA\xE8\xED\xEE\"\nTITLE \"\xC3\xF0\xF3\xEF\xEF\xE0 \xEA\xF0\xEE\xE2\xE8\"\n"
        "REM DATE 1988\nTITLE \"\xC7\xE0\xEA\xF0\xEE\xE9 \xE7\xE0 \xEC\xED\xEE\xE9 "
        "\xE4\xE2\xE5\xF0\xFC\"\nINDEX 01 00:00:00\n";
    const std::string utf8 =
        "\xEF\xBB\xBFPERFORMER \"Кино\"\nTITLE \"Группа крови\"\nREM DATE 1988\n"
        "TITLE \"Закрой за мной дверь\"\nINDEX 01 00:00:00\n";
    const std::string expected =
        "Artist: Кино   Album: Группа крови   Year: 1988\n01   00:00:00   Закрой за мной дверь\n\n";
    auto crlf = [](std::string s) {
        for (size_t i = 0; (i = s.find('\n', i)) != std::string::npos; i += 2) s.insert(i, "\r");
        return s;
    };
    auto crlf16 = [](std::u16string s) {
        for (size_t i = 0; (i = s.find(u'\n', i)) != std::u16string::npos; i += 2)
            s.insert(i, u"\r");
        return s;
    };
    const std::string sheets[] = {utf8,
                                  crlf(utf8),
                                  cp1251,
                                  crlf(cp1251),
                                  utf16WithMark(text, false),
                                  utf16WithMark(crlf16(text), false),
                                  utf16WithMark(text, true),
                                  utf16WithMark(crlf16(text), true)};
    for (size_t i = 0; i < std::size(sheets); ++i)
        EXPECT_EQ(loadAndCapture(sheets[i]), expected) << i;
}

TEST_F(CueSheet, MissingSheetPrintsNothingAndEmptiesTable) {
    loadAndCapture(kExampleSheet);
    ASSERT_EQ(trackNames.size(), 2u);
    ScratchDir dir;
    EXPECT_EQ(captureStdout([&] { loadCueSheet(dir.path() + "/gone.cue"); }), "");
    EXPECT_TRUE(cueLines.empty() && trackNames.empty() && trackStartTexts.empty() &&
                trackStartsMs.empty());
}

TEST_F(CueSheet, EmptySheetPrintsEmptyHeader) {
    EXPECT_EQ(loadAndCapture(""), "\n\n");
    EXPECT_EQ(cueLines, std::vector<std::string>{""});
}

TEST_F(CueSheet, ThousandTracksWidenNumbers) {
    std::string sheet;
    for (int i = 0; i < 1001; ++i) sheet += "INDEX 01 " + std::to_string(i) + ":00:00\n";
    std::string printed = loadAndCapture(sheet);
    EXPECT_NE(printed.find("\n09   8:00:00   \n"), std::string::npos);
    EXPECT_NE(printed.find("\n999   998:00:00   \n1000   999:00:00   \n1001   1000:00:00   \n\n"),
              std::string::npos);
    EXPECT_EQ(trackStartsMs.size(), 1001u);
    EXPECT_EQ(trackStartsMs.back(), 60000000);
}

}  // namespace
