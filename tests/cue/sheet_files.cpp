#include "sheet_files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

ScratchDir::ScratchDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "cue-XXXXXX").string();
    if (!mkdtemp(pattern.data())) ADD_FAILURE() << "mkdtemp failed";
    path_ = pattern;
}

ScratchDir::~ScratchDir() {
    std::filesystem::remove_all(path_);
}

std::string ScratchDir::write(const std::string& name, const std::string& bytes) const {
    std::string file = path_ + "/" + name;
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
}

std::string utf16WithMark(const std::u16string& text, bool bigEndian) {
    std::string out;
    for (char16_t unit : u"\uFEFF" + text) {
        char hi = static_cast<char>(unit >> 8);
        char lo = static_cast<char>(unit & 0xFF);
        out += bigEndian ? std::string{hi, lo} : std::string{lo, hi};
    }
    return out;
}

std::string captureStdout(const std::function<void()>& body) {
    std::fflush(stdout);
    std::FILE* sink = std::tmpfile();
    int saved = dup(STDOUT_FILENO);
    dup2(fileno(sink), STDOUT_FILENO);
    body();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::rewind(sink);
    std::stringstream text;
    for (int c; (c = std::fgetc(sink)) != EOF;) text.put(static_cast<char>(c));
    std::fclose(sink);
    return text.str();
}
