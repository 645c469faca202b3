// Line splitting and time conversion, including the corners sheets rely on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "library/cue.h"

namespace {

using Values = std::vector<std::string>;

struct LineCase {
    std::string line;
    std::string keyword;
    Values values;
};

TEST(ParseCueLine, SplitsKeywordAndValues) {
    const LineCase cases[] = {
        {"", "", {}},
        {"INDEX 01 03:25:74", "INDEX", {"01", "03:25:74"}},
        {"REM DATE \"1999\"", "REM", {"DATE", "1999"}},
        {"TITLE \"Song Name\"", "TITLE", {"Song Name", "\""}},
        {"TITLE", "TITLE", {"TITLE"}},
        {"  TITLE   \"X\"  ", "TITLE", {"X", "\""}},
        {"\tTITLE \"X\"", "\tTITLE", {"X", "\""}},
        {"TITLE \"open value", "TITLE", {"open", "value"}},
        {"TITLE \"", "TITLE", {""}},
        {"FILE \"a b.flac\" WAVE", "FILE", {"a b.flac", "\"", "WAVE"}},
        {"REM COMMENT \"a b\" tail", "REM", {"COMMENT", "a b"}},
        {"A B C  D E ", "A", {"B", "C  D E"}},
        {"X \"a\"b c", "X", {"a", "\"b", "c"}},
        {"   ", "", {""}},
        {"PERFORMER\t\"Tab\"", "PERFORMER\t\"Tab\"", {"PERFORMER\t\"Tab\""}},
    };
    EXPECT_EQ(trimBlanks("\t a b \t", " "), "\t a b \t");  // tabs are not blanks
    for (const auto& c : cases) {
        SCOPED_TRACE("[" + c.line + "]");
        Values values;
        EXPECT_EQ(parseCueLine(c.line, values), c.keyword);
        EXPECT_EQ(values, c.values);
    }
}

TEST(CueTimeToMs, ConvertsAtTheLimits) {
    const std::pair<std::string, int32_t> cases[] = {
        {"00:00:74", 986},
        {"79:59:74", 4799986},
        {"1:2:3", 62040},
        {"00:00:745", 986},  // only two frame characters count
        {"00:00:7x", 93},
        {"-1:00:00", -60000},
        {"5", 305066},  // no ':' at all: the same text read three times
        {"35791:23:00", 2147483000},
        {"35792:00:00", -2147447296},  // wraps as 32-bit arithmetic does
    };
    for (const auto& [text, ms] : cases) EXPECT_EQ(cueTimeToMs(text), ms) << text;
}

}  // namespace
