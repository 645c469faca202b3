// The one place that opens the ALSA PCM "default", and the owners of the
// ALSA objects that go with it, so every way out releases them.
#pragma once
#include <alsa/asoundlib.h>

#include <memory>

struct PcmClose {
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
struct HwParamsFree {
    void operator()(snd_pcm_hw_params_t* p) const { snd_pcm_hw_params_free(p); }
};
using PcmHandle = std::unique_ptr<snd_pcm_t, PcmClose>;
using HwParams = std::unique_ptr<snd_pcm_hw_params_t, HwParamsFree>;

// "default" for playback, in blocking mode. Null with *error set (an ALSA
// error code) when it cannot be opened.
PcmHandle openDefaultPcm(int* error = nullptr);

// A zero-filled object; null only when out of memory.
HwParams makeHwParams();
