// What to do after an ALSA call failed: the one answer to every device state,
// used by every transfer loop. Player thread only; never prints.
#pragma once
#include <alsa/asoundlib.h>

#include <string>

enum class PcmRecovery {
    Ready,  // prepared (or resumed) and ready for more frames
    Gone,   // unplugged or otherwise lost: the run must end
};

// err is the negative result of a transfer, avail, commit or status call.
// An underrun is prepared (the play position is the caller's, so nothing is
// lost); a suspended card is resumed, retried briefly, else prepared; a card
// that is gone is left alone.
PcmRecovery recoverPcm(snd_pcm_t* pcm, int err);

// True when err or the device's state says it is gone for good.
bool pcmGone(snd_pcm_t* pcm, int err);

// The message for a device that went away during a run.
std::string deviceGoneText(snd_pcm_t* pcm);

// Where the kernel shows who holds a PCM: /proc/asound unless a test points
// elsewhere.
extern std::string procAsoundRoot;

// For an open that failed with err: the ALSA error, and for a busy device the
// process ids that hold a playback substream, where the kernel shows them.
std::string openFailureText(int err);
