// DSD files as the decoding layer's stream kinds. Lengths, all exact:
// - raw: the file's bytes per channel, rounded up to whole 4-byte groups
//   with the idle pattern 0x69 so every read is whole DSD_U32 frames;
// - DoP: one frame per 2 DSD bytes per channel, an odd last byte completed
//   with 0x69; markers 0x05 / 0xFA by frame number from the file start;
// - PCM (float or 16-bit): ceil(duration x pcmRate) frames.
#include <algorithm>
#include <cmath>
#include <memory>

#include "decode/dsd_file.h"
#include "decode/dsd_pcm.h"
#include "decode/dsd_source.h"

namespace {

constexpr uint8_t kIdle = 0x69;  // DSD silence: as many ones as zeros
constexpr uint32_t kStepFrames = 16384;

enum class Mode { Raw, Dop, Float, Int16 };

}  // namespace

struct DsdSource {
    std::unique_ptr<DsdFile> file;
    std::unique_ptr<DsdToPcm> pcm;
    Mode mode = Mode::Raw;
    StreamInfo info;
    uint64_t frames = 0;  // in units of frameBytes
    uint32_t frameBytes = 0;
    uint64_t pos = 0;  // next frame
    std::vector<uint8_t> bytes;
    std::vector<std::vector<double>> planes;
};

namespace {

// DSD bytes [first, first + count) per channel, interleaved; past the end of
// the file the idle pattern.
bool fetchPadded(DsdSource* s, uint64_t first, uint32_t count) {
    const int ch = s->info.channels;
    s->bytes.assign(size_t(count) * ch, kIdle);
    uint64_t have = s->file->info().bytesPerChannel;
    if (first >= have) return true;
    uint32_t n = uint32_t(std::min<uint64_t>(count, have - first));
    return s->file->read(first, n, s->bytes.data());
}

bool readRaw(DsdSource* s, uint8_t* out, uint32_t frames) {
    if (!fetchPadded(s, s->pos * 4, frames * 4)) return false;
    std::copy(s->bytes.begin(), s->bytes.end(), out);
    return true;
}

bool readDop(DsdSource* s, float* out, uint32_t frames) {
    const int ch = s->info.channels;
    if (!fetchPadded(s, s->pos * 2, frames * 2)) return false;
    for (uint32_t i = 0; i < frames; ++i) {
        int32_t marker = (s->pos + i) & 1 ? 0xFA : 0x05;
        for (int c = 0; c < ch; ++c) {
            int32_t w =
                marker << 16 | s->bytes[(2 * i) * ch + c] << 8 | s->bytes[(2 * i + 1) * ch + c];
            if (w & 0x800000) w -= 0x1000000;
            *out++ = float(w) / 8388608.0f;
        }
    }
    return true;
}

bool readPcm(DsdSource* s, void* out, uint32_t frames) {
    const int ch = s->info.channels;
    std::vector<double*> at;
    for (auto& p : s->planes) {
        p.resize(frames);
        at.push_back(p.data());
    }
    if (!s->pcm->read(s->pos, frames, at.data())) return false;
    if (s->mode == Mode::Float) {
        float* f = static_cast<float*>(out);
        for (uint32_t i = 0; i < frames; ++i)
            for (int c = 0; c < ch; ++c) *f++ = float(s->planes[c][i]);
        return true;
    }
    int16_t* d = static_cast<int16_t*>(out);
    for (uint32_t i = 0; i < frames; ++i)
        for (int c = 0; c < ch; ++c) {
            double v = std::trunc(s->planes[c][i] * 32768.0);
            *d++ = int16_t(std::clamp(v, -32768.0, 32767.0));
        }
    return true;
}

Mode modeFor(StreamKind kind) {
    switch (kind) {
        case StreamKind::DsdRaw:
            return Mode::Raw;
        case StreamKind::Dop:
            return Mode::Dop;
        case StreamKind::Int16:
            return Mode::Int16;
        default:
            return Mode::Float;
    }
}

bool setUp(DsdSource* s, int32_t pcmRate, std::string* error) {
    const DsdFileInfo& fi = s->file->info();
    const int ch = fi.channels;
    s->info.channels = ch;
    s->info.sourceBits = 0;
    switch (s->mode) {
        case Mode::Raw:
            s->info.rate = fi.bitRate / 8;
            s->frameBytes = 4 * ch;
            s->frames = (fi.bytesPerChannel + 3) / 4;
            return true;
        case Mode::Dop:
            s->info.rate = fi.bitRate / 16;
            s->frameBytes = 4 * ch;
            s->frames = (fi.bytesPerChannel + 1) / 2;
            return true;
        default:
            break;
    }
    if (!DsdToPcm::supports(fi.bitRate, pcmRate))
        return *error = "DSD rate or PCM rate not supported for conversion", false;
    DsdFile* file = s->file.get();
    s->pcm = std::make_unique<DsdToPcm>(ch, fi.bitRate, fi.sampleBits, pcmRate,
                                        [file](uint64_t first, uint32_t count, uint8_t* out) {
                                            return file->read(first, count, out);
                                        });
    s->planes.resize(ch);
    s->info.rate = pcmRate;
    s->frameBytes = (s->mode == Mode::Int16 ? 2 : 4) * ch;
    s->frames = s->pcm->frames();
    return true;
}

}  // namespace

bool dsdProbe(const char* path) {
    return dsdFileProbe(path);
}

DsdSource* dsdOpen(const char* path, StreamKind kind, int32_t pcmRate, std::string* error) {
    std::string dummy;
    if (!error) error = &dummy;
    auto s = std::make_unique<DsdSource>();
    s->file = dsdFileOpen(path, error);
    if (!s->file) return nullptr;
    s->mode = modeFor(kind);
    if (s->file->info().dst) {
        *error = "DST-compressed DSD cannot be decoded";
        return nullptr;
    }
    if (!setUp(s.get(), pcmRate, error)) return nullptr;
    return s.release();
}

StreamInfo dsdInfo(const DsdSource* s) {
    return s->info;
}

uint64_t dsdLength(const DsdSource* s) {
    return s->frames * s->frameBytes;
}

uint32_t dsdRead(DsdSource* s, void* buffer, uint32_t bytes) {
    uint64_t want = std::min<uint64_t>(bytes / s->frameBytes, s->frames - s->pos);
    if (want == 0) return bytes < s->frameBytes && s->pos < s->frames ? 0 : kDecodeEnd;
    uint8_t* out = static_cast<uint8_t*>(buffer);
    for (uint64_t done = 0; done < want;) {
        uint32_t n = uint32_t(std::min<uint64_t>(want - done, kStepFrames));
        bool ok = s->mode == Mode::Raw   ? readRaw(s, out, n)
                  : s->mode == Mode::Dop ? readDop(s, reinterpret_cast<float*>(out), n)
                                         : readPcm(s, out, n);
        if (!ok) return done ? uint32_t(done * s->frameBytes) : kDecodeEnd;
        s->pos += n;
        done += n;
        out += size_t(n) * s->frameBytes;
    }
    return uint32_t(want * s->frameBytes);
}

bool dsdSeek(DsdSource* s, uint64_t pos) {
    uint64_t frame = pos / s->frameBytes;
    if (frame > s->frames) return false;
    s->pos = frame;
    return true;
}

void dsdClose(DsdSource* s) {
    delete s;
}
