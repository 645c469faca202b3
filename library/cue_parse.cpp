// Splitting one sheet line into keyword and values, and CUE times.
// The rules are deliberately naive (sheets in the wild rely on them): only the
// space is a blank, and quotes are recognised only where a value may begin.
#include <cstdlib>
#include <string>
#include <vector>

#include "library/cue.h"

namespace {

const std::string kBlank = " ";

// Handles the value that follows an opening quote: takes the text up to the
// next quote, if any.
void appendQuoted(const std::string& afterQuote, std::vector<std::string>& values) {
    size_t close = afterQuote.find('"');
    if (close != std::string::npos) values.push_back(afterQuote.substr(0, close));
}

// Reads the number at the start of text and drops text through the next ':'.
// Without a ':' the whole text is read and left as it is.
long takeTimeField(std::string& text) {
    size_t colon = text.find(':');
    long value = std::strtol(text.substr(0, colon).c_str(), nullptr, 10);
    if (colon != std::string::npos) text.erase(0, colon + 1);
    return value;
}

}  // namespace

std::string trimBlanks(const std::string& text, const std::string& set) {
    size_t first = text.find_first_not_of(set);
    if (first == std::string::npos) return "";
    size_t last = text.find_last_not_of(set);
    return text.substr(first, last - first + 1);
}

std::string parseCueLine(const std::string& line, std::vector<std::string>& values) {
    if (line.empty()) return "";
    std::string s = trimBlanks(line, kBlank);
    size_t blank = s.find(' ');
    std::string keyword = s.substr(0, blank);
    // A keyword standing alone is also its own value.
    std::string rest = blank == std::string::npos ? s : trimBlanks(s.substr(blank + 1), kBlank);

    if (!rest.empty() && rest[0] == '"') {
        rest.erase(0, 1);
        size_t close = rest.find('"');
        if (close != std::string::npos) {
            values.push_back(rest.substr(0, close));
            rest.erase(0, close);  // the closing quote stays in front
        }
    }

    blank = rest.find(' ');
    if (blank == std::string::npos) {
        values.push_back(rest);
        return keyword;
    }
    values.push_back(rest.substr(0, blank));
    rest = trimBlanks(rest.substr(blank + 1), kBlank);
    if (rest.empty()) return keyword;
    if (rest[0] == '"') {
        appendQuoted(rest.substr(1), values);
    } else {
        values.push_back(rest);
    }
    return keyword;
}

int32_t cueTimeToMs(const std::string& text) {
    std::string rest = text;
    long minutes = takeTimeField(rest);
    long seconds = takeTimeField(rest);
    long frames = std::strtol(rest.substr(0, 2).c_str(), nullptr, 10);
    // Wrapping 32-bit arithmetic, as the table stores it; unsigned avoids
    // undefined overflow on absurd minute counts.
    uint32_t m = static_cast<uint32_t>(minutes);
    uint32_t s = static_cast<uint32_t>(seconds);
    int32_t f = static_cast<int32_t>(frames);
    int32_t frameMs = f * 1000 / 75;  // |f| <= 99, no overflow
    return static_cast<int32_t>(m * 60000u + s * 1000u + static_cast<uint32_t>(frameMs));
}

int64_t cueTimeToCdFrames(const std::string& text) {
    const size_t first = text.find(':'), second = text.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos) return -1;
    const std::string parts[3] = {text.substr(0, first), text.substr(first + 1, second - first - 1),
                                  text.substr(second + 1)};
    int64_t value[3];
    for (int i = 0; i < 3; ++i) {
        // Minutes may run past 99 on long images; seconds and frames are two digits.
        if (parts[i].empty() || parts[i].size() > (i ? 2u : 6u) ||
            parts[i].find_first_not_of("0123456789") != std::string::npos)
            return -1;
        value[i] = std::stoll(parts[i]);
    }
    if (value[1] >= 60 || value[2] >= 75) return -1;
    return (value[0] * 60 + value[1]) * 75 + value[2];
}
