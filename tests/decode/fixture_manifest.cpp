#include "tests/decode/fixture_manifest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

std::string fixturePath(const std::string& name) {
    return std::string(TOVRIN_FIXTURES_DIR) + "/" + name;
}

std::vector<FixtureRow> pcmFixtureRows() {
    std::vector<FixtureRow> rows;
    std::ifstream in(fixturePath("manifest.tsv"));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::stringstream fields(line);
        for (std::string cell; std::getline(fields, cell, '\t');) f.push_back(cell);
        if (f.size() < 9 || f[1] == "dsd") continue;
        rows.push_back({f[0], f[1], f[2], std::stoi(f[3]), std::stoi(f[4]), std::stoi(f[5]),
                        std::stoull(f[6]), f[7], f[8]});
    }
    return rows;
}

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<uint8_t> readStream(DecodeStream* s, uint32_t frameBytes,
                                const std::vector<uint32_t>& chunks) {
    const uint64_t length = decodeLength(s);
    std::vector<uint8_t> out;
    std::vector<uint8_t> buf(*std::max_element(chunks.begin(), chunks.end()) + 16);
    for (size_t i = 0;; ++i) {
        const uint32_t ask = chunks[i % chunks.size()];
        const uint32_t n = decodeRead(s, buf.data(), ask);
        if (n == kDecodeEnd) break;
        EXPECT_LE(n, ask);
        EXPECT_EQ(n % frameBytes, 0u) << "read of " << ask << " gave a partial frame";
        if (n == 0 && ask >= frameBytes) {
            ADD_FAILURE() << "empty read before the end";
            break;
        }
        out.insert(out.end(), buf.begin(), buf.begin() + n);
        if (out.size() > length) break;
    }
    EXPECT_EQ(out.size(), length);
    return out;
}

std::string testName(const std::string& file) {
    std::string name;
    for (char c : file) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}
