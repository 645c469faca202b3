// Which file a track of a sheet plays from, when the sheet names several.
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "library/cue.h"
#include "library/folder.h"

namespace {

bool isFile(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::vector<std::string> folderNames(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* e = readdir(dir)) names.emplace_back(e->d_name);
        closedir(dir);
    }
    return names;
}

std::string stem(const std::string& name) {
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

}  // namespace

bool cueHasManyFiles() {
    for (const std::string& file : trackFiles)
        if (file != trackFiles.front()) return true;
    return false;
}

std::string resolveTrackFile(size_t track) {
    if (track >= trackFiles.size() || trackFiles[track].empty()) return {};
    // Only the name counts: a sheet's FILE may carry a path from the ripper's disk.
    std::string name = trackFiles[track];
    const size_t slash = name.find_last_of("/\\");
    if (slash != std::string::npos) name = name.substr(slash + 1);
    const std::string folder = cueSheetFolder + "/";
    if (isFile(folder + name)) return folder + name;
    const std::vector<std::string> names = folderNames(cueSheetFolder);
    for (const std::string& other : names)
        if (strcasecmp(other.c_str(), name.c_str()) == 0 && isFile(folder + other))
            return folder + other;
    for (const std::string& other : names)
        if (isPlayableFile(other.c_str()) && stem(other) == stem(name) && isFile(folder + other))
            return folder + other;
    return {};
}
