// The generated fixture library: the rows of its manifest.tsv and their paths.
// Any thread; a missing row throws std::runtime_error (tests only).
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

struct Fixture {
    std::string file, kind, container;  // kind: lossless, float, lossy or dsd
    int rate = 0, channels = 0, bits = 0;
    uint64_t frames = 0;  // per channel; DSD: bytes per channel
    std::string ref, codec;
    std::string path() const { return fixturePath(file); }
    std::string refPath() const { return fixturePath(ref); }
    static std::string fixturePath(const std::string& name);
};

inline void PrintTo(const Fixture& f, std::ostream* os) {
    *os << f.file;
}

std::vector<Fixture> fixtures();
Fixture fixture(const std::string& file);
// A name as a test name: every character but letters and digits becomes '_'.
std::string testName(std::string name);
