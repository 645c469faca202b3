// Test helpers: a temporary folder removed with its contents, a scoped working
// directory, whole-file reads and writes, and capture of a stdio stream's bytes.
#pragma once
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
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
        std::filesystem::remove_all(path_, ec);
    }
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

struct ScopedChdir {
    std::filesystem::path old = std::filesystem::current_path();
    explicit ScopedChdir(const std::string& dir) { std::filesystem::current_path(dir); }
    ~ScopedChdir() { std::filesystem::current_path(old); }
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Points the stream's descriptor at a temporary file until text().
class Capture {
  public:
    explicit Capture(FILE* stream) : stream_(stream), file_(tmpfile()) {
        fflush(stream_);
        saved_ = dup(fileno(stream_));
        dup2(fileno(file_), fileno(stream_));
    }
    ~Capture() {
        text();
        fclose(file_);
    }
    std::string text() {
        fflush(stream_);
        if (saved_ >= 0) {
            dup2(saved_, fileno(stream_));
            close(saved_);
            saved_ = -1;
        }
        rewind(file_);
        std::string out;
        char buf[4096];
        for (size_t n; (n = fread(buf, 1, sizeof buf, file_)) > 0;) out.append(buf, n);
        return out;
    }

  private:
    FILE* stream_;
    FILE* file_;
    int saved_ = -1;
};

}  // namespace testfiles
