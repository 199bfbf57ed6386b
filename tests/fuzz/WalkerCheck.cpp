#include "WalkerCheck.h"
#include "StructuralCheck.h"

#include "rebuild/ByteSource.h"
#include "rebuild/SampleWalker.h"
#include "rebuild/TrackDescription.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstring>

namespace {

TrackDescription Track(AVMediaType type, AVCodecID codec, const QByteArray &extradata)
{
    TrackDescription t;
    t.type = type;
    AVCodecParameters *p = avcodec_parameters_alloc();
    p->codec_type = type;
    p->codec_id = codec;
    p->extradata = static_cast<uint8_t *>(av_mallocz(size_t(extradata.size()) + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(p->extradata, extradata.constData(), size_t(extradata.size()));
    p->extradata_size = extradata.size();
    if (type == AVMEDIA_TYPE_AUDIO) {
        p->sample_rate = 44100;
        av_channel_layout_default(&p->ch_layout, 2);
        p->frame_size = 1024;
    }
    t.params.reset(p, [](AVCodecParameters *q) { avcodec_parameters_free(&q); });
    t.timeBase = type == AVMEDIA_TYPE_AUDIO ? AVRational{1, 44100} : AVRational{1, 12800};
    t.sampleDuration = type == AVMEDIA_TYPE_AUDIO ? 1024 : 512;
    t.nalLengthSize = NalLengthSizeOf(codec, p->extradata, p->extradata_size);
    return t;
}

// An avcC / hvcC record with the given length size and one parameter set of each kind (pps id 0).
QByteArray Record(AVCodecID codec, int lengthSize)
{
    if (codec == AV_CODEC_ID_H264)
        return QByteArray::fromHex("0164001e") + char(0xfc | (lengthSize - 1)) +
               QByteArray::fromHex("e10004676400 1e 01 0002 68ee").replace(' ', "");
    QByteArray r(22, '\0');
    r[0] = 1;
    r[21] = char(0xfc | (lengthSize - 1));
    return r + QByteArray::fromHex("03" "a00001000440010c01" "a100010004420101" "a2000100034401c0");
}

} // namespace

QString CheckSampleWalker(const QByteArray &input)
{
    if (input.isEmpty())
        return {};
    const uint8_t pick = uint8_t(input[0]);
    const AVCodecID video = (pick & 0x20) ? AV_CODEC_ID_MPEG4 : (pick & 1) ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
    const int lengths[] = {4, 2, 1, 4};
    const int lengthSize = lengths[(pick >> 1) & 3];
    Description d;
    if ((pick & 0x18) != 0x18)
        d.tracks.push_back(Track(AVMEDIA_TYPE_VIDEO, video,
                                 video == AV_CODEC_ID_MPEG4 ? QByteArray() : Record(video, lengthSize)));
    if ((pick & 0x10) && (pick & 0x40))
        d.tracks.push_back(Track(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_MP3, QByteArray()));
    else if (pick & 0x10)
        d.tracks.push_back(Track(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC, QByteArray::fromHex("1210")));

    const QByteArray media = input.mid(1);
    MemorySource source(reinterpret_cast<const uint8_t *>(media.constData()), media.size());
    SourceWindow window(source, 1 << 20);
    SampleWalker walker(d, window);
    QString problem;
    int64_t end = 0;
    const qint64 start = ThreadMs();
    walker.Walk(0, media.size(), [&](const WalkedSample &s, const uint8_t *data) {
        if (s.offset < end || s.size <= 0 || s.offset + s.size > media.size())
            problem = QString("a sample at %1 of %2 bytes after %3").arg(s.offset).arg(s.size).arg(end);
        else if (std::memcmp(data, media.constData() + s.offset, size_t(s.size)) != 0)
            problem = QString("the bytes handed out for the sample at %1 are not the data's").arg(s.offset);
        end = s.offset + s.size;
        return problem.isEmpty();
    });
    const qint64 ms = ThreadMs() - start;
    if (problem.isEmpty() && ms > BudgetMs())
        problem = QString("the walk took %1 ms").arg(ms);
    return problem;
}
