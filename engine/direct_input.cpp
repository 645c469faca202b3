// Direct Input playback: each pass decodes just what the card has room for.
// The device stays open across files of the same configuration, so an album
// plays without gaps.
#include <algorithm>
#include <memory>
#include <new>

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
    void seek(int32_t seconds) { reader_.seek(uint64_t(ds_.rate) * uint64_t(seconds)); }
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
            dev.close();
            return endRun(pc, RunEnd::GetInfoFailure, GetInfoReport::DirectInput);
        }
        publishStream(pc, ds);
        if (!dev.serves(ds.alsaFormat, ds.channels, ds.rate)) {
            dev.close();  // the previous file plays out first
            dev = openOutputDevice(ds.alsaFormat, ds.channels, ds.rate, run.params.get());
        }
        if (!bufs.ensure(rw || FrameReader(ds).needsScratch())) {
            dev.close();
            return endRun(pc, RunEnd::MemoryFailure);
        }
        pc.playerRunning.store(1);
        announceFile(pc, run.params.get(), Fmt::kReportExtraLine[kMode]);

        DecodeSource<Fmt> src(ds, bufs);
        uint32_t frameBytes = cardFrameBytes(ds.alsaFormat, ds.channels);
        PauseSilence silence(silenceFor(ds.card), ds.alsaFormat, ds.channels, frameBytes);
        TransferContext ctx{pc, dev.pcm(), run.status.get(), readGeometry(run.params.get()),
                            &silence};
        runTransfer(ctx, src, rw);
        ds.handle.reset();
        if (pc.stopRequest.load() || !advanceQueue(pc)) break;
    }
    dev.close();
    return endRun(pc, pc.stopRequest.load() ? RunEnd::Stopped : RunEnd::Natural);
}

template void* directInputPlayer<FormatS32>(PlayerControl&);
template void* directInputPlayer<FormatS24>(PlayerControl&);
template void* directInputPlayer<FormatS16>(PlayerControl&);
