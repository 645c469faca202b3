#include "engine/output_device.h"

#include <cstdio>
#include <utility>

#include "device/hw_config.h"
#include "device/recovery.h"
#include "settings/settings.h"

OutputDevice& OutputDevice::operator=(OutputDevice&& other) noexcept {
    if (this != &other) {
        close();
        pcm_ = std::move(other.pcm_);
        format_ = other.format_;
        channels_ = other.channels_;
        rate_ = other.rate_;
        geometry_ = other.geometry_;
    }
    return *this;
}

void OutputDevice::close() {
    if (!pcm_) return;
    snd_pcm_drop(pcm_.get());
    pcm_.reset();
}

OutputDevice openOutputDevice(int32_t alsaFormat, int32_t channels, int32_t rate,
                              snd_pcm_hw_params_t* params, std::string& why, bool& refused) {
    OutputDevice dev;
    refused = false;
    int rc = 0;
    PcmHandle pcm = openDefaultPcm(&rc);
    if (!pcm) {
        why = openFailureText(rc);
        return dev;
    }
    PcmRequest request;
    request.format = alsaFormat;
    request.channels = channels;
    request.rate = rate;
    request.rw = settings.rwAccess != 0;
    request.periodTimeUs = settings.periodTimeUs;
    request.periodFrames = settings.periodFrames;
    request.bufferTimeUs = settings.bufferTimeUs;
    request.bufferFrames = settings.bufferFrames;
    PcmRefusal refusal = configurePcm(pcm.get(), params, request);
    if (!refusal.why.empty()) {
        why = refusal.why;
        refused = refusal.refused;
        return dev;
    }
    dev.pcm_ = std::move(pcm);
    dev.format_ = alsaFormat;
    dev.channels_ = channels;
    dev.rate_ = rate;
    dev.geometry_ = readGeometry(params);
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
