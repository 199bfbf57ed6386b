#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <memory>

// Owners of the FFmpeg objects a routine opens and must give back on every way out.
struct FormatCloser
{
    void operator()(AVFormatContext *f) const { avformat_close_input(&f); }
};
struct CodecFreer
{
    void operator()(AVCodecContext *c) const { avcodec_free_context(&c); }
};
struct PacketFreer
{
    void operator()(AVPacket *p) const { av_packet_free(&p); }
};
struct FrameFreer
{
    void operator()(AVFrame *f) const { av_frame_free(&f); }
};

using FormatPtr = std::unique_ptr<AVFormatContext, FormatCloser>; // an opened input
using CodecPtr = std::unique_ptr<AVCodecContext, CodecFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
