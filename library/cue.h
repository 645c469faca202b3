// CUE sheets: reading in UTF-8, UTF-16 or CP1251, parsing into the track table.
// Main thread only; the player never reads the table. Nothing here throws; an
// unreadable sheet yields no lines and an empty table.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

// The sheet loaded last; emptied together at the start of every load. The
// three track sequences always have the same length (track T is element T-1).
extern std::vector<std::string> cueLines;
extern std::vector<std::string> trackNames;
extern std::vector<std::string> trackStartTexts;
extern std::vector<int32_t> trackStartsMs;

// Appends the sheet's lines, converted to UTF-8 and without line ends, to
// lines. The encoding comes from the first two bytes (UTF-8 or UTF-16 mark),
// CP1251 without one; a line that does not convert is kept as read. A file
// that cannot be opened leaves lines untouched; one that is not a regular
// file or is larger than 1 MiB is refused with one line on stderr.
void readCueLines(const std::string& path, std::vector<std::string>& lines);
// Returns the keyword and appends the line's values (at most three).
std::string parseCueLine(const std::string& line, std::vector<std::string>& values);
// "mm:ss:ff" (75 frames a second) to milliseconds; unreadable numbers count 0.
int32_t cueTimeToMs(const std::string& text);
// text without the characters of set at either end.
std::string trimBlanks(const std::string& text, const std::string& set);
// Rebuilds the table from the sheet at path and prints header and track list
// to stdout, each line flushed. Prints nothing when the sheet cannot be read.
void loadCueSheet(const std::string& path);
