// path.txt: the raw bytes of the last folder, no line end.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "app/frontend.h"
#include "settings/safe_file.h"

namespace {
constexpr const char* kPathFile = "path.txt";
}

void writePathFile(const std::string& folder) {
    std::string why;
    if (replaceFile(kPathFile, folder.data(), folder.size(), why)) return;
    std::fprintf(stderr, "Can't save %s: %s\n", kPathFile, why.c_str());
    std::fflush(stderr);
}

bool readPathFile(std::string& folder) {
    std::string why;
    int fd = openRegularFile(kPathFile, why);
    if (fd < 0) {
        if (errno != ENOENT) {
            std::fprintf(stderr, "%s: %s\n", kPathFile, why.c_str());
            std::fflush(stderr);
        }
        return false;
    }
    char text[kPathSlot];
    std::memset(text, 0, sizeof text);
    ssize_t n = read(fd, text, kPathSlot - 1);
    close(fd);
    if (n < 0) return false;
    struct stat st {};
    if (stat(text, &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    folder = text;
    return true;
}
