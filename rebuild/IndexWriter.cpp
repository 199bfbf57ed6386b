#include "rebuild/IndexWriter.h"

#include "rebuild/ByteSource.h"

#include "repair/SafeFile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstring>
#include <map>
#include <numeric>

namespace {

// Pictures looked at before the first is written: enough for the deepest reordering of common
// encoders (x264's B-pyramid, x265's, cameras' long GOPs reorder far less).
constexpr size_t PicturesHeldBack = 48;

} // namespace

int64_t PresentationOrder::Next(int poc, bool key)
{
    // An IDR picture restarts the POC; anything that jumps far back does too (damage).
    const bool restart = !m_started || (key && poc < m_epochMax) || poc < m_epochFirst - 64 * m_step;
    if (restart) {
        m_epochBase = std::max(m_index, m_maxSlot + 1);
        m_epochFirst = poc;
        m_epochMax = poc;
        m_started = true;
    }
    m_epochMax = std::max(m_epochMax, poc);
    const int64_t offset = poc - m_epochFirst;
    // Floor division: leading pictures of an open GOP come before the epoch's first.
    const int64_t slot = m_epochBase + (offset >= 0 ? offset / m_step : -((-offset + m_step - 1) / m_step));
    m_maxSlot = std::max(m_maxSlot, slot);
    ++m_index;
    return slot;
}

int PresentationOrder::StepOf(const std::vector<std::pair<int, bool>> &pocAndKey)
{
    int step = 0;
    std::vector<int> epoch;
    int epochMax = 0;
    auto close = [&] {
        std::sort(epoch.begin(), epoch.end());
        for (size_t i = 1; i < epoch.size(); ++i)
            step = std::gcd(step, epoch[i] - epoch[i - 1]);
        epoch.clear();
    };
    for (const auto &[poc, key] : pocAndKey) {
        if (!epoch.empty() && key && poc < epochMax)
            close();
        epochMax = epoch.empty() ? poc : std::max(epochMax, poc);
        epoch.push_back(poc);
    }
    close();
    return step > 0 ? step : 1;
}

IndexWriter::IndexWriter(const Description &description) : m_description(description)
{
    m_borrowed = av_packet_alloc();
    m_stream.assign(description.tracks.size(), -1);
    m_count.assign(description.tracks.size(), 0);
    m_end.assign(description.tracks.size(), 0);
}

IndexWriter::~IndexWriter()
{
    for (Pending &p : m_pending)
        av_packet_free(&p.packet);
    av_packet_free(&m_borrowed);
    if (m_parser)
        av_parser_close(m_parser);
    avcodec_free_context(&m_parserCtx);
    if (m_out) {
        CloseSafeOutput(m_out);
        avformat_free_context(m_out);
    }
}

bool IndexWriter::Open(const QByteArray &path, const char *format, const SourceWindow *source)
{
    if (avformat_alloc_output_context2(&m_out, nullptr, format, path.constData()) < 0 || !m_out)
        return false;
    for (size_t k = 0; k < m_description.tracks.size(); ++k) {
        const TrackDescription &t = m_description.tracks[k];
        if (avformat_query_codec(m_out->oformat, t.Codec(), FF_COMPLIANCE_NORMAL) != 1)
            continue;
        AVStream *st = avformat_new_stream(m_out, nullptr);
        if (!st || avcodec_parameters_copy(st->codecpar, t.params.get()) < 0)
            return false;
        // The sample entry's type is kept where the container knows it for the codec (hvc1 or hev1).
        st->codecpar->codec_tag = 0;
        if (m_out->oformat->codec_tag && av_codec_get_id(m_out->oformat->codec_tag, t.codecTag) == t.Codec())
            st->codecpar->codec_tag = t.codecTag;
        st->time_base = t.timeBase;
        m_stream[k] = st->index;
        if (t.IsVideo() && !m_parser && t.Codec() != AV_CODEC_ID_MPEG4) {
            m_parser = av_parser_init(t.Codec());
            m_parserCtx = avcodec_alloc_context3(nullptr);
            if (!m_parser || !m_parserCtx || avcodec_parameters_to_context(m_parserCtx, t.params.get()) < 0)
                return false;
            m_parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
        }
    }
    // At disk speed: the samples go out as they come, by a thread of their own while the walk goes
    // on; the muxer's own small writes are gathered.
    SafeOutputOptions options;
    options.bufferSize = 1 << 20;
    options.direct = options.background = true;
    if (source && source->Descriptor() >= 0) {
        options.sourceFd = source->Descriptor();
        options.inSource = [source](const uint8_t *data, int size) { return source->OffsetOf(data, size); };
    }
    if (m_out->nb_streams == 0 || !OpenSafeOutput(m_out, path, options))
        return false;
    return avformat_write_header(m_out, nullptr) >= 0;
}

bool IndexWriter::Add(const WalkedSample &sample, const uint8_t *data)
{
    const int k = sample.track;
    if (m_failed || k < 0 || k >= int(m_stream.size()) || m_stream[k] < 0 || sample.size > INT32_MAX ||
        sample.header >= sample.size)
        return !m_failed;
    data += sample.header;
    const int size = int(sample.size) - sample.header;
    Pending p{nullptr, k, 0, sample.key};
    // MPEG-4 Part 2 pictures are shown in the order they come (B-VOPs are not reordered).
    if (m_description.tracks[k].Codec() == AV_CODEC_ID_MPEG4) {
        p.poc = int(m_picturesAdded);
    } else if (m_description.tracks[k].IsVideo()) {
        uint8_t *out = nullptr;
        int outSize = 0;
        av_parser_parse2(m_parser, m_parserCtx, &out, &outSize, data, size, AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        p.poc = m_parser->output_picture_number;
        p.key = sample.key || m_parser->key_frame == 1;
    }
    if (m_description.tracks[k].IsVideo())
        ++m_picturesAdded;
    if (!m_holding) {
        // Written at once: the packet borrows the walker's bytes, which stay put until the next sample.
        const int64_t slot = m_description.tracks[k].IsVideo() ? m_order.Next(p.poc, p.key) : 0;
        av_packet_unref(m_borrowed);
        m_borrowed->data = const_cast<uint8_t *>(data);
        m_borrowed->size = size;
        return Write(m_borrowed, k, slot, p.key);
    }
    p.packet = av_packet_alloc();
    if (!p.packet || av_new_packet(p.packet, size) < 0) {
        av_packet_free(&p.packet);
        return false;
    }
    std::memcpy(p.packet->data, data, size_t(size));
    m_pending.push_back(p);
    size_t pictures = 0;
    for (const Pending &q : m_pending)
        pictures += m_description.tracks[q.track].IsVideo();
    return pictures < PicturesHeldBack || Release();
}

// Learns the POC step and the reordering depth from the pictures held back, then writes them.
bool IndexWriter::Release()
{
    m_holding = false;
    std::vector<std::pair<int, bool>> pocs;
    for (const Pending &p : m_pending)
        if (m_description.tracks[p.track].IsVideo())
            pocs.emplace_back(p.poc, p.key);
    m_order.SetStep(PresentationOrder::StepOf(pocs));
    PresentationOrder trial = m_order;
    std::vector<int64_t> slots;
    for (size_t i = 0; i < pocs.size(); ++i) {
        slots.push_back(trial.Next(pocs[i].first, pocs[i].second));
        m_delay = std::max<int64_t>(m_delay, int64_t(i) - slots.back());
    }
    bool ok = true;
    for (Pending &p : m_pending) {
        const int64_t slot = m_description.tracks[p.track].IsVideo() ? m_order.Next(p.poc, p.key) : 0;
        ok = ok && Write(p.packet, p.track, slot, p.key);
        av_packet_free(&p.packet);
    }
    m_pending.clear();
    return ok;
}

bool IndexWriter::Write(AVPacket *packet, int track, int64_t slot, bool key)
{
    const TrackDescription &t = m_description.tracks[track];
    AVStream *st = m_out->streams[m_stream[track]];
    const int64_t duration = t.sampleDuration;
    if (t.IsVideo()) {
        const int64_t index = m_videoIndex++;
        // Decoding runs `m_delay` pictures ahead; a picture is never shown before it is decoded.
        packet->dts = (index - m_delay) * duration;
        packet->pts = std::max(slot, index - m_delay) * duration;
    } else {
        packet->pts = packet->dts = m_count[track] * duration;
    }
    packet->duration = duration;
    if (key || !t.IsVideo())
        packet->flags |= AV_PKT_FLAG_KEY;
    packet->stream_index = st->index;
    m_end[track] = std::max(m_end[track], packet->pts + duration);
    av_packet_rescale_ts(packet, t.timeBase, st->time_base);
    ++m_count[track];
    if (av_write_frame(m_out, packet) < 0)
        m_failed = true;
    return !m_failed;
}

bool IndexWriter::Finish()
{
    if (!m_out || !m_out->pb)
        return false;
    const bool released = m_pending.empty() || Release();
    const bool trailer = av_write_trailer(m_out) >= 0;
    const bool closed = CloseSafeOutput(m_out);
    return released && trailer && closed && !m_failed;
}

int64_t IndexWriter::Written(int track) const
{
    return track >= 0 && track < int(m_count.size()) ? m_count[track] : 0;
}

double IndexWriter::Seconds() const
{
    double seconds = 0;
    for (size_t k = 0; k < m_end.size(); ++k)
        seconds = std::max(seconds, double(m_end[k]) * av_q2d(m_description.tracks[k].timeBase));
    return seconds;
}
