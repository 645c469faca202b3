#include "decode/ff_input.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

#include "decode/decode.h"
#include "decode/sample_convert.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace {

constexpr int kMaxChannels = 64;
constexpr int kMaxRate = 6144000;
// Consecutive decoder failures after which a stream is treated as ended.
constexpr int kMaxErrorRun = 1000;

void silenceLibraryLog() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_level(AV_LOG_QUIET);
        av_log_set_callback([](void*, int, const char*, va_list) {});
    });
}

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

bool fail(std::string* error, const std::string& text) {
    if (error) *error = text;
    return false;
}

// Where the last WavPack block with samples ends, from its own header (index
// and sample count), or -1. WavPack's seek reads every block up to the target,
// so the end is found by searching back from the end of the file instead:
// first its last 64 KiB, then, for big blocks, its last MiB.
int64_t wavpackEnd(AVIOContext* pb) {
    constexpr int kHeader = 32;
    const int64_t size = avio_size(pb);
    if (size < kHeader) return -1;
    std::vector<uint8_t> tail;
    for (int64_t span : {int64_t{1} << 16, int64_t{1} << 20}) {
        const int64_t from = std::max<int64_t>(0, size - span);
        tail.resize(static_cast<size_t>(size - from));
        if (avio_seek(pb, from, SEEK_SET) != from ||
            avio_read(pb, tail.data(), int(tail.size())) != int(tail.size()))
            return -1;
        for (int64_t at = int64_t(tail.size()) - kHeader; at >= 0; --at) {
            const uint8_t* h = tail.data() + at;
            if (std::memcmp(h, "wvpk", 4) != 0) continue;
            const int64_t blockEnd = from + at + 8 + AV_RL32(h + 4);
            const unsigned version = AV_RL16(h + 8);
            const uint32_t samples = AV_RL32(h + 20);
            // A cut-off block, something that only looks like a header, or
            // a block without audio: keep looking further back.
            if (blockEnd > size || version < 0x402 || version > 0x410 || samples == 0) continue;
            return (int64_t{h[10]} << 32 | int64_t{AV_RL32(h + 16)}) + samples;
        }
        if (from == 0) break;
    }
    return -1;
}

// The exact length an MP3 file's Xing/Info tag states: its frame count less
// the encoder delay and padding of the LAME extension, or -1. Only a tag whose
// byte count spans the whole file between the tags is believed, so a cut or
// grown file is counted instead. startSkip: the delay as the demuxer trims it.
int64_t mp3TaggedLength(AVIOContext* pb, int64_t duration, int64_t startSkip) {
    const int64_t size = avio_size(pb);
    uint8_t h[10];
    int64_t at = 0;
    for (;;) {  // ID3v2 tags, possibly several
        if (avio_seek(pb, at, SEEK_SET) != at || avio_read(pb, h, 10) != 10) return -1;
        if (std::memcmp(h, "ID3", 3) != 0) break;
        at += 10 +
              (int64_t{h[6] & 0x7f} << 21 | (h[7] & 0x7f) << 14 | (h[8] & 0x7f) << 7 |
               (h[9] & 0x7f)) +
              ((h[5] & 0x10) ? 10 : 0);
    }
    uint8_t f[200];
    if (avio_seek(pb, at, SEEK_SET) != at || avio_read(pb, f, sizeof f) != int(sizeof f)) return -1;
    const uint32_t head = AV_RB32(f);
    const int version = head >> 19 & 3, layer = head >> 17 & 3;
    if ((head & 0xffe00000) != 0xffe00000 || version == 1 || layer != 1) return -1;
    const bool mpeg1 = version == 3, mono = (head >> 6 & 3) == 3;
    const int spf = mpeg1 ? 1152 : 576;
    const uint8_t* x = f + 4 + (mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17));
    if (std::memcmp(x, "Xing", 4) != 0 && std::memcmp(x, "Info", 4) != 0) return -1;
    const uint32_t flags = AV_RB32(x + 4);
    // Frames, bytes, table of contents and quality, then the LAME extension.
    if ((flags & 0xf) != 0xf || x - f + 144 > int(sizeof f)) return -1;
    const int64_t frames = AV_RB32(x + 8), bytes = AV_RB32(x + 12);
    const uint32_t gap = AV_RB24(x + 120 + 21);
    const int64_t delay = gap >> 12, padding = gap & 0xfff;
    // Tags after the audio: ID3v1, and an APEv2 footer before or without it.
    int64_t end = size;
    if (avio_seek(pb, end - 128, SEEK_SET) == end - 128 && avio_read(pb, h, 3) == 3 &&
        std::memcmp(h, "TAG", 3) == 0)
        end -= 128;
    uint8_t ape[32];
    if (avio_seek(pb, end - 32, SEEK_SET) == end - 32 && avio_read(pb, ape, 32) == 32 &&
        std::memcmp(ape, "APETAGEX", 8) == 0)
        end -= AV_RL32(ape + 12) + ((AV_RL32(ape + 20) & 0x80000000u) ? 32 : 0);
    // The demuxer trims the delay plus 529 decoder samples at the start and
    // the padding less those 529 at the end; a padding shorter than that is
    // left to the count.
    if (at + bytes != end || frames * spf != duration || delay + 529 != startSkip || padding < 529)
        return -1;
    return frames * spf - delay - padding;
}

}  // namespace

int FfInput::interrupted(void* self) {
    return std::chrono::steady_clock::now() > static_cast<FfInput*>(self)->deadline_;
}

void FfInput::setDeadline(std::chrono::seconds limit) {
    deadline_ = std::chrono::steady_clock::now() + limit;
}

bool FfInput::open(const char* path, std::string* error) {
    silenceLibraryLog();
    // The library's own open would wait forever on a FIFO.
    if (!decodeRegularFile(path, error)) return false;
    setDeadline(std::chrono::seconds(30));
    AVFormatContext* ctx = avformat_alloc_context();
    if (!ctx) return fail(error, "out of memory");
    ctx->interrupt_callback = {&FfInput::interrupted, this};
    if (int rc = avformat_open_input(&ctx, path, nullptr, nullptr); rc < 0)
        return fail(error, "cannot open file: " + errorText(rc));  // ctx is freed on failure
    format_.reset(ctx);
    // A PCM stream takes every parameter from its header; the stream probe
    // then needs only enough data to spot compressed audio dressed as PCM,
    // not the 5 MB it reads by default (most of a WAV file's open time).
    const AVCodecID first =
        ctx->nb_streams == 1 ? ctx->streams[0]->codecpar->codec_id : AV_CODEC_ID_NONE;
    if (first >= AV_CODEC_ID_PCM_S16LE && first < AV_CODEC_ID_ADPCM_IMA_QT) ctx->probesize = 32768;
    if (avformat_find_stream_info(ctx, nullptr) < 0) return fail(error, "unreadable file");
    const AVCodec* decoder = nullptr;
    int index = av_find_best_stream(ctx, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (index < 0 || !decoder) return fail(error, "no decodable audio stream");
    for (unsigned i = 0; i < ctx->nb_streams; ++i)
        ctx->streams[i]->discard = static_cast<int>(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    stream_ = ctx->streams[index];

    codec_.reset(avcodec_alloc_context3(decoder));
    if (!codec_ || avcodec_parameters_to_context(codec_.get(), stream_->codecpar) < 0)
        return fail(error, "out of memory");
    codec_->pkt_timebase = stream_->time_base;
    if (int rc = avcodec_open2(codec_.get(), decoder, nullptr); rc < 0)
        return fail(error, "cannot open decoder: " + errorText(rc));
    if (channels() < 1 || channels() > kMaxChannels) return fail(error, "bad channel count");
    if (rate() < 1 || rate() > kMaxRate) return fail(error, "bad sample rate");
    packet_.reset(av_packet_alloc());
    frame_.reset(av_frame_alloc());
    if (!packet_ || !frame_) return fail(error, "out of memory");
    return true;
}

bool FfInput::readPacket() {
    for (int again = 0; again < kMaxErrorRun;) {
        int rc = av_read_frame(format_.get(), packet_.get());
        if (rc == AVERROR(EAGAIN)) {
            ++again;
            continue;
        }
        if (rc < 0) return false;
        if (packet_->stream_index == stream_->index) return true;
        av_packet_unref(packet_.get());
    }
    return false;
}

bool FfInput::nextFrame() {
    int errorRun = 0;
    while (errorRun < kMaxErrorRun) {
        int rc = avcodec_receive_frame(codec_.get(), frame_.get());
        if (rc >= 0) {
            if (frame_->nb_samples > 0) return true;
            continue;
        }
        if (rc == AVERROR_EOF) return false;
        if (rc != AVERROR(EAGAIN)) {
            ++errorRun;  // a damaged frame: skip it
            continue;
        }
        if (flushed_) return false;
        if (!readPacket()) {
            flushed_ = true;
            avcodec_send_packet(codec_.get(), nullptr);
            continue;
        }
        rc = avcodec_send_packet(codec_.get(), packet_.get());
        av_packet_unref(packet_.get());
        errorRun = rc < 0 ? errorRun + 1 : 0;
    }
    return false;
}

int64_t FfInput::frameStart() const {
    int64_t pts = frame_->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE) return AV_NOPTS_VALUE;
    return av_rescale_q(pts, stream_->time_base, AVRational{1, rate()});
}

bool FfInput::countFrames(uint64_t* frames) {
    int64_t duration = 0;  // in stream time base
    int64_t skipped = 0;   // in samples
    int unknown = 0;
    while (readPacket()) {
        if (packet_->duration > 0)
            duration += packet_->duration;
        else
            ++unknown;
        size_t size = 0;
        const uint8_t* side =
            av_packet_get_side_data(packet_.get(), AV_PKT_DATA_SKIP_SAMPLES, &size);
        if (side && size >= 8) skipped += int64_t{AV_RL32(side)} + AV_RL32(side + 4);
        av_packet_unref(packet_.get());
    }
    // One packet without a duration (a last partial one) is tolerable; more are not.
    if (unknown > 1) return false;
    int64_t total = av_rescale_q(duration, stream_->time_base, AVRational{1, rate()}) - skipped;
    *frames = total > 0 ? static_cast<uint64_t>(total) : 0;
    return true;
}

bool FfInput::pcmFrames(uint64_t* frames) const {
    const AVCodecParameters* par = stream_->codecpar;
    bool pcm = par->codec_id >= AV_CODEC_ID_FIRST_AUDIO && par->codec_id < AV_CODEC_ID_ADPCM_IMA_QT;
    if (!pcm || stream_->duration <= 0 || par->block_align <= 0) return false;
    int64_t stated = av_rescale_q(stream_->duration, stream_->time_base, AVRational{1, rate()});
    int64_t size = avio_size(format_->pb);
    if (size >= 0) stated = std::min(stated, size / par->block_align);
    *frames = stated > 0 ? static_cast<uint64_t>(stated) : 0;
    return true;
}

bool FfInput::statedFrames(uint64_t* frames) const {
    const char* name = format_->iformat->name;
    const bool ogg = std::strcmp(name, "ogg") == 0;
    if ((!ogg && !std::strstr(name, "mp4")) || stream_->duration <= 0) return false;
    int64_t stated = av_rescale_q(stream_->duration, stream_->time_base, AVRational{1, rate()});
    // Ogg's duration still counts the pre-skip that the decoder drops.
    if (ogg) stated -= std::max(0, stream_->codecpar->initial_padding);
    *frames = stated > 0 ? static_cast<uint64_t>(stated) : 0;
    return true;
}

bool FfInput::headerFrames(uint64_t* frames) {
    const char* name = format_->iformat->name;
    if (stream_->duration <= 0 || format_->duration_estimation_method != AVFMT_DURATION_FROM_STREAM)
        return false;
    if (std::strcmp(name, "mp3") == 0 && codec_->codec_id == AV_CODEC_ID_MP3) {
        const AVRational perSample{1, rate()};
        const int64_t start =
            stream_->start_time == AV_NOPTS_VALUE
                ? 0
                : av_rescale_q(stream_->start_time, stream_->time_base, perSample);
        const int64_t length = mp3TaggedLength(
            format_->pb, av_rescale_q(stream_->duration, stream_->time_base, perSample), start);
        if (length <= 0) return false;
        *frames = static_cast<uint64_t>(length);
        return true;
    }
    const bool stated = std::strcmp(name, "flac") == 0 || std::strcmp(name, "wv") == 0 ||
                        std::strcmp(name, "ape") == 0;
    if (!stated || !isLossless() ||
        (stream_->start_time != AV_NOPTS_VALUE && stream_->start_time != 0))
        return false;
    const int64_t total =
        av_rescale_q(stream_->duration, stream_->time_base, AVRational{1, rate()});
    if (total <= 0) return false;
    // A header can be stale (a cut or grown file): the end must agree.
    int64_t end = -1;
    if (std::strcmp(name, "wv") == 0) {
        end = wavpackEnd(format_->pb);
    } else if (seekBefore(total - 1) && nextFrame()) {
        // Decoding the last frame or two costs little next to counting the file.
        const int64_t start = frameStart();
        if (start == AV_NOPTS_VALUE || start < 0 || start >= total) return false;
        const int64_t limit = int64_t{rate()} * 30;  // a seek that went far back proves nothing
        end = start + frame_->nb_samples;
        while (end - start <= limit && nextFrame()) end += frame_->nb_samples;
    }
    if (end != total) return false;
    *frames = static_cast<uint64_t>(total);
    return true;
}

bool FfInput::seekBefore(int64_t sample) {
    int64_t ts = av_rescale_q(sample, AVRational{1, rate()}, stream_->time_base);
    if (av_seek_frame(format_.get(), stream_->index, ts, AVSEEK_FLAG_BACKWARD) < 0) return false;
    avcodec_flush_buffers(codec_.get());
    flushed_ = false;
    return true;
}

bool FfInput::isLossless() const {
    const AVCodecDescriptor* desc = avcodec_descriptor_get(codec_->codec_id);
    return desc && (desc->props & AV_CODEC_PROP_LOSSLESS) && isIntegerSampleFormat(sampleFormat());
}

int FfInput::sourceBits() const {
    if (!isLossless()) return 0;
    const int width = av_get_bytes_per_sample(sampleFormat()) * 8;
    for (int bits : {codec_->bits_per_raw_sample, stream_->codecpar->bits_per_raw_sample,
                     codec_->bits_per_coded_sample}) {
        if (bits > 0 && bits <= width) return bits;
    }
    return width;
}

bool FfInput::exactTimestamps() const {
    return !(std::strcmp(format_->iformat->name, "ogg") == 0 &&
             codec_->codec_id == AV_CODEC_ID_FLAC);
}

int FfInput::seekPreroll() const {
    if (isLossless()) return 0;
    // Lossy decoders carry state from frame to frame (overlap, bit reservoir).
    int frame = codec_->frame_size > 0 ? codec_->frame_size : 2048;
    return stream_->codecpar->seek_preroll + 4 * frame;
}
