// Full Memory playback: each file is decoded and packed whole into one heap
// buffer first; while it plays, the only work is copying into the card.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/decode_source.h"
#include "engine/decoder_setup.h"
#include "engine/memory_fit.h"
#include "engine/output_device.h"
#include "engine/player.h"
#include "engine/player_traits.h"
#include "engine/run_support.h"
#include "engine/transfer.h"
#include "engine/whole_load.h"
#include "settings/settings.h"

namespace {

// The packed samples of the file loaded last; outlives runs so that playing
// the same file again (another CUE track, say) starts at once.
struct LoadedFile {
    uint8_t* data = nullptr;
    uint64_t bytes = 0;  // packed bytes that were decoded, whole card frames
    char path[kPathSlot] = {};
    int32_t alsaFormat = 0, channels = 0, rate = 0;
    CardStream card = CardStream::Pcm;

    bool holds(const char* current, const DecoderStream& ds) const {
        return data && std::strcmp(path, current) == 0 && alsaFormat == ds.alsaFormat &&
               card == ds.card && channels == ds.channels && rate == ds.rate;
    }
};
LoadedFile loaded;

// Nothing this large is a real file; it would only overflow the size sums.
constexpr uint64_t kMaxStreamBytes = uint64_t(1) << 44;

bool allocateFor(uint64_t bytes) {
    releaseFullMemoryBuffer();
    if (bytes > kMaxStreamBytes) return false;
    loaded.data = static_cast<uint8_t*>(std::malloc(size_t(bytes)));
    return loaded.data != nullptr;
}

class FullMemorySource {
  public:
    static constexpr bool kReadEndStopsRun = false;

    FullMemorySource(const uint8_t* data, uint64_t bytes, uint32_t frameBytes)
        : data_(data), bytes_(bytes), frameBytes_(frameBytes) {}

    bool finished() const { return pos_ >= bytes_; }
    uint64_t position() const { return pos_ / frameBytes_; }
    uint64_t frames() const { return bytes_ / frameBytes_; }
    void seek(uint64_t frame) { pos_ = std::min(frame * frameBytes_, bytes_); }
    void back(uint64_t frames) { pos_ -= std::min(frames * frameBytes_, pos_); }
    int64_t fillArea(uint8_t* dst, uint32_t frames) {
        uint64_t n = std::min(bytes_ - pos_, uint64_t(frames) * frameBytes_);
        std::memcpy(dst, data_ + pos_, n);
        pos_ += n;
        return int64_t(n / frameBytes_);
    }
    const uint8_t* chunk(uint64_t avail, uint32_t& frames) {
        frames = uint32_t(std::min(avail, (bytes_ - pos_) / frameBytes_));
        return data_ + pos_;
    }
    void written(snd_pcm_sframes_t r) {
        if (r > 0) pos_ += uint64_t(r) * frameBytes_;
    }
    uint8_t nextDopMarker() const { return dopMarkerFor(pos_ / frameBytes_); }

  private:
    const uint8_t* data_;
    uint64_t bytes_;
    uint32_t frameBytes_;
    uint64_t pos_ = 0;
};

constexpr int kMode = int(LoadMode::FullMemory);

template <class Fmt>
TransferEnd playDecoding(PlayerControl& pc, DecoderStream& ds, OutputDevice& dev, RunObjects& run) {
    const bool rw = settings.rwAccess != 0;
    DecodeBuffers<Fmt> bufs;
    if (!bufs.ensure(true)) return TransferEnd::ReadFailed;
    describeCard(pc, ds, dev.geometry(), rw);
    pc.playerRunning.store(1);
    notePlayerChange(pc);
    announceFile(pc, run.params.get(), Fmt::kReportExtraLine[kMode]);
    DecodeSource<Fmt> src(ds, bufs);
    const uint32_t frameBytes = cardFrameBytes(ds.alsaFormat, ds.channels);
    PauseSilence silence(silenceFor(ds.card), ds.alsaFormat, ds.channels, frameBytes);
    TransferContext ctx{pc, dev.pcm(), dev.geometry(), &silence, ds.rate, true};
    return runTransfer(ctx, src, rw);
}

}  // namespace

template <class Fmt>
void* fullMemoryPlayer(PlayerControl& pc) {
    RunObjects run;
    if (!beginRun(pc, run)) return endRun(pc, RunEnd::MemoryFailure);
    const GetInfoReport report = Fmt::kOutputFormat == kFormatS32 ? GetInfoReport::FullMemoryS32
                                                                  : GetInfoReport::FullMemoryOther;
    for (;;) {
        DecoderStream ds = openDecoder(pc.currentPath, Fmt::kOutputFormat, Fmt::kDefaultBits[kMode],
                                       pc.dsdNativeBE.load() != 0);
        if (!ds.handle) return endRun(pc, RunEnd::GetInfoFailure, report, ds.error);
        publishStream(pc, ds);
        if (seekPastEnd(pc, ds.rate, ds.frames)) {
            reportProblem(pc, std::string(pc.currentPath) + ": the track starts after its end");
            return endRun(pc, RunEnd::Failed);
        }
        std::string why;
        bool refused = false;
        OutputDevice dev =
            openOutputDevice(ds.alsaFormat, ds.channels, ds.rate, run.params.get(), why, refused);
        if (!dev) {
            reportProblem(pc, std::string(pc.currentPath) + ": " + why);
            // A card that lacks this file's format may take the next one.
            if (refused && !pc.stopRequest.load() && advanceQueue(pc)) continue;
            return endRun(pc, pc.stopRequest.load() ? RunEnd::Stopped : RunEnd::Failed);
        }
        const uint32_t frameBytes = cardFrameBytes(ds.alsaFormat, ds.channels);

        bool reuse = loaded.holds(pc.currentPath, ds);
        const std::string shortfall =
            reuse ? std::string() : memoryShortfall(ds.frames * frameBytes + 32768);
        if (!shortfall.empty()) {
            // Too large to hold: the file plays as Direct Input would play it.
            std::fprintf(stderr,
                         "\n%s: does not fit in memory (%s); playing it decoded as it goes\n",
                         pc.currentPath, shortfall.c_str());
            std::fflush(stderr);
            const TransferEnd end = playDecoding<Fmt>(pc, ds, dev, run);
            if (end == TransferEnd::DeviceGone) {
                reportProblem(pc, deviceGoneText(dev.pcm()));
                return endRun(pc, RunEnd::Failed);
            }
            dev.close();
            if (pc.stopRequest.load()) return endRun(pc, RunEnd::Stopped);
            if (!advanceQueue(pc)) return endRun(pc, RunEnd::Natural);
            continue;
        }
        // The slack keeps an empty file's allocation from being zero bytes.
        if (!reuse && !allocateFor(ds.frames * frameBytes + 32768)) {
            dev.close();
            return endRun(pc, RunEnd::MemoryFailure);
        }
        pc.playerRunning.store(1);
        notePlayerChange(pc);
        if (!reuse) {
            const std::string path = pc.currentPath;
            const bool nativeBE = pc.dsdNativeBE.load() != 0;
            loaded.bytes = loadWholeFile(pc, ds, loaded.data,
                                         Fmt::kDecodedSampleBytes * uint32_t(ds.channels), [&] {
                                             return openDecoder(path.c_str(), Fmt::kOutputFormat,
                                                                Fmt::kDefaultBits[kMode], nativeBE);
                                         });
            if (pc.stopRequest.load()) {
                releaseFullMemoryBuffer();  // half a file is no file to keep
                return endRun(pc, RunEnd::Stopped);
            }
            copyPathSlot(loaded.path, pc.currentPath);
            loaded.alsaFormat = ds.alsaFormat;
            loaded.card = ds.card;
            loaded.channels = ds.channels;
            loaded.rate = ds.rate;
        }
        ds.handle.reset();
        const bool rw = settings.rwAccess != 0;
        describeCard(pc, ds, dev.geometry(), rw);
        announceFile(pc, run.params.get(), Fmt::kReportExtraLine[kMode]);

        FullMemorySource src(loaded.data, loaded.bytes, frameBytes);
        PauseSilence silence(silenceFor(ds.card), ds.alsaFormat, ds.channels, frameBytes);
        TransferContext ctx{pc, dev.pcm(), dev.geometry(), &silence, ds.rate, true};
        if (runTransfer(ctx, src, rw) == TransferEnd::DeviceGone) {
            reportProblem(pc, deviceGoneText(dev.pcm()));
            return endRun(pc, RunEnd::Failed);
        }
        dev.close();

        if (pc.stopRequest.load()) return endRun(pc, RunEnd::Stopped);
        if (!advanceQueue(pc)) return endRun(pc, RunEnd::Natural);
        std::fputs("Loading", stderr);
        std::fflush(stderr);
    }
}

template void* fullMemoryPlayer<FormatS32>(PlayerControl&);
template void* fullMemoryPlayer<FormatS24>(PlayerControl&);
template void* fullMemoryPlayer<FormatS16>(PlayerControl&);

void releaseFullMemoryBuffer() {
    std::free(loaded.data);
    loaded.data = nullptr;
    loaded.bytes = 0;
    loaded.path[0] = '\0';
}
