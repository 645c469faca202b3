#include <memory>

#include "decode/decode.h"
#include "decode/dsd_source.h"
#include "decode/ff_source.h"

struct DecodeStream {
    DsdSource* dsd = nullptr;
    FfSource* ff = nullptr;
    StreamInfo info;
    uint32_t frameBytes = 1;
};

namespace {

uint32_t frameBytesOf(StreamKind kind, int channels) {
    switch (kind) {
        case StreamKind::Int16:
            return 2u * channels;
        case StreamKind::DsdRaw:
            return 1u * channels;
        default:
            return 4u * channels;
    }
}

}  // namespace

DecodeStream* decodeOpen(const char* path, StreamKind kind, int32_t pcmRate, std::string* error) {
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
    s->frameBytes = frameBytesOf(kind, s->info.channels);
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

double decodeBytesToSeconds(const DecodeStream* s, uint64_t bytes) {
    if (s->info.rate <= 0 || s->frameBytes == 0) return 0;
    return static_cast<double>(bytes / s->frameBytes) / s->info.rate;
}

uint32_t decodeRead(DecodeStream* s, void* buffer, uint32_t bytes) {
    return s->dsd ? dsdRead(s->dsd, buffer, bytes) : ffRead(s->ff, buffer, bytes);
}

bool decodeSeek(DecodeStream* s, uint64_t pos) {
    return s->dsd ? dsdSeek(s->dsd, pos) : ffSeek(s->ff, pos);
}

bool decodeIsDsdContent(const char* path) {
    return dsdProbe(path);
}
