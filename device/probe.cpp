// Whether "default" takes a sample format, without installing anything.
#include <alsa/asoundlib.h>

#include "device/device.h"
#include "device/hw_config.h"
#include "device/pcm.h"

namespace {

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
    PcmHandle pcm = openDefaultPcm();
    HwParams params = makeHwParams();
    if (!pcm || !params) return false;

    if (snd_pcm_hw_params_any(pcm.get(), params.get()) < 0) return false;
    // The probe asks about RW interleaved whatever the access setting; a device
    // without it simply answers for the space it has.
    snd_pcm_hw_params_set_access(pcm.get(), params.get(), SND_PCM_ACCESS_RW_INTERLEAVED);
    int r = snd_pcm_hw_params_set_format(pcm.get(), params.get(),
                                         static_cast<snd_pcm_format_t>(formatCode));
    return r >= 0;
}

std::string cardFormatsText() {
    QuietAlsa quiet;
    PcmHandle pcm = openDefaultPcm();
    HwParams params = makeHwParams();
    if (!pcm || !params || snd_pcm_hw_params_any(pcm.get(), params.get()) < 0) return {};
    std::string list = offeredFormats(pcm.get(), params.get());
    return list.empty() ? "no format listed" : list;
}
