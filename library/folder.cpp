// The folder scan and the playable-file test.
#include "library/folder.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

FolderList folderList;
std::string currentFolder = "/";
std::string listedFolder;
bool atRoot = false;

namespace {

constexpr const char* kPlayableSuffixes[] = {".wav", ".WAV", ".aiff", ".AIFF", ".ogg", ".OGG",
                                             ".mp3", ".MP3", ".flac", ".FLAC", ".ape", ".APE",
                                             ".m4a", ".M4A", ".mp4",  ".MP4",  ".aac", ".AAC",
                                             ".dff", ".DFF", ".dsf",  ".DSF",  ".wv",  ".WV"};

bool endsWith(const char* name, const char* suffix) {
    size_t n = strlen(name), k = strlen(suffix);
    return n >= k && memcmp(name + n - k, suffix, k) == 0;
}

bool isDirectory(const std::string& path) {
    // stat follows links; an entry it cannot read is simply not a folder.
    struct stat st {};
    stat(path.c_str(), &st);
    return S_ISDIR(st.st_mode);
}

}  // namespace

bool isPlayableFile(const char* name) {
    for (const char* suffix : kPlayableSuffixes)
        if (endsWith(name, suffix)) return true;
    return false;
}

bool isCueFile(const char* name) {
    return endsWith(name, ".cue") || endsWith(name, ".CUE");
}

void scanFolder(const char* path, FolderList& list) {
    listedFolder = path;
    atRoot = listedFolder.size() == 1;
    list.clear();
    DIR* dir = opendir(path);
    if (!dir) {
        fprintf(stderr, "Can't read %s\n", escapeControls(path).c_str());
        fflush(stderr);
        return;
    }
    const std::string prefix = listedFolder + (atRoot ? "" : "/");
    FolderList folders, playable, sheets;
    while (const dirent* e = readdir(dir)) {
        const char* name = e->d_name;
        if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
        if (isDirectory(prefix + name))
            folders.emplace_back(name);
        else if (isPlayableFile(name))
            playable.emplace_back(name);
        else if (isCueFile(name))
            sheets.emplace_back(name);
    }
    closedir(dir);
    // std::string compares bytes as unsigned values, with a prefix first.
    for (FolderList* group : {&folders, &playable, &sheets})
        std::sort(group->begin(), group->end());
    if (!atRoot) list.emplace_back("..");
    for (FolderList* group : {&folders, &playable, &sheets})
        list.insert(list.end(), group->begin(), group->end());
    printFolderList(list);
}
