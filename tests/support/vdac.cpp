#include "tests/support/vdac.h"

#include <alsa/asoundlib.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <locale>
#include <sstream>
#include <stdexcept>

namespace {

template <typename T>
std::string quotedList(const std::vector<T>& items) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << '"';
    for (size_t i = 0; i < items.size(); ++i) out << (i ? " " : "") << items[i];
    return out.str() + '"';
}

}  // namespace

void writeVdacConfig(const std::string& confPath, const VdacConfig& c) {
    // Only this file is read, so nothing else defines "default" or hooks in
    // the system's conf.d and the user's ~/.asoundrc. Paths hold no quotes.
    std::ofstream conf(confPath, std::ios::trunc);
    conf.imbue(std::locale::classic());
    conf << "pcm_type.vdac {\n  lib \"" VDAC_PLUGIN "\"\n}\n"
         << "pcm.!default {\n  type vdac\n  formats " << quotedList(c.formats) << "\n  rates "
         << quotedList(c.rates) << "\n  channels_min " << c.channelsMin << "\n  channels_max "
         << c.channelsMax << "\n  speed " << std::fixed << c.speed << "\n";
    if (!c.capturePath.empty()) conf << "  capture \"" << c.capturePath << "\"\n";
    if (!c.logPath.empty()) conf << "  log \"" << c.logPath << "\"\n";
    if (!(conf << "}\n").flush()) throw std::runtime_error("cannot write " + confPath);
}

void useAlsaConfig(const std::string& confPath) {
    setenv("ALSA_CONFIG_PATH", confPath.c_str(), 1);
    snd_config_update_free_global();
}

std::vector<VdacEvent> readVdacLog(const std::string& path) {
    std::vector<VdacEvent> events;
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        VdacEvent e;
        if (!(words >> e.us >> e.kind)) continue;
        std::string word;
        while (words >> word) {
            auto eq = word.find('=');
            if (eq == std::string::npos) continue;
            std::string key = word.substr(0, eq), value = word.substr(eq + 1);
            if (key == "bytes")
                e.bytes = std::stoull(value);
            else
                e.fields[key] = value;
        }
        events.push_back(std::move(e));
    }
    return events;
}

std::vector<VdacEvent> eventsOfKind(const std::vector<VdacEvent>& events, const std::string& kind) {
    std::vector<VdacEvent> out;
    for (const auto& e : events)
        if (e.kind == kind) out.push_back(e);
    return out;
}

std::vector<uint8_t> readFileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {});
}

void writeFileBytes(const std::string& path, const std::vector<uint8_t>& data) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(data.data()), std::streamsize(data.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

TempDir::TempDir() {
    char name[] = "/tmp/tovrin-test-XXXXXX";
    if (!mkdtemp(name)) throw std::runtime_error("mkdtemp failed");
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}
