// Test-side view of the virtual DAC: writing the ALSA configuration that makes
// it the "default" PCM, and reading back what it recorded.
// Everything here is for one test thread; failures to write throw
// std::runtime_error (tests only), reads of missing files return empty results.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct VdacConfig {
    std::vector<std::string> formats{"S16_LE", "S24_3LE", "S32_LE"};
    std::vector<int> rates{44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000};
    int channelsMin = 1, channelsMax = 8;
    double speed = 0;                      // 0: consumed as written, 1: real time, N: N x real time
    std::string capturePath{}, logPath{};  // empty: not recorded

    // A real card's habits, all off by default. Frame counts run from snd_pcm_open.
    long pointerStep = 0;       // the reported position moves in steps of this many frames
    long suspendAfter = 0;      // SUSPENDED once this many frames were played (once per open)
    bool resumeAllowed = true;  // false: snd_pcm_resume still returns 0 (alsa-lib ignores the
                                // plugin) but leaves an xrun, so only prepare brings it back
    long disconnectAfter = 0;   // DISCONNECTED and -ENODEV everywhere once this many were played
    bool busy = false;          // snd_pcm_open fails with -EBUSY
    bool noRewind = false;      // once running, a rewind alsa-lib lets through is undone:
                                // the application pointer goes back where it was
};

// Writes a self-contained ALSA configuration: with ALSA_CONFIG_PATH naming only
// this file, no system or user configuration is read and "default" is the vdac.
void writeVdacConfig(const std::string& confPath, const VdacConfig& config);

// Points this process's ALSA at confPath and drops ALSA's cached global
// configuration so the next snd_pcm_open reads it.
void useAlsaConfig(const std::string& confPath);

struct VdacEvent {
    uint64_t us = 0;   // CLOCK_MONOTONIC, microseconds
    std::string kind;  // open, hw_params, refuse, prepare, start, drop, drain, xrun, pause,
                       // suspend, resume, disconnect, rewind, forward, busy, close; mark
    std::map<std::string, std::string> fields;
    uint64_t bytes = 0;  // bytes consumed by the device so far in this open
};

// A mark's bytes are not logged: readVdacLog estimates them from the pacing clock
// (speed, rate, frame size) since the last start, unpause or resume, never beyond
// the next event's count; while stopped, or at speed 0, they are the surrounding count.
std::vector<VdacEvent> readVdacLog(const std::string& path);
std::vector<VdacEvent> eventsOfKind(const std::vector<VdacEvent>& events, const std::string& kind);

// Appends "<us> mark what=<what>" in the card's own clock, e.g. when a test presses a
// key, so the frames played between it and the change it caused can be counted.
// Blanks in `what` become '_'. Safe while the card writes the same log.
void markVdacLog(const std::string& logPath, const std::string& what);
// Frames played in this open at events[index], by the last hw_params' frame size.
uint64_t vdacFramesAt(const std::vector<VdacEvent>& events, size_t index);

std::vector<uint8_t> readFileBytes(const std::string& path);
void writeFileBytes(const std::string& path, const std::vector<uint8_t>& data);
// A 16-bit stereo 44.1 kHz WAV of frames frames; sample(i) gives the i-th
// interleaved sample.
std::vector<uint8_t> wav16(uint32_t frames, const std::function<uint16_t(uint32_t)>& sample);
inline std::string readFileText(const std::string& path) {
    const std::vector<uint8_t> bytes = readFileBytes(path);
    return {bytes.begin(), bytes.end()};
}

// A fresh directory under /tmp, removed with everything in it on destruction.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};
