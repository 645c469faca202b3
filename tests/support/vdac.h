// Test-side view of the virtual DAC: writing the ALSA configuration that makes
// it the "default" PCM, and reading back what it recorded.
// Everything here is for one test thread; failures to write throw
// std::runtime_error (tests only), reads of missing files return empty results.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct VdacConfig {
    std::vector<std::string> formats{"S16_LE", "S24_3LE", "S32_LE"};
    std::vector<int> rates{44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000};
    int channelsMin = 1, channelsMax = 8;
    double speed = 0;                  // 0: consumed as written, 1: real time, N: N x real time
    std::string capturePath, logPath;  // empty: not recorded
};

// Writes a self-contained ALSA configuration: with ALSA_CONFIG_PATH naming only
// this file, no system or user configuration is read and "default" is the vdac.
void writeVdacConfig(const std::string& confPath, const VdacConfig& config);

// Points this process's ALSA at confPath and drops ALSA's cached global
// configuration so the next snd_pcm_open reads it.
void useAlsaConfig(const std::string& confPath);

struct VdacEvent {
    uint64_t us = 0;   // CLOCK_MONOTONIC, microseconds
    std::string kind;  // open, hw_params, prepare, start, drop, drain, xrun, pause, close
    std::map<std::string, std::string> fields;
    uint64_t bytes = 0;  // bytes consumed by the device so far in this open
};

std::vector<VdacEvent> readVdacLog(const std::string& path);
std::vector<VdacEvent> eventsOfKind(const std::vector<VdacEvent>& events, const std::string& kind);

std::vector<uint8_t> readFileBytes(const std::string& path);
void writeFileBytes(const std::string& path, const std::vector<uint8_t>& data);

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
