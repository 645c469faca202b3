#include "engine/whole_load.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "engine/frame_reader.h"
#include "engine/packing.h"

int wholeLoadPieces = 0;

namespace {

constexpr uint32_t kChunkFrames = 8192;
// Below this a second decoder costs more than it saves.
constexpr uint64_t kMinPieceFrames = 32768;
constexpr int kMaxPieces = 16;
// A piece whose seek is not exact decodes this much before its start, to
// be compared with what the piece before it decoded there.
constexpr uint64_t kLeadFrames = 4096;

int usableCores() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
    return std::max(1, CPU_COUNT(&set));
}

// A dot on stderr per 16 MiB decoded, by all pieces together; printed by
// the player thread only.
class Dots {
  public:
    explicit Dots(uint32_t frameBytes) : frameBytes_(frameBytes) {}
    void add(uint64_t frames) { frames_.fetch_add(frames, std::memory_order_relaxed); }
    void show() {
        const uint64_t due = frames_.load(std::memory_order_relaxed) * frameBytes_ >> 24;
        if (due == shown_) return;
        for (; shown_ < due; ++shown_) std::fputc('.', stderr);
        std::fflush(stderr);
    }

  private:
    const uint64_t frameBytes_;
    std::atomic<uint64_t> frames_{0};
    uint64_t shown_ = 0;
};

struct Piece {
    DecoderStream own;  // the first piece reads the caller's stream instead
    std::unique_ptr<FrameReader> reader;
    std::vector<uint8_t> scratch;
    uint64_t from = 0, to = 0;  // card frames
    uint64_t leadFrames = 0;
    std::vector<uint8_t> lead;  // packed frames before from

    void attach(const DecoderStream& ds) {
        reader = std::make_unique<FrameReader>(ds);
        if (reader->needsScratch()) scratch.resize(size_t(kChunkFrames) * ds.decodedFrameBytes);
    }
    uint64_t reached() const { return reader ? reader->position() : from; }
    // Opened, and its lead decoded.
    bool started() const { return reader && reader->position() >= from; }
};

// Decodes [from, to) of p into data, the lead first; stops early at a
// failure or a stop.
void decodePiece(const PlayerControl& pc, Piece& p, uint8_t* data, uint32_t frameBytes, Dots& dots,
                 bool showDots) {
    FrameReader& r = *p.reader;
    const uint64_t start = p.from - p.leadFrames;
    if (r.position() != start) r.seek(start);
    p.lead.resize(p.leadFrames * frameBytes);
    while (r.position() < p.from) {
        const uint64_t at = r.position() - start;
        if (!r.read(p.lead.data() + at * frameBytes,
                    uint32_t(std::min<uint64_t>(kChunkFrames, p.from - r.position())),
                    p.scratch.data(), p.scratch.size()))
            return;
    }
    // A stop, next or exit typed while loading acts within a chunk.
    while (r.position() < p.to && !pc.stopRequest.load()) {
        const uint32_t n = r.read(data + r.position() * frameBytes,
                                  uint32_t(std::min<uint64_t>(kChunkFrames, p.to - r.position())),
                                  p.scratch.data(), p.scratch.size());
        if (!n) return;
        dots.add(n);
        if (showDots) dots.show();
    }
}

}  // namespace

uint64_t loadWholeFile(const PlayerControl& pc, DecoderStream& ds, uint8_t* data,
                       uint32_t dotFrameBytes, const ReopenStream& reopen) {
    const uint32_t frameBytes = cardFrameBytes(ds.alsaFormat, ds.channels);
    const uint64_t total = ds.frames;
    const int cores = wholeLoadPieces > 0 ? wholeLoadPieces : usableCores();
    const int count = int(
        std::clamp<uint64_t>(total / kMinPieceFrames, 1, uint64_t(std::min(cores, kMaxPieces))));
    const bool exact = decodeSeekExact(ds.handle.get());
    Dots dots(dotFrameBytes);

    std::vector<std::unique_ptr<Piece>> pieces;
    for (int i = 0; i < count; ++i) {
        auto p = std::make_unique<Piece>();
        p->from = total * uint64_t(i) / uint64_t(count);
        p->to = total * uint64_t(i + 1) / uint64_t(count);
        p->leadFrames = i == 0 || exact ? 0 : std::min(kLeadFrames, p->from);
        pieces.push_back(std::move(p));
    }
    auto runOther = [&](Piece& p) {
        // A load has no deadline: the helpers leave real-time priority to the
        // player thread, so the console keeps a core.
        sched_param normal{};
        pthread_setschedparam(pthread_self(), SCHED_OTHER, &normal);
        decodePiece(pc, p, data, frameBytes, dots, false);
    };
    std::vector<std::thread> threads;
    std::vector<Piece*> here;  // pieces no thread could be made for
    for (int i = 1; i < count; ++i) {
        Piece& p = *pieces[size_t(i)];
        // Opened here: the settings that choose the stream belong to this thread.
        p.own = reopen();
        if (!p.own.handle || p.own.frames != total) continue;
        p.attach(p.own);
        try {
            threads.emplace_back(runOther, std::ref(p));
        } catch (const std::system_error&) {
            here.push_back(&p);
        }
    }
    pieces[0]->attach(ds);
    decodePiece(pc, *pieces[0], data, frameBytes, dots, true);
    for (Piece* p : here) decodePiece(pc, *p, data, frameBytes, dots, true);
    for (std::thread& t : threads) t.join();

    // Each join must hold: a piece that could not start, or whose decoder had
    // not settled where the piece before ended, is decoded again from there.
    uint64_t end = pieces[0]->reached();
    for (size_t i = 1; i < pieces.size() && end == pieces[i]->from && !pc.stopRequest.load(); ++i) {
        Piece& p = *pieces[i];
        const uint64_t leadBytes = p.leadFrames * frameBytes;
        const bool joins =
            p.started() &&
            (leadBytes == 0 ||
             std::memcmp(p.lead.data(), data + p.from * frameBytes - leadBytes, leadBytes) == 0);
        if (!joins) {
            Piece& before = *pieces[i - 1];
            before.from = end;
            before.to = total;
            before.leadFrames = 0;
            decodePiece(pc, before, data, frameBytes, dots, true);
            end = before.reached();
            break;
        }
        end = p.reached();
    }
    dots.show();
    return end * frameBytes;
}
