// The idle command set: help, listing and paging, and the number command that
// enters folders, loads CUE sheets and starts playback.
#include <sys/stat.h>

#include <cstdio>

#include "app/frontend.h"
#include "app/rules.h"
#include "library/cue.h"
#include "library/folder.h"
#include "settings/settings.h"

namespace {

int depth() {
    int d = settings.folderDepth;
    return d < 0 ? 0 : d > 19 ? 19 : d;
}

int32_t& pagePosition() {
    return settings.listPositions[depth()];
}

bool runListingCommand(const std::string& word) {
    if (word == "h" || word == "H") {
        printHelp();
    } else if (word == "l" || word == "L") {
        printFolderPage();
    } else if (word == "a" || word == "A") {
        pagePosition() = pageUpPosition(pagePosition(), settings.linesPerPage);
        printFolderPage();
    } else if (word == "z" || word == "Z") {
        int entries = static_cast<int>(folderList.size());
        pagePosition() = pageDownPosition(pagePosition(), settings.linesPerPage, entries);
        printFolderPage();
    } else {
        return false;
    }
    return true;
}

void leaveFolder() {
    size_t slash = currentFolder.rfind('/');
    // Directly below the root, or a relative path without "/": up means the root.
    if (slash == std::string::npos || slash == 0)
        currentFolder.assign(1, '/');
    else
        currentFolder.erase(slash);
    settings.folderDepth = depth() > 0 ? depth() - 1 : 0;
    scanFolder(currentFolder.c_str(), folderList);
}

void enterFolder(const std::string& name) {
    currentFolder = entryPath(currentFolder, name);
    settings.folderDepth = depth() < 19 ? depth() + 1 : 19;
    pagePosition() = 0;
    scanFolder(currentFolder.c_str(), folderList);
}

void selectFile(const std::string& path, int64_t track) {
    if (path.size() >= size_t(kPathSlot)) {
        std::fputs("path too long\n", stderr);
        std::fflush(stderr);
        return;
    }
    playerControl.seekSeconds.store(-1);
    playerControl.seekCdFrames.store(-1);
    if (track >= 1 && track <= static_cast<int64_t>(trackStartFrames.size())) {
        std::string file = path;
        if (!trackStart(size_t(track - 1), file)) return;
        setPendingStart(trackStartFrames[size_t(track - 1)]);
        startPlayback(file);
        return;
    }
    startPlayback(path);
}

void runNumberCommand(const NumberCommand& number) {
    if (number.entry < 0 || number.entry >= static_cast<int64_t>(folderList.size())) return;
    const std::string name = folderList[number.entry];
    const std::string path = entryPath(currentFolder, name);
    struct stat st {};
    // An entry gone since the scan is left alone: no stale kind is used.
    if (stat(path.c_str(), &st) != 0) return;
    if (S_ISDIR(st.st_mode)) {
        if (name == "..")
            leaveFolder();
        else
            enterFolder(name);
    } else if (isPlayableFile(name.c_str())) {
        selectFile(path, number.track);
    } else if (isCueFile(name.c_str())) {
        loadCueSheet(path);
    }
}

}  // namespace

void runIdleCommand(const std::string& word) {
    if (runEarlySettingsCommand(word) || runListingCommand(word) || runLateSettingsCommand(word))
        return;
    std::optional<NumberCommand> number = parseNumberCommand(word);
    if (!number) return;
    runNumberCommand(*number);
}
