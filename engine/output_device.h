// The ALSA "default" PCM of a player run, configured for one file with
// exactly its format, channels and rate and the user's period and buffer, or
// not at all. Player thread only.
#pragma once
#include <alsa/asoundlib.h>

#include <cstdint>
#include <string>

#include "device/pcm.h"

// What the device granted, read back from the configured parameters.
struct DeviceGeometry {
    snd_pcm_uframes_t periodFrames = 0;
    unsigned periodTimeUs = 0;
    snd_pcm_uframes_t bufferFrames = 0;
    unsigned bufferTimeUs = 0;  // paces the transfer loops
};

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
    const DeviceGeometry& geometry() const { return geometry_; }
    uint32_t rate() const { return uint32_t(rate_); }
    // Drops whatever is still queued and closes; the transfer loop has let
    // the card play out what it should by then.
    void close();

  private:
    friend OutputDevice openOutputDevice(int32_t, int32_t, int32_t, snd_pcm_hw_params_t*,
                                         std::string&, bool&);
    PcmHandle pcm_;
    int32_t format_ = 0, channels_ = 0, rate_ = 0;
    DeviceGeometry geometry_;
};

// Opens "default" for alsaFormat, channels and rate with the access mode,
// period and buffer of the settings; params keeps the result. On failure the
// device is empty, why says what went wrong, and refused tells a card that
// lacks this file's format (the next file may still play) from one that
// cannot be opened or configured at all.
OutputDevice openOutputDevice(int32_t alsaFormat, int32_t channels, int32_t rate,
                              snd_pcm_hw_params_t* params, std::string& why, bool& refused);

DeviceGeometry readGeometry(const snd_pcm_hw_params_t* params);

// The two-line period/buffer report on stdout; extraLine adds an empty line.
void printAlsaSetup(const snd_pcm_hw_params_t* params, bool extraLine);
