// Direct Input playback: each pass decodes just what the card has room for.
// The device stays open across files of the same configuration, so an album
// plays without gaps.
#include <algorithm>
#include <memory>
#include <new>

#include "engine/decoder_setup.h"
#include "engine/output_device.h"
#include "engine/player.h"
#include "engine/player_traits.h"
#include "engine/run_support.h"
#include "engine/transfer.h"
#include "settings/settings.h"

namespace {

using Bytes = std::unique_ptr<uint8_t[]>;

// Where a pass decodes when not straight into the card's area. Made once per
// run, before the first transfer; never inside a loop.
template <class Fmt>
struct DecodeBuffers {
    Bytes staging;
    uint32_t bytes = 0;

    bool ensure(bool rw) {
        uint32_t need = rw ? Fmt::kDecodeBufferBytes : Fmt::kFloatBufferBytes;
        if (need == 0 || staging) return true;
        staging.reset(new (std::nothrow) uint8_t[need]);
        bytes = staging ? need : 0;
        return staging != nullptr;
    }
};

template <class Fmt>
class DecodeSource {
  public:
    static constexpr bool kReportUnderrun = false;
    static constexpr bool kReadEndStopsRun = Fmt::kMmapReadEndStopsRun;

    DecodeSource(const DecoderStream& ds, DecodeBuffers<Fmt>& bufs, int32_t channels, int32_t rate)
        : ds_(ds),
          staging_(bufs.staging.get()),
          stagingBytes_(bufs.bytes),
          channels_(channels),
          rate_(rate),
          decodedFrame_(Fmt::kDecodedSampleBytes * uint32_t(channels)),
          cardFrame_(cardFrameBytes(ds.alsaFormat, channels)),
          dop_(ds.kind == StreamKind::Dop) {}

    bool finished() const { return ended_ || ds_.lengthBytes - pos_ < decodedFrame_; }
    void seek(int32_t seconds) {
        pos_ = std::min(uint64_t(rate_) * uint64_t(seconds) * decodedFrame_, ds_.lengthBytes);
        decodeSeek(ds_.handle, pos_);
    }
    // Decodes into the card's area (through the float buffer for 3-byte cards).
    int64_t fillArea(uint8_t* dst, uint32_t frames) {
        uint8_t* target = Fmt::kDecodesInPlace ? dst : staging_;
        uint64_t limit = Fmt::kDecodesInPlace ? UINT64_MAX : stagingBytes_;
        uint32_t n = read(target, std::min<uint64_t>(frames, limit / decodedFrame_));
        if (n == 0) return -1;
        Fmt::pack(target, dst, n, ds_.alsaFormat, channels_);
        return note(dst, n / decodedFrame_);
    }
    const uint8_t* chunk(uint64_t avail, uint32_t& frames) {
        uint32_t n = read(staging_, std::min<uint64_t>(avail, stagingBytes_ / decodedFrame_));
        if (n == 0) return nullptr;
        Fmt::pack(staging_, staging_, n, ds_.alsaFormat, channels_);
        frames = note(staging_, n / decodedFrame_);
        return staging_;
    }
    // What was decoded is consumed whether or not the write took it.
    void written(snd_pcm_sframes_t) {}
    uint8_t nextDopMarker() const { return nextMarker_; }

  private:
    // Reads at most frames whole frames; 0 once the stream has nothing more.
    uint32_t read(uint8_t* target, uint64_t frames) {
        frames = std::min(frames, (ds_.lengthBytes - pos_) / decodedFrame_);
        uint32_t n = frames ? decodeRead(ds_.handle, target, uint32_t(frames * decodedFrame_)) : 0;
        if (n == kDecodeEnd || n == 0) {
            ended_ = true;
            return 0;
        }
        pos_ += n;
        return n;
    }
    uint32_t note(const uint8_t* card, uint32_t frames) {
        if (dop_ && frames) {
            uint8_t last = dopMarkerAt(card + size_t(frames - 1) * cardFrame_, ds_.alsaFormat);
            nextMarker_ = last == kDopMarkerA ? kDopMarkerB : kDopMarkerA;
        }
        return frames;
    }

    const DecoderStream& ds_;
    uint8_t* staging_;
    uint64_t stagingBytes_;
    int32_t channels_, rate_;
    uint32_t decodedFrame_, cardFrame_;
    bool dop_;
    bool ended_ = false;
    uint64_t pos_ = 0;
    uint8_t nextMarker_ = kDopMarkerA;
};

constexpr int kMode = int(LoadMode::DirectInput);

template <class Fmt>
void* directInputPlayer() {
    RunObjects run;
    if (!beginRun(run)) return endRun(RunEnd::MemoryFailure);
    const bool rw = settings.rwAccess != 0;
    OutputDevice dev;
    DecodeBuffers<Fmt> bufs;
    for (;;) {
        DecoderStream ds = openDecoder(Fmt::kOutputFormat, Fmt::kDefaultBits[kMode]);
        if (!ds.handle) {
            dev.close();
            return endRun(RunEnd::GetInfoFailure, GetInfoReport::DirectInput);
        }
        const int32_t channels = streamChannels.load(), rate = streamRate.load();
        if (!dev.serves(ds.alsaFormat, channels, rate)) {
            dev.close();  // the previous file plays out first
            dev = openOutputDevice(ds.alsaFormat, run.params.get());
        }
        if (!bufs.ensure(rw)) {
            closeDecoder(ds);
            dev.close();
            return endRun(RunEnd::MemoryFailure);
        }
        playerRunning.store(1);
        announceFile(run.params.get(), Fmt::kReportExtraLine[kMode]);

        DecodeSource<Fmt> src(ds, bufs, channels, rate);
        uint32_t frameBytes = cardFrameBytes(ds.alsaFormat, channels);
        PauseSilence silence(silenceKindFor(ds.kind), ds.alsaFormat, channels, frameBytes);
        TransferContext ctx{dev.pcm(), run.status.get(), readGeometry(run.params.get()), &silence};
        runTransfer(ctx, src, rw);
        closeDecoder(ds);
        if (stopRequest.load() || !advanceQueue()) break;
    }
    dev.close();
    return endRun(stopRequest.load() ? RunEnd::Stopped : RunEnd::Natural);
}

}  // namespace

void* directInputPlayerS32(void*) {
    return directInputPlayer<FormatS32>();
}
void* directInputPlayerS24(void*) {
    return directInputPlayer<FormatS24>();
}
void* directInputPlayerS16(void*) {
    return directInputPlayer<FormatS16>();
}
