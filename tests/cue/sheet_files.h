// Writing sheets in a chosen encoding and capturing what the loader prints.
#pragma once
#include <functional>
#include <string>

// A private directory, removed with its files when the object goes.
class ScratchDir {
  public:
    ScratchDir();
    ~ScratchDir();
    std::string write(const std::string& name, const std::string& bytes) const;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// UTF-16 bytes with a mark, little- or big-endian.
std::string utf16WithMark(const std::u16string& text, bool bigEndian);
// Everything written to stdout (fd 1) while body runs.
std::string captureStdout(const std::function<void()>& body);
