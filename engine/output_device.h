// The ALSA "default" PCM of a player run: opened and configured with exactly
// the stream's format, channels and rate and the user's period and buffer.
// Player thread only. A device that cannot be opened or configured ends the
// process with status 1 (message on stderr); every other ALSA failure here is
// silent and leaves ALSA's choice in place.
#pragma once
#include <alsa/asoundlib.h>

#include <cstdint>

#include "device/pcm.h"

// An open, configured PCM. Closing drains first, so the end of what was
// written plays out (after a drop there is nothing left to drain).
class OutputDevice {
  public:
    OutputDevice() = default;
    OutputDevice(const OutputDevice&) = delete;
    OutputDevice& operator=(const OutputDevice&) = delete;
    OutputDevice(OutputDevice&& other) noexcept { *this = std::move(other); }
    OutputDevice& operator=(OutputDevice&& other) noexcept;
    ~OutputDevice() { close(); }

    snd_pcm_t* pcm() const { return pcm_.get(); }
    explicit operator bool() const { return pcm_ != nullptr; }
    // Whether a stream of this configuration can follow without reopening.
    bool serves(int32_t format, int32_t channels, int32_t rate) const {
        return pcm_ && format == format_ && channels == channels_ && rate == rate_;
    }
    void close();

  private:
    friend OutputDevice openOutputDevice(int32_t, int32_t, int32_t, snd_pcm_hw_params_t*);
    PcmHandle pcm_;
    int32_t format_ = 0, channels_ = 0, rate_ = 0;
};

// Opens "default" for alsaFormat, channels and rate with the access mode,
// period and buffer of the settings; params keeps the result. Exits the
// process on an open or hw_params failure.
OutputDevice openOutputDevice(int32_t alsaFormat, int32_t channels, int32_t rate,
                              snd_pcm_hw_params_t* params);
void configureBuffering(snd_pcm_t* pcm, snd_pcm_hw_params_t* params);

// What the device accepted, read back from the configured parameters.
struct DeviceGeometry {
    snd_pcm_uframes_t periodFrames = 0;
    unsigned periodTimeUs = 0;
    snd_pcm_uframes_t bufferFrames = 0;
    unsigned bufferTimeUs = 0;  // deviceBufferTimeUs: paces the transfer loops
};
DeviceGeometry readGeometry(const snd_pcm_hw_params_t* params);

// The two-line period/buffer report on stdout; extraLine adds an empty line.
void printAlsaSetup(const snd_pcm_hw_params_t* params, bool extraLine);
