// The manual page against the program: every command the console accepts is
// documented as a command, so the two cannot drift apart.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <regex>
#include <set>

#include "tests/support/harness.h"

namespace {

// Each first group of `pattern` in text.
void collect(const std::string& text, const std::string& pattern, std::set<std::string>& words) {
    const std::regex re(pattern);
    for (auto m = std::sregex_iterator(text.begin(), text.end(), re); m != std::sregex_iterator();
         ++m)
        words.insert((*m)[1]);
}

// The words the command code compares against, read from its source, so a
// command added without a page entry fails here; then the program's own command
// list: "pf<value> - ..." and the variants it names, "(pcm, pcm44, ...)".
std::set<std::string> commandWords(size_t* fromSource, size_t* fromHelp) {
    std::set<std::string> words, help;
    for (const char* file : {"idle_commands.cpp", "settings_commands.cpp", "command_loop.cpp"})
        collect(readFileText(std::string(TOVRIN_SOURCE_DIR) + "/app/" + file),
                R"re((?:startsWith\(word, "|word == "|isLetter\(word, ')([^"']+))re", words);
    *fromSource = words.size();
    PlayerFixture fx;
    ProgramRun run;
    fx.session(run, "h\nx\n");
    const size_t list = run.out().find("Commands:");
    const std::string text = run.out().substr(std::min(list, run.out().size()));
    for (const char* re :
         {R"(\n([a-z]+)(?:<value>)? - )", R"(\(([a-z]+\d*),)", R"(, ([a-z]+\d*)(?=[,)]))"})
        collect(text, re, help);
    *fromHelp = help.size();
    words.insert(help.begin(), help.end());
    return words;
}

TEST(Manual, DocumentsEveryCommandTheConsoleAccepts) {
    const std::string page = readFileText(TOVRIN_MANPAGE);
    ASSERT_FALSE(page.empty()) << TOVRIN_MANPAGE;
    size_t fromSource = 0, fromHelp = 0;
    const std::set<std::string> all = commandWords(&fromSource, &fromHelp);
    // Enough found to mean the scans still read the code and the list as they are written.
    ASSERT_GE(fromSource, 30u);
    ASSERT_GE(fromHelp, 25u);
    ASSERT_NE(page.find("upper case"), std::string::npos);  // said once for letter commands
    for (std::string word : all) {
        if (word.size() == 1) word[0] = char(std::tolower(word[0]));
        EXPECT_NE(page.find("\\fB" + word + "\\fR"), std::string::npos)
            << "the manual page has no command " << word;
    }
}

TEST(Manual, RendersWithoutWarnings) {
    if (std::system("command -v man >/dev/null 2>&1") != 0) GTEST_SKIP() << "man is not installed";
    TempDir dir;
    EXPECT_EQ(std::system(("MANWIDTH=80 man --warnings -l '" + std::string(TOVRIN_MANPAGE) +
                           "' >/dev/null 2>" + dir.file("warnings"))
                              .c_str()),
              0);
    EXPECT_EQ(readFileText(dir.file("warnings")), "");
}

}  // namespace
