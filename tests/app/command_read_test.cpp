#include "app/command_read.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<std::string> readAll(std::string input) {
    FILE* in = fmemopen(input.data(), input.size(), "r");
    CommandReader reader(in);
    std::vector<std::string> words;
    // Bounded: a reader that repeated at end of input would otherwise hang here.
    for (std::optional<std::string> w; words.size() < 100 && (w = reader.next());)
        words.push_back(*w);
    fclose(in);
    return words;
}

TEST(CommandRead, WordsEnterAndEndOfInput) {
    using Words = std::vector<std::string>;
    EXPECT_EQ(readAll(""), Words{});
    EXPECT_EQ(readAll("\n"), Words{});  // Enter before any word does nothing
    EXPECT_EQ(readAll("\n\n3\n\n"), (Words{"3", "3"}));
    EXPECT_EQ(readAll("12\n\n\n"), (Words{"12", "12", "12"}));
    EXPECT_EQ(readAll("a b\n"), (Words{"a", "b"}));
    EXPECT_EQ(readAll("a \n"), (Words{"a", "a"}));  // the blank goes with the word
    EXPECT_EQ(readAll("   \n\t x\n"), Words{"x"});  // a blank line is no empty line
    EXPECT_EQ(readAll("st"), Words{"st"});
    EXPECT_EQ(readAll("n\n   "), Words{"n"});
}

}  // namespace
