// In-process access to the virtual DAC for its own tests.
#pragma once

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>
#include <time.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/support/harness.h"

inline uint64_t monoUs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000 + uint64_t(ts.tv_nsec) / 1000;
}

inline std::vector<uint8_t> randomBytes(size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::vector<uint8_t> out(n);
    for (auto& b : out) b = uint8_t(gen());
    return out;
}

inline VdacConfig vdacConfig(double speed,
                             std::vector<std::string> formats = {"S16_LE", "S24_3LE", "S32_LE"}) {
    VdacConfig c;
    c.speed = speed;
    c.formats = std::move(formats);
    return c;
}

struct PcmSetup {
    snd_pcm_access_t access = SND_PCM_ACCESS_RW_INTERLEAVED;
    snd_pcm_format_t format = SND_PCM_FORMAT_S16_LE;
    unsigned channels = 2, rate = 48000;
    snd_pcm_uframes_t buffer = 4800, period = 1200;
    bool explicitStart = false;  // otherwise the stream starts once the buffer is full
};

// The "default" PCM of the configuration at confPath, closed on destruction.
class Pcm {
  public:
    explicit Pcm(const std::string& confPath) {
        useAlsaConfig(confPath);
        openError = snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0);
    }
    ~Pcm() {
        if (pcm) snd_pcm_close(pcm);
    }
    Pcm(const Pcm&) = delete;
    Pcm& operator=(const Pcm&) = delete;

    // 0, or the first ALSA error; buffer and period are set to what the device chose.
    int configure(PcmSetup& s) {
        snd_pcm_hw_params_t* hw;
        snd_pcm_hw_params_alloca(&hw);
        int err;
        if ((err = snd_pcm_hw_params_any(pcm, hw)) < 0 ||
            (err = snd_pcm_hw_params_set_access(pcm, hw, s.access)) < 0 ||
            (err = snd_pcm_hw_params_set_format(pcm, hw, s.format)) < 0 ||
            (err = snd_pcm_hw_params_set_channels(pcm, hw, s.channels)) < 0 ||
            (err = snd_pcm_hw_params_set_rate(pcm, hw, s.rate, 0)) < 0 ||
            (err = snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &s.buffer)) < 0 ||
            (err = snd_pcm_hw_params_set_period_size_near(pcm, hw, &s.period, nullptr)) < 0 ||
            (err = snd_pcm_hw_params(pcm, hw)) < 0)
            return err;
        snd_pcm_sw_params_t* sw;
        snd_pcm_sw_params_alloca(&sw);
        snd_pcm_uframes_t boundary = 0;
        if ((err = snd_pcm_sw_params_current(pcm, sw)) < 0 ||
            (err = snd_pcm_sw_params_get_boundary(sw, &boundary)) < 0 ||
            (err = snd_pcm_sw_params_set_start_threshold(
                 pcm, sw, s.explicitStart ? boundary : s.buffer)) < 0 ||
            (err = snd_pcm_sw_params(pcm, sw)) < 0)
            return err;
        frameBytes = size_t(snd_pcm_frames_to_bytes(pcm, 1));
        return 0;
    }

    snd_pcm_t* pcm = nullptr;
    int openError = 0;
    size_t frameBytes = 0;
};
