// Whether "default" takes a sample format, without installing anything.
#include <alsa/asoundlib.h>

#include <memory>

#include "device/device.h"

namespace {

struct PcmCloser {
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
struct HwParamsFree {
    void operator()(snd_pcm_hw_params_t* p) const { snd_pcm_hw_params_free(p); }
};

void silent(const char*, int, const char*, int, const char*, ...) {}

// The probe prints nothing, not even alsa-lib's own complaints. The handler is
// process-wide; probes run at start-up, before any other thread uses ALSA.
struct QuietAlsa {
    snd_lib_error_handler_t previous = snd_lib_error;
    QuietAlsa() { snd_lib_error_set_handler(silent); }
    ~QuietAlsa() { snd_lib_error_set_handler(previous); }
};

}  // namespace

bool probeOutputFormat(int formatCode) {
    QuietAlsa quiet;
    snd_pcm_t* raw = nullptr;
    if (snd_pcm_open(&raw, "default", SND_PCM_STREAM_PLAYBACK, 0) < 0) return false;
    std::unique_ptr<snd_pcm_t, PcmCloser> pcm(raw);

    snd_pcm_hw_params_t* rawParams = nullptr;
    if (snd_pcm_hw_params_malloc(&rawParams) < 0) return false;
    std::unique_ptr<snd_pcm_hw_params_t, HwParamsFree> params(rawParams);

    if (snd_pcm_hw_params_any(pcm.get(), params.get()) < 0) return false;
    // The probe asks about RW interleaved whatever the access setting; a device
    // without it simply answers for the space it has.
    snd_pcm_hw_params_set_access(pcm.get(), params.get(), SND_PCM_ACCESS_RW_INTERLEAVED);
    int r = snd_pcm_hw_params_set_format(pcm.get(), params.get(),
                                         static_cast<snd_pcm_format_t>(formatCode));
    return r >= 0;
}
