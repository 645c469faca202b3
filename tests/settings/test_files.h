// Small file-system helpers for tests: a temporary folder that removes itself,
// a scoped working-directory change, and capture of stdout/stderr bytes.
#pragma once
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace testfiles {

class TempDir {
  public:
    TempDir() {
        char tmpl[] = "/tmp/tovrin-test-XXXXXX";
        path_ = mkdtemp(tmpl);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
        std::filesystem::remove_all(path_, ec);
    }
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

class ScopedChdir {
  public:
    explicit ScopedChdir(const std::string& dir) : old_(std::filesystem::current_path()) {
        std::filesystem::current_path(dir);
    }
    ~ScopedChdir() { std::filesystem::current_path(old_); }

  private:
    std::filesystem::path old_;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Redirects one stdio stream's descriptor into a temporary file until text().
class Capture {
  public:
    explicit Capture(FILE* stream) : stream_(stream), fd_(fileno(stream)) {
        fflush(stream_);
        char tmpl[] = "/tmp/tovrin-capture-XXXXXX";
        file_ = mkstemp(tmpl);
        unlink(tmpl);
        saved_ = dup(fd_);
        dup2(file_, fd_);
    }
    ~Capture() {
        restore();
        close(file_);
    }
    std::string text() {
        restore();
        std::string out;
        char buf[4096];
        lseek(file_, 0, SEEK_SET);
        for (ssize_t n; (n = read(file_, buf, sizeof buf)) > 0;) out.append(buf, n);
        return out;
    }

  private:
    void restore() {
        if (saved_ < 0) return;
        fflush(stream_);
        dup2(saved_, fd_);
        close(saved_);
        saved_ = -1;
    }
    FILE* stream_;
    int fd_;
    int file_ = -1;
    int saved_ = -1;
};

}  // namespace testfiles
