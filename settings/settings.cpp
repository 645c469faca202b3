// The settings record, its 136-byte file and the colour strings.
#include "settings/settings.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "settings/safe_file.h"

Settings settings;

const char* colorBrightGreen = "";
const char* colorBrightYellow = "";
const char* colorCyan = "";
const char* colorYellow = "";
const char* colorBrightCyan = "";
const char* colorReset = "";

namespace {

constexpr const char* kConfigFile = "config.dat";
constexpr int kFieldCount = 34;  // 14 scalars and 20 list positions
constexpr int kFileBytes = kFieldCount * 4;

bool anyValue(int32_t) {
    return true;
}
bool zeroOrOne(int32_t v) {
    return v == 0 || v == 1;
}
bool dsdModeValue(int32_t v) {
    return v >= kDsdPcm && v <= kDsdNative;
}
bool dsdRateValue(int32_t v) {
    return v == 44100 || v == 88200 || v == 176400 || v == 352800;
}
bool depthValue(int32_t v) {
    return v >= 0 && v <= 19;
}
bool positionValue(int32_t v) {
    return v >= 0;
}
bool coresValue(int32_t v) {
    return v >= 0 && v <= 2;
}
bool priorityValue(int32_t v) {
    return v >= 0 && v <= 99;
}
bool niceValue(int32_t v) {
    return v >= -20 && v <= 19;
}

// One field of the file: its name for the damage report and the values the
// commands can store in it (period, buffer, colours and page length take
// any number the user types).
struct Field {
    int32_t Settings::*scalar;
    int position;  // index into listPositions when scalar is null
    const char* name;
    bool (*valid)(int32_t);
    int32_t& in(Settings& s) const { return scalar ? s.*scalar : s.listPositions[position]; }
};

struct FieldTable {
    Field fields[kFieldCount];
    constexpr FieldTable() : fields() {
        const Field head[] = {{&Settings::periodFrames, 0, "periodFrames", anyValue},
                              {&Settings::periodTimeUs, 0, "periodTimeUs", anyValue},
                              {&Settings::bufferFrames, 0, "bufferFrames", anyValue},
                              {&Settings::bufferTimeUs, 0, "bufferTimeUs", anyValue},
                              {&Settings::directInput, 0, "directInput", zeroOrOne},
                              {&Settings::dsdMode, 0, "dsdMode", dsdModeValue},
                              {&Settings::dsdPcmRate, 0, "dsdPcmRate", dsdRateValue},
                              {&Settings::colorsOn, 0, "colorsOn", anyValue},
                              {&Settings::linesPerPage, 0, "linesPerPage", anyValue},
                              {&Settings::folderDepth, 0, "folderDepth", depthValue}};
        const Field tail[] = {{&Settings::rwAccess, 0, "rwAccess", zeroOrOne},
                              {&Settings::coresSelect, 0, "coresSelect", coresValue},
                              {&Settings::rtPriority, 0, "rtPriority", priorityValue},
                              {&Settings::niceValue, 0, "niceValue", niceValue}};
        int i = 0;
        for (const Field& f : head) fields[i++] = f;
        for (int p = 0; p < 20; ++p) fields[i++] = {nullptr, p, "listPositions", positionValue};
        for (const Field& f : tail) fields[i++] = f;
    }
};
constexpr FieldTable kFields;

void encode(Settings& s, uint8_t (&bytes)[kFileBytes]) {
    for (int i = 0; i < kFieldCount; ++i) {
        uint32_t v = static_cast<uint32_t>(kFields.fields[i].in(s));
        for (int b = 0; b < 4; ++b) bytes[i * 4 + b] = static_cast<uint8_t>(v >> (8 * b));
    }
}

// Takes each field the file holds whole and in range; the others keep their
// defaults and are named in damaged (each name once).
void decode(const uint8_t* bytes, size_t count, Settings& s, std::string& damaged) {
    Settings defaults;
    for (int i = 0; i < kFieldCount; ++i) {
        const Field& f = kFields.fields[i];
        bool whole = size_t(i + 1) * 4 <= count;
        uint32_t v = 0;
        for (int b = 0; whole && b < 4; ++b)
            v |= static_cast<uint32_t>(bytes[i * 4 + b]) << (8 * b);
        if (whole && f.valid(static_cast<int32_t>(v))) {
            f.in(s) = static_cast<int32_t>(v);
            continue;
        }
        f.in(s) = f.in(defaults);
        // The twenty list positions share one name.
        if (!damaged.ends_with(f.name))
            damaged += std::string(damaged.empty() ? "" : ", ") + f.name;
    }
}

// Pairs: a size set in frames wins over a time.
void correct(Settings& s) {
    if (s.periodFrames > 0) s.periodTimeUs = -1;
    if (s.bufferFrames > 0) s.bufferTimeUs = -1;
}

void reportLoad(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::fflush(stderr);
}

// Reads at most one byte more than a whole file, enough to see it is too long.
ssize_t readHead(int fd, uint8_t* bytes, size_t capacity) {
    size_t got = 0;
    while (got < capacity) {
        ssize_t r = read(fd, bytes + got, capacity - got);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return -1;
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<ssize_t>(got);
}

}  // namespace

void setColors(bool on) {
    colorBrightGreen = on ? "\033[1;32m" : "";
    colorBrightYellow = on ? "\033[1;33m" : "";
    colorCyan = on ? "\033[0;36m" : "";
    colorYellow = on ? "\033[0;33m" : "";
    colorBrightCyan = on ? "\033[1;36m" : "";
    colorReset = on ? "\033[0m" : "";
}

void loadSettings() {
    std::string why;
    off_t size = 0;
    int fd = openRegularFile(kConfigFile, why, &size);
    if (fd < 0) {
        // No file is the normal first start; anything else is worth a word.
        if (errno != ENOENT)
            reportLoad(std::string(kConfigFile) + ": " + why + "; default settings used");
        return;
    }
    uint8_t bytes[kFileBytes + 1];
    ssize_t got = readHead(fd, bytes, sizeof bytes);
    int err = errno;
    close(fd);
    if (got < 0) {
        reportLoad(std::string(kConfigFile) + ": " + std::strerror(err) +
                   "; default settings used");
        return;
    }
    std::string damaged;
    decode(bytes, static_cast<size_t>(got), settings, damaged);
    setColors(settings.colorsOn != 0);
    correct(settings);
    if (got == kFileBytes && damaged.empty()) return;
    std::string line = std::string(kConfigFile) + " is damaged";
    if (got != kFileBytes)
        line +=
            " (size " + std::to_string(size) + ", not " + std::to_string(kFileBytes) + " bytes)";
    if (!damaged.empty()) line += ": defaults used for " + damaged;
    reportLoad(line);
}

void saveSettings() {
    uint8_t bytes[kFileBytes];
    encode(settings, bytes);
    std::string why;
    if (replaceFile(kConfigFile, bytes, sizeof bytes, why)) return;
    std::fprintf(stderr, "Can't save %s: %s\n", kConfigFile, why.c_str());
    std::fflush(stderr);
}
