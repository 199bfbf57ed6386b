#include "repair/OutputCheck.h"

#include "repair/AvOwners.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <QFile>

#include <algorithm>
#include <memory>
#include <utility>

namespace {

// Decodes what it is given and counts the frames; any error spoils the check.
class Decoder
{
public:
    explicit Decoder(const AVStream *st) : m_frame(av_frame_alloc())
    {
        const AVCodec *codec = avcodec_find_decoder(st->codecpar->codec_id);
        if (!codec || !m_frame)
            return;
        m_ctx.reset(avcodec_alloc_context3(codec));
        if (!m_ctx || avcodec_parameters_to_context(m_ctx.get(), st->codecpar) < 0) {
            m_ctx.reset();
            return;
        }
        m_ctx->thread_count = 0;
        m_ctx->pkt_timebase = st->time_base;
        if (avcodec_open2(m_ctx.get(), codec, nullptr) < 0)
            m_ctx.reset();
    }

    bool Usable() const { return bool(m_ctx); }

    // A null packet drains the decoder, which can then start over.
    void Send(const AVPacket *packet)
    {
        if (avcodec_send_packet(m_ctx.get(), packet) < 0)
            m_errors = true;
        int ret;
        while ((ret = avcodec_receive_frame(m_ctx.get(), m_frame.get())) >= 0) {
            ++m_frames;
            av_frame_unref(m_frame.get());
        }
        if (ret != AVERROR(EAGAIN) && ret != AVERROR_EOF)
            m_errors = true; // the check is over; frames after it do not matter
        if (!packet)
            avcodec_flush_buffers(m_ctx.get());
    }

    // Frames since the last call.
    qint64 TakeFrames() { return std::exchange(m_frames, 0); }
    bool Errors() const { return m_errors; }

private:
    CodecPtr m_ctx;
    FramePtr m_frame;
    qint64 m_frames = 0;
    bool m_errors = false;
};

int64_t Timestamp(const AVPacket *p)
{
    return p->pts != AV_NOPTS_VALUE ? p->pts : p->dts;
}

} // namespace

bool OutputIsWhole(const QString &path, qint64 videoPackets, qint64 audioPackets)
{
    AVFormatContext *fmt = nullptr;
    if (avformat_open_input(&fmt, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return false;
    FormatPtr owner(fmt);
    if (avformat_find_stream_info(fmt, nullptr) < 0)
        return false;

    const int video = av_find_best_stream(fmt, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const int audio = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    const int checked = videoPackets > 0 ? video : audio;
    if (checked < 0)
        return false;
    const AVStream *st = fmt->streams[checked];
    Decoder decoder(st);
    PacketPtr packet(av_packet_alloc());
    if (!decoder.Usable() || !packet)
        return false;
    const int64_t second = av_rescale_q(1, AVRational{1, 1}, st->time_base);

    // Every packet is counted; those of the first second are decoded on the way.
    qint64 counted[2] = {0, 0};
    int64_t first = AV_NOPTS_VALUE, last = AV_NOPTS_VALUE;
    bool inFirstSecond = true;
    while (av_read_frame(fmt, packet.get()) >= 0) {
        const int index = packet->stream_index;
        if (index == video || index == audio)
            ++counted[index == video ? 0 : 1];
        const int64_t ts = Timestamp(packet.get());
        if (index == checked && ts != AV_NOPTS_VALUE) {
            if (first == AV_NOPTS_VALUE)
                first = ts;
            last = std::max(last, ts);
            if (inFirstSecond && ts >= first + second) {
                inFirstSecond = false;
                decoder.Send(nullptr);
            }
            if (inFirstSecond)
                decoder.Send(packet.get());
        }
        av_packet_unref(packet.get());
    }
    if (inFirstSecond)
        decoder.Send(nullptr);
    const qint64 firstFrames = decoder.TakeFrames();
    if (counted[0] != videoPackets || counted[1] != audioPackets || firstFrames == 0 ||
        last == AV_NOPTS_VALUE)
        return false;

    // The last second, from the key frame before it.
    if (av_seek_frame(fmt, checked, last - second, AVSEEK_FLAG_BACKWARD) < 0)
        return false;
    while (av_read_frame(fmt, packet.get()) >= 0) {
        if (packet->stream_index == checked)
            decoder.Send(packet.get());
        av_packet_unref(packet.get());
    }
    decoder.Send(nullptr);
    return decoder.TakeFrames() > 0 && !decoder.Errors();
}
