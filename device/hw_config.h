// Configuring the PCM for one file: access, format, channels and rate set
// exactly, or a refusal that says what the card lacks; then the period and
// buffer. Player thread only; never prints.
#pragma once
#include <alsa/asoundlib.h>

#include <cstdint>
#include <string>

struct PcmRequest {
    int32_t format = 0;  // ALSA format code
    int32_t channels = 0;
    int32_t rate = 0;
    bool rw = false;  // read/write access; else memory-mapped
    // The user's buffering; -1 means not set. A time wins over a size.
    int32_t periodTimeUs = -1, periodFrames = -1, bufferTimeUs = -1, bufferFrames = -1;
};

// Without a user setting the card gets about half a second in four periods:
// pause, seek and stop act on what is buffered, and ALSA's maximum can be
// many seconds; a transfer pass (a sixteenth of the buffer) stays well
// inside a period.
constexpr unsigned kDefaultBufferUs = 500000;

struct PcmRefusal {
    std::string why;  // empty: configured
    // The card lacks the access, format, channel count or rate asked for
    // (another file may still play); else the install itself failed.
    bool refused = false;
};

// Applies the request to a fresh configuration space and installs it. The
// refusal names what the card lacks and what it offers, e.g. "card does not
// take 96000 Hz (it takes 44100, 48000)".
PcmRefusal configurePcm(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, const PcmRequest& request);

// What a configuration space offers, as the refusal texts list it.
std::string offeredRates(snd_pcm_t* pcm, snd_pcm_hw_params_t* space);
std::string offeredFormats(snd_pcm_t* pcm, snd_pcm_hw_params_t* space);
