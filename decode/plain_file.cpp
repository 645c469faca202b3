#include "decode/plain_file.h"

#include <unistd.h>

#include "decode/decode.h"
#include "settings/safe_file.h"

int openPlainFile(const char* path, std::string* why) {
    std::string reason;
    const int fd = openRegularFile(path, reason);
    if (fd < 0 && why) *why = reason;
    return fd;
}

bool decodeRegularFile(const char* path, std::string* why) {
    int fd = openPlainFile(path, why);
    if (fd < 0) return false;
    close(fd);
    return true;
}
