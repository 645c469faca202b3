// DSD files as the decoding layer's stream kinds. Lengths, both exact:
// - raw: the file's own bytes per channel (a DSF file's block padding is not
//   delivered), read in whole bytes of every channel;
// - PCM: ceil(duration x pcmRate) frames of 64-bit float.
#include <algorithm>
#include <memory>

#include "decode/dsd_file.h"
#include "decode/dsd_pcm.h"
#include "decode/dsd_source.h"

namespace {
constexpr uint32_t kStepFrames = 16384;
}  // namespace

struct DsdSource {
    std::unique_ptr<DsdFile> file;
    std::unique_ptr<DsdToPcm> pcm;  // null: raw bytes
    StreamInfo info;
    uint64_t frames = 0;  // in units of frameBytes
    uint32_t frameBytes = 0;
    uint64_t pos = 0;  // next frame
    std::vector<std::vector<double>> planes;
};

namespace {

bool readPcm(DsdSource* s, double* out, uint32_t frames) {
    const int ch = s->info.channels;
    std::vector<double*> at;
    for (auto& p : s->planes) {
        p.resize(frames);
        at.push_back(p.data());
    }
    if (!s->pcm->read(s->pos, frames, at.data())) return false;
    for (uint32_t i = 0; i < frames; ++i)
        for (int c = 0; c < ch; ++c) *out++ = s->planes[c][i];
    return true;
}

bool setUp(DsdSource* s, StreamKind kind, int32_t pcmRate, std::string* error) {
    const DsdFileInfo& fi = s->file->info();
    const int ch = fi.channels;
    s->info.channels = ch;
    s->info.sourceBits = 0;
    if (kind == StreamKind::DsdRaw) {
        s->info.rate = fi.bitRate / 8;
        s->info.sample = SampleType::DsdByte;
        s->frameBytes = uint32_t(ch);
        s->frames = fi.bytesPerChannel;
        return true;
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
    s->info.sample = SampleType::Float64;
    s->frameBytes = 8u * uint32_t(ch);
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
    if (!setUp(s.get(), kind, pcmRate, error)) return nullptr;
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
        bool ok =
            s->pcm ? readPcm(s, reinterpret_cast<double*>(out), n) : s->file->read(s->pos, n, out);
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
