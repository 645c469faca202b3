#include "device/hw_config.h"

#include <string>

#include "device/pcm.h"

namespace {

// The rates cards and files commonly use, 8 kHz up to DSD512 as native words.
constexpr unsigned kCommonRates[] = {8000,   11025,  16000,  22050,  32000,   44100,
                                     48000,  64000,  88200,  96000,  176400,  192000,
                                     352800, 384000, 705600, 768000, 1411200, 1536000};

constexpr snd_pcm_format_t kListedFormats[] = {
    SND_PCM_FORMAT_S16_LE,     SND_PCM_FORMAT_S24_3LE,    SND_PCM_FORMAT_S24_LE,
    SND_PCM_FORMAT_S32_LE,     SND_PCM_FORMAT_FLOAT_LE,   SND_PCM_FORMAT_S16_BE,
    SND_PCM_FORMAT_S24_3BE,    SND_PCM_FORMAT_S32_BE,     SND_PCM_FORMAT_U8,
    SND_PCM_FORMAT_DSD_U8,     SND_PCM_FORMAT_DSD_U16_LE, SND_PCM_FORMAT_DSD_U32_LE,
    SND_PCM_FORMAT_DSD_U16_BE, SND_PCM_FORMAT_DSD_U32_BE};

PcmRefusal refusal(const std::string& what, const std::string& offered = {}) {
    std::string text = "card does not take " + what;
    if (!offered.empty()) text += " (it takes " + offered + ")";
    return {text, true};
}

std::string offeredChannels(snd_pcm_hw_params_t* space) {
    unsigned lo = 0, hi = 0;
    snd_pcm_hw_params_get_channels_min(space, &lo);
    snd_pcm_hw_params_get_channels_max(space, &hi);
    return lo == hi ? std::to_string(lo) : std::to_string(lo) + " to " + std::to_string(hi);
}

void applyBuffering(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, const PcmRequest& r) {
    snd_pcm_hw_params_set_periods_integer(pcm, params);
    if (r.periodTimeUs >= 0) {
        unsigned us = unsigned(r.periodTimeUs);
        snd_pcm_hw_params_set_period_time_near(pcm, params, &us, nullptr);
    } else if (r.periodFrames >= 0) {
        snd_pcm_uframes_t frames = snd_pcm_uframes_t(r.periodFrames);
        snd_pcm_hw_params_set_period_size_near(pcm, params, &frames, nullptr);
    }
    if (r.bufferTimeUs >= 0) {
        unsigned us = unsigned(r.bufferTimeUs);
        snd_pcm_hw_params_set_buffer_time_near(pcm, params, &us, nullptr);
    } else if (r.bufferFrames >= 0) {
        snd_pcm_uframes_t frames = snd_pcm_uframes_t(r.bufferFrames);
        snd_pcm_hw_params_set_buffer_size_near(pcm, params, &frames);
    } else if (r.periodTimeUs < 0 && r.periodFrames < 0) {
        unsigned us = kDefaultBufferUs;
        snd_pcm_hw_params_set_buffer_time_near(pcm, params, &us, nullptr);
        us = kDefaultBufferUs / 4;
        snd_pcm_hw_params_set_period_time_near(pcm, params, &us, nullptr);
    }
}

}  // namespace

std::string offeredRates(snd_pcm_t* pcm, snd_pcm_hw_params_t* space) {
    std::string out;
    for (unsigned rate : kCommonRates)
        if (snd_pcm_hw_params_test_rate(pcm, space, rate, 0) == 0)
            out += (out.empty() ? "" : ", ") + std::to_string(rate);
    return out;
}

std::string offeredFormats(snd_pcm_t* pcm, snd_pcm_hw_params_t* space) {
    std::string out;
    for (snd_pcm_format_t f : kListedFormats)
        if (snd_pcm_hw_params_test_format(pcm, space, f) == 0)
            out += (out.empty() ? "" : ", ") + std::string(snd_pcm_format_name(f));
    return out;
}

PcmRefusal configurePcm(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, const PcmRequest& r) {
    int rc = snd_pcm_hw_params_any(pcm, params);
    if (rc < 0) return {snd_strerror(rc), false};
    // Each step narrows the space only when the card takes the value; the
    // refusal lists what the space still offers at that point.
    const snd_pcm_access_t access =
        r.rw ? SND_PCM_ACCESS_RW_INTERLEAVED : SND_PCM_ACCESS_MMAP_INTERLEAVED;
    if (snd_pcm_hw_params_set_access(pcm, params, access) < 0)
        return refusal(r.rw ? "read/write access" : "memory-mapped access");
    const snd_pcm_format_t format = snd_pcm_format_t(r.format);
    if (snd_pcm_hw_params_set_format(pcm, params, format) < 0) {
        const char* name = snd_pcm_format_name(format);
        return refusal(name ? name : "format " + std::to_string(r.format),
                       offeredFormats(pcm, params));
    }
    if (snd_pcm_hw_params_set_channels(pcm, params, unsigned(r.channels)) < 0)
        return refusal(std::to_string(r.channels) + (r.channels == 1 ? " channel" : " channels"),
                       offeredChannels(params) + " channels");
    if (snd_pcm_hw_params_set_rate(pcm, params, unsigned(r.rate), 0) < 0)
        return refusal(std::to_string(r.rate) + " Hz", offeredRates(pcm, params));
    applyBuffering(pcm, params, r);
    rc = snd_pcm_hw_params(pcm, params);
    if (rc < 0) return {std::string("unable to set hw parameters: ") + snd_strerror(rc), false};
    return {};
}
