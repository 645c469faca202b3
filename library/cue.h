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
// Exact starts in CD frames (75 a second); -1 where the sheet's time is not a
// valid mm:ss:ff.
extern std::vector<int64_t> trackStartFrames;
// The FILE line each track follows ("" before any), and the sheet's folder.
extern std::vector<std::string> trackFiles;
extern std::string cueSheetFolder;
// True when the sheet names more than one FILE: each track then plays from
// its own file.
bool cueHasManyFiles();
// The file a track's FILE names, beside the sheet: the name as written, else
// the one name that matches it ignoring case, else the same name with another
// playable suffix (rippers often re-encode). Empty when none is there.
std::string resolveTrackFile(size_t track);

// Appends the sheet's lines, converted to UTF-8 and without line ends, to
// lines. The encoding comes from the first two bytes (UTF-8 or UTF-16 mark);
// without one, sheetCharset decides; a line that does not convert is kept as
// read. A file that cannot be opened leaves lines untouched; one that is not
// a regular file or is larger than 1 MiB is refused with one line on stderr.
void readCueLines(const std::string& path, std::vector<std::string>& lines);
// The character set of a sheet's lines read without a mark: "UTF-8" when they
// are valid UTF-8, else a detector's guess among the sets rippers write,
// "CP1251" when it is unsure.
std::string sheetCharset(const std::vector<std::string>& rawLines);
// Returns the keyword and appends the line's values (at most three).
std::string parseCueLine(const std::string& line, std::vector<std::string>& values);
// "mm:ss:ff" (75 frames a second) to milliseconds; unreadable numbers count 0.
int32_t cueTimeToMs(const std::string& text);
// "mm:ss:ff" to CD frames; -1 unless it is digits with seconds below 60 and
// frames below 75.
int64_t cueTimeToCdFrames(const std::string& text);
// text without the characters of set at either end.
std::string trimBlanks(const std::string& text, const std::string& set);
// Rebuilds the table from the sheet at path and prints header and track list
// to stdout, each line flushed. Prints nothing when the sheet cannot be read.
void loadCueSheet(const std::string& path);
