// Sheets written byte by byte in each encoding, read back as UTF-8 lines.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "library/cue.h"
#include "sheet_files.h"

namespace {

using Lines = std::vector<std::string>;
using namespace std::string_literals;  // "\0"s keeps embedded zero bytes

struct ReadCase {
    const char* name;
    std::string bytes;
    Lines expected;
};

Lines readSheet(const std::string& bytes) {
    ScratchDir dir;
    Lines lines;
    readCueLines(dir.write("sheet.cue", bytes), lines);
    return lines;
}

const std::string kLong4095(4095, 'a');

const ReadCase kEightBitCases[] = {
    {"Utf8MarkCrLf",
     "\xEF\xBB\xBFTITLE \"\xC3\xA9t\xC3\xA9\"\r\nREM DATE 1999\r\n",
     {"TITLE \"été\"", "REM DATE 1999", ""}},
    {"Utf8MarkLastLineOpen",
     "\xEF\xBB\xBF"
     "a\nb",
     {"a", "b"}},
    {"Utf8MarkOnlyTwoBytes", "\xEF\xBB", {""}},
    {"Utf8WithoutMarkIsCp1251", "\xC3\xA9\n", {"Г©", ""}},
    {"AsciiUnchanged",
     "PERFORMER \"Band\"\nINDEX 01 00:00:00",
     {"PERFORMER \"Band\"", "INDEX 01 00:00:00"}},
    {"Cp1251CyrillicCrLf",
     "TITLE \"\xCF\xF0\xE8\xE2\xE5\xF2\"\r\n\r\n\xDF",
     {"TITLE \"Привет\"", "", "Я"}},
    {"Cp1251UndefinedByteKeptRaw", "\x98 ok\nnext", {"\x98 ok", "next"}},
    {"EmptyFile", "", {""}},
    {"OneCarriageReturnRemoved", "a\r\r\n\r\nb\rc", {"a\r", "", "b\rc"}},
    {"LastLineCrRemoved", "a\r", {"a"}},
    {"OneByteFile", "\xEF", {"п"}},
    {"ZeroByteEndsLine", "ab\0cd\r\nnext"s, {"ab", "next"}},
    {"LongestLineKept", kLong4095 + "\nnext", {kLong4095, "next"}},
    {"OverlongLineEndsReading", kLong4095 + "b\nnext\n", {kLong4095}},
    {"Utf32MarkTakenForUtf16", "\xFF\xFE\0\0A\0"s, {""}},
};

void PrintTo(const ReadCase& c, std::ostream* os) {
    *os << c.name;
}

class EightBitSheet : public testing::TestWithParam<ReadCase> {};

TEST_P(EightBitSheet, YieldsLines) {
    EXPECT_EQ(readSheet(GetParam().bytes), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Read, EightBitSheet, testing::ValuesIn(kEightBitCases),
                         [](const auto& info) { return std::string(info.param.name); });

struct Utf16Case {
    const char* name;
    std::u16string text;
    Lines expected;
};

const Utf16Case kUtf16Cases[] = {
    {"CrLfCyrillicWithEmptyLine",
     u"TITLE \"Кино\"\r\n\r\nREM DATE 1988\r\n",
     {"TITLE \"Кино\"", "", "REM DATE 1988", ""}},
    {"OutsideBmpLineFeedOnly", u"TITLE \"𝄞 Ода 🎵\"\nX", {"TITLE \"𝄞 Ода 🎵\"", "X"}},
    {"OnlyCrBeforeLfDropped", u"a\r\r\nb\rc\r", {"a\r", "b\rc\r"}},
    {"EmptyAfterMark", u"", {""}},
    {"ZeroUnitEndsText", std::u16string(u"ab\0cd\nz", 7), {"ab", "z"}},
    // 5000 units: lines are not cut at the 8-bit reading's limit.
    {"LongLineKeptWhole", std::u16string(5000, u'z') + u"\nz", {std::string(5000, 'z'), "z"}},
};

void PrintTo(const Utf16Case& c, std::ostream* os) {
    *os << c.name;
}

class Utf16Sheet : public testing::TestWithParam<std::tuple<Utf16Case, bool>> {};

TEST_P(Utf16Sheet, YieldsLinesInEitherByteOrder) {
    const auto& [c, bigEndian] = GetParam();
    EXPECT_EQ(readSheet(utf16WithMark(c.text, bigEndian)), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Read, Utf16Sheet,
                         testing::Combine(testing::ValuesIn(kUtf16Cases), testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "BE" : "LE");
                         });

TEST(Utf16Sheet, BrokenLineKeptUnconvertedUpToZeroByte) {
    // A lone high surrogate does not convert; its raw bytes stand in.
    std::string le =
        "\xFF\xFE\x3C\xD8"
        "A\0\n\0o\0k\0"s;
    EXPECT_EQ(readSheet(le), (Lines{"\x3C\xD8"
                                    "A",
                                    "ok"}));
}

TEST(Utf16Sheet, TrailingOddByteIgnored) {
    EXPECT_EQ(readSheet(utf16WithMark(u"a\nb", false) + "\x41"), (Lines{"a", "b"}));
}

TEST(ReadCueLines, AppendsAndLeavesLinesAloneWhenMissing) {
    ScratchDir dir;
    Lines lines{"kept"};
    readCueLines(dir.path() + "/missing.cue", lines);
    EXPECT_EQ(lines, Lines{"kept"});
    readCueLines(dir.write("a.cue", "x"), lines);
    EXPECT_EQ(lines, (Lines{"kept", "x"}));
}

}  // namespace
