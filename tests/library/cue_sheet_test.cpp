// Reading sheets in each encoding, and loading one: the track table it leaves
// and the text it prints.
#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>

#include <string>
#include <vector>

#include "library/cue.h"
#include "settings/settings.h"
#include "tests/support/vdac.h"

namespace {

using Lines = std::vector<std::string>;
using namespace std::string_literals;  // "\0"s keeps embedded zero bytes

Lines readSheet(const std::string& bytes) {
    TempDir dir;
    writeFileBytes(dir.file("sheet.cue"), {bytes.begin(), bytes.end()});
    Lines lines;
    readCueLines(dir.file("sheet.cue"), lines);
    return lines;
}

std::string utf16WithMark(const std::u16string& text, bool bigEndian) {
    std::string out;
    for (char16_t unit : u"\uFEFF" + text) {
        char hi = static_cast<char>(unit >> 8), lo = static_cast<char>(unit & 0xFF);
        out += bigEndian ? std::string{hi, lo} : std::string{lo, hi};
    }
    return out;
}

TEST(ReadCueLines, EightBitSheets) {
    const std::string long4095(4095, 'a');
    const std::pair<std::string, Lines> cases[] = {
        {"\xEF\xBB\xBFTITLE \"\xC3\xA9t\xC3\xA9\"\r\nREM DATE 1999\r\n",
         {"TITLE \"été\"", "REM DATE 1999", ""}},
        {"\xC3\xA9\n", {"é", ""}},  // valid UTF-8 without a mark is UTF-8
        {"TITLE \"\xCF\xF0\xE8\xE2\xE5\xF2\"\r\n\r\n\xDF", {"TITLE \"Привет\"", "", "Я"}},
        {"", {""}},
        {"a\r\r\n\r\nb\rc\r", {"a\r", "", "b\rc"}},  // one CR before LF or at the end goes
        {"ab\0cd\r\nnext"s, {"ab", "next"}},
        {long4095 + "\n" + long4095 + "b\nnext\n", {long4095, long4095}},  // overlong ends reading
        {"\xFF\xFE\0\0A\0"s, {""}},  // a UTF-32 mark is taken for UTF-16
    };
    for (const auto& [bytes, lines] : cases)
        EXPECT_EQ(readSheet(bytes), lines) << bytes.substr(0, 40);
}

// Sheets as rippers around the world write them, without a mark: each comes
// back as the UTF-8 it was made from. Cyrillic in both of its 8-bit sets, a
// Latin one and a multi-byte one; the other known sets take the same path.
TEST(ReadCueLines, UnmarkedSheetsInTheirOwnEncoding) {
    const std::pair<const char*, std::string> cases[] = {
        {"CP1251",
         "PERFORMER \"Кино\"\nTITLE \"Группа крови\"\nFILE \"Кино - Группа крови.flac\" WAVE\n"
         "  TRACK 01 AUDIO\n    TITLE \"Группа крови\"\n    INDEX 01 00:00:00\n"
         "  TRACK 02 AUDIO\n    TITLE \"Закрой за мной дверь, я ухожу\"\n    INDEX 01 04:45:12\n"},
        {"KOI8-R",
         "PERFORMER \"Аквариум\"\nTITLE \"Равноденствие\"\nFILE \"album.flac\" WAVE\n"
         "  TRACK 01 AUDIO\n    TITLE \"Партизаны полной луны\"\n    INDEX 01 00:00:00\n"
         "  TRACK 02 AUDIO\n    TITLE \"Старик Козлодоев и новые песни о главном\"\n"
         "    INDEX 01 03:12:40\n"},
        {"WINDOWS-1252",
         "PERFORMER \"Françoise Hardy\"\nTITLE \"Tous les garçons et les filles\"\n"
         "FILE \"album.flac\" WAVE\n  TRACK 01 AUDIO\n    TITLE \"Ça a raté\"\n"
         "    INDEX 01 00:00:00\n  TRACK 02 AUDIO\n    TITLE \"Le temps de l'amour, déjà\"\n"
         "    INDEX 01 02:31:00\n"},
        {"SHIFT_JIS",
         "PERFORMER \"宇多田ヒカル\"\nTITLE \"ファースト・ラヴ\"\nFILE \"album.wav\" WAVE\n"
         "  TRACK 01 AUDIO\n    TITLE \"オートマティック\"\n    INDEX 01 00:00:00\n"
         "  TRACK 02 AUDIO\n    TITLE \"ムーヴィン・オン・ウィズアウト・ユー\"\n    INDEX 01 "
         "05:06:00\n"},
    };
    for (const auto& [charset, text] : cases) {
        gsize written = 0;
        gchar* bytes = g_convert(text.data(), gssize(text.size()), charset, "UTF-8", nullptr,
                                 &written, nullptr);
        ASSERT_NE(bytes, nullptr) << charset;
        Lines want;
        for (size_t at = 0; at <= text.size();) {
            const size_t end = std::min(text.find('\n', at), text.size());
            want.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        EXPECT_EQ(readSheet(std::string(bytes, written)), want) << charset;
        g_free(bytes);
    }
}

TEST(ReadCueLines, Utf16SheetsInEitherByteOrder) {
    const std::pair<std::u16string, Lines> cases[] = {
        {u"TITLE \"Кино\"\r\n\r\nREM DATE 1988\r\n", {"TITLE \"Кино\"", "", "REM DATE 1988", ""}},
        {u"TITLE \"𝄞 Ода 🎵\"\nX", {"TITLE \"𝄞 Ода 🎵\"", "X"}},
        {u"a\r\r\nb\rc\r", {"a\r", "b\rc\r"}},
        {std::u16string(u"ab\0cd\nz", 7), {"ab", "z"}},
        // Lines are not cut at the 8-bit reading's limit.
        {std::u16string(5000, u'z') + u"\nz", {std::string(5000, 'z'), "z"}},
    };
    for (bool bigEndian : {false, true})
        for (size_t i = 0; i < std::size(cases); ++i)
            EXPECT_EQ(readSheet(utf16WithMark(cases[i].first, bigEndian)), cases[i].second)
                << i << (bigEndian ? " BE" : " LE");
    // A trailing odd byte is ignored; a lone high surrogate keeps its raw bytes.
    EXPECT_EQ(readSheet(utf16WithMark(u"a\nb", false) + "\x41"), (Lines{"a", "b"}));
    EXPECT_EQ(readSheet("\xFF\xFE\x3C\xD8"
                        "A\0\n\0o\0k\0"s),
              (Lines{"\x3C\xD8"
                     "A",
                     "ok"}));
}

class CueSheet : public testing::Test {
  protected:
    void SetUp() override { setColors(false); }
    void TearDown() override { setColors(false); }
    std::string load(const std::string& sheetBytes) {
        writeFileBytes(dir_.file("album.cue"), {sheetBytes.begin(), sheetBytes.end()});
        testing::internal::CaptureStdout();
        loadCueSheet(dir_.file("album.cue"));
        return testing::internal::GetCapturedStdout();
    }
    TempDir dir_;
};

TEST_F(CueSheet, NamingCorners) {
    const std::pair<const char*, const char*> cases[] = {
        {"TRACK 01 AUDIO\nPERFORMER A\nTITLE T1\nINDEX 01 00:00:00\nTITLE T2\nPERFORMER B\n"
         "INDEX 01 01:00:00\n",
         "Artist: A   Album: T1\n01   00:00:00   \n02   01:00:00   B - T2\n\n"},
        {"PERFORMER A\nTITLE L\nPERFORMER B\nTITLE X\nINDEX 01 0\nTITLE Y\nPERFORMER A\n"
         "INDEX 01 1\nTITLE Lost\nPERFORMER Lost\n",
         "Artist: A   Album: L\n01   0   B - X\n02   1   Y\n\n"},
        {"INDEX 00 0\nINDEX 1 1\nINDEX 02 2\nINDEX 01\nINDEX \"01\" 3\nINDEX 01 4\n",
         "\n01   \"   \n02   4   \n\n"},  // the lone quote is a time
        {"\tPERFORMER \"A\"\n\tTITLE \"L\"\n\tREM DATE 2000\n\tINDEX 01 00:00:00\n", "\n\n"},
        {"REM DATE 1\nPERFORMER A\nTITLE L\nPERFORMER P1\nPERFORMER P2\nTITLE T\nTITLE U\n"
         "REM DATE\nREM DATE 2\nINDEX 01 0\n",
         "Artist: A   Album: L   Year: 2\n01   0   P2 - P1 - T - U\n\n"},
        {"TITLE\nPERFORMER\nREM DATE \"\"\n", "Artist: PERFORMER   Album: TITLE\n\n"},
        {"PERFORMER \"\"\nTITLE \"\"\nTITLE One\nPERFORMER X\nINDEX 01 0\n",
         "\n01   0   X - One\n\n"},  // empty values count as seen
    };
    for (const auto& [sheet, printed] : cases) EXPECT_EQ(load(sheet), printed) << sheet;
}

// Header and track list in colour, and the empty sheet, are compared through
// the whole program (tests/app/play_test.cpp).
TEST_F(CueSheet, MissingSheetEmptiesTheTableAndThousandTracksWiden) {
    load("INDEX 01 00:00:00\nINDEX 01 04:12:37\n");
    ASSERT_EQ(trackStartsMs, (std::vector<int32_t>{0, 252493}));
    testing::internal::CaptureStdout();
    loadCueSheet(dir_.file("gone.cue"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(cueLines.empty() && trackNames.empty() && trackStartTexts.empty() &&
                trackStartsMs.empty());

    std::string sheet;
    for (int i = 0; i < 1001; ++i) sheet += "INDEX 01 " + std::to_string(i) + ":00:00\n";
    std::string printed = load(sheet);
    EXPECT_NE(printed.find("\n09   8:00:00   \n"), std::string::npos);
    EXPECT_NE(printed.find("\n999   998:00:00   \n1000   999:00:00   \n1001   1000:00:00   \n\n"),
              std::string::npos);
    EXPECT_EQ(trackStartsMs.back(), 60000000);
}

}  // namespace
