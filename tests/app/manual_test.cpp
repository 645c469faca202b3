// The manual page against the program: every command the console accepts is
// documented as a command, so the two cannot drift apart.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include "tests/support/harness.h"

namespace {

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Every quoted word that follows `opener` in text, up to `closer`.
void quotedAfter(const std::string& text, const std::string& opener, char closer,
                 std::set<std::string>& words) {
    for (size_t at = text.find(opener); at != std::string::npos; at = text.find(opener, at + 1)) {
        size_t from = at + opener.size(), to = text.find(closer, from);
        if (to != std::string::npos && to > from) words.insert(text.substr(from, to - from));
    }
}

// The words the command code compares against, read from its source, so a
// command added without a page entry fails here.
std::set<std::string> commandsInSource() {
    std::set<std::string> words;
    for (const char* file : {"idle_commands.cpp", "settings_commands.cpp", "command_loop.cpp"}) {
        const std::string text = readText(std::string(TOVRIN_SOURCE_DIR) + "/app/" + file);
        quotedAfter(text, "startsWith(word, \"", '"', words);
        quotedAfter(text, "word == \"", '"', words);
        quotedAfter(text, "isLetter(word, '", '\'', words);
    }
    return words;
}

std::string leadingLetters(const std::string& text) {
    size_t n = 0;
    while (n < text.size() && std::islower(static_cast<unsigned char>(text[n]))) ++n;
    return text.substr(0, n);
}

// The words of the program's own command list: "pf<value> - ..." and the
// variants it names in parentheses, "(pcm, pcm44, ...)".
std::set<std::string> commandsInHelp() {
    PlayerFixture fx;
    ProgramRun run;
    std::set<std::string> words;
    if (!fx.start(run, {})) return words;
    run.send("h\nx\n");
    run.closeInput();
    run.waitExit(20);
    const size_t list = run.out().find("Commands:");
    if (list == std::string::npos) return words;
    std::istringstream lines(run.out().substr(list));
    for (std::string line; std::getline(lines, line);) {
        const std::string word = leadingLetters(line);
        const std::string rest = line.substr(word.size());
        if (word.empty() || (rest.rfind(" - ", 0) != 0 && rest.rfind("<value> - ", 0) != 0))
            continue;
        words.insert(word);
        size_t open = line.find('('), close = line.find(')');
        if (open == std::string::npos || close == std::string::npos || close < open) continue;
        std::istringstream inside(line.substr(open + 1, close - open - 1));
        std::vector<std::string> variants;
        for (std::string item; std::getline(inside, item, ',');) {
            item.erase(0, item.find_first_not_of(' '));
            variants.push_back(item);
        }
        // Only lists of command words, not "(0...99)" or "(1/0)".
        if (variants.size() > 1 && leadingLetters(variants[0]) == word)
            words.insert(variants.begin(), variants.end());
    }
    return words;
}

TEST(Manual, DocumentsEveryCommandTheConsoleAccepts) {
    const std::string page = readText(TOVRIN_MANPAGE);
    ASSERT_FALSE(page.empty()) << TOVRIN_MANPAGE;
    const std::set<std::string> source = commandsInSource(), help = commandsInHelp();
    // Enough found to mean the scans still read the code as it is written.
    ASSERT_GE(source.size(), 30u);
    ASSERT_GE(help.size(), 25u);
    std::set<std::string> all = source;
    all.insert(help.begin(), help.end());
    // The page says once that letters may be upper case.
    ASSERT_NE(page.find("upper case"), std::string::npos);
    for (std::string word : all) {
        if (word.size() == 1) word[0] = char(std::tolower(word[0]));
        EXPECT_NE(page.find("\\fB" + word + "\\fR"), std::string::npos)
            << "the manual page has no command " << word;
    }
}

TEST(Manual, RendersWithoutWarnings) {
    if (std::system("command -v man >/dev/null 2>&1") != 0) GTEST_SKIP() << "man is not installed";
    const std::string command =
        std::string("MANWIDTH=80 man --warnings -l '") + TOVRIN_MANPAGE + "' 2>&1 >/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string warnings;
    char buf[512];
    for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) warnings.append(buf, n);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_EQ(warnings, "");
}

}  // namespace
