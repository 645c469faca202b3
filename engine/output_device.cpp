#include "engine/output_device.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "settings/settings.h"

OutputDevice& OutputDevice::operator=(OutputDevice&& other) noexcept {
    if (this != &other) {
        close();
        pcm_ = std::move(other.pcm_);
        format_ = other.format_;
        channels_ = other.channels_;
        rate_ = other.rate_;
    }
    return *this;
}

void OutputDevice::close() {
    if (!pcm_) return;
    snd_pcm_drain(pcm_.get());
    pcm_.reset();
}

[[noreturn]] static void deviceFailure(const char* what, int code) {
    std::fprintf(stderr, "\n%s: %s\n", what, snd_strerror(code));
    std::fflush(stderr);
    std::exit(1);
}

void configureBuffering(snd_pcm_t* pcm, snd_pcm_hw_params_t* params) {
    snd_pcm_hw_params_set_periods_integer(pcm, params);
    if (settings.periodTimeUs >= 0) {
        unsigned us = unsigned(settings.periodTimeUs);
        snd_pcm_hw_params_set_period_time_near(pcm, params, &us, nullptr);
    } else if (settings.periodFrames >= 0) {
        snd_pcm_uframes_t frames = snd_pcm_uframes_t(settings.periodFrames);
        snd_pcm_hw_params_set_period_size_near(pcm, params, &frames, nullptr);
    }
    if (settings.bufferTimeUs >= 0) {
        unsigned us = unsigned(settings.bufferTimeUs);
        snd_pcm_hw_params_set_buffer_time_near(pcm, params, &us, nullptr);
    } else if (settings.bufferFrames >= 0) {
        snd_pcm_uframes_t frames = snd_pcm_uframes_t(settings.bufferFrames);
        snd_pcm_hw_params_set_buffer_size_near(pcm, params, &frames);
    }
}

OutputDevice openOutputDevice(int32_t alsaFormat, int32_t channels, int32_t rate,
                              snd_pcm_hw_params_t* params) {
    OutputDevice dev;
    int rc = 0;
    dev.pcm_ = openDefaultPcm(&rc);
    if (!dev.pcm_) deviceFailure("unable to open pcm device", rc);
    dev.format_ = alsaFormat;
    dev.channels_ = channels;
    dev.rate_ = rate;
    snd_pcm_t* pcm = dev.pcm();

    // A value the card refuses leaves the space as it was; hw_params decides.
    snd_pcm_hw_params_any(pcm, params);
    snd_pcm_hw_params_set_access(
        pcm, params,
        settings.rwAccess ? SND_PCM_ACCESS_RW_INTERLEAVED : SND_PCM_ACCESS_MMAP_INTERLEAVED);
    snd_pcm_hw_params_set_format(pcm, params, snd_pcm_format_t(alsaFormat));
    snd_pcm_hw_params_set_channels(pcm, params, unsigned(dev.channels_));
    snd_pcm_hw_params_set_rate(pcm, params, unsigned(dev.rate_), 0);
    configureBuffering(pcm, params);
    rc = snd_pcm_hw_params(pcm, params);
    if (rc < 0) deviceFailure("unable to set hw parameters", rc);
    return dev;
}

DeviceGeometry readGeometry(const snd_pcm_hw_params_t* params) {
    DeviceGeometry g;
    int dir = 0;
    snd_pcm_hw_params_get_period_size(params, &g.periodFrames, &dir);
    snd_pcm_hw_params_get_period_time(params, &g.periodTimeUs, &dir);
    snd_pcm_hw_params_get_buffer_size(params, &g.bufferFrames);
    snd_pcm_hw_params_get_buffer_time(params, &g.bufferTimeUs, &dir);
    return g;
}

void printAlsaSetup(const snd_pcm_hw_params_t* params, bool extraLine) {
    DeviceGeometry g = readGeometry(params);
    unsigned long long period = g.periodFrames, buffer = g.bufferFrames;
    // The buffer time shown is derived from the period, not read back.
    unsigned long long bufferUs = period ? uint64_t(g.periodTimeUs) * buffer / period : 0;
    std::printf("\n");
    std::fflush(stdout);
    std::printf("%sALSA period: %llu frames, %u us\n", colorCyan, period, g.periodTimeUs);
    std::fflush(stdout);
    std::printf("ALSA buffer: %llu frames, %llu us%s\n", buffer, bufferUs, colorReset);
    std::fflush(stdout);
    if (extraLine) {
        std::printf("\n");
        std::fflush(stdout);
    }
}
