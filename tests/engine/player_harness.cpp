#include "tests/engine/player_harness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "engine/packing.h"
#include "engine/player.h"
#include "settings/settings.h"
#include "settings/tuning.h"

std::string Fixture::path() const {
    return std::string(TOVRIN_FIXTURES_DIR) + "/" + file;
}
std::string Fixture::refPath() const {
    return std::string(TOVRIN_FIXTURES_DIR) + "/" + ref;
}

std::vector<Fixture> fixtures(const std::string& kind) {
    std::vector<Fixture> rows;
    std::ifstream in(std::string(TOVRIN_FIXTURES_DIR) + "/manifest.tsv");
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        std::vector<std::string> col;
        std::stringstream ss(line);
        for (std::string c; std::getline(ss, c, '\t');) col.push_back(c);
        if (col.size() < 8) continue;
        Fixture f{col[0],
                  col[1],
                  col[2],
                  std::stoi(col[3]),
                  std::stoi(col[4]),
                  std::stoi(col[5]),
                  std::stoull(col[6]),
                  col[7]};
        if (kind.empty() || f.kind == kind) rows.push_back(f);
    }
    return rows;
}

Fixture fixture(const std::string& file) {
    for (const Fixture& f : fixtures())
        if (f.file == file) return f;
    ADD_FAILURE() << "no fixture " << file;
    return {};
}

Card::Card(std::vector<std::string> formats, double speed) {
    config_.formats = std::move(formats);
    config_.speed = speed;
    config_.rates.push_back(22050);  // the 8-bit fixture's rate
    config_.capturePath = dir_.file("capture.raw");
    config_.logPath = dir_.file("events.log");
    std::string conf = dir_.file("alsa.conf");
    writeVdacConfig(conf, config_);
    useAlsaConfig(conf);
}

void resetPlayerState() {
    settings = Settings{};
    settings.periodFrames = 1024;
    settings.bufferFrames = 4096;
    settings.colorsOn = 0;
    setColors(false);
    tuningSeams.configuredCpus = [] { return 1L; };  // never touch affinity
    tuningSeams.setAffinity = [](pid_t, const cpu_set_t&) { return 0; };
    stopRequest.store(0);
    pauseRequest.store(0);
    seekSeconds.store(-1);
    playerRunning.store(0);
    playerThread.store(0);
    dsdNativeBE.store(0);
    dsdNativeLE.store(0);
    showAlsaSetup.store(1);
    showKeyHints.store(0);
    releaseFullMemoryBuffer();
}

PlayerRoutine routineFor(bool directInput, int32_t outputFormat) {
    switch (outputFormat) {
        case kFormatS32:
            return directInput ? directInputPlayerS32 : fullMemoryPlayerS32;
        case kFormatS24_3:
            return directInput ? directInputPlayerS24 : fullMemoryPlayerS24;
        default:
            return directInput ? directInputPlayerS16 : fullMemoryPlayerS16;
    }
}

const char* formatName(int32_t f) {
    switch (f) {
        case kFormatS32:
            return "S32_LE";
        case kFormatS24_3:
            return "S24_3LE";
        case kFormatS16:
            return "S16_LE";
        case kFormatDsdU32BE:
            return "DSD_U32_BE";
        default:
            return "DSD_U32_LE";
    }
}

void setQueue(const std::vector<std::string>& paths, int index) {
    for (size_t i = 0; i < paths.size(); ++i) copyPathSlot(queuePaths[i], paths[i].c_str());
    queueCount.store(int32_t(paths.size()));
    queueIndex.store(index);
    copyPathSlot(currentPath, paths[size_t(index)].c_str());
}

static std::string slurp(const std::string& path) {
    std::vector<uint8_t> b = readFileBytes(path);
    return std::string(b.begin(), b.end());
}

OutputCapture::OutputCapture() {
    std::fflush(stdout);
    std::fflush(stderr);
    savedOut_ = dup(1);
    savedErr_ = dup(2);
    int o = open(dir_.file("out").c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    int e = open(dir_.file("err").c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    dup2(o, 1);
    dup2(e, 2);
    close(o);
    close(e);
}

void OutputCapture::finish() {
    if (savedOut_ < 0) return;
    std::fflush(stdout);
    std::fflush(stderr);
    dup2(savedOut_, 1);
    dup2(savedErr_, 2);
    close(savedOut_);
    close(savedErr_);
    savedOut_ = savedErr_ = -1;
    out_ = slurp(dir_.file("out"));
    err_ = slurp(dir_.file("err"));
}

OutputCapture::~OutputCapture() {
    finish();
}

RunText playInline(PlayerRoutine routine) {
    OutputCapture cap;
    routine(nullptr);
    cap.finish();
    return {cap.out(), cap.err()};
}

PlayerThread::PlayerThread(PlayerRoutine routine) {
    pthread_create(&thread_, nullptr, routine, nullptr);
    playerThread.store(thread_);
}

PlayerThread::~PlayerThread() {
    join();
}

void PlayerThread::join() {
    if (joined_) return;
    pthread_join(thread_, nullptr);
    joined_ = true;
}

bool PlayerThread::waitRunning(uint8_t want, double seconds) {
    auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (playerRunning.load() != want) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

uint32_t frameBytes(int32_t alsaFormat, int channels) {
    int width = alsaFormat == kFormatS24_3 ? 3 : alsaFormat == kFormatS16 ? 2 : 4;
    return uint32_t(width * channels);
}

std::vector<uint8_t> expectedCardBytes(const Fixture& f, int32_t alsaFormat) {
    std::vector<uint8_t> ref = readFileBytes(f.refPath());
    if (f.kind == "float" || f.kind == "lossy") {
        if (alsaFormat == kFormatS32) {
            convertFloatToS32(ref.data(), uint32_t(ref.size()));
            return ref;
        }
        std::vector<uint8_t> out(ref.size() / 4 * 3);
        convertFloatToS24_3LE(ref.data(), out.data(), uint32_t(ref.size()));
        return out;
    }
    // Left-justified 32-bit words: a narrower card keeps their top bytes.
    size_t keep = alsaFormat == kFormatS24_3 ? 3 : alsaFormat == kFormatS16 ? 2 : 4;
    std::vector<uint8_t> out;
    out.reserve(ref.size() / 4 * keep);
    for (size_t i = 0; i + 4 <= ref.size(); i += 4)
        for (size_t b = 4 - keep; b < 4; ++b) out.push_back(ref[i + b]);
    return out;
}
