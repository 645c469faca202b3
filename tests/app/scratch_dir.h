// A temporary working directory for tests that make the program write its
// files (config.dat, path.txt) relative to the current directory.
#pragma once
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

class ScratchDir {
  public:
    ScratchDir() {
        char templ[] = "/tmp/tovrin-app-XXXXXX";
        path_ = mkdtemp(templ);
        old_ = std::filesystem::current_path();
        std::filesystem::current_path(path_);
    }
    ~ScratchDir() {
        std::filesystem::current_path(old_);
        std::filesystem::remove_all(path_);
    }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
    std::filesystem::path old_;
};
