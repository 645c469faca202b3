// One opened FFmpeg input: the container, the chosen audio stream and its
// decoder, delivering decoded frames in order. Internal to decode/.
// Not thread-safe. Every failure is reported as text; nothing throws.
#pragma once
#include <chrono>
#include <cstdint>
#include <string>

#include "decode/ff_handles.h"

class FfInput {
  public:
    // Opens the container and the best audio stream's decoder.
    bool open(const char* path, std::string* error);

    // Decodes the next frame into frame(). False at the end of the stream (or
    // when the input stops yielding anything); damaged packets are skipped.
    bool nextFrame();
    const AVFrame* frame() const { return frame_.get(); }
    // Start of the current frame in samples of the stream's rate, or
    // AV_NOPTS_VALUE when the container gave no timestamp.
    int64_t frameStart() const;

    // Counts the frames a full decode delivers by reading the packets only.
    // Leaves the input at its end: reopen (or seekBefore) before decoding.
    bool countFrames(uint64_t* frames);
    // For plain PCM, the frame count the header states, bounded by the file
    // size; false for every other codec.
    bool pcmFrames(uint64_t* frames) const;
    // For containers whose stated duration is exact and already trimmed
    // (Ogg's last granule position, MP4's edit list), that duration.
    bool statedFrames(uint64_t* frames) const;
    // For lossless streams whose header states the length exactly (FLAC's
    // STREAMINFO, WavPack's and APE's headers), that length, once the last
    // frames decode to end exactly there; for MP3, the Xing/LAME tag's frame
    // count less delay and padding when its byte count spans the file.
    // Leaves the input anywhere: reopen before decoding.
    bool headerFrames(uint64_t* frames);
    // Repositions at or before sample position `sample` (stream time) and
    // resets the decoder. False when the container cannot seek.
    bool seekBefore(int64_t sample);

    int rate() const { return codec_->sample_rate; }
    int channels() const { return codec_->ch_layout.nb_channels; }
    AVSampleFormat sampleFormat() const { return codec_->sample_fmt; }
    bool isLossless() const;
    int sourceBits() const;
    // False where the container's timestamps cannot place a frame exactly after
    // a seek (FLAC in Ogg times only the pages, not the packets within them).
    bool exactTimestamps() const;
    // Samples a decoder needs after a seek before its output is settled.
    int seekPreroll() const;

    // Bounds the time that blocking demuxer reads may take from now on.
    void setDeadline(std::chrono::seconds limit);

  private:
    bool readPacket();
    static int interrupted(void* self);

    FormatPtr format_;
    CodecPtr codec_;
    PacketPtr packet_;
    FramePtr frame_;
    AVStream* stream_ = nullptr;
    bool flushed_ = false;
    std::chrono::steady_clock::time_point deadline_;
};
