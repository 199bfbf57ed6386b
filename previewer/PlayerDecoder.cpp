#include "previewer/PlayerDecoder.h"

#include <QFile>

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace
{

// Pictures wider or taller than this are scaled down when converted: a preview window never needs
// more, and it keeps each queued picture under 8 MB.
constexpr int kMaxWidth = 1920;
constexpr int kMaxHeight = 1080;

// The picture queue: the decoder rests once kVideoSoft pictures wait and the sound queue is full
// too; it never holds more than kVideoHard pictures or kVideoBytes bytes.
constexpr size_t kVideoSoft = 8;
constexpr size_t kVideoHard = 32;
constexpr qint64 kVideoBytes = 64 * 1024 * 1024;
// The sound queue, in seconds of output.
constexpr double kAudioSoft = 1.0;
constexpr double kAudioHard = 4.0;

QString AvError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

double Seconds(int64_t ts, AVRational base)
{
    return ts == AV_NOPTS_VALUE ? -1.0 : double(ts) * av_q2d(base);
}

AVCodecContext *OpenDecoder(const AVStream *stream, QString *reason)
{
    const AVCodec *codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!codec) {
        *reason = QString("No decoder for %1").arg(avcodec_get_name(stream->codecpar->codec_id));
        return nullptr;
    }
    AVCodecContext *context = avcodec_alloc_context3(codec);
    if (!context) {
        *reason = AvError(AVERROR(ENOMEM));
        return nullptr;
    }
    int ret = avcodec_parameters_to_context(context, stream->codecpar);
    context->pkt_timebase = stream->time_base;
    context->thread_count = 0;
    if (ret >= 0)
        ret = avcodec_open2(context, codec, nullptr);
    if (ret < 0) {
        *reason = AvError(ret);
        avcodec_free_context(&context);
        return nullptr;
    }
    return context;
}

} // namespace

struct PlayerDecoder::Media {
    AVFormatContext *format = nullptr;
    AVCodecContext *video = nullptr;
    AVCodecContext *audio = nullptr;
    int videoStream = -1;
    int audioStream = -1;
    SwsContext *sws = nullptr;
    SwrContext *swr = nullptr;
    AVFrame *frame = nullptr;
    AVPacket *packet = nullptr;
    double start = 0.0;      // the file's start time: positions count from there
    double skipUntil = -1.0; // after a seek, what ends before this is not queued
    double nextVideoPts = 0.0;
    double nextAudioPts = 0.0;

    ~Media()
    {
        sws_freeContext(sws);
        swr_free(&swr);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&video);
        avcodec_free_context(&audio);
        avformat_close_input(&format);
    }
};

PlayerDecoder::PlayerDecoder(QString path, int audioRate, int audioChannels, QObject *parent)
    : QObject(parent), m_path(std::move(path)), m_audioRate(audioRate),
      m_audioChannels(audioChannels > 0 ? audioChannels : 2), m_media(std::make_unique<Media>())
{
}

PlayerDecoder::~PlayerDecoder()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void PlayerDecoder::Start()
{
    if (!m_thread.joinable())
        m_thread = std::thread([this] { Run(); });
}

void PlayerDecoder::Seek(double seconds)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_seekPending = true;
        m_seekTarget = std::max(0.0, seconds);
        m_video.clear();
        m_audio.clear();
        m_audioBytes = 0;
        m_endOfFile = false;
    }
    m_wake.notify_all();
}

void PlayerDecoder::DisableAudio()
{
    m_audioOn = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_audio.clear();
        m_audioBytes = 0;
    }
    m_wake.notify_all();
}

bool PlayerDecoder::PeekVideo(double *pts) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_video.empty())
        return false;
    *pts = m_video.front().pts;
    return true;
}

bool PlayerDecoder::TakeVideo(VideoFrame *frame)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_video.empty())
            return false;
        *frame = std::move(m_video.front());
        m_video.pop_front();
    }
    m_wake.notify_all();
    return true;
}

int PlayerDecoder::QueuedVideoFrames() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_video.size());
}

qint64 PlayerDecoder::ReadAudio(char *data, qint64 maxSize, double *pts, double notBefore)
{
    const qint64 frameBytes = qint64(m_audioChannels) * 2;
    const double bytesPerSecond = double(m_audioRate) * double(frameBytes);
    qint64 copied = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        while (!m_audio.empty()) {
            AudioBlock &block = m_audio.front();
            const qint64 left = block.bytes.size() - block.offset;
            if (block.pts + double(block.bytes.size()) / bytesPerSecond < notBefore) {
                m_audioBytes -= left;
                m_audio.pop_front();
                continue;
            }
            copied = std::min(maxSize, left) / frameBytes * frameBytes;
            if (copied <= 0)
                break;
            std::memcpy(data, block.bytes.constData() + block.offset, size_t(copied));
            *pts = block.pts + double(block.offset) / bytesPerSecond;
            block.offset += copied;
            m_audioBytes -= copied;
            if (block.offset >= block.bytes.size())
                m_audio.pop_front();
            break;
        }
    }
    m_wake.notify_all();
    return copied;
}

bool PlayerDecoder::PeekAudio(double *pts) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_audio.empty())
        return false;
    const AudioBlock &block = m_audio.front();
    *pts = block.pts + double(block.offset) / (double(m_audioRate) * m_audioChannels * 2);
    return true;
}

qint64 PlayerDecoder::QueuedAudioBytes() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_audioBytes;
}

bool PlayerDecoder::Drained() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_endOfFile && !m_seekPending && m_video.empty() && m_audio.empty();
}

int PlayerDecoder::Interrupt(void *opaque)
{
    return static_cast<PlayerDecoder *>(opaque)->m_stop ? 1 : 0;
}

void PlayerDecoder::Run()
{
    QString reason;
    if (!OpenMedia(&reason)) {
        if (!m_stop)
            Q_EMIT Failed(reason);
        return;
    }
    Loop();
}

bool PlayerDecoder::OpenMedia(QString *reason)
{
    Media &m = *m_media;
    if (m_path.isEmpty()) {
        *reason = "No file was given.";
        return false;
    }
    m.format = avformat_alloc_context();
    m.frame = av_frame_alloc();
    m.packet = av_packet_alloc();
    if (!m.format || !m.frame || !m.packet) {
        *reason = AvError(AVERROR(ENOMEM));
        return false;
    }
    // Lets the destructor break into a read that is waiting on a slow disk.
    m.format->interrupt_callback.callback = &PlayerDecoder::Interrupt;
    m.format->interrupt_callback.opaque = this;
    // avformat_open_input frees the context when it fails.
    int ret = avformat_open_input(&m.format, QFile::encodeName(m_path).constData(), nullptr, nullptr);
    if (ret >= 0)
        ret = avformat_find_stream_info(m.format, nullptr);
    if (ret < 0) {
        *reason = AvError(ret);
        return false;
    }

    QString codecReason;
    const int video = av_find_best_stream(m.format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (video >= 0 && !(m.format->streams[video]->disposition & AV_DISPOSITION_ATTACHED_PIC)) {
        m.video = OpenDecoder(m.format->streams[video], &codecReason);
        if (m.video)
            m.videoStream = video;
    }
    const int audio = av_find_best_stream(m.format, AVMEDIA_TYPE_AUDIO, -1, video, nullptr, 0);
    if (audio >= 0 && m_audioRate > 0) {
        m.audio = OpenDecoder(m.format->streams[audio], &codecReason);
        if (m.audio)
            m.audioStream = audio;
    }
    // Without a sound output a file of sound only still "plays", silently, on the clock.
    if (!m.video && !m.audio && (audio < 0 || m_audioRate > 0)) {
        *reason = codecReason.isEmpty() ? QString("The file holds no picture or sound.") : codecReason;
        return false;
    }

    m.start = m.format->start_time != AV_NOPTS_VALUE ? double(m.format->start_time) / AV_TIME_BASE : 0.0;
    double duration = m.format->duration != AV_NOPTS_VALUE ? double(m.format->duration) / AV_TIME_BASE : 0.0;
    for (unsigned i = 0; duration <= 0.0 && i < m.format->nb_streams; ++i)
        duration =
            std::max(duration, Seconds(m.format->streams[i]->duration, m.format->streams[i]->time_base));
    for (unsigned i = 0; i < m.format->nb_streams; ++i)
        if (int(i) != m.videoStream && int(i) != m.audioStream)
            m.format->streams[i]->discard = AVDISCARD_ALL;

    m_audioOn = m.audio != nullptr;
    Q_EMIT Opened(std::max(0.0, duration), m.video != nullptr, m_audioOn);
    return true;
}

bool PlayerDecoder::Full() const
{
    const double bytesPerSecond = double(m_audioRate) * m_audioChannels * 2;
    const double audioSeconds = bytesPerSecond > 0 ? double(m_audioBytes) / bytesPerSecond : 0.0;
    qint64 videoBytes = 0;
    for (const VideoFrame &f : m_video)
        videoBytes += f.image.sizeInBytes();
    if (m_video.size() >= kVideoHard || videoBytes >= kVideoBytes || audioSeconds >= kAudioHard)
        return true;
    // Each queue is read ahead to its soft mark, so that sound keeps a lead of about a second over
    // the device's buffer; a file whose sound and pictures lie far apart stops at a hard mark.
    const bool videoFull = !m_media->video || m_video.size() >= kVideoSoft;
    const bool audioFull = !m_audioOn || audioSeconds >= kAudioSoft;
    return videoFull && audioFull;
}

void PlayerDecoder::Loop()
{
    Media &m = *m_media;
    for (;;) {
        bool seek = false;
        double target = 0.0;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stop || m_seekPending || (!m_endOfFile && !Full()); });
            if (m_stop)
                return;
            if (m_seekPending) {
                seek = true;
                target = m_seekTarget;
                m_seekPending = false;
            }
        }
        if (seek) {
            DoSeek(target);
            continue;
        }
        const int ret = av_read_frame(m.format, m.packet);
        if (ret == AVERROR(EAGAIN))
            continue;
        if (ret < 0) {
            // End of file, or a read error in a damaged file: either way play out what the
            // decoders still hold.
            Decode(m.videoStream, nullptr);
            Decode(m.audioStream, nullptr);
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (!m_seekPending)
                    m_endOfFile = true;
            }
            Q_EMIT FrameQueued();
            continue;
        }
        Decode(m.packet->stream_index, m.packet);
        av_packet_unref(m.packet);
    }
}

void PlayerDecoder::DoSeek(double seconds)
{
    Media &m = *m_media;
    int64_t ts = int64_t(seconds * AV_TIME_BASE);
    if (m.format->start_time != AV_NOPTS_VALUE)
        ts += m.format->start_time;
    if (avformat_seek_file(m.format, -1, INT64_MIN, ts, ts, 0) < 0)
        av_seek_frame(m.format, -1, ts, AVSEEK_FLAG_BACKWARD);
    if (m.video)
        avcodec_flush_buffers(m.video);
    if (m.audio)
        avcodec_flush_buffers(m.audio);
    swr_free(&m.swr);
    m.skipUntil = seconds;
    m.nextVideoPts = seconds;
    m.nextAudioPts = seconds;
}

void PlayerDecoder::Decode(int stream, const AVPacket *packet)
{
    Media &m = *m_media;
    AVCodecContext *context = nullptr;
    if (stream >= 0 && stream == m.videoStream)
        context = m.video;
    else if (stream >= 0 && stream == m.audioStream && m_audioOn)
        context = m.audio;
    if (!context)
        return;
    // A packet the decoder refuses is skipped: damaged files are what this program is about.
    if (avcodec_send_packet(context, packet) < 0 && packet)
        return;
    while (!m_stop && avcodec_receive_frame(context, m.frame) >= 0) {
        if (context == m.video)
            QueueVideo(m.frame);
        else
            QueueAudio(m.frame);
        av_frame_unref(m.frame);
    }
}

void PlayerDecoder::QueueVideo(AVFrame *frame)
{
    Media &m = *m_media;
    AVStream *stream = m.format->streams[m.videoStream];
    const AVRational rate = av_guess_frame_rate(m.format, stream, frame);
    const double step = rate.num > 0 && rate.den > 0 ? av_q2d(av_inv_q(rate)) : 0.04;
    double pts = Seconds(frame->best_effort_timestamp, stream->time_base);
    pts = pts >= 0.0 ? pts - m.start : m.nextVideoPts;
    m.nextVideoPts = pts + step;
    if (pts + step <= m.skipUntil || frame->width <= 0 || frame->height <= 0)
        return;

    const double fit = std::min({1.0, double(kMaxWidth) / frame->width, double(kMaxHeight) / frame->height});
    const int width = std::max(2, int(frame->width * fit) & ~1);
    const int height = std::max(2, int(frame->height * fit) & ~1);
    m.sws = sws_getCachedContext(m.sws, frame->width, frame->height, AVPixelFormat(frame->format), width,
                                 height, AV_PIX_FMT_RGB32, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!m.sws)
        return;
    VideoFrame out;
    out.image = QImage(width, height, QImage::Format_RGB32);
    if (out.image.isNull())
        return;
    uint8_t *planes[4] = {out.image.bits(), nullptr, nullptr, nullptr};
    const int strides[4] = {int(out.image.bytesPerLine()), 0, 0, 0};
    sws_scale(m.sws, frame->data, frame->linesize, 0, frame->height, planes, strides);
    out.pts = pts;
    AVRational sar = av_guess_sample_aspect_ratio(m.format, stream, frame);
    const double pixel = sar.num > 0 && sar.den > 0 ? av_q2d(sar) : 1.0;
    out.aspect = double(frame->width) * pixel / double(frame->height);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_seekPending || m_stop)
            return;
        m_video.push_back(std::move(out));
    }
    Q_EMIT FrameQueued();
}

void PlayerDecoder::QueueAudio(AVFrame *frame)
{
    Media &m = *m_media;
    AVStream *stream = m.format->streams[m.audioStream];
    if (frame->sample_rate <= 0 || frame->nb_samples <= 0)
        return;
    const double length = double(frame->nb_samples) / frame->sample_rate;
    double pts = Seconds(frame->best_effort_timestamp, stream->time_base);
    pts = pts >= 0.0 ? pts - m.start : m.nextAudioPts;
    m.nextAudioPts = pts + length;
    if (pts + length <= m.skipUntil)
        return;

    if (!m.swr) {
        AVChannelLayout out;
        AVChannelLayout in;
        av_channel_layout_default(&out, m_audioChannels);
        if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC ||
            av_channel_layout_copy(&in, &frame->ch_layout) < 0)
            av_channel_layout_default(&in, std::max(1, frame->ch_layout.nb_channels));
        int ret = swr_alloc_set_opts2(&m.swr, &out, AV_SAMPLE_FMT_S16, m_audioRate, &in,
                                      AVSampleFormat(frame->format), frame->sample_rate, 0, nullptr);
        if (ret >= 0)
            ret = swr_init(m.swr);
        av_channel_layout_uninit(&out);
        av_channel_layout_uninit(&in);
        if (ret < 0) {
            swr_free(&m.swr);
            return;
        }
    }
    const int room = swr_get_out_samples(m.swr, frame->nb_samples);
    if (room <= 0)
        return;
    AudioBlock block;
    block.bytes.resize(room * m_audioChannels * 2);
    uint8_t *out = reinterpret_cast<uint8_t *>(block.bytes.data());
    const int got =
        swr_convert(m.swr, &out, room, const_cast<const uint8_t **>(frame->extended_data), frame->nb_samples);
    if (got <= 0)
        return;
    block.bytes.resize(got * m_audioChannels * 2);
    block.pts = pts;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_seekPending || m_stop || !m_audioOn)
            return;
        m_audioBytes += block.bytes.size();
        m_audio.push_back(std::move(block));
    }
}
