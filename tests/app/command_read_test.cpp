#include "app/command_read.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> readAll(const std::string& input) {
    std::string copy = input;
    FILE* in = fmemopen(copy.data(), copy.size(), "r");
    CommandReader reader(in);
    std::vector<std::string> words;
    // The bound keeps a reader that repeats at end of input from hanging the test.
    while (words.size() < 100) {
        std::optional<std::string> w = reader.next();
        if (!w) break;
        words.push_back(*w);
    }
    fclose(in);
    return words;
}

using Words = std::vector<std::string>;

TEST(CommandRead, WordsEnterAndEndOfInput) {
    struct Case {
        const char* input;
        Words expected;
    } cases[] = {
        {"", {}},
        {"\n", {"0"}},                     // Enter before any word selects entry 0
        {"12\n\n\n", {"12", "12", "12"}},  // Enter repeats
        {"a b\n", {"a", "b"}},             // several words on one line
        {"a \n", {"a", "a"}},              // the blank goes with the word; the line end repeats
        {"   \nx\n", {"x"}},               // a blank line is no empty line
        {"  \t lp5\n", {"lp5"}},
        {"st", {"st"}},  // last word without a line end
        {"n\n   ", {"n"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(readAll(c.input), c.expected);
    }
}

}  // namespace
