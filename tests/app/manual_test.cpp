// The manual page against the program: every command the console accepts is
// documented as a command, so the two cannot drift apart.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support/harness.h"

namespace {

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The words the command code compares against, read from its source, so a
// command added without a page entry fails here.
std::set<std::string> commandsInSource() {
    std::set<std::string> words;
    const std::regex pattern(
        R"re(startsWith\(word, "(\w+)"\)|word == "(\w+)"|isLetter\(word, '(\w)'\))re");
    for (const char* file : {"idle_commands.cpp", "settings_commands.cpp", "command_loop.cpp"}) {
        const std::string text = readText(std::string(TOVRIN_SOURCE_DIR) + "/app/" + file);
        for (std::sregex_iterator it(text.begin(), text.end(), pattern), end; it != end; ++it)
            for (size_t group = 1; group <= 3; ++group)
                if ((*it)[group].matched) words.insert((*it)[group].str());
    }
    return words;
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
    std::istringstream lines(run.out().substr(run.out().find("Commands:")));
    const std::regex head(R"(^([a-z]+)(<value>)? - )"), variant(R"(\b([a-z]+\d*)\b)");
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        if (!std::regex_search(line, m, head)) continue;
        words.insert(m[1].str());
        size_t open = line.find('('), close = line.find(')');
        if (open == std::string::npos || close < open) continue;
        const std::string inside = line.substr(open, close - open);
        if (inside.find(',') == std::string::npos) continue;
        for (std::sregex_iterator it(inside.begin(), inside.end(), variant), end; it != end; ++it)
            words.insert((*it)[1].str());
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
