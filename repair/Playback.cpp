#include "repair/Playback.h"

#include "repair/AvOwners.h"
#include "repair/ReadPacket.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <QFile>

#include <algorithm>
#include <memory>

namespace {

// Sound differences below this are noise between two muxings of the same samples.
constexpr double AudioTolerance = 0.05;
// A decoder that reports this many failed frames in a row has nothing more to give for now.
constexpr int MaxErrorsInARow = 64;

// The first stream of a kind, as "-map 0:v:0" picks it; cover pictures are not video.
int FirstStream(const AVFormatContext *fmt, AVMediaType type)
{
    for (unsigned i = 0; i < fmt->nb_streams; ++i) {
        const AVStream *st = fmt->streams[i];
        if (st->codecpar->codec_type != type)
            continue;
        if (type == AVMEDIA_TYPE_VIDEO && (st->disposition & AV_DISPOSITION_ATTACHED_PIC))
            continue;
        return int(i);
    }
    return -1;
}

CodecPtr OpenDecoder(const AVStream *st)
{
    const AVCodec *codec = avcodec_find_decoder(st->codecpar->codec_id);
    if (!codec)
        return nullptr;
    CodecPtr ctx(avcodec_alloc_context3(codec));
    if (!ctx || avcodec_parameters_to_context(ctx.get(), st->codecpar) < 0)
        return nullptr;
    ctx->thread_count = 0;
    ctx->pkt_timebase = st->time_base;
    if (avcodec_open2(ctx.get(), codec, nullptr) < 0)
        return nullptr;
    return ctx;
}

class Counter
{
public:
    Counter(const QString &path, bool firstOnly, const std::atomic<bool> *stop)
        : m_firstOnly(firstOnly), m_stop(stop)
    {
        AVFormatContext *fmt = nullptr;
        if (avformat_open_input(&fmt, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
            return;
        m_fmt.reset(fmt);
        if (avformat_find_stream_info(fmt, nullptr) < 0)
            return;
        m_result.opens = true;
        m_video = FirstStream(fmt, AVMEDIA_TYPE_VIDEO);
        m_audio = FirstStream(fmt, AVMEDIA_TYPE_AUDIO);
        m_result.hasVideo = m_video >= 0;
        m_result.hasAudio = m_audio >= 0;
        for (unsigned i = 0; i < fmt->nb_streams; ++i)
            if (int(i) != m_video && int(i) != m_audio)
                fmt->streams[i]->discard = AVDISCARD_ALL;
        if (m_video >= 0)
            m_videoDec = OpenDecoder(fmt->streams[m_video]);
        if (m_audio >= 0)
            m_audioDec = OpenDecoder(fmt->streams[m_audio]);
        if (fmt->start_time != AV_NOPTS_VALUE)
            m_start = double(fmt->start_time) / AV_TIME_BASE;
    }

    Playback Run()
    {
        if (!m_result.opens || (!m_videoDec && !m_audioDec))
            return m_result;
        AVPacket *packet = av_packet_alloc();
        m_frame = av_frame_alloc();
        if (packet && m_frame) {
            // A read error ends the input as the end of the file does, as it does for ffmpeg.
            const int audio = m_audioDec ? m_audio : -1, video = m_videoDec ? m_video : -1;
            while (!Done() && ReadPacket(m_fmt.get(), packet, audio, video) >= 0) {
                if (packet->stream_index == m_video && m_videoDec)
                    Decode(m_videoDec.get(), packet, true);
                else if (packet->stream_index == m_audio && m_audioDec)
                    Decode(m_audioDec.get(), packet, false);
                av_packet_unref(packet);
            }
            if (!Done()) {
                if (m_videoDec)
                    Decode(m_videoDec.get(), nullptr, true);
                if (m_audioDec)
                    Decode(m_audioDec.get(), nullptr, false);
            }
        }
        av_frame_free(&m_frame);
        av_packet_free(&packet);
        return m_result;
    }

private:
    bool Done() const
    {
        if (m_stop && *m_stop)
            return true;
        return m_firstOnly && m_result.Plays();
    }

    // A packet the decoder refuses is dropped, as ffmpeg drops it; the count goes on. A frame that
    // fails does not end the frames behind it (frame threads report a damaged picture while later
    // ones wait), so they are asked for until the decoder has none.
    void Decode(AVCodecContext *dec, const AVPacket *packet, bool video)
    {
        if (avcodec_send_packet(dec, packet) < 0 && packet)
            return;
        for (int errors = 0; errors <= MaxErrorsInARow;) {
            const int ret = avcodec_receive_frame(dec, m_frame);
            if (ret == AVERROR(EAGAIN) || ret == AVERROR_EOF)
                break;
            if (ret < 0) {
                ++errors;
                continue;
            }
            errors = 0;
            if (video) {
                ++m_result.videoFrames;
                if (m_frame->decode_error_flags || (m_frame->flags & AV_FRAME_FLAG_CORRUPT))
                    ++m_result.damagedFrames;
            }
            else if (m_frame->sample_rate > 0)
                NoteSound();
            av_frame_unref(m_frame);
        }
    }

    // Sound is measured as ffmpeg's progress reports it: the end of the last decoded frame from the
    // start of the file, so a stretch that failed to decode still counts as time that passed.
    void NoteSound()
    {
        const double length = double(m_frame->nb_samples) / m_frame->sample_rate;
        const int64_t pts = m_frame->best_effort_timestamp;
        const AVStream *st = m_fmt->streams[m_audio];
        if (pts == AV_NOPTS_VALUE) {
            m_soundEnd += length;
        } else {
            const double at = double(pts) * av_q2d(st->time_base) - m_start;
            m_soundEnd = std::max(m_soundEnd, at + length);
        }
        m_result.audioSeconds = std::max(m_result.audioSeconds, m_soundEnd);
    }

    bool m_firstOnly;
    double m_start = 0;    // the file's first time stamp, in seconds
    double m_soundEnd = 0;
    const std::atomic<bool> *m_stop;
    FormatPtr m_fmt;
    CodecPtr m_videoDec;
    CodecPtr m_audioDec;
    int m_video = -1;
    int m_audio = -1;
    AVFrame *m_frame = nullptr;
    Playback m_result;
};

} // namespace

bool Playback::Plays() const
{
    if (hasVideo)
        return videoFrames > 0;
    return audioSeconds >= 1.0 - AudioTolerance;
}

bool PlaysMore(const Playback &a, const Playback &b)
{
    if (a.videoFrames != b.videoFrames)
        return a.videoFrames > b.videoFrames;
    return a.audioSeconds > b.audioSeconds + AudioTolerance;
}

Playback MeasurePlayback(const QString &path, const std::atomic<bool> *stop)
{
    return Counter(path, false, stop).Run();
}

Playback MeasureFirstPlay(const QString &path, const std::atomic<bool> *stop)
{
    return Counter(path, true, stop).Run();
}
