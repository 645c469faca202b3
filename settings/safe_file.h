// Opening files that may have been replaced by something hostile (a FIFO, a
// device, a huge file), and replacing small files whole so that a failed
// write never leaves a half-written one behind. Any thread.
#pragma once
#include <sys/types.h>

#include <string>

// Opens path read-only, but only a regular file: anything else is refused
// before it could block the caller. Returns the descriptor, or -1 with the
// reason in why ("not a regular file (a FIFO)", or the system's error text);
// errno is then ENOENT only when nothing of that name exists.
// size receives the file's size when given.
int openRegularFile(const char* path, std::string& why, off_t* size = nullptr);

// Replaces path by count bytes: a temporary file beside it is written,
// flushed to the disk, given mode 0666 and renamed over path. False with the
// reason in why when any step fails; path is then exactly as it was.
bool replaceFile(const char* path, const void* bytes, size_t count, std::string& why);

// The write call replaceFile makes, so a test can make a save fail the way
// a full disk does. Null: write(2).
extern ssize_t (*fileWriteSeam)(int fd, const void* buf, size_t count);
