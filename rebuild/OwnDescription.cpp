#include "rebuild/OwnDescription.h"

#include "rebuild/AccessUnits.h"
#include "rebuild/AudioFramer.h"
#include "rebuild/Bits.h"
#include "rebuild/BoxTree.h"
#include "rebuild/ByteSource.h"
#include "rebuild/MediaData.h"
#include "rebuild/MemoryFile.h"
#include "rebuild/SampleWalker.h"
#include "rebuild/Vops.h"

#include <QCoreApplication>
#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

namespace {

// How far into the media data parameter sets and sound are looked for, and how much of it is walked
// to judge a guess about the sound.
constexpr int64_t ScanBytes = 16 << 20;
constexpr int64_t SurveyBytes = 4 << 20;
// A "moov" larger than this is not read whole.
constexpr int64_t LargestMoov = 64 << 20;

QString Tr(const char *text)
{
    return QCoreApplication::translate("OwnDescription", text);
}

// ---- Sample descriptions that survive in a damaged "moov" ----

struct SurvivingTrack
{
    QByteArray mdhd, hdlr, stsd;
    uint32_t handler = 0;    // "vide", "soun"
    uint32_t firstDelta = 0; // the first sample's length, from "stts"; 0 when it did not survive
};

std::vector<SurvivingTrack> TracksOf(const QByteArray &moov)
{
    std::vector<SurvivingTrack> tracks;
    auto bytes = [&](const ChildBox *c) { return c ? moov.mid(c->begin, c->end - c->begin) : QByteArray(); };
    for (const ChildBox &trak : ChildrenOf(moov, 8, moov.size())) {
        std::vector<ChildBox> inMdia, inStbl;
        if (trak.type != FourCC("trak") || !Descend(moov, trak, {FourCC("mdia"), FourCC("mdhd")}, &inMdia))
            continue;
        Descend(moov, trak, {FourCC("mdia"), FourCC("minf"), FourCC("stbl"), FourCC("stsd")}, &inStbl);
        SurvivingTrack t;
        t.mdhd = bytes(FindChild(inMdia, FourCC("mdhd")));
        t.hdlr = bytes(FindChild(inMdia, FourCC("hdlr")));
        t.stsd = bytes(FindChild(inStbl, FourCC("stsd")));
        if (t.mdhd.isEmpty() || t.hdlr.size() < 20 || t.stsd.size() < 16)
            continue;
        t.handler = ReadU32(reinterpret_cast<const uint8_t *>(t.hdlr.constData()) + 16);
        const QByteArray stts = bytes(FindChild(inStbl, FourCC("stts")));
        if (stts.size() >= 24 && ReadU32(reinterpret_cast<const uint8_t *>(stts.constData()) + 12) > 0)
            t.firstDelta = ReadU32(reinterpret_cast<const uint8_t *>(stts.constData()) + 20);
        tracks.push_back(t);
    }
    return tracks;
}

// A file libavformat can read the tracks' descriptions from: the surviving boxes, with empty
// sample tables around them.
QByteArray MinimalFile(const std::vector<SurvivingTrack> &tracks, uint32_t brand)
{
    BoxWriter w;
    w.Begin("ftyp");
    w.U32(brand);
    w.U32(0x200);
    w.U32(brand);
    w.End();
    w.Begin("moov");
    w.Begin("mvhd");
    w.U32(0);                    // version, flags
    w.Zeros(8);                  // creation, modification
    w.U32(1000);                 // time scale
    w.U32(0);                    // duration
    w.U32(0x10000);              // rate
    w.U16(0x100);                // volume
    w.Zeros(10);
    for (uint32_t m : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u})
        w.U32(m);
    w.Zeros(24);
    w.U32(uint32_t(tracks.size() + 1));
    w.End();
    uint32_t id = 1;
    for (const SurvivingTrack &t : tracks) {
        w.Begin("trak");
        w.Begin("tkhd");
        w.U32(3);
        w.Zeros(8);
        w.U32(id++);
        w.Zeros(4 + 4 + 8 + 2 + 2 + 2 + 2);
        for (uint32_t m : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u})
            w.U32(m);
        w.Zeros(8);
        w.End();
        w.Begin("mdia");
        w.Raw(t.mdhd);
        w.Raw(t.hdlr);
        w.Begin("minf");
        if (t.handler == FourCC("vide")) {
            w.Box("vmhd", QByteArray::fromHex("000000010000000000000000"));
        } else {
            w.Box("smhd", QByteArray(8, '\0'));
        }
        w.Begin("dinf");
        w.Begin("dref");
        w.U32(0);
        w.U32(1);
        w.Box("url ", QByteArray::fromHex("00000001"));
        w.End();
        w.End();
        w.Begin("stbl");
        w.Raw(t.stsd);
        w.Box("stts", QByteArray(8, '\0'));
        w.Box("stsc", QByteArray(8, '\0'));
        w.Box("stsz", QByteArray(12, '\0'));
        w.Box("stco", QByteArray(8, '\0'));
        w.End();
        w.End();
        w.End();
        w.End();
    }
    w.End();
    return w.Bytes();
}

TrackDescription FromStream(const AVStream *st)
{
    TrackDescription t;
    t.type = st->codecpar->codec_type;
    AVCodecParameters *p = avcodec_parameters_alloc();
    if (!p || avcodec_parameters_copy(p, st->codecpar) < 0) {
        avcodec_parameters_free(&p);
        return t;
    }
    t.params.reset(p, [](AVCodecParameters *q) { avcodec_parameters_free(&q); });
    t.timeBase = st->time_base;
    t.codecTag = p->codec_tag;
    t.nalLengthSize = NalLengthSizeOf(p->codec_id, p->extradata, p->extradata_size);
    return t;
}

// ---- Parameter sets in the media data ----

struct InBand
{
    AVCodecID codec = AV_CODEC_ID_NONE;
    int lengthSize = 0;
    std::vector<QByteArray> sets; // the parameter-set NAL units, without prefixes
    QByteArray picture;           // the access unit they lead, length-prefixed
};

int64_t LengthAt(const uint8_t *p, int size)
{
    int64_t n = 0;
    for (int i = 0; i < size; ++i)
        n = (n << 8) | p[i];
    return n;
}

// The NAL unit type at p, -1 when the header is not valid for `codec`.
int NalType(AVCodecID codec, const uint8_t *p)
{
    if (p[0] & 0x80)
        return -1;
    if (codec == AV_CODEC_ID_H264)
        return p[0] & 0x1f;
    if (((p[0] & 1) << 5 | p[1] >> 3) != 0 || (p[1] & 7) == 0)
        return -1;
    return (p[0] >> 1) & 0x3f;
}

bool IsSequenceSet(AVCodecID codec, const uint8_t *p, int64_t n)
{
    if (codec == AV_CODEC_ID_H264) {
        // An SPS: nal_ref_idc set, and a known profile.
        static const int Profiles[] = {66, 77, 88, 100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
        return n >= 4 && NalType(codec, p) == 7 && (p[0] & 0x60) &&
               std::find(std::begin(Profiles), std::end(Profiles), p[1]) != std::end(Profiles);
    }
    return n >= 4 && NalType(codec, p) == 32; // a VPS, which leads the HEVC sets
}

// The parameter sets at pos, when a sequence set starts there with `lengthSize`-byte prefixes and
// the sets (and then a picture) follow it.
bool SetsAt(SourceWindow &window, int64_t pos, int64_t end, AVCodecID codec, int lengthSize, InBand *found)
{
    int64_t available = 0;
    const uint8_t *data = window.Bytes(pos, std::min<int64_t>(4 << 20, end - pos), &available);
    if (available < lengthSize + 4)
        return false;
    const int64_t first = LengthAt(data, lengthSize);
    if (first < 4 || first > 1024 || !IsSequenceSet(codec, data + lengthSize, first))
        return false;
    InBand in;
    in.codec = codec;
    in.lengthSize = lengthSize;
    const int pps = codec == AV_CODEC_ID_H264 ? 8 : 34;
    int64_t at = 0;
    bool picture = false;
    while (at + lengthSize <= available) {
        const int64_t n = LengthAt(data + at, lengthSize);
        if (n < 2 || n > available - at - lengthSize)
            break;
        const int type = NalType(codec, data + at + lengthSize);
        const bool set = codec == AV_CODEC_ID_H264 ? (type == 7 || type == 8) : (type >= 32 && type <= 34);
        if (set && !picture)
            in.sets.emplace_back(reinterpret_cast<const char *>(data + at + lengthSize), int(n));
        else if (set || type < 0)
            break;
        else
            picture = true;
        at += lengthSize + n;
    }
    const bool hasPps = std::any_of(in.sets.begin(), in.sets.end(),
                                    [&](const QByteArray &s) { return NalType(codec, reinterpret_cast<const uint8_t *>(s.constData())) == pps; });
    if (!hasPps || !picture)
        return false;
    const AccessUnitMatcher matcher(codec, lengthSize, 4 << 20);
    const PictureMatcher::Unit unit = matcher.Match(data, available);
    if (unit.size == 0)
        return false;
    in.picture = QByteArray(reinterpret_cast<const char *>(data), int(unit.size));
    *found = in;
    return true;
}

bool FindParameterSets(SourceWindow &window, int64_t begin, int64_t end, InBand *found)
{
    end = std::min(end, begin + ScanBytes);
    for (int64_t p = begin; p < end; ++p)
        for (const AVCodecID codec : {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC})
            for (const int lengthSize : {4, 2, 1})
                if (SetsAt(window, p, end, codec, lengthSize, found))
                    return true;
    return false;
}

QByteArray AnnexB(const QByteArray &lengthPrefixed, int lengthSize)
{
    QByteArray out;
    const auto *p = reinterpret_cast<const uint8_t *>(lengthPrefixed.constData());
    for (int at = 0; at + lengthSize <= lengthPrefixed.size();) {
        const int64_t n = LengthAt(p + at, lengthSize);
        if (n <= 0 || n > lengthPrefixed.size() - at - lengthSize)
            break;
        out += QByteArray::fromHex("00000001") + lengthPrefixed.mid(at + lengthSize, int(n));
        at += lengthSize + int(n);
    }
    return out;
}

// Hands a decoder configuration (parameter sets in Annex B form, or MPEG-4 Part 2 headers) and one
// picture to libavformat's mp4 muxer, which writes the sample entry (avcC, hvcC, esds), and reads the
// track back: its codec parameters, with the picture's size.
TrackDescription ThroughMuxer(AVCodecID codec, const QByteArray &config, const QByteArray &picture)
{
    TrackDescription t;
    AVFormatContext *out = nullptr;
    AVIOContext *io = nullptr;
    if (avformat_alloc_output_context2(&out, nullptr, "mp4", nullptr) < 0 || avio_open_dyn_buf(&io) < 0) {
        avformat_free_context(out);
        return t;
    }
    out->pb = io;
    AVStream *st = avformat_new_stream(out, nullptr);
    bool written = false;
    if (st) {
        st->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        st->codecpar->codec_id = codec;
        // The muxer asks for a size; reading the file back decodes the picture and gives the real one.
        st->codecpar->width = 16;
        st->codecpar->height = 16;
        st->codecpar->extradata = static_cast<uint8_t *>(av_mallocz(size_t(config.size()) + AV_INPUT_BUFFER_PADDING_SIZE));
        if (st->codecpar->extradata) {
            std::memcpy(st->codecpar->extradata, config.constData(), size_t(config.size()));
            st->codecpar->extradata_size = config.size();
        }
        st->time_base = {1, 90000};
        if (avformat_write_header(out, nullptr) >= 0) {
            AVPacket *packet = av_packet_alloc();
            if (packet && av_new_packet(packet, picture.size()) >= 0) {
                std::memcpy(packet->data, picture.constData(), size_t(picture.size()));
                packet->pts = packet->dts = 0;
                packet->duration = 3000;
                packet->flags |= AV_PKT_FLAG_KEY;
                written = av_write_frame(out, packet) >= 0 && av_write_trailer(out) >= 0;
            }
            av_packet_free(&packet);
        }
    }
    uint8_t *buffer = nullptr;
    const int size = avio_close_dyn_buf(io, &buffer);
    const QByteArray file = written ? QByteArray(reinterpret_cast<const char *>(buffer), size) : QByteArray();
    av_free(buffer);
    avformat_free_context(out);
    if (file.isEmpty())
        return t;
    const MemoryInput back(file, "mov");
    if (back.Context() && back.Context()->nb_streams == 1)
        t = FromStream(back.Context()->streams[0]);
    return t;
}

TrackDescription FromInBand(const InBand &in)
{
    QByteArray sets;
    for (const QByteArray &s : in.sets)
        sets += QByteArray::fromHex("00000001") + s;
    TrackDescription t = ThroughMuxer(in.codec, sets, AnnexB(in.picture, in.lengthSize));
    // The muxer's length prefix is 4 bytes; the samples keep the file's own.
    if (t.params && t.nalLengthSize > 0 && t.nalLengthSize != in.lengthSize) {
        uint8_t &flags = t.params->extradata[in.codec == AV_CODEC_ID_H264 ? 4 : 21];
        flags = uint8_t((flags & 0xfc) | (in.lengthSize - 1));
        t.nalLengthSize = in.lengthSize;
    }
    return t;
}

// MPEG-4 Part 2 headers repeated in the media data: a video object layer ahead of a VOP.
bool FindVopHeaders(SourceWindow &window, int64_t begin, int64_t end, QByteArray *config, QByteArray *picture)
{
    end = std::min(end, begin + ScanBytes);
    const VopMatcher matcher(1 << 20);
    for (int64_t p = begin; p + 4 < end; ++p) {
        int64_t available = 0;
        const uint8_t *data = window.Bytes(p, std::min<int64_t>(1 << 20, end - p), &available);
        if (data[0] != 0 || data[1] != 0 || data[2] != 1 || data[3] == 0xb6)
            continue;
        const int64_t headers = HeadersAt(data, available);
        const PictureMatcher::Unit unit = headers > 0 ? matcher.Match(data, available) : PictureMatcher::Unit();
        if (unit.size == 0 || !unit.key)
            continue;
        *config = QByteArray(reinterpret_cast<const char *>(data), int(headers));
        *picture = QByteArray(reinterpret_cast<const char *>(data), int(unit.size));
        return true;
    }
    return false;
}

// The frame rate the stream's timing information gives, read by FFmpeg's parser; {0, 1} if none.
AVRational FrameRateOf(const TrackDescription &t, const QByteArray &picture)
{
    AVRational rate{0, 1};
    AVCodecParserContext *parser = av_parser_init(t.Codec());
    AVCodecContext *ctx = avcodec_alloc_context3(nullptr);
    if (parser && ctx && avcodec_parameters_to_context(ctx, t.params.get()) >= 0) {
        parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
        // H.264 timing counts fields: two ticks a frame, as its decoder sets up.
        if (t.Codec() == AV_CODEC_ID_H264)
            ctx->ticks_per_frame = 2;
        uint8_t *out = nullptr;
        int outSize = 0;
        av_parser_parse2(parser, ctx, &out, &outSize, reinterpret_cast<const uint8_t *>(picture.constData()),
                         picture.size(), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        if (ctx->framerate.num > 0 && ctx->framerate.den > 0)
            rate = ctx->framerate;
    }
    if (parser)
        av_parser_close(parser);
    avcodec_free_context(&ctx);
    return rate;
}

// ---- Sound ----

TrackDescription AudioTrack(AVCodecID codec, int sampleRate, int channels, int frameSize,
                            const QByteArray &extradata = {})
{
    TrackDescription t;
    t.type = AVMEDIA_TYPE_AUDIO;
    AVCodecParameters *p = avcodec_parameters_alloc();
    p->codec_type = AVMEDIA_TYPE_AUDIO;
    p->codec_id = codec;
    p->sample_rate = sampleRate;
    av_channel_layout_default(&p->ch_layout, channels);
    p->frame_size = frameSize;
    if (!extradata.isEmpty()) {
        p->extradata = static_cast<uint8_t *>(av_mallocz(size_t(extradata.size()) + AV_INPUT_BUFFER_PADDING_SIZE));
        std::memcpy(p->extradata, extradata.constData(), size_t(extradata.size()));
        p->extradata_size = extradata.size();
    }
    t.params.reset(p, [](AVCodecParameters *q) { avcodec_parameters_free(&q); });
    t.timeBase = {1, sampleRate};
    t.sampleDuration = frameSize;
    return t;
}

const int AacRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};

// An AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1); AAC-LC is object type 2.
QByteArray AacConfig(int sampleRate, int channels, int objectType = 2)
{
    const int index = int(std::find(std::begin(AacRates), std::end(AacRates), sampleRate) - std::begin(AacRates));
    const unsigned bits = (unsigned(objectType) << 11) | (unsigned(index) << 7) | (unsigned(channels) << 3);
    QByteArray config;
    config.append(char(bits >> 8)).append(char(bits & 0xff));
    return config;
}

struct Survey
{
    int64_t video = 0, audio = 0, skipped = 0, bytes = 0;
};

// Walks the first stretch of the media data with `d`, counting what it finds.
Survey SurveyWith(const Description &d, SourceWindow &window, const MediaLayout &layout)
{
    Survey s;
    SampleWalker walker(d, window);
    const int64_t begin = layout.regions.front().first;
    const int64_t end = std::min(layout.regions.front().second, begin + SurveyBytes);
    const WalkStats stats = walker.Walk(begin, end, [](const WalkedSample &, const uint8_t *) { return true; });
    for (size_t k = 0; k < d.tracks.size() && k < stats.samples.size(); ++k)
        (d.tracks[k].IsVideo() ? s.video : s.audio) += stats.samples[k];
    s.skipped = stats.skippedBytes;
    s.bytes = end - begin;
    return s;
}

// The sound in the media data whose frames carry headers (MPEG audio, ADTS): the header `parse`
// reads that most often begins a frame followed by another such frame or by a picture. Its key is
// what must agree from frame to frame.
template <typename Header, typename Parse, typename Key>
bool FindHeadedAudio(SourceWindow &window, const MediaLayout &layout, const Description &video, Parse parse,
                     Key key, Header *found)
{
    std::map<decltype(key(Header())), std::pair<int, Header>> seen;
    const int64_t begin = layout.regions.front().first;
    const int64_t end = std::min(layout.regions.front().second, begin + ScanBytes);
    std::unique_ptr<PictureMatcher> matcher;
    if (const TrackDescription *v = video.Video())
        matcher = PictureMatcher::For(*v, v->SampleLimit());
    int hits = 0;
    for (int64_t p = begin; p + 4 <= end && hits < 64; ++p) {
        int64_t available = 0;
        const uint8_t *data = window.Bytes(p, std::min<int64_t>(16384, end - p), &available);
        Header h, next;
        if (!parse(data, int(available), &h) || h.length + 4 > available)
            continue;
        const bool chained = parse(data + h.length, int(available - h.length), &next) && key(next) == key(h);
        const bool picture = matcher && matcher->Match(data + h.length, available - h.length).size > 0;
        if (!chained && !picture)
            continue;
        auto &entry = seen[key(h)];
        entry = {entry.first + 1, h};
        ++hits;
        p += h.length - 1;
    }
    int best = 0;
    for (const auto &[k, entry] : seen)
        if (entry.first > best) {
            best = entry.first;
            *found = entry.second;
        }
    return best >= 4;
}

// The standard rate nearest to `estimate`.
int NearestRate(double estimate)
{
    static const int Rates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000};
    int best = 48000;
    for (const int r : Rates)
        if (std::abs(r - estimate) < std::abs(best - estimate))
            best = r;
    return best;
}

} // namespace

Description LearnFromDamagedFile(const QString &path)
{
    Description d;
    d.origin = Tr("the file itself");
    FileSource source(QFile::encodeName(path));
    if (!source.IsOpen())
        return d;
    const MediaLayout layout = FindMediaData(source);
    if (!layout.HasMedia())
        return d;
    SourceWindow window(source, 64 << 20);

    // What survives of the file's own index.
    int surviving = 0;
    if (const FoundBox *moov = layout.Find(FourCC("moov")); moov && moov->End(source.Size()) - moov->offset < LargestMoov) {
        const int64_t length = moov->End(source.Size()) - moov->offset;
        QByteArray bytes(int(length), '\0');
        bytes.resize(int(source.Read(moov->offset, reinterpret_cast<uint8_t *>(bytes.data()), length)));
        const FoundBox *ftyp = layout.Find(FourCC("ftyp"));
        uint8_t brand[4] = {'i', 's', 'o', 'm'};
        if (ftyp)
            source.Read(ftyp->offset + 8, brand, 4);
        const std::vector<SurvivingTrack> tracks = TracksOf(bytes);
        const MemoryInput input(MinimalFile(tracks, ReadU32(brand)), "mov");
        for (unsigned i = 0; input.Context() && i < input.Context()->nb_streams && i < tracks.size(); ++i) {
            const AVStream *st = input.Context()->streams[i];
            const AVMediaType type = st->codecpar->codec_type;
            if ((type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) || !CanWalk(st->codecpar->codec_id) ||
                (type == AVMEDIA_TYPE_VIDEO ? d.Video() : d.Audio()))
                continue;
            TrackDescription t = FromStream(st);
            t.sampleDuration = tracks[i].firstDelta;
            // No sample survived to give a length (a fragmented file's "moov" has none): an audio
            // frame's is its codec's frame size.
            const int frameSize = t.params ? (t.params->frame_size > 0 ? t.params->frame_size
                                                                         : (t.Codec() == AV_CODEC_ID_AAC ? 1024 : 0))
                                           : 0;
            if (t.sampleDuration <= 0 && type == AVMEDIA_TYPE_AUDIO && frameSize > 0 && t.params->sample_rate > 0)
                t.sampleDuration = av_rescale_q(frameSize, AVRational{1, t.params->sample_rate}, t.timeBase);
            if (t.params && (type == AVMEDIA_TYPE_AUDIO || t.nalLengthSize > 0)) {
                d.tracks.push_back(t);
                ++surviving;
            }
        }
    }

    // Pictures whose parameter sets are in the media data.
    QByteArray picture;
    if (!d.Video()) {
        InBand in;
        if (FindParameterSets(window, layout.regions.front().first, layout.regions.front().second, &in)) {
            TrackDescription t = FromInBand(in);
            if (t.params) {
                picture = in.picture;
                d.tracks.push_back(t);
            }
        }
    }
    if (!d.Video()) {
        QByteArray config;
        if (FindVopHeaders(window, layout.regions.front().first, layout.regions.front().second, &config, &picture)) {
            TrackDescription t = ThroughMuxer(AV_CODEC_ID_MPEG4, config, picture);
            if (t.params)
                d.tracks.push_back(t);
            else
                picture.clear();
        }
    }
    if (TrackDescription *v = const_cast<TrackDescription *>(d.Video()); v && v->sampleDuration <= 0) {
        AVRational rate = picture.isEmpty() ? AVRational{0, 1} : FrameRateOf(*v, picture);
        // A rate no camera records at is a time resolution, not a frame rate.
        if (rate.num <= 0 || av_q2d(rate) > 240) {
            rate = {30000, 1001};
            d.assumptions << Tr("frame rate assumed 29.97");
        }
        v->timeBase = av_inv_q(rate);
        v->sampleDuration = 1;
    }

    // Sound whose frames carry headers: MPEG audio, or AAC with ADTS headers.
    if (!d.Audio()) {
        Description candidate = d;
        MpegAudioHeader mpeg;
        AdtsHeader adts;
        if (FindHeadedAudio(window, layout, d, ParseMpegAudioHeader,
                            [](const MpegAudioHeader &h) { return std::make_tuple(h.layer, h.version, h.sampleRate); },
                            &mpeg)) {
            candidate.tracks.push_back(AudioTrack(mpeg.layer == 3 ? AV_CODEC_ID_MP3 : AV_CODEC_ID_MP2, mpeg.sampleRate,
                                                  mpeg.channels, mpeg.samples));
        } else if (FindHeadedAudio(window, layout, d, ParseAdtsHeader,
                                   [](const AdtsHeader &h) { return std::make_tuple(h.profile, h.rateIndex, h.channels); },
                                   &adts)) {
            const int rate = AacRates[adts.rateIndex];
            candidate.tracks.push_back(AudioTrack(AV_CODEC_ID_AAC, rate, adts.channels, 1024,
                                                  AacConfig(rate, adts.channels, adts.profile + 1)));
            candidate.tracks.back().adts = true;
        }
        if (candidate.Audio() && SurveyWith(candidate, window, layout).audio >= 4)
            d = candidate;
    }
    if (!d.Audio()) {
        // Raw AAC: the channel layout that frames the most; the rate only the interleave can tell.
        Description best;
        Survey bestSurvey;
        for (const int channels : {2, 1}) {
            Description candidate = d;
            candidate.tracks.push_back(AudioTrack(AV_CODEC_ID_AAC, 48000, channels, 1024, AacConfig(48000, channels)));
            const Survey s = SurveyWith(candidate, window, layout);
            if (s.audio > bestSurvey.audio) {
                best = candidate;
                bestSurvey = s;
            }
        }
        const TrackDescription *v = d.Video();
        if (bestSurvey.audio >= 8) {
            int rate = 48000;
            if (v && bestSurvey.video >= 25 && bestSurvey.audio >= 25) {
                const double fps = 1.0 / (av_q2d(v->timeBase) * double(v->sampleDuration));
                rate = NearestRate(double(bestSurvey.audio) * 1024.0 * fps / double(bestSurvey.video));
            } else {
                d.assumptions << Tr("audio rate assumed 48 kHz");
            }
            const int channels = best.Audio()->params->ch_layout.nb_channels;
            d.tracks.push_back(AudioTrack(AV_CODEC_ID_AAC, rate, channels, 1024, AacConfig(rate, channels)));
        } else if (v) {
            // Sound was there when the pictures leave much of the media data unexplained.
            const Survey pictures = SurveyWith(d, window, layout);
            if (pictures.skipped > pictures.bytes / 50)
                d.assumptions << Tr("audio could not be recovered");
        }
    }
    (void)surviving;
    if (!d.Usable())
        d.assumptions.clear();
    return d;
}
