// Direct Input playback: each pass decodes just what the card has room for.
// The device stays open across files of the same configuration, so an album
// plays without gaps.
#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "engine/card_state.h"
#include "engine/decoder_setup.h"
#include "engine/frame_reader.h"
#include "engine/output_device.h"
#include "engine/player_traits.h"
#include "engine/run_support.h"
#include "engine/transfer.h"
#include "settings/settings.h"

namespace {

// Where a pass decodes when not straight into the card's area. Made once per
// run, before the first transfer that needs it; never inside a loop.
template <class Fmt>
struct DecodeBuffers {
    std::unique_ptr<uint8_t[]> staging;
    uint32_t bytes = 0;

    bool ensure(bool needed) {
        if (!needed || staging) return true;
        staging.reset(new (std::nothrow) uint8_t[Fmt::kDecodeBufferBytes]);
        bytes = staging ? Fmt::kDecodeBufferBytes : 0;
        return staging != nullptr;
    }
};

template <class Fmt>
class DecodeSource {
  public:
    static constexpr bool kReportUnderrun = false;
    static constexpr bool kReadEndStopsRun = Fmt::kMmapReadEndStopsRun;

    DecodeSource(const DecoderStream& ds, DecodeBuffers<Fmt>& bufs)
        : ds_(ds), reader_(ds), staging_(bufs.staging.get()), stagingBytes_(bufs.bytes) {}

    bool finished() const { return reader_.finished(); }
    uint64_t position() const { return reader_.position(); }
    uint64_t frames() const { return ds_.frames; }
    void seek(uint64_t frame) { reader_.seek(frame); }
    void back(uint64_t frames) { reader_.seek(position() - std::min(frames, position())); }
    // Decodes into the card's area (through the staging buffer when the
    // decoded frames are wider than the card's).
    int64_t fillArea(uint8_t* dst, uint32_t frames) {
        uint32_t n = reader_.read(dst, frames, staging_, stagingBytes_);
        return n ? int64_t(n) : -1;
    }
    const uint8_t* chunk(uint64_t avail, uint32_t& frames) {
        uint64_t cap = stagingBytes_ / reader_.widestFrameBytes();
        frames = reader_.read(staging_, uint32_t(std::min(avail, cap)), staging_, stagingBytes_);
        return frames ? staging_ : nullptr;
    }
    // What was decoded is consumed whether or not the write took it.
    void written(snd_pcm_sframes_t) {}
    uint8_t nextDopMarker() const { return reader_.nextDopMarker(); }

  private:
    const DecoderStream& ds_;
    FrameReader reader_;
    uint8_t* staging_;
    uint64_t stagingBytes_;
};

constexpr int kMode = int(LoadMode::DirectInput);

// Lets the device play out what it holds, then closes it.
void finish(PlayerControl& pc, OutputDevice& dev) {
    if (dev) playOut(pc, dev.pcm(), dev.geometry(), dev.rate());
    dev.close();
}

}  // namespace

template <class Fmt>
void* directInputPlayer(PlayerControl& pc) {
    RunObjects run;
    if (!beginRun(pc, run)) return endRun(pc, RunEnd::MemoryFailure);
    const bool rw = settings.rwAccess != 0;
    OutputDevice dev;
    DecodeBuffers<Fmt> bufs;
    for (;;) {
        DecoderStream ds = openDecoder(pc.currentPath, Fmt::kOutputFormat, Fmt::kDefaultBits[kMode],
                                       pc.dsdNativeBE.load() != 0);
        if (!ds.handle) {
            finish(pc, dev);
            return endRun(pc, RunEnd::GetInfoFailure, GetInfoReport::DirectInput, ds.error);
        }
        publishStream(pc, ds);
        if (seekPastEnd(pc, ds.rate, ds.frames)) {
            finish(pc, dev);
            reportProblem(pc, std::string(pc.currentPath) + ": the track starts after its end");
            return endRun(pc, RunEnd::Failed);
        }
        if (!dev.serves(ds.alsaFormat, ds.channels, ds.rate)) {
            finish(pc, dev);  // the previous file plays out first
            std::string why;
            bool refused = false;
            dev = openOutputDevice(ds.alsaFormat, ds.channels, ds.rate, run.params.get(), why,
                                   refused);
            if (!dev) {
                reportProblem(pc, std::string(pc.currentPath) + ": " + why);
                // A card that lacks this file's format may take the next one.
                if (refused && !pc.stopRequest.load() && advanceQueue(pc)) continue;
                return endRun(pc, pc.stopRequest.load() ? RunEnd::Stopped : RunEnd::Failed);
            }
        }
        if (!bufs.ensure(rw || FrameReader(ds).needsScratch())) {
            dev.close();
            return endRun(pc, RunEnd::MemoryFailure);
        }
        describeCard(pc, ds, dev.geometry(), rw);
        pc.playerRunning.store(1);
        announceFile(pc, run.params.get(), Fmt::kReportExtraLine[kMode]);

        DecodeSource<Fmt> src(ds, bufs);
        uint32_t frameBytes = cardFrameBytes(ds.alsaFormat, ds.channels);
        PauseSilence silence(silenceFor(ds.card), ds.alsaFormat, ds.channels, frameBytes);
        // Files that follow on the same device are written while this one
        // plays; only the last of the run waits for the card.
        TransferContext ctx{pc, dev.pcm(), dev.geometry(), &silence, ds.rate, !queueHasNext(pc)};
        TransferEnd end = runTransfer(ctx, src, rw);
        ds.handle.reset();
        if (end == TransferEnd::DeviceGone) {
            reportProblem(pc, deviceGoneText(dev.pcm()));
            dev.close();
            return endRun(pc, RunEnd::Failed);
        }
        if (pc.stopRequest.load() || !advanceQueue(pc)) break;
    }
    finish(pc, dev);
    return endRun(pc, pc.stopRequest.load() ? RunEnd::Stopped : RunEnd::Natural);
}

template void* directInputPlayer<FormatS32>(PlayerControl&);
template void* directInputPlayer<FormatS24>(PlayerControl&);
template void* directInputPlayer<FormatS16>(PlayerControl&);
