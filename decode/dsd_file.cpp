// DSF: little-endian chunks, data in blocks of blockSize bytes per channel
// (channel after channel), bits least significant first; the last block is
// zero-padded and may be followed by an ID3 chunk. DSDIFF: big-endian FRM8
// form, bytes interleaved by channel, bits most significant first.
#include "decode/dsd_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "decode/dst_file.h"
#include "decode/plain_file.h"

namespace {

constexpr int kMaxChannels = 8;

struct Fd {
    int fd = -1;
    ~Fd() {
        if (fd >= 0) close(fd);
    }
    bool readAt(uint64_t pos, void* buf, size_t n) const {
        return pread(fd, buf, n, static_cast<off_t>(pos)) == static_cast<ssize_t>(n);
    }
};

uint64_t le(const uint8_t* p, int n) {
    uint64_t v = 0;
    for (int i = n - 1; i >= 0; --i) v = v << 8 | p[i];
    return v;
}
uint64_t be(const uint8_t* p, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v = v << 8 | p[i];
    return v;
}

bool validRate(uint64_t rate) {
    for (uint64_t base : {44100u, 48000u})
        for (uint64_t m = 64; m <= 512; m *= 2)
            if (rate == base * m) return true;
    return false;
}

struct ReverseTable {
    uint8_t t[256];
    ReverseTable() {
        for (int b = 0; b < 256; ++b) {
            int r = 0;
            for (int i = 0; i < 8; ++i) r |= ((b >> i) & 1) << (7 - i);
            t[b] = uint8_t(r);
        }
    }
};

class DsfFile : public DsdFile {
  public:
    bool open(const char* path, std::string* error);
    bool read(uint64_t first, uint32_t count, uint8_t* out) override;

  private:
    Fd f_;
    uint64_t dataOffset_ = 0;
    uint32_t block_ = 0;
    bool lsbFirst_ = true;
    std::vector<uint8_t> seg_;
};

bool DsfFile::open(const char* path, std::string* error) {
    f_.fd = openPlainFile(path, error);
    struct stat st {};
    if (f_.fd < 0) return false;
    if (fstat(f_.fd, &st) != 0) return *error = "cannot open file", false;
    uint8_t h[92];
    if (!f_.readAt(0, h, sizeof h)) return *error = "DSF header too short", false;
    uint64_t fmtAt = le(h + 4, 8);
    if (fmtAt != 28 || memcmp(h + 28, "fmt ", 4) != 0)
        return *error = "DSF format chunk missing", false;
    uint64_t fmtSize = le(h + 32, 8);
    uint8_t d[12];
    if (fmtSize < 52 || !f_.readAt(28 + fmtSize, d, 12) || memcmp(d, "data", 4) != 0)
        return *error = "DSF data chunk missing", false;
    info_.channels = int32_t(le(h + 52, 4));
    info_.bitRate = int32_t(le(h + 56, 4));
    uint32_t bits = uint32_t(le(h + 60, 4));
    info_.sampleBits = le(h + 64, 8);
    block_ = uint32_t(le(h + 72, 4));
    lsbFirst_ = bits == 1;
    if (le(h + 44, 4) != 0 || (bits != 1 && bits != 8))
        return *error = "DSF data is not plain DSD", false;
    if (info_.channels < 1 || info_.channels > kMaxChannels || !validRate(info_.bitRate) ||
        block_ == 0 || block_ > (1u << 20))
        return *error = "DSF format not supported", false;
    dataOffset_ = 28 + fmtSize + 12;
    uint64_t dataSize = le(d + 4, 8) - std::min<uint64_t>(le(d + 4, 8), 12);
    dataSize = std::min<uint64_t>(dataSize, uint64_t(st.st_size) - dataOffset_);
    // Only whole groups of blocks exist; a sample count beyond them is cut.
    uint64_t group = uint64_t(block_) * info_.channels;
    uint64_t available = dataSize / group * block_;
    info_.bytesPerChannel = std::min((info_.sampleBits + 7) / 8, available);
    info_.sampleBits = std::min(info_.sampleBits, info_.bytesPerChannel * 8);
    return true;  // an empty file opens and plays nothing
}

bool DsfFile::read(uint64_t first, uint32_t count, uint8_t* out) {
    static const ReverseTable rev;
    if (first + count > info_.bytesPerChannel) return false;
    const int ch = info_.channels;
    while (count > 0) {
        uint64_t blockNo = first / block_;
        uint32_t within = uint32_t(first % block_);
        uint32_t n = std::min(count, block_ - within);
        seg_.resize(n);
        for (int c = 0; c < ch; ++c) {
            uint64_t at = dataOffset_ + (blockNo * ch + c) * block_ + within;
            if (!f_.readAt(at, seg_.data(), n)) return false;
            for (uint32_t i = 0; i < n; ++i)
                out[size_t(i) * ch + c] = lsbFirst_ ? rev.t[seg_[i]] : seg_[i];
        }
        out += size_t(n) * ch;
        first += n;
        count -= n;
    }
    return true;
}

class DffFile : public DsdFile {
  public:
    bool open(const char* path, std::string* error);
    bool read(uint64_t first, uint32_t count, uint8_t* out) override {
        if (first + count > info_.bytesPerChannel) return false;
        uint64_t ch = info_.channels;
        return f_.readAt(dataOffset_ + first * ch, out, count * ch);
    }

    const DstLayout& dstLayout() const { return dst_; }

  private:
    bool readProp(uint64_t pos, uint64_t end, std::string* error);
    Fd f_;
    uint64_t dataOffset_ = 0;
    DstLayout dst_;
};

bool DffFile::readProp(uint64_t pos, uint64_t end, std::string* error) {
    uint8_t h[12];
    if (!f_.readAt(pos, h, 4) || memcmp(h, "SND ", 4) != 0)
        return *error = "DSDIFF property chunk is not sound", false;
    for (pos += 4; pos + 12 <= end;) {
        if (!f_.readAt(pos, h, 12)) break;
        uint64_t size = be(h + 4, 8);
        uint8_t b[6] = {};
        if (size > end - pos - 12) break;
        f_.readAt(pos + 12, b, std::min<uint64_t>(size, sizeof b));
        if (memcmp(h, "FS  ", 4) == 0) info_.bitRate = int32_t(be(b, 4));
        if (memcmp(h, "CHNL", 4) == 0) info_.channels = int32_t(be(b, 2));
        if (memcmp(h, "CMPR", 4) == 0) info_.dst = memcmp(b, "DSD ", 4) != 0;
        pos += 12 + size + (size & 1);
    }
    if (info_.channels < 1 || info_.channels > kMaxChannels || !validRate(info_.bitRate))
        return *error = "DSDIFF format not supported", false;
    return true;
}

bool DffFile::open(const char* path, std::string* error) {
    f_.fd = openPlainFile(path, error);
    struct stat st {};
    if (f_.fd < 0) return false;
    if (fstat(f_.fd, &st) != 0) return *error = "cannot open file", false;
    uint8_t h[16];
    if (!f_.readAt(0, h, 16) || memcmp(h, "FRM8", 4) != 0 || memcmp(h + 12, "DSD ", 4) != 0)
        return *error = "not a DSDIFF file", false;
    uint64_t end = std::min<uint64_t>(16 + be(h + 4, 8) - 4, uint64_t(st.st_size));
    bool haveProp = false;
    for (uint64_t pos = 16; pos + 12 <= end;) {
        if (!f_.readAt(pos, h, 12)) break;
        uint64_t size = be(h + 4, 8);
        uint64_t body = std::min(size, end - pos - 12);  // a cut file keeps what it has
        if (memcmp(h, "PROP", 4) == 0) {
            if (!readProp(pos + 12, pos + 12 + body, error)) return false;
            haveProp = true;
        } else if (haveProp && memcmp(h, "DSD ", 4) == 0 && !info_.dst) {
            dataOffset_ = pos + 12;
            info_.bytesPerChannel = body / info_.channels;
            info_.sampleBits = info_.bytesPerChannel * 8;
            return true;
        } else if (haveProp && memcmp(h, "DST ", 4) == 0) {
            info_.dst = true;
            dst_.body = pos + 12;
            dst_.bodyEnd = pos + 12 + body;
        } else if (dst_.body && memcmp(h, "DSTI", 4) == 0) {
            dst_.index = pos + 12;
            dst_.indexEnd = pos + 12 + body;
        }
        if (size > end - pos - 12) break;
        pos += 12 + size + (size & 1);
    }
    if (dst_.body) return true;  // the index, if any, follows the sound data
    return *error = haveProp ? "DSDIFF sound data missing" : "DSDIFF properties missing", false;
}

}  // namespace

bool dsdFileProbe(const char* path) {
    Fd f;
    f.fd = openPlainFile(path, nullptr);
    uint8_t h[16];
    if (f.fd < 0 || !f.readAt(0, h, 16)) return false;
    return memcmp(h, "DSD ", 4) == 0 ||
           (memcmp(h, "FRM8", 4) == 0 && memcmp(h + 12, "DSD ", 4) == 0);
}

std::unique_ptr<DsdFile> dsdFileOpen(const char* path, std::string* error) {
    std::string dummy;
    if (!error) error = &dummy;
    Fd probe;
    probe.fd = openPlainFile(path, error);
    uint8_t h[4] = {};
    if (probe.fd < 0) return nullptr;
    if (!probe.readAt(0, h, 4)) return *error = "cannot read file", nullptr;
    if (memcmp(h, "DSD ", 4) == 0) {
        auto f = std::make_unique<DsfFile>();
        if (f->open(path, error)) return f;
    } else {
        auto f = std::make_unique<DffFile>();
        if (f->open(path, error))
            return f->info().dst ? dstFileOpen(path, f->info(), f->dstLayout(), error)
                                 : std::move(f);
    }
    return nullptr;
}
