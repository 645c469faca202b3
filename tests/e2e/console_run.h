// Shared steps of the whole-program console tests.
#pragma once
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <string>

#include "tests/support/harness.h"

constexpr double kWait = 20;  // seconds; generous for sanitizer builds

inline std::string fileText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(f)), {});
}

inline void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline int fileMode(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? int(st.st_mode & 0777) : -1;
}

inline int32_t fieldAt(const std::string& bytes, size_t offset) {
    uint32_t v = 0;
    for (int b = 0; b < 4; ++b) v |= uint32_t(uint8_t(bytes.at(offset + b))) << (8 * b);
    return int32_t(v);
}

// The settings report's lines that come from the process, not the settings.
inline std::string processLines() {
    return "Process priority: 0\nProcess nice: " + std::to_string(getpriority(PRIO_PROCESS, 0)) +
           "\n";
}

// Runs the program with the given input, closes the input and waits for exit.
inline int runSession(PlayerFixture& fx, ProgramRun& run, const std::string& input) {
    if (!fx.start(run, {})) return -2;
    run.send(input);
    run.closeInput();
    return run.waitExit(kWait);
}
