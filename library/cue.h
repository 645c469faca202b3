// CUE sheets: reading in UTF-8, UTF-16 or CP1251, parsing into the track table.
// Main thread only; the player never reads the table.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

extern std::vector<std::string> cueLines;
extern std::vector<std::string> trackNames;
extern std::vector<std::string> trackStartTexts;
extern std::vector<int32_t> trackStartsMs;

// Appends the sheet's lines, converted to UTF-8, to lines.
void readCueLines(const std::string& path, std::vector<std::string>& lines);
// Returns the keyword and appends the line's values (at most three).
std::string parseCueLine(const std::string& line, std::vector<std::string>& values);
int32_t cueTimeToMs(const std::string& text);
std::string trimBlanks(const std::string& text, const std::string& set);
// Rebuilds the table from the sheet at path and prints header and track list.
void loadCueSheet(const std::string& path);
