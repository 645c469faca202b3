// path.txt: the raw bytes of the last folder, no line end.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "app/frontend.h"

namespace {
constexpr const char* kPathFile = "path.txt";
}

void writePathFile(const std::string& folder) {
    int fd = creat(kPathFile, 0644);
    if (fd < 0) return;
    // Readable and writable by everybody whatever the umask.
    fchmod(fd, 0666);
    const char* p = folder.data();
    size_t left = folder.size();
    while (left > 0) {
        ssize_t n = write(fd, p, left);
        if (n <= 0) break;
        p += n;
        left -= size_t(n);
    }
    close(fd);
}

bool readPathFile(std::string& folder) {
    int fd = open(kPathFile, O_RDONLY);
    if (fd < 0) return false;
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
