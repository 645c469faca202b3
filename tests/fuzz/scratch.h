// The file a fuzz target hands its input to the code through, in a scratch
// folder made once per run and removed at exit.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

inline const std::string& scratchFolder() {
    // Never freed: the exit handler still reads it.
    static const std::string* folder = [] {
        const char* tmp = std::getenv("TMPDIR");
        auto* made = new std::string(std::string(tmp ? tmp : "/tmp") + "/tovrin-fuzz-XXXXXX");
        if (!mkdtemp(made->data())) std::abort();
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(scratchFolder(), ignored);
        });
        return made;
    }();
    return *folder;
}

// Writes the input as the scratch folder's file `name`; its path.
inline std::string writeInput(const std::string& name, const uint8_t* data, size_t size) {
    const std::string path = scratchFolder() + "/" + name;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) std::abort();
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    return path;
}
