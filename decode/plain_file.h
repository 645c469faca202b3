// Opening an audio file without ever blocking: a FIFO, a device or a socket
// named like a song is refused before any read. Any thread.
#pragma once
#include <string>

// A read-only descriptor of path when it is a regular file; -1 otherwise,
// with the reason in *why when why is given.
int openPlainFile(const char* path, std::string* why);
