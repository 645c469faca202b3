#include "tests/support/fixtures.h"

#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

std::string Fixture::fixturePath(const std::string& name) {
    return std::string(TOVRIN_FIXTURES_DIR) + "/" + name;
}

std::vector<Fixture> fixtures() {
    std::vector<Fixture> rows;
    std::ifstream in(Fixture::fixturePath("manifest.tsv"));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        std::istringstream cols(line);
        Fixture f;
        if (cols >> f.file >> f.kind >> f.container >> f.rate >> f.channels >> f.bits >> f.frames >>
            f.ref >> f.codec)
            rows.push_back(f);
    }
    return rows;
}

Fixture fixture(const std::string& file) {
    for (const Fixture& f : fixtures())
        if (f.file == file) return f;
    throw std::runtime_error("no fixture " + file);
}

std::string testName(std::string name) {
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}
