#include "device/pcm.h"

PcmHandle openDefaultPcm(int* error) {
    snd_pcm_t* pcm = nullptr;
    int rc = snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0);
    if (error) *error = rc < 0 ? rc : 0;
    return PcmHandle(rc < 0 ? nullptr : pcm);
}

HwParams makeHwParams() {
    snd_pcm_hw_params_t* p = nullptr;
    if (snd_pcm_hw_params_malloc(&p) < 0) return HwParams();
    return HwParams(p);  // the allocation is zero-filled
}
