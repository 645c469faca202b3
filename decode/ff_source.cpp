#include "decode/ff_source.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "decode/ff_input.h"
#include "decode/sample_convert.h"

namespace {
// A forward seek closer than this many seconds decodes through instead.
constexpr int kDecodeThroughSeconds = 2;
}  // namespace

struct FfSource {
    std::string path;
    std::unique_ptr<FfInput> input;
    StreamInfo info;
    uint32_t frameBytes = 0;
    uint64_t length = 0;      // in frames
    int64_t firstStart = 0;   // timestamp of output frame 0, in samples
    bool timestamps = false;  // frame timestamps can place output after a seek
    // Converted frames waiting to be read; the first one is output frame `next`.
    std::vector<uint8_t> fifo;
    size_t head = 0;
    uint64_t next = 0;
    bool drained = false;
    bool typed = false;  // the first decoded frame has fixed info.sample

    uint64_t queued() const { return (fifo.size() - head) / frameBytes; }
};

namespace {

bool reopen(FfSource* s, std::string* error) {
    auto input = std::make_unique<FfInput>();
    if (!input->open(s->path.c_str(), error)) return false;
    s->input = std::move(input);
    s->fifo.clear();
    s->head = 0;
    s->next = 0;
    s->drained = false;
    return true;
}

// Appends frames [offset, nb_samples) of the decoder's current frame.
void queueFrame(FfSource* s, int offset) {
    const AVFrame* f = s->input->frame();
    if (f->ch_layout.nb_channels != s->info.channels || offset >= f->nb_samples) return;
    const int count = f->nb_samples - offset;
    if (s->head > 0 && s->head >= s->fifo.size() / 2) {
        s->fifo.erase(s->fifo.begin(), s->fifo.begin() + static_cast<ptrdiff_t>(s->head));
        s->head = 0;
    }
    size_t at = s->fifo.size();
    s->fifo.resize(at + static_cast<size_t>(count) * s->frameBytes);
    SampleSource src{f->extended_data, static_cast<AVSampleFormat>(f->format), s->info.channels};
    uint8_t* out = s->fifo.data() + at;
    // A frame whose kind of sample differs from the stream's is left out; the
    // read makes up the missing frames with silence.
    bool integer = isIntegerSampleFormat(src.format);
    if (!s->typed) {
        s->info.sample = integer ? SampleType::Int32 : SampleType::Float32;
        s->typed = true;
    }
    if (integer != (s->info.sample == SampleType::Int32)) {
        s->fifo.resize(at);
        return;
    }
    if (integer)
        convertToInt32(src, offset, count, reinterpret_cast<int32_t*>(out));
    else
        convertToFloat(src, offset, count, reinterpret_cast<float*>(out));
}

bool decodeMore(FfSource* s) {
    if (s->drained) return false;
    s->input->setDeadline(std::chrono::seconds(20));
    if (!s->input->nextFrame()) {
        s->drained = true;
        return false;
    }
    queueFrame(s, 0);
    return true;
}

void dropQueued(FfSource* s, uint64_t frames) {
    s->head += frames * s->frameBytes;
    s->next += frames;
    if (s->head == s->fifo.size()) {
        s->fifo.clear();
        s->head = 0;
    }
}

// Decodes onward from the current position, dropping everything before target.
void skipTo(FfSource* s, uint64_t target) {
    while (s->next + s->queued() <= target) {
        dropQueued(s, s->queued());
        if (!decodeMore(s)) break;
    }
    dropQueued(s, std::min(s->queued(), target - std::min(target, s->next)));
    s->next = std::max(s->next, target);  // past a decoder that ended early: silence follows
}

// Seeks the container before target and places the decoded frames by their
// timestamps. False when the result cannot be trusted; the caller then
// decodes from the start instead.
bool timestampSeek(FfSource* s, uint64_t target) {
    int64_t from = static_cast<int64_t>(target) + s->firstStart - s->input->seekPreroll();
    if (!s->timestamps || from <= s->firstStart) return false;
    if (!s->input->seekBefore(from)) return false;
    s->fifo.clear();
    s->head = 0;
    s->drained = false;
    s->input->setDeadline(std::chrono::seconds(20));
    if (!s->input->nextFrame()) return false;
    int64_t start = s->input->frameStart();
    if (start == AV_NOPTS_VALUE || start > from) return false;
    for (;;) {
        int64_t rel = s->input->frameStart() - s->firstStart;
        int64_t end = rel + s->input->frame()->nb_samples;
        if (end > static_cast<int64_t>(target)) {
            if (rel > static_cast<int64_t>(target)) return false;  // a gap in the timestamps
            s->next = target;
            queueFrame(s, static_cast<int>(static_cast<int64_t>(target) - rel));
            return true;
        }
        if (!s->input->nextFrame()) {
            s->drained = true;
            s->next = target;
            return true;
        }
        if (s->input->frameStart() == AV_NOPTS_VALUE) return false;
    }
}

bool prepare(FfSource* s, std::string* error) {
    if (!reopen(s, error)) return false;
    FfInput& in = *s->input;
    if (!in.pcmFrames(&s->length) && !in.statedFrames(&s->length)) {
        // The whole-file count only where the header is silent or disagrees with the end.
        const bool stated = in.headerFrames(&s->length);
        if (!reopen(s, error)) return false;
        if (!stated) {
            s->input->setDeadline(std::chrono::seconds(120));  // a long file on a slow disk
            if (!s->input->countFrames(&s->length)) {
                if (!reopen(s, error)) return false;
                s->length = 0;
                while (s->input->nextFrame()) s->length += s->input->frame()->nb_samples;
            }
            if (!reopen(s, error)) return false;
        }
    }
    // The first decoded frame's own sample format fixes the path: integer
    // sources keep every bit, whatever the container claims.
    s->info = {
        s->input->rate(), s->input->channels(), 0,
        isIntegerSampleFormat(s->input->sampleFormat()) ? SampleType::Int32 : SampleType::Float32};
    s->frameBytes = static_cast<uint32_t>(s->info.channels) * 4;
    if (decodeMore(s)) {
        s->firstStart = s->input->frameStart();
        s->timestamps = s->firstStart != AV_NOPTS_VALUE && s->input->exactTimestamps();
    } else if (s->length > 0) {
        if (error) *error = "no decodable audio";
        return false;
    }
    s->info.sourceBits = s->input->sourceBits();
    return true;
}

}  // namespace

FfSource* ffOpen(const char* path, StreamKind kind, std::string* error) {
    if (kind != StreamKind::Pcm) {
        if (error) *error = "not a DSD file";
        return nullptr;
    }
    auto s = std::make_unique<FfSource>();
    s->path = path;
    if (!prepare(s.get(), error)) return nullptr;
    return s.release();
}

StreamInfo ffInfo(const FfSource* s) {
    return s->info;
}

uint64_t ffLength(const FfSource* s) {
    return s->length * s->frameBytes;
}

uint32_t ffRead(FfSource* s, void* buffer, uint32_t bytes) {
    if (s->next >= s->length) return kDecodeEnd;
    const uint64_t want = std::min<uint64_t>(bytes / s->frameBytes, s->length - s->next);
    while (s->queued() < want && decodeMore(s)) {
    }
    const uint64_t have = std::min(want, s->queued());
    auto* out = static_cast<uint8_t*>(buffer);
    std::memcpy(out, s->fifo.data() + s->head, have * s->frameBytes);
    // A decoder that ends short of the counted length is made up with silence.
    std::memset(out + have * s->frameBytes, 0, (want - have) * s->frameBytes);
    dropQueued(s, have);
    s->next += want - have;
    return static_cast<uint32_t>(want * s->frameBytes);
}

bool ffSeek(FfSource* s, uint64_t pos) {
    const uint64_t target = pos / s->frameBytes;
    if (target > s->length) return false;
    const uint64_t through = uint64_t(kDecodeThroughSeconds) * s->info.rate;
    if (target >= s->next && target <= s->next + s->queued() + through) {
        skipTo(s, target);
        return true;
    }
    if (timestampSeek(s, target)) return true;
    std::string error;
    if (!reopen(s, &error)) return false;
    skipTo(s, target);
    return true;
}

bool ffSeekExact(const FfSource* s) {
    return s->timestamps && s->input->isLossless();
}

void ffClose(FfSource* s) {
    delete s;
}
