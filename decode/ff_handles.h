// Owning handles for the FFmpeg objects the decoder uses.
#pragma once
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}
#include <memory>

struct FormatCloser {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecFreer {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct PacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameFreer {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};

using FormatPtr = std::unique_ptr<AVFormatContext, FormatCloser>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
