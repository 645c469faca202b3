// Direct Input playback: each pass decodes just what the card has room for.
// The device stays open across files of the same configuration, so an album
// plays without gaps.
#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "engine/card_state.h"
#include "engine/decode_source.h"
#include "engine/decoder_setup.h"
#include "engine/frame_reader.h"
#include "engine/output_device.h"
#include "engine/player_traits.h"
#include "engine/run_support.h"
#include "engine/transfer.h"
#include "settings/settings.h"

namespace {

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
        notePlayerChange(pc);
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
