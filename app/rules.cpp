#include "app/rules.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>

#include "library/folder.h"

namespace {

bool allDigits(std::string_view text) {
    for (char c : text)
        if (c < '0' || c > '9') return false;
    return true;
}

// Digits only, saturating: a huge number is simply out of every range later.
int64_t digitValue(std::string_view text) {
    int64_t v = 0;
    for (char c : text) {
        if (v > (INT64_MAX - 9) / 10) return INT64_MAX;
        v = v * 10 + (c - '0');
    }
    return v;
}

}  // namespace

int64_t leadingInteger(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    size_t start = i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    int64_t v = digitValue(text.substr(start, i - start));
    if (!negative) return v;
    return v == INT64_MAX ? INT64_MIN : -v;
}

int32_t commandValue(std::string_view text) {
    return static_cast<int32_t>(static_cast<uint32_t>(leadingInteger(text)));
}

std::optional<SeekCommand> parseSeek(std::string_view word) {
    SeekKind kind = SeekKind::Absolute;
    if (!word.empty() && word[0] == '+') {
        kind = SeekKind::Forward;
        word.remove_prefix(1);
    } else if (!word.empty() && word[0] == '-') {
        kind = SeekKind::Backward;
        word.remove_prefix(1);
    }
    size_t sep = word.find('.');
    if (sep == std::string_view::npos) sep = word.find(':');
    if (sep == std::string_view::npos) {
        if (!allDigits(word)) return std::nullopt;
        return SeekCommand{kind, digitValue(word)};
    }
    int64_t minutes = leadingInteger(word.substr(0, sep));
    int64_t seconds = leadingInteger(word.substr(sep + 1));
    // Clamped so that absurd minute counts stay out of range instead of overflowing.
    minutes = std::max<int64_t>(std::min<int64_t>(minutes, INT32_MAX), INT32_MIN);
    seconds = std::max<int64_t>(std::min<int64_t>(seconds, INT32_MAX), INT32_MIN);
    return SeekCommand{kind, minutes * 60 + seconds};
}

std::optional<int32_t> seekTarget(const SeekCommand& seek, int64_t positionSeconds,
                                  int32_t streamSeconds) {
    int64_t value =
        std::max<int64_t>(std::min<int64_t>(seek.seconds, INT32_MAX * 64LL), INT32_MIN * 64LL);
    int64_t target = value;
    if (seek.kind == SeekKind::Forward) target = positionSeconds + value;
    if (seek.kind == SeekKind::Backward) target = positionSeconds - value;
    if (target < 0 || target >= streamSeconds) return std::nullopt;
    return static_cast<int32_t>(target);
}

std::optional<NumberCommand> parseNumberCommand(std::string_view word) {
    int64_t track = 0;
    size_t dot = word.find('.');
    if (dot != std::string_view::npos) {
        track = leadingInteger(word.substr(dot + 1));
        word = word.substr(0, dot);
    }
    if (!allDigits(word)) return std::nullopt;
    return NumberCommand{digitValue(word), track};
}

std::string entryPath(const std::string& folder, const std::string& name) {
    return folder.size() == 1 ? folder + name : folder + "/" + name;
}

QueuePlan planQueue(const std::vector<std::string>& entries, const std::string& folder,
                    const std::string& selected, size_t maxSlots, size_t slotBytes) {
    QueuePlan all;
    for (const std::string& name : entries) {
        if (!isPlayableFile(name.c_str())) continue;
        std::string path = entryPath(folder, name);
        if (path.size() >= slotBytes) continue;
        if (path == selected) all.index = static_cast<int>(all.paths.size());
        all.paths.push_back(std::move(path));
    }
    if (all.paths.size() <= maxSlots) return all;
    QueuePlan plan;
    size_t first = 0;
    if (all.index >= static_cast<int>(maxSlots)) first = static_cast<size_t>(all.index);
    size_t last = std::min(all.paths.size(), first + maxSlots);
    plan.paths.assign(all.paths.begin() + first, all.paths.begin() + last);
    plan.index = all.index < 0 ? -1 : all.index - static_cast<int>(first);
    return plan;
}

std::string elapsedText(uint64_t positionMs) {
    uint64_t s = positionMs / 1000;
    char text[48];
    std::snprintf(text, sizeof text, "time %02llu:%02llu", static_cast<unsigned long long>(s / 60),
                  static_cast<unsigned long long>(s % 60));
    return text;
}
