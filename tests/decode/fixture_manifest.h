// The generated fixture library (manifest.tsv) and whole-stream helpers.
#pragma once
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "decode/decode.h"

struct FixtureRow {
    std::string file, kind, container;
    int rate = 0, channels = 0, bits = 0;
    uint64_t frames = 0;
    std::string ref;
    std::string codec;
};

// gtest prints a row by its file name.
inline void PrintTo(const FixtureRow& row, std::ostream* os) {
    *os << row.file;
}

// Rows of the manifest, optionally only those of one kind ("lossless", ...).
std::vector<FixtureRow> fixtureRows(const std::string& kind = "");
std::string fixturePath(const std::string& name);
std::vector<uint8_t> readFile(const std::string& path);

// Reads a stream to its end in chunks of the given sizes (cycled). Fails the
// current test when a read breaks the whole-frame or length contract.
std::vector<uint8_t> readStream(DecodeStream* s, uint32_t frameBytes,
                                const std::vector<uint32_t>& chunks = {65536});

// Name printer for parameterised tests.
std::string rowName(const FixtureRow& row);
std::string testName(const std::string& file);
