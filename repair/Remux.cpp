#include "repair/Remux.h"

#include "repair/AvOwners.h"
#include "repair/ReadPacket.h"
#include "repair/SafeFile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <QFile>

#include <memory>
#include <vector>

namespace {

struct OutputFreer
{
    void operator()(AVFormatContext *f) const
    {
        CloseSafeOutput(f);
        avformat_free_context(f);
    }
};

// The input's tag is kept when the output container knows it for the same codec, as ffmpeg's stream
// copy keeps it; otherwise the muxer picks its own.
unsigned KeptTag(const AVOutputFormat *format, const AVCodecParameters *par)
{
    if (!format->codec_tag)
        return 0;
    if (av_codec_get_id(format->codec_tag, par->codec_tag) == par->codec_id)
        return par->codec_tag;
    return 0;
}

} // namespace

RemuxResult Remux(const QString &input, const QString &output, const std::atomic<bool> *stop)
{
    RemuxResult result;
    AVFormatContext *in = nullptr;
    if (avformat_open_input(&in, QFile::encodeName(input).constData(), nullptr, nullptr) < 0)
        return result;
    FormatPtr inOwner(in);
    if (avformat_find_stream_info(in, nullptr) < 0)
        return result;

    const QByteArray outName = QFile::encodeName(output);
    AVFormatContext *out = nullptr;
    if (avformat_alloc_output_context2(&out, nullptr, nullptr, outName.constData()) < 0 || !out)
        return result;
    std::unique_ptr<AVFormatContext, OutputFreer> outOwner(out);

    // Input stream index -> output stream index, -1 for streams that are not copied.
    std::vector<int> map(in->nb_streams, -1);
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        const AVStream *st = in->streams[i];
        const AVMediaType type = st->codecpar->codec_type;
        if ((type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) ||
            (st->disposition & AV_DISPOSITION_ATTACHED_PIC) || st->codecpar->codec_id == AV_CODEC_ID_NONE ||
            avformat_query_codec(out->oformat, st->codecpar->codec_id, FF_COMPLIANCE_NORMAL) == 0)
            continue;
        AVStream *os = avformat_new_stream(out, nullptr);
        if (!os || avcodec_parameters_copy(os->codecpar, st->codecpar) < 0)
            return result;
        os->codecpar->codec_tag = KeptTag(out->oformat, st->codecpar);
        os->time_base = st->time_base;
        os->sample_aspect_ratio = st->sample_aspect_ratio;
        os->disposition = st->disposition;
        map[i] = os->index;
    }
    if (out->nb_streams == 0 || !OpenSafeOutput(out, outName) || avformat_write_header(out, nullptr) < 0)
        return result;

    // The first copied stream of each kind, for reading on past a cut.
    int audio = -1, video = -1;
    for (unsigned i = 0; i < in->nb_streams; ++i) {
        int &first = in->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO ? audio : video;
        if (map[i] >= 0 && first < 0)
            first = int(i);
    }
    AVPacket *packet = av_packet_alloc();
    bool stopped = false;
    while (packet && ReadPacket(in, packet, audio, video) >= 0) {
        if (stop && *stop) {
            stopped = true;
            av_packet_unref(packet);
            break;
        }
        const int to = packet->stream_index < int(map.size()) ? map[packet->stream_index] : -1;
        if (to < 0) {
            av_packet_unref(packet);
            continue;
        }
        ++result.packetsRead;
        av_packet_rescale_ts(packet, in->streams[packet->stream_index]->time_base,
                             out->streams[to]->time_base);
        packet->stream_index = to;
        packet->pos = -1;
        // The muxer takes the packet in either case.
        if (av_interleaved_write_frame(out, packet) >= 0)
            ++result.packetsWritten;
    }
    av_packet_free(&packet);
    if (!stopped)
        result.finished = av_write_trailer(out) >= 0;
    return result;
}
