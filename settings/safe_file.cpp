#include "settings/safe_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

ssize_t (*fileWriteSeam)(int fd, const void* buf, size_t count) = nullptr;

namespace {

const char* kindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a file";
}

bool refuseUnlessRegular(mode_t mode, std::string& why) {
    if (S_ISREG(mode)) return true;
    why = std::string("not a regular file (") + kindOf(mode) + ")";
    errno = EINVAL;
    return false;
}

bool writeAll(int fd, const void* bytes, size_t count) {
    auto p = static_cast<const char*>(bytes);
    while (count > 0) {
        ssize_t n = fileWriteSeam ? fileWriteSeam(fd, p, count) : write(fd, p, count);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        p += n;
        count -= size_t(n);
    }
    return true;
}

std::string folderOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The temporary name starts with a dot so a listing of the folder does not
// show it while it exists.
std::string temporaryPattern(const std::string& path) {
    size_t slash = path.rfind('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    return folder + "." + base + ".XXXXXX";
}

}  // namespace

int openRegularFile(const char* path, std::string& why, off_t* size) {
    why.clear();
    // stat first, so that a device is refused without being opened at all;
    // the non-blocking open and fstat then hold even if the name was swapped.
    struct stat st {};
    if (stat(path, &st) != 0) {
        why = std::strerror(errno);
        return -1;
    }
    if (!refuseUnlessRegular(st.st_mode, why)) return -1;
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        why = std::strerror(errno);
        return -1;
    }
    if (fstat(fd, &st) != 0) why = std::strerror(errno);
    if (!why.empty() || !refuseUnlessRegular(st.st_mode, why)) {
        int err = errno;
        close(fd);
        errno = err;
        return -1;
    }
    if (size) *size = st.st_size;
    return fd;
}

bool replaceFile(const char* path, const void* bytes, size_t count, std::string& why) {
    std::string temp = temporaryPattern(path);
    int fd = mkstemp(temp.data());
    if (fd < 0) {
        why = std::strerror(errno);
        return false;
    }
    // Readable and writable by everybody whatever the umask, as before.
    bool ok = fchmod(fd, 0666) == 0 && writeAll(fd, bytes, count) && fsync(fd) == 0;
    int err = errno;
    if (close(fd) != 0 && ok) {
        ok = false;
        err = errno;
    }
    if (ok && rename(temp.c_str(), path) != 0) {
        ok = false;
        err = errno;
    }
    if (!ok) {
        unlink(temp.c_str());
        why = std::strerror(err);
        return false;
    }
    // The rename itself reaches the disk with the folder.
    int dir = open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        fsync(dir);
        close(dir);
    }
    return true;
}
