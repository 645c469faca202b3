// The paged, numbered listing of the folder list, and the paging rule.
#include <cstdio>

#include "library/folder.h"
#include "settings/settings.h"

namespace {

int pageLength(int linesPerPage) {
    return linesPerPage < 1 ? 1 : linesPerPage;
}

int currentPosition() {
    int depth = settings.folderDepth;
    if (depth < 0 || depth > 19) return -1;
    return settings.listPositions[depth];
}

void printEntry(int index, const std::string& name) {
    const char* sep = atRoot ? "" : "/";
    const std::string path = escapeControls(listedFolder), shown = escapeControls(name);
    if (name == "..")
        printf("%d    ..\n", index);
    else if (isPlayableFile(name.c_str()))
        printf("%s%d    %s%s%s%s\n", colorBrightGreen, index, path.c_str(), sep, shown.c_str(),
               colorReset);
    else if (isCueFile(name.c_str()))
        printf("%s%d    %s%s%s%s\n", colorBrightYellow, index, path.c_str(), sep, shown.c_str(),
               colorReset);
    else
        printf("%d    %s%s%s\n", index, path.c_str(), sep, shown.c_str());
    fflush(stdout);
}

}  // namespace

void printFolderList(const FolderList& list) {
    const int n = static_cast<int>(list.size());
    const int start = currentPosition();
    if (start < 0 || start >= n) return;
    printf("\n");
    fflush(stdout);
    const int lines = pageLength(settings.linesPerPage);
    for (int i = start; i < n && i - start < lines; ++i) printEntry(i, list[i]);
}

void printFolderPage() {
    printFolderList(folderList);
}

// Positions come from the settings file, so the sums are done wide.
int pageUpPosition(int position, int linesPerPage) {
    long long p = static_cast<long long>(position) - pageLength(linesPerPage);
    return p < 0 ? 0 : static_cast<int>(p);
}

int pageDownPosition(int position, int linesPerPage, int entries) {
    const int lines = pageLength(linesPerPage);
    long long p = static_cast<long long>(position) + lines;
    if (p >= entries) p = static_cast<long long>(entries) - lines;
    return p < 0 ? 0 : static_cast<int>(p);
}
