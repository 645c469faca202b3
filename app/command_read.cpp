#include "app/command_read.h"

#include <cctype>

namespace {

bool isBlank(int c) {
    return c != EOF && std::isspace(static_cast<unsigned char>(c));
}

}  // namespace

std::optional<std::string> CommandReader::next() {
    int c = std::getc(in_);
    if (c == EOF) return std::nullopt;
    if (c == '\n') return last_.empty() ? std::string("0") : last_;
    while (isBlank(c)) c = std::getc(in_);
    if (c == EOF) return std::nullopt;
    std::string word;
    while (c != EOF && !isBlank(c)) {
        word.push_back(static_cast<char>(c));
        c = std::getc(in_);
    }
    // The one character after the word (normally the line end) goes with it;
    // at end of input there is none to take.
    last_ = word;
    return word;
}
