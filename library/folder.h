// The folder being browsed: its sorted entry list, the playable-file test and
// the paged listing. Main thread only.
#pragma once
#include <string>
#include <vector>

#include "control/shown_text.h"

using FolderList = std::vector<std::string>;

extern FolderList folderList;      // the one list of the program
extern std::string currentFolder;  // "/" until start-up restores path.txt
extern std::string listedFolder;   // path of the last folder scanned (any length)
extern bool atRoot;

bool isPlayableFile(const char* name);  // the 24 suffixes, exact case
bool isCueFile(const char* name);       // ".cue" or ".CUE"

// Reads path into list (.. first, then folders, playable files, CUE sheets,
// each byte-sorted), sets listedFolder/atRoot and prints the current page.
// An unreadable folder prints "Can't read %s\n" on stderr and leaves list empty.
void scanFolder(const char* path, FolderList& list);

// Prints the page at listPositions[folderDepth] of folderList (of list), one
// flushed line per entry; nothing when the position lies outside the list.
void printFolderPage();
void printFolderList(const FolderList& list);

// text with every control character (C0, DEL, and C1 in its UTF-8 form) as
// \xHH, so a name or sheet text can never steer the terminal.

// Paging rule on a page position (linesPerPage below 1 counts as 1).
int pageUpPosition(int position, int linesPerPage);
int pageDownPosition(int position, int linesPerPage, int entries);
