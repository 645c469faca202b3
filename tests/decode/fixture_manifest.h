// The generated fixture library (manifest.tsv) and whole-stream helpers.
#pragma once
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "decode/decode.h"

struct FixtureRow {
    std::string file, kind, container;
    int rate = 0, channels = 0, bits = 0;
    uint64_t frames = 0;
    std::string ref, codec;
};

inline void PrintTo(const FixtureRow& row, std::ostream* os) {
    *os << row.file;
}

// Rows of the manifest other than DSD ones.
std::vector<FixtureRow> pcmFixtureRows();
std::string fixturePath(const std::string& name);
std::vector<uint8_t> readFile(const std::string& path);
std::string testName(const std::string& file);  // file name as a gtest name

// Reads a stream to its end in chunks of the given sizes (cycled). Fails the
// current test when a read breaks the whole-frame or length contract.
std::vector<uint8_t> readStream(DecodeStream* s, uint32_t frameBytes,
                                const std::vector<uint32_t>& chunks = {65536});

template <typename T>
std::vector<T> asSamples(const std::vector<uint8_t>& bytes) {
    std::vector<T> v(bytes.size() / sizeof(T));
    std::memcpy(v.data(), bytes.data(), v.size() * sizeof(T));
    return v;
}
