// The track table of the sheet loaded last, and the album header and track
// list printed when a sheet is selected.
#include <cstdio>
#include <string>
#include <vector>

#include "library/cue.h"
#include "library/folder.h"
#include "settings/settings.h"

std::vector<std::string> cueLines;
std::vector<std::string> trackNames;
std::vector<std::string> trackStartTexts;
std::vector<int32_t> trackStartsMs;
std::vector<int64_t> trackStartFrames;
std::vector<std::string> trackFiles;
std::string cueSheetFolder;

namespace {

// What one load learns besides the table; printed, then dropped.
struct AlbumInfo {
    std::string artist;
    std::string title;
    std::string year;
    bool artistSeen = false;
    bool titleSeen = false;
    std::string pendingName;  // name of the track whose INDEX 01 comes next
    std::string file;         // the FILE line in force
    std::vector<std::string> problems;
};

void onPerformer(AlbumInfo& album, const std::string& value) {
    if (!album.artistSeen) {
        album.artist = value;
        album.artistSeen = true;
    } else if (value != album.artist) {
        std::string& name = album.pendingName;
        name = name.empty() ? value : value + " - " + name;
    }
}

void onTitle(AlbumInfo& album, const std::string& value) {
    if (!album.titleSeen) {
        album.title = value;
        album.titleSeen = true;
    } else {
        std::string& name = album.pendingName;
        name = name.empty() ? value : name + " - " + value;
    }
}

// Only INDEX 01 delimits a track; TRACK lines play no part.
void onIndex(AlbumInfo& album, const std::vector<std::string>& values) {
    if (values.size() < 2 || values[0] != "01") return;
    trackNames.push_back(album.pendingName);
    trackStartTexts.push_back(values[1]);
    trackStartsMs.push_back(cueTimeToMs(values[1]));
    trackStartFrames.push_back(cueTimeToCdFrames(values[1]));
    trackFiles.push_back(album.file);
    if (trackStartFrames.back() < 0)
        album.problems.push_back("track " + std::to_string(trackStartFrames.size()) +
                                 ": INDEX 01 \"" + values[1] + "\" is not mm:ss:ff");
    album.pendingName.clear();
}

void applyLine(AlbumInfo& album, const std::string& line) {
    std::vector<std::string> values;
    std::string keyword = parseCueLine(line, values);
    if (values.empty()) return;
    if (keyword == "PERFORMER") {
        onPerformer(album, values[0]);
    } else if (keyword == "TITLE") {
        onTitle(album, values[0]);
    } else if (keyword == "INDEX") {
        onIndex(album, values);
    } else if (keyword == "FILE") {
        album.file = values[0];
    } else if (keyword == "REM") {
        if (values.size() >= 2 && values[0] == "DATE") album.year = values[1];
    }
}

void printPart(const char* label, const std::string& text) {
    if (text.empty()) return;
    std::printf("%s%s%s%s", colorCyan, label, colorBrightYellow, escapeControls(text).c_str());
}

void printSheet(const AlbumInfo& album) {
    printPart("Artist: ", album.artist);
    printPart("   Album: ", album.title);
    printPart("   Year: ", album.year);
    std::fputs("\n", stdout);
    std::fflush(stdout);
    // "%02d" simply widens from track 100 and 1000 on.
    for (size_t i = 0; i < trackStartsMs.size(); ++i) {
        std::printf("%s%02zu   %s%s   %s%s\n", colorBrightYellow, i + 1, colorCyan,
                    escapeControls(trackStartTexts[i]).c_str(), colorBrightYellow,
                    escapeControls(trackNames[i]).c_str());
        std::fflush(stdout);
    }
    std::printf("%s\n", colorReset);
    std::fflush(stdout);
}

}  // namespace

void loadCueSheet(const std::string& path) {
    cueLines.clear();
    trackNames.clear();
    trackStartTexts.clear();
    trackStartsMs.clear();
    trackStartFrames.clear();
    trackFiles.clear();
    const size_t slash = path.rfind('/');
    cueSheetFolder = slash == std::string::npos ? "." : path.substr(0, slash ? slash : 1);
    readCueLines(path, cueLines);
    if (cueLines.empty()) return;  // could not be opened: no output at all

    AlbumInfo album;
    for (const std::string& line : cueLines) applyLine(album, line);
    printSheet(album);
    for (const std::string& problem : album.problems)
        std::fprintf(stderr, "%s: %s\n", path.c_str(), problem.c_str());
    std::fflush(stderr);
}
