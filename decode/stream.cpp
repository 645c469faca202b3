#include <memory>

#include "decode/decode.h"
#include "decode/dsd_file.h"
#include "decode/dsd_source.h"
#include "decode/ff_source.h"

struct DecodeStream {
    DsdSource* dsd = nullptr;
    FfSource* ff = nullptr;
    StreamInfo info;
    uint32_t frameBytes = 1;
};

namespace {

uint32_t sampleBytes(SampleType type) {
    switch (type) {
        case SampleType::DsdByte:
            return 1;
        case SampleType::Float64:
            return 8;
        default:
            return 4;
    }
}

}  // namespace

DecodeStream* decodeOpen(const char* path, StreamKind kind, int32_t pcmRate, std::string* error) {
    if (!decodeRegularFile(path, error)) return nullptr;
    auto s = std::make_unique<DecodeStream>();
    if (dsdProbe(path)) {
        s->dsd = dsdOpen(path, kind, pcmRate, error);
        if (!s->dsd) return nullptr;
        s->info = dsdInfo(s->dsd);
    } else {
        s->ff = ffOpen(path, kind, error);
        if (!s->ff) return nullptr;
        s->info = ffInfo(s->ff);
    }
    s->frameBytes = sampleBytes(s->info.sample) * uint32_t(s->info.channels);
    return s.release();
}

void decodeClose(DecodeStream* s) {
    if (!s) return;
    if (s->dsd) dsdClose(s->dsd);
    if (s->ff) ffClose(s->ff);
    delete s;
}

StreamInfo decodeInfo(const DecodeStream* s) {
    return s->info;
}

uint64_t decodeLength(const DecodeStream* s) {
    return s->dsd ? dsdLength(s->dsd) : ffLength(s->ff);
}

uint32_t decodeFrameBytes(const DecodeStream* s) {
    return s->frameBytes;
}

uint32_t decodeRead(DecodeStream* s, void* buffer, uint32_t bytes) {
    return s->dsd ? dsdRead(s->dsd, buffer, bytes) : ffRead(s->ff, buffer, bytes);
}

bool decodeSeek(DecodeStream* s, uint64_t pos) {
    return s->dsd ? dsdSeek(s->dsd, pos) : ffSeek(s->ff, pos);
}

bool decodeSeekExact(const DecodeStream* s) {
    return s->dsd || ffSeekExact(s->ff);
}

bool decodeIsDsdContent(const char* path) {
    return dsdProbe(path);
}

int32_t decodeDsdBitRate(const char* path) {
    if (!dsdProbe(path)) return 0;
    std::unique_ptr<DsdFile> file = dsdFileOpen(path, nullptr);
    return file ? file->info().bitRate : 0;
}
