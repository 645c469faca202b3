#include "tests/support/vdac.h"

#include <alsa/asoundlib.h>
#include <fcntl.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
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
    conf << "  pointer_step " << c.pointerStep << "\n  suspend_after " << c.suspendAfter
         << "\n  resume " << c.resumeAllowed << "\n  disconnect_after " << c.disconnectAfter
         << "\n  busy " << c.busy << "\n  no_rewind " << c.noRewind << "\n";
    if (!(conf << "}\n").flush()) throw std::runtime_error("cannot write " + confPath);
}

void useAlsaConfig(const std::string& confPath) {
    setenv("ALSA_CONFIG_PATH", confPath.c_str(), 1);
    snd_config_update_free_global();
}

namespace {

size_t frameBytes(const VdacEvent& hwParams) {
    auto field = [&](const char* key) {
        auto it = hwParams.fields.find(key);
        return it == hwParams.fields.end() ? std::string() : it->second;
    };
    snd_pcm_format_t format = snd_pcm_format_value(field("format").c_str());
    int width = format == SND_PCM_FORMAT_UNKNOWN ? 0 : snd_pcm_format_physical_width(format);
    return width > 0 ? size_t(width) / 8 * std::stoul("0" + field("channels")) : 0;
}

// The clock runs from these events to the next one that stops it.
bool startsClock(const VdacEvent& e) {
    if (e.kind == "pause") return e.fields.at("on") == "0";
    if (e.kind == "resume") return e.fields.at("ok") == "1";
    return e.kind == "start";
}

bool leavesClock(const VdacEvent& e) {
    return e.kind == "rewind" || e.kind == "forward" || e.kind == "refuse" || e.kind == "mark";
}

void estimateMarks(std::vector<VdacEvent>& events) {
    double speed = 0, rate = 0;
    size_t frame = 0;
    const VdacEvent* anchor = nullptr;  // the event that started the clock, if it runs
    uint64_t last = 0;
    for (size_t i = 0; i < events.size(); ++i) {
        VdacEvent& e = events[i];
        if (e.kind != "mark") {
            if (e.kind == "open") speed = std::stod("0" + e.fields["speed"]);
            if (e.kind == "hw_params") {
                rate = std::stod("0" + e.fields["rate"]);
                frame = frameBytes(e);
            }
            if (startsClock(e))
                anchor = &e;
            else if (!leavesClock(e))
                anchor = nullptr;
            last = e.bytes;
            continue;
        }
        uint64_t next = last;  // the next event's count bounds the estimate
        for (size_t j = i + 1; j < events.size(); ++j)
            if (events[j].kind != "mark") {
                if (events[j].kind != "open") next = events[j].bytes;
                break;
            }
        e.bytes = last;
        if (anchor && speed > 0 && frame > 0 && e.us > anchor->us) {
            double frames = double(e.us - anchor->us) * 1e-6 * rate * speed;
            e.bytes = std::max(last, std::min(next, anchor->bytes + uint64_t(frames) * frame));
        } else if (anchor) {
            e.bytes = next;  // as fast as written: it has played what it will have
        }
    }
}

}  // namespace

void markVdacLog(const std::string& logPath, const std::string& what) {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    std::string word = what;
    for (char& c : word)
        if (std::isspace(static_cast<unsigned char>(c))) c = '_';
    std::string line = std::to_string(uint64_t(ts.tv_sec) * 1000000 + uint64_t(ts.tv_nsec) / 1000) +
                       " mark what=" + word + "\n";
    // One write on O_APPEND, as the card does: lines never interleave.
    int fd = open(logPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    bool ok = fd >= 0 && write(fd, line.data(), line.size()) == ssize_t(line.size());
    if (fd >= 0) close(fd);
    if (!ok) throw std::runtime_error("cannot append to " + logPath);
}

uint64_t vdacFramesAt(const std::vector<VdacEvent>& events, size_t index) {
    size_t frame = 0;
    for (size_t i = 0; i <= index && i < events.size(); ++i)
        if (events[i].kind == "hw_params") frame = frameBytes(events[i]);
    return frame ? events.at(index).bytes / frame : 0;
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
    estimateMarks(events);
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

std::vector<uint8_t> wav16(uint32_t frames, const std::function<uint16_t(uint32_t)>& sample) {
    std::vector<uint8_t> w;
    auto le = [&w](uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) w.push_back(uint8_t(v >> (8 * i)));
    };
    auto text = [&le](const char* t) {
        le(uint32_t(t[0] | t[1] << 8 | t[2] << 16 | t[3] << 24), 4);
    };
    text("RIFF"), le(36 + frames * 4, 4), text("WAVE"), text("fmt "), le(16, 4), le(1, 2);
    le(2, 2), le(44100, 4), le(44100 * 4, 4), le(4, 2), le(16, 2), text("data"), le(frames * 4, 4);
    for (uint32_t i = 0; i < frames * 2; ++i) le(sample(i), 2);
    return w;
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
