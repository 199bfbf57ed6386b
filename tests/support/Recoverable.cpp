#include "Recoverable.h"

#include "rebuild/ByteSource.h"
#include "rebuild/MediaData.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <QFile>

namespace Recoverable {

namespace {

bool Survives(const Ranges &ranges, qint64 begin, qint64 end)
{
    for (const auto &r : ranges)
        if (begin >= r.first && end <= r.second)
            return true;
    return false;
}

} // namespace

Target Of(const QString &original, const Ranges &surviving)
{
    Target t;
    AVFormatContext *fmt = nullptr;
    if (avformat_open_input(&fmt, QFile::encodeName(original).constData(), nullptr, nullptr) < 0)
        return t;
    if (avformat_find_stream_info(fmt, nullptr) >= 0) {
        const int video = av_find_best_stream(fmt, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        const int audio = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
        AVPacket *p = av_packet_alloc();
        bool keyFrameSurvives = false;
        while (av_read_frame(fmt, p) >= 0) {
            const bool whole = p->pos >= 0 && Survives(surviving, p->pos, p->pos + p->size);
            if (p->stream_index == video) {
                if (p->flags & AV_PKT_FLAG_KEY)
                    keyFrameSurvives = whole;
                t.frames += whole && keyFrameSurvives;
            } else if (p->stream_index == audio && whole) {
                t.audioSeconds += p->duration * av_q2d(fmt->streams[audio]->time_base);
            }
            av_packet_unref(p);
        }
        av_packet_free(&p);
    }
    avformat_close_input(&fmt);
    return t;
}

QPair<qint64, qint64> MediaData(const QString &original)
{
    FileSource source(QFile::encodeName(original));
    const MediaLayout layout = FindMediaData(source);
    return {layout.mediaBegin, layout.mediaEnd};
}

} // namespace Recoverable
