#include "decode/dst_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

extern "C" {
#include <libavutil/crc.h>
}

#include "decode/decode.h"
#include "decode/dst_frame.h"

namespace {

constexpr uint32_t kFramesPerSecond = 75;
constexpr uint32_t kMaxFrameSize = 1u << 22;        // far above any real frame
constexpr uint64_t kMaxFrames = 75ull * 3600 * 24;  // a day
constexpr int kProbeFrames = 3;

uint64_t be(const uint8_t* p, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v = v << 8 | p[i];
    return v;
}

// Files disagree on how DSTC is computed, so the check is learnt from the
// first frames: each way is tried, and one that matches a good frame is kept.
// No match on good frames means an unknown way, and the CRCs are ignored.
enum CrcWay { kCrcLsbFirst, kCrcMsbFirstOnes, kCrcMsbFirstZero, kCrcWays };

uint32_t crc(CrcWay way, const uint8_t* p, size_t n) {
    if (way == kCrcLsbFirst) return ~av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), ~0u, p, n);
    // FFmpeg keeps MSB-first CRCs byte-swapped.
    const uint32_t init = way == kCrcMsbFirstOnes ? ~0u : 0u;
    return __builtin_bswap32(av_crc(av_crc_get_table(AV_CRC_32_IEEE), init, p, n));
}

// Sequential reads through a buffer, for the walk over thousands of chunks.
class Reader {
  public:
    explicit Reader(int fd) : fd_(fd) {}
    bool at(uint64_t pos, void* out, size_t n) {
        if (pos < start_ || pos + n > start_ + buf_.size()) {
            buf_.resize(1 << 20);
            ssize_t got = pread(fd_, buf_.data(), buf_.size(), off_t(pos));
            buf_.resize(got > 0 ? size_t(got) : 0);
            start_ = pos;
            if (n > buf_.size()) return false;
        }
        memcpy(out, buf_.data() + (pos - start_), n);
        return true;
    }

  private:
    int fd_;
    uint64_t start_ = 0;
    std::vector<uint8_t> buf_;
};

class DstFile : public DsdFile {
  public:
    DstFile(const DsdFileInfo& info, const DstLayout& layout)
        : layout_(layout),
          frameBytes_(uint32_t(info.bitRate / kFramesPerSecond / 8)),
          decoder_(info.channels, frameBytes_) {
        info_ = info;
    }
    ~DstFile() override {
        if (fd_ >= 0) close(fd_);
    }
    bool open(const char* path, std::string* error);
    bool read(uint64_t first, uint32_t count, uint8_t* out) override;

  private:
    struct Frame {
        uint64_t pos;  // of the DSTF contents
        uint32_t size;
    };
    struct Slot {
        uint64_t frame = UINT64_MAX;
        std::vector<uint8_t> dsd;
    };
    void walk();
    bool useIndex();
    // Decodes frame n into out; false with a reason. stored: the frame's DSTC
    // value, or -1 without one.
    bool decodeFrame(uint64_t n, uint8_t* out, std::string* why, int64_t* stored);
    const uint8_t* frame(uint64_t n);
    void learnCrc();

    DstLayout layout_;
    std::string path_;
    int fd_ = -1;
    uint32_t frameBytes_;
    uint64_t declared_ = UINT64_MAX;  // the FRTE frame count
    bool indexed_ = false;
    std::vector<Frame> frames_;
    DstFrameDecoder decoder_;
    std::vector<uint8_t> coded_;
    Slot slots_[2];
    int older_ = 0;
    std::vector<bool> reported_;
    int crcWay_ = -1;  // a CrcWay once learnt; -1 checks nothing
};

bool DstFile::open(const char* path, std::string* error) {
    path_ = path;
    fd_ = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return *error = "cannot open file", false;
    if (info_.bitRate % (kFramesPerSecond * 8) != 0)
        return *error = "DST at this rate not supported", false;
    // The frame count comes first; then the frames from the index or a walk.
    uint8_t h[18];
    Reader r(fd_);
    if (layout_.body + 18 <= layout_.bodyEnd && r.at(layout_.body, h, 18) &&
        memcmp(h, "FRTE", 4) == 0 && be(h + 4, 8) >= 6) {
        declared_ = be(h + 12, 4);
        if (be(h + 16, 2) != kFramesPerSecond)
            return *error = "DST frame rate not supported", false;
    }
    if (!useIndex()) walk();  // a file without frames opens and plays nothing
    const uint64_t frames = std::min<uint64_t>(frames_.size(), declared_);
    frames_.resize(frames);
    reported_.assign(frames, false);
    info_.bytesPerChannel = frames * frameBytes_;
    info_.sampleBits = info_.bytesPerChannel * 8;
    for (Slot& s : slots_) s.dsd.resize(size_t(frameBytes_) * size_t(info_.channels));
    learnCrc();
    return true;
}

void DstFile::walk() {
    frames_.clear();
    indexed_ = false;
    Reader r(fd_);
    uint8_t h[12];
    const uint64_t end = layout_.bodyEnd;
    for (uint64_t pos = layout_.body; pos + 12 <= end && frames_.size() < declared_;) {
        if (!r.at(pos, h, 12)) break;
        const uint64_t size = be(h + 4, 8);
        if (memcmp(h, "DSTF", 4) == 0) {
            if (size == 0 || size > kMaxFrameSize || frames_.size() >= kMaxFrames) break;
            frames_.push_back({pos + 12, uint32_t(size)});  // a cut one reads as damaged
        }
        if (size > end - pos - 12) break;
        pos += 12 + size + (size & 1);
    }
}

// The index is used when its entries are in order inside the sound data and
// its ends point at DSTF chunks; a wrong entry found later sends us to a walk.
bool DstFile::useIndex() {
    const uint64_t entries = (layout_.indexEnd - layout_.index) / 12;
    if (layout_.index == 0 || entries == 0) return false;
    // A short index would hide frames that a walk finds.
    if (declared_ != UINT64_MAX && entries < declared_) return false;
    const uint64_t count = std::min(entries, std::min(declared_, kMaxFrames));
    std::vector<uint8_t> raw(count * 12);
    if (pread(fd_, raw.data(), raw.size(), off_t(layout_.index)) != ssize_t(raw.size()))
        return false;
    // Some writers point at the chunk, some at its contents.
    uint8_t h[12];
    const uint64_t first = be(raw.data(), 8);
    if (pread(fd_, h, 12, off_t(first)) != 12) return false;
    const uint64_t shift = memcmp(h, "DSTF", 4) == 0 ? 12 : 0;
    uint64_t last = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t pos = be(raw.data() + 12 * i, 8) + shift;
        const uint64_t size = be(raw.data() + 12 * i + 8, 4);
        if (pos < layout_.body + 12 || pos < last || size == 0 || size > kMaxFrameSize ||
            pos + size > layout_.bodyEnd)
            return false;
        frames_.push_back({pos, uint32_t(size)});
        last = pos + size;
    }
    indexed_ = true;
    return true;
}

bool DstFile::decodeFrame(uint64_t n, uint8_t* out, std::string* why, int64_t* stored) {
    *stored = -1;
    const Frame f = frames_[n];
    // The frame with its chunk header before it and a DSTC chunk after.
    const size_t want = 12 + f.size + (f.size & 1) + 12 + 4;
    coded_.resize(want);
    ssize_t got = pread(fd_, coded_.data(), want, off_t(f.pos - 12));
    size_t have = got > 0 ? size_t(got) : 0;
    if (have < 12 + f.size) return *why = "frame cut short", false;
    if (memcmp(coded_.data(), "DSTF", 4) != 0 || be(coded_.data() + 4, 8) != f.size)
        return *why = "frame not where the index says", false;
    if (!decoder_.decode(coded_.data() + 12, f.size, out, why)) return false;
    const uint8_t* c = coded_.data() + 12 + f.size + (f.size & 1);
    if (have == want && memcmp(c, "DSTC", 4) == 0 && be(c + 4, 8) == 4)
        *stored = int64_t(be(c + 12, 4));
    return true;
}

void DstFile::learnCrc() {
    std::vector<uint8_t> dsd(size_t(frameBytes_) * size_t(info_.channels));
    std::string why;
    for (uint64_t n = 0; n < std::min<uint64_t>(frames_.size(), kProbeFrames); ++n) {
        int64_t stored;
        if (!decodeFrame(n, dsd.data(), &why, &stored) || stored < 0) continue;
        for (int way = 0; way < kCrcWays; ++way)
            if (crc(CrcWay(way), dsd.data(), dsd.size()) == uint32_t(stored)) {
                crcWay_ = way;
                return;
            }
    }
}

const uint8_t* DstFile::frame(uint64_t n) {
    for (Slot& s : slots_)
        if (s.frame == n) return s.dsd.data();
    Slot& s = slots_[older_];
    older_ ^= 1;
    s.frame = n;
    std::string why = "frame missing";
    int64_t stored = -1;
    bool ok = n < frames_.size() && decodeFrame(n, s.dsd.data(), &why, &stored);
    if (!ok && indexed_ && why == "frame not where the index says") {
        walk();
        frames_.resize(std::min<uint64_t>(frames_.size(), reported_.size()));
        why = "frame missing";
        ok = n < frames_.size() && decodeFrame(n, s.dsd.data(), &why, &stored);
    }
    if (ok && crcWay_ >= 0 && stored >= 0 &&
        crc(CrcWay(crcWay_), s.dsd.data(), s.dsd.size()) != uint32_t(stored)) {
        ok = false;
        why = "DSTC check failed";
    }
    if (!ok) {
        std::fill(s.dsd.begin(), s.dsd.end(), kDsdIdleByte);
        if (!reported_[n]) {
            reported_[n] = true;
            fprintf(stderr,
                    "tovrin: %s: DST frame %llu of %zu is damaged (%s), played as silence\n",
                    path_.c_str(), (unsigned long long)n + 1, reported_.size(), why.c_str());
        }
    }
    return s.dsd.data();
}

bool DstFile::read(uint64_t first, uint32_t count, uint8_t* out) {
    if (first + count > info_.bytesPerChannel) return false;
    const size_t ch = size_t(info_.channels);
    while (count > 0) {
        const uint64_t n = first / frameBytes_;
        const uint32_t within = uint32_t(first % frameBytes_);
        const uint32_t take = std::min(count, frameBytes_ - within);
        memcpy(out, frame(n) + within * ch, take * ch);
        out += take * ch;
        first += take;
        count -= take;
    }
    return true;
}

}  // namespace

std::unique_ptr<DsdFile> dstFileOpen(const char* path, const DsdFileInfo& info,
                                     const DstLayout& layout, std::string* error) {
    auto f = std::make_unique<DstFile>(info, layout);
    if (!f->open(path, error)) return nullptr;
    return f;
}
