#include "rebuild/TrackDescription.h"

#include "repair/AvOwners.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <map>

namespace {

// Enough of a recording to learn its sample sizes and lengths.
constexpr int PacketsToLearn = 3000;

std::shared_ptr<AVCodecParameters> CopyParams(const AVCodecParameters *from)
{
    AVCodecParameters *p = avcodec_parameters_alloc();
    if (!p || avcodec_parameters_copy(p, from) < 0) {
        avcodec_parameters_free(&p);
        return nullptr;
    }
    return std::shared_ptr<AVCodecParameters>(p, [](AVCodecParameters *q) { avcodec_parameters_free(&q); });
}

int64_t MostCommon(const std::map<int64_t, int> &counts)
{
    int64_t best = 0;
    int seen = 0;
    for (const auto &[value, n] : counts)
        if (value > 0 && n > seen) {
            best = value;
            seen = n;
        }
    return best;
}

} // namespace

AVCodecID TrackDescription::Codec() const
{
    return params ? params->codec_id : AV_CODEC_ID_NONE;
}

int64_t TrackDescription::SampleLimit() const
{
    // A recording's largest picture varies with what it films: allow well beyond what was seen.
    constexpr int64_t Ceiling = 16 << 20;
    if (largestSample <= 0)
        return IsVideo() ? Ceiling : 8192;
    return std::min(Ceiling, std::max<int64_t>(largestSample * 4, IsVideo() ? 1 << 20 : 8192));
}

const TrackDescription *Description::Video() const
{
    for (const TrackDescription &t : tracks)
        if (t.IsVideo())
            return &t;
    return nullptr;
}

const TrackDescription *Description::Audio() const
{
    for (const TrackDescription &t : tracks)
        if (t.type == AVMEDIA_TYPE_AUDIO)
            return &t;
    return nullptr;
}

QByteArray Description::Key() const
{
    QCryptographicHash hash(QCryptographicHash::Sha1);
    for (const TrackDescription &t : tracks) {
        const AVCodecParameters *p = t.params.get();
        const int64_t fields[] = {t.type, p->codec_id, p->width, p->height, p->sample_rate, p->ch_layout.nb_channels,
                                  t.timeBase.num, t.timeBase.den, t.sampleDuration, t.nalLengthSize};
        hash.addData(reinterpret_cast<const char *>(fields), sizeof fields);
        hash.addData(reinterpret_cast<const char *>(p->extradata), p->extradata_size);
    }
    return hash.result();
}

bool CanWalk(AVCodecID codec)
{
    return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC || codec == AV_CODEC_ID_MPEG4 ||
           codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_MP3 || codec == AV_CODEC_ID_MP2;
}

int NalLengthSizeOf(AVCodecID codec, const uint8_t *extradata, int size)
{
    if (!extradata || size < 1 || extradata[0] != 1)
        return 0;
    if (codec == AV_CODEC_ID_H264 && size >= 7)
        return (extradata[4] & 3) + 1;
    if (codec == AV_CODEC_ID_HEVC && size >= 23)
        return (extradata[21] & 3) + 1;
    return 0;
}

std::vector<std::vector<uint8_t>> ParameterSetsOf(AVCodecID codec, const uint8_t *extradata, int size)
{
    std::vector<std::vector<uint8_t>> sets;
    if (NalLengthSizeOf(codec, extradata, size) == 0)
        return sets;
    auto take = [&](int &at) {
        if (at + 2 > size)
            return false;
        const int n = (extradata[at] << 8) | extradata[at + 1];
        at += 2;
        if (n == 0 || at + n > size)
            return false;
        sets.emplace_back(extradata + at, extradata + at + n);
        at += n;
        return true;
    };
    if (codec == AV_CODEC_ID_H264) {
        int at = 5;
        const int sps = extradata[at++] & 0x1f;
        for (int i = 0; i < sps; ++i)
            if (!take(at))
                return sets;
        if (at >= size)
            return sets;
        const int pps = extradata[at++];
        for (int i = 0; i < pps; ++i)
            if (!take(at))
                return sets;
    } else {
        int at = 22;
        const int arrays = extradata[at++];
        for (int a = 0; a < arrays && at + 3 <= size; ++a) {
            const int count = (extradata[at + 1] << 8) | extradata[at + 2];
            at += 3;
            for (int i = 0; i < count; ++i)
                if (!take(at))
                    return sets;
        }
    }
    return sets;
}

Description LearnFromReference(const QString &path, QString *why)
{
    Description d;
    d.origin = QFileInfo(path).fileName();
    auto fail = [&](const QString &text) {
        if (why)
            *why = text;
        d.tracks.clear();
        return d;
    };
    AVFormatContext *fmt = nullptr;
    if (avformat_open_input(&fmt, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return fail(QStringLiteral("it cannot be opened"));
    FormatPtr owner(fmt);
    if (avformat_find_stream_info(fmt, nullptr) < 0)
        return fail(QStringLiteral("its streams cannot be read"));

    // Stream index -> track index, -1 for streams that are not learned.
    std::vector<int> track(fmt->nb_streams, -1);
    for (unsigned i = 0; i < fmt->nb_streams; ++i) {
        const AVStream *st = fmt->streams[i];
        const AVCodecParameters *par = st->codecpar;
        const bool wanted = (par->codec_type == AVMEDIA_TYPE_VIDEO && !(st->disposition & AV_DISPOSITION_ATTACHED_PIC)) ||
                            par->codec_type == AVMEDIA_TYPE_AUDIO;
        // One track of each kind: the first, as a player picks it.
        if (!wanted || !CanWalk(par->codec_id) ||
            (par->codec_type == AVMEDIA_TYPE_VIDEO ? d.Video() : d.Audio()) != nullptr)
            continue;
        TrackDescription t;
        t.type = par->codec_type;
        t.params = CopyParams(par);
        t.timeBase = st->time_base;
        t.codecTag = par->codec_tag;
        if (!t.params)
            continue;
        if (t.IsVideo()) {
            t.nalLengthSize = NalLengthSizeOf(par->codec_id, par->extradata, par->extradata_size);
            // Parameter sets in the samples themselves are learned from the damaged file.
            if (t.nalLengthSize == 0 && par->codec_id != AV_CODEC_ID_MPEG4)
                continue;
        } else if (par->sample_rate <= 0 || par->ch_layout.nb_channels <= 0) {
            continue;
        }
        track[i] = int(d.tracks.size());
        d.tracks.push_back(t);
    }
    if (!d.Usable())
        return fail(QStringLiteral("it has no video or audio the rebuild can use"));

    std::vector<std::map<int64_t, int>> durations(d.tracks.size());
    PacketPtr packet(av_packet_alloc());
    for (int n = 0; packet && n < PacketsToLearn && av_read_frame(fmt, packet.get()) >= 0; ++n) {
        const int k = packet->stream_index < int(track.size()) ? track[packet->stream_index] : -1;
        if (k >= 0 && packet->size > 0) {
            TrackDescription &t = d.tracks[k];
            t.largestSample = std::max<int64_t>(t.largestSample, packet->size);
            ++durations[k][packet->duration];
            if (!t.IsVideo() && t.Codec() == AV_CODEC_ID_AAC)
                t.firstBytes.set(packet->data[0]);
        }
        av_packet_unref(packet.get());
    }
    for (size_t k = 0; k < d.tracks.size(); ++k) {
        TrackDescription &t = d.tracks[k];
        t.sampleDuration = MostCommon(durations[k]);
        if (t.sampleDuration > 0)
            continue;
        const AVStream *st = nullptr;
        for (unsigned i = 0; i < fmt->nb_streams; ++i)
            if (track[i] == int(k))
                st = fmt->streams[i];
        if (t.IsVideo() && st->avg_frame_rate.num > 0)
            t.sampleDuration = av_rescale_q(1, av_inv_q(st->avg_frame_rate), t.timeBase);
        else if (!t.IsVideo() && t.params->frame_size > 0)
            t.sampleDuration = av_rescale_q(t.params->frame_size, AVRational{1, t.params->sample_rate}, t.timeBase);
        if (t.sampleDuration <= 0)
            t.sampleDuration = 1;
    }
    return d;
}
