// The persistent settings record, its file config.dat, and the colour strings.
// Main thread writes; the player thread only reads, and only fields that the
// command loop leaves alone while a player plays.
#pragma once
#include <cstdint>

struct Settings {
    int32_t periodFrames = -1;  // negative = not set
    int32_t periodTimeUs = -1;
    int32_t bufferFrames = -1;
    int32_t bufferTimeUs = -1;
    int32_t directInput = 0;  // nonzero = Direct Input, 0 = Full Memory
    int32_t dsdMode = 0;      // DsdMode
    int32_t dsdPcmRate = 44100;
    int32_t colorsOn = 1;
    int32_t linesPerPage = 100;
    int32_t folderDepth = 0;  // 0..19, index into listPositions
    int32_t listPositions[20] = {};
    int32_t rwAccess = 0;  // AccessMode: 0 = MMAP interleaved, nonzero = RW interleaved
    int32_t coresSelect = 0;
    int32_t rtPriority = 0;
    int32_t niceValue = 0;
};

enum DsdMode : int32_t { kDsdPcm = 0, kDsdDop = 1, kDsdNative = 2 };

extern Settings settings;

// Reads ./config.dat, applies the load corrections and sets the colour
// strings. No file: the defaults, silently. A file that is not a regular file
// or cannot be read, or a damaged one (wrong size, a value no command
// stores), is named in one line on stderr; each bad field keeps its default.
void loadSettings();
// Replaces ./config.dat whole (136 bytes, mode 0666). A failure is one line on
// stderr and leaves the old file as it was.
void saveSettings();

// Active colour strings: ANSI sequences when colours are on, "" when off.
extern const char* colorBrightGreen;
extern const char* colorBrightYellow;
extern const char* colorCyan;
extern const char* colorYellow;
extern const char* colorBrightCyan;
extern const char* colorReset;
void setColors(bool on);
