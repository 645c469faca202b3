// Full Memory playback: each file is decoded and packed whole into one heap
// buffer first; while it plays, the only work is copying into the card.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/decoder_setup.h"
#include "engine/output_device.h"
#include "engine/player.h"
#include "engine/player_traits.h"
#include "engine/run_support.h"
#include "engine/transfer.h"
#include "settings/settings.h"

namespace {

// The packed samples of the file loaded last; outlives runs so that playing
// the same file again (another CUE track, say) starts at once.
struct LoadedFile {
    uint8_t* data = nullptr;
    uint64_t bytes = 0;  // packed bytes that were decoded, whole card frames
    char path[kPathSlot] = {};
    int32_t alsaFormat = 0, channels = 0, rate = 0;
    StreamKind kind = StreamKind::Float;

    bool holds(const DecoderStream& ds) const {
        return data && std::strcmp(path, currentPath) == 0 && alsaFormat == ds.alsaFormat &&
               kind == ds.kind && channels == streamChannels.load() && rate == streamRate.load();
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

// Decodes the whole stream in 32 KiB chunks, packing each right after it
// arrives; returns the packed bytes. Never writes past the allocation.
template <class Fmt>
uint64_t loadWhole(const DecoderStream& ds, uint32_t frameBytes) {
    constexpr uint64_t kChunk = 32768;
    const int channels = streamChannels.load();
    uint8_t* const buf = loaded.data;
    uint8_t* const scratch = Fmt::kDecodesInPlace ? nullptr : buf + Fmt::cardBytes(ds.lengthBytes);
    uint64_t fill = 0, packed = 0;
    while (fill < ds.lengthBytes) {
        uint32_t ask = uint32_t(std::min(ds.lengthBytes - fill, kChunk));
        uint8_t* target = Fmt::kDecodesInPlace ? buf + fill : scratch;
        uint32_t got = decodeRead(ds.handle, target, ask);
        if (got == kDecodeEnd || got == 0 || got > ask) break;
        Fmt::pack(target, buf + packed, got, ds.alsaFormat, channels);
        packed += Fmt::cardBytes(got);
        if ((fill >> 24) != ((fill + got) >> 24)) {  // one dot per 16 MiB decoded
            std::fputc('.', stderr);
            std::fflush(stderr);
        }
        fill += got;
    }
    return packed / frameBytes * frameBytes;
}

class FullMemorySource {
  public:
    static constexpr bool kReportUnderrun = true;
    static constexpr bool kReadEndStopsRun = false;

    FullMemorySource(const uint8_t* data, uint64_t bytes, uint32_t frameBytes, int32_t rate,
                     int32_t alsaFormat)
        : data_(data), bytes_(bytes), frameBytes_(frameBytes), rate_(rate), format_(alsaFormat) {}

    bool finished() const { return pos_ >= bytes_; }
    void seek(int32_t seconds) {
        pos_ = std::min(uint64_t(rate_) * uint64_t(seconds) * frameBytes_, bytes_);
    }
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
    uint8_t nextDopMarker() const {
        if (pos_ < bytes_) return dopMarkerAt(data_ + pos_, format_);
        return kDopMarkerA;
    }

  private:
    const uint8_t* data_;
    uint64_t bytes_;
    uint32_t frameBytes_;
    int32_t rate_;
    int32_t format_;
    uint64_t pos_ = 0;
};

constexpr int kMode = int(LoadMode::FullMemory);

template <class Fmt>
void* fullMemoryPlayer() {
    RunObjects run;
    if (!beginRun(run)) return endRun(RunEnd::MemoryFailure);
    const GetInfoReport report = Fmt::kOutputFormat == kFormatS32 ? GetInfoReport::FullMemoryS32
                                                                  : GetInfoReport::FullMemoryOther;
    for (;;) {
        DecoderStream ds = openDecoder(Fmt::kOutputFormat, Fmt::kDefaultBits[kMode]);
        if (!ds.handle) return endRun(RunEnd::GetInfoFailure, report);
        OutputDevice dev = openOutputDevice(ds.alsaFormat, run.params.get());
        const int32_t channels = streamChannels.load(), rate = streamRate.load();
        const uint32_t frameBytes = cardFrameBytes(ds.alsaFormat, channels);

        bool reuse = loaded.holds(ds);
        if (!reuse && !allocateFor(Fmt::fullMemoryAlloc(ds.lengthBytes))) {
            closeDecoder(ds);
            dev.close();
            return endRun(RunEnd::MemoryFailure);
        }
        playerRunning.store(1);
        if (!reuse) {
            loaded.bytes = loadWhole<Fmt>(ds, frameBytes);
            copyPathSlot(loaded.path, currentPath);
            loaded.alsaFormat = ds.alsaFormat;
            loaded.kind = ds.kind;
            loaded.channels = channels;
            loaded.rate = rate;
        }
        closeDecoder(ds);
        announceFile(run.params.get(), Fmt::kReportExtraLine[kMode]);

        FullMemorySource src(loaded.data, loaded.bytes, frameBytes, rate, ds.alsaFormat);
        PauseSilence silence(silenceKindFor(ds.kind), ds.alsaFormat, channels, frameBytes);
        TransferContext ctx{dev.pcm(), run.status.get(), readGeometry(run.params.get()), &silence};
        runTransfer(ctx, src, settings.rwAccess != 0);
        dev.close();

        if (stopRequest.load()) return endRun(RunEnd::Stopped);
        if (!advanceQueue()) return endRun(RunEnd::Natural);
        std::fputs("Loading", stderr);
        std::fflush(stderr);
    }
}

}  // namespace

void* fullMemoryPlayerS32(void*) {
    return fullMemoryPlayer<FormatS32>();
}
void* fullMemoryPlayerS24(void*) {
    return fullMemoryPlayer<FormatS24>();
}
void* fullMemoryPlayerS16(void*) {
    return fullMemoryPlayer<FormatS16>();
}

void releaseFullMemoryBuffer() {
    std::free(loaded.data);
    loaded.data = nullptr;
    loaded.bytes = 0;
    loaded.path[0] = '\0';
}
