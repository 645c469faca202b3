// The settings record, its 136-byte file and the colour strings.
#include "settings/settings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

Settings settings;

const char* colorBrightGreen = "";
const char* colorBrightYellow = "";
const char* colorCyan = "";
const char* colorYellow = "";
const char* colorBrightCyan = "";
const char* colorReset = "";

namespace {

constexpr const char* kConfigFile = "./config.dat";
constexpr int kFieldCount = 34;  // 14 scalars and 20 list positions
constexpr int kFileBytes = kFieldCount * 4;

// The fields in file order, so the byte layout lives in one place.
void fieldPointers(Settings& s, int32_t* (&out)[kFieldCount]) {
    int32_t* head[] = {&s.periodFrames, &s.periodTimeUs, &s.bufferFrames, &s.bufferTimeUs,
                       &s.directInput,  &s.dsdMode,      &s.dsdPcmRate,   &s.colorsOn,
                       &s.linesPerPage, &s.folderDepth};
    int i = 0;
    for (int32_t* p : head) out[i++] = p;
    for (int32_t& p : s.listPositions) out[i++] = &p;
    out[i++] = &s.rwAccess;
    out[i++] = &s.coresSelect;
    out[i++] = &s.rtPriority;
    out[i++] = &s.niceValue;
}

void encode(Settings& s, uint8_t (&bytes)[kFileBytes]) {
    int32_t* fields[kFieldCount];
    fieldPointers(s, fields);
    for (int i = 0; i < kFieldCount; ++i) {
        uint32_t v = static_cast<uint32_t>(*fields[i]);
        for (int b = 0; b < 4; ++b) bytes[i * 4 + b] = static_cast<uint8_t>(v >> (8 * b));
    }
}

void decode(const uint8_t (&bytes)[kFileBytes], Settings& s) {
    int32_t* fields[kFieldCount];
    fieldPointers(s, fields);
    for (int i = 0; i < kFieldCount; ++i) {
        uint32_t v = 0;
        for (int b = 0; b < 4; ++b) v |= static_cast<uint32_t>(bytes[i * 4 + b]) << (8 * b);
        *fields[i] = static_cast<int32_t>(v);
    }
}

bool knownDsdRate(int32_t rate) {
    return rate == 44100 || rate == 88200 || rate == 176400 || rate == 352800;
}

void correct(Settings& s) {
    if (s.periodFrames > 0) s.periodTimeUs = -1;
    if (s.bufferFrames > 0) s.bufferTimeUs = -1;
    if (s.rtPriority < 0 || s.rtPriority > 99) s.rtPriority = 0;
    if (s.niceValue < -20 || s.niceValue > 19) s.niceValue = 0;
    // folderDepth indexes listPositions, so a damaged file must not carry it outside.
    if (s.folderDepth < 0) s.folderDepth = 0;
    if (s.folderDepth > 19) s.folderDepth = 19;
    if (!knownDsdRate(s.dsdPcmRate)) s.dsdPcmRate = 44100;
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
    int fd = open(kConfigFile, O_RDONLY);
    if (fd < 0) return;
    // A short file overlays only the bytes it has, so a field cut short keeps
    // its default's high-order bytes.
    uint8_t bytes[kFileBytes];
    encode(settings, bytes);
    size_t got = 0;
    while (got < sizeof bytes) {
        ssize_t r = read(fd, bytes + got, sizeof bytes - got);
        if (r <= 0) break;
        got += static_cast<size_t>(r);
    }
    close(fd);
    decode(bytes, settings);
    setColors(settings.colorsOn != 0);
    correct(settings);
}

void saveSettings() {
    int fd = creat(kConfigFile, 0644);
    if (fd < 0) return;
    // Readable and writable by everybody, whatever the umask.
    fchmod(fd, 0666);
    uint8_t bytes[kFileBytes];
    encode(settings, bytes);
    ssize_t ignored = write(fd, bytes, sizeof bytes);
    (void)ignored;
    close(fd);
}
