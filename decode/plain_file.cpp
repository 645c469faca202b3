#include "decode/plain_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "decode/decode.h"

namespace {

const char* kindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a file";
}

int refuse(std::string* why, const std::string& text) {
    if (why) *why = text;
    return -1;
}

}  // namespace

int openPlainFile(const char* path, std::string* why) {
    // stat first, so that a device is refused without being opened; the
    // non-blocking open and fstat then hold even if the name was swapped.
    struct stat st {};
    if (stat(path, &st) != 0) return refuse(why, std::strerror(errno));
    if (!S_ISREG(st.st_mode))
        return refuse(why, std::string("not a regular file (") + kindOf(st.st_mode) + ")");
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return refuse(why, std::strerror(errno));
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return refuse(why, std::string("not a regular file (") + kindOf(st.st_mode) + ")");
    }
    return fd;
}

bool decodeRegularFile(const char* path, std::string* why) {
    int fd = openPlainFile(path, why);
    if (fd < 0) return false;
    close(fd);
    return true;
}
