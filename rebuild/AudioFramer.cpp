#include "rebuild/AudioFramer.h"

#include "rebuild/QuietLog.h"
#include "rebuild/TrackDescription.h"

#include <algorithm>
#include <cstring>

AacFramer::AacFramer(const TrackDescription &track)
{
    // A raw_data_block holds at most 6144 bits per channel (ISO/IEC 14496-3, 4.5.3); the decoder
    // never needs more bytes than that to decode one.
    const int channels = std::max(1, track.params->ch_layout.nb_channels);
    m_largest = int(std::min<int64_t>(track.SampleLimit(), 768 * channels + 64));
    m_first = track.firstBytes;
    if (m_first.none()) {
        // A raw_data_block begins with its first channel element, instance tag 0: a channel pair
        // element for stereo (id 1), a single channel element otherwise (id 0). Encoders may lead
        // the first frame of a stream with fill; that frame alone is lost.
        const int first = channels == 2 ? 0x20 : 0x00;
        m_first.set(first);
        m_first.set(first | 1);
        for (int b = 0x80; b < 0xa0; ++b) // a data stream element (id 4)
            m_leading.set(b);
        for (int b = 0xc0; b < 0xe0; ++b) // fill (id 6)
            m_leading.set(b);
    }
    const AVCodec *codec = avcodec_find_decoder(track.Codec());
    if (!codec)
        return;
    CodecPtr ctx(avcodec_alloc_context3(codec));
    if (!ctx || avcodec_parameters_to_context(ctx.get(), track.params.get()) < 0)
        return;
    ctx->thread_count = 1;
    if (avcodec_open2(ctx.get(), codec, nullptr) < 0)
        return;
    m_packet.reset(av_packet_alloc());
    m_frame.reset(av_frame_alloc());
    if (m_packet && m_frame) {
        m_decoder = std::move(ctx);
        QuietLog::Silence(m_decoder.get());
    }
}

AacFramer::~AacFramer()
{
    QuietLog::Restore(m_decoder.get());
}

std::vector<int> AacFramer::Decode(const uint8_t *data, int size, bool *error, size_t frames)
{
    std::vector<int> left;
    *error = false;
    avcodec_flush_buffers(m_decoder.get());
    // One buffer serves every decode: after the flush the decoder holds no reference to it.
    if (size <= 0 || (size > m_capacity && !Reserve(size))) {
        *error = true;
        return left;
    }
    std::memcpy(m_packet->data, data, size_t(size));
    std::memset(m_packet->data + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
    m_packet->size = size;
    int ret = avcodec_send_packet(m_decoder.get(), m_packet.get());
    while (ret >= 0 && left.size() < frames) {
        ret = avcodec_receive_frame(m_decoder.get(), m_frame.get());
        if (ret < 0)
            break;
        left.push_back(m_frame->pkt_size);
        av_frame_unref(m_frame.get());
    }
    *error = ret < 0 && ret != AVERROR(EAGAIN) && ret != AVERROR_EOF;
    return left;
}

bool AacFramer::Reserve(int size)
{
    av_packet_unref(m_packet.get());
    m_capacity = 0;
    if (av_new_packet(m_packet.get(), std::max(size, 64 << 10)) < 0)
        return false;
    m_capacity = m_packet->size;
    return true;
}

bool AacFramer::Decodes(const uint8_t *data, int size)
{
    // The first frame tells: the decoder takes one frame of the packet at a time, and the frames
    // after it would cost as much again for nothing.
    bool error = false;
    return !Decode(data, size, &error, 1).empty();
}

bool AacFramer::StartsFrame(const uint8_t *data, int size)
{
    return m_decoder && MayStart(data, size) && Decodes(data, std::min(size, m_largest));
}

int AacFramer::FrameAt(const uint8_t *data, int size)
{
    if (!m_decoder || !MayStart(data, size))
        return 0;
    size = std::min(size, m_largest);
    if (!Decodes(data, size))
        return 0;
    // Shorter than the frame, the decoder runs out of bytes before the frame's end; from its length on,
    // the frame decodes.
    int low = 0, high = size;
    while (high - low > 1) {
        const int mid = low + (high - low) / 2;
        if (Decodes(data, mid))
            high = mid;
        else
            low = mid;
    }
    return high;
}

std::vector<int> AacFramer::Split(const uint8_t *data, int size, int *rest)
{
    std::vector<int> frames;
    *rest = size;
    if (!m_decoder || !MayStart(data, size))
        return frames;
    // The decoder passes over zero bytes at the end of a packet without a word; a frame never ends in
    // one (its last byte holds the end element), so they belong to no frame.
    int end = size;
    while (end > 0 && data[end - 1] == 0)
        --end;
    bool error = false;
    const std::vector<int> left = Decode(data, end, &error);
    if (left.empty())
        return frames;
    for (size_t i = 0; i + 1 < left.size(); ++i)
        frames.push_back(left[i] - left[i + 1]);
    if (!error) {
        frames.push_back(left.back()); // the last frame took the rest
    } else if (const int last = FrameAt(data + end - left.back(), left.back()); last > 0) {
        // Bytes that do not decode follow the last frame: it ends where its shortest decodable
        // prefix does.
        frames.push_back(last);
    }
    int kept = 0, at = 0;
    for (const int f : frames) {
        if (f <= 0 || f > m_largest || !MayStart(data + at, size - at))
            break;
        at += f;
        ++kept;
    }
    frames.resize(size_t(kept));
    *rest = size - at;
    return frames;
}

std::vector<int> AudioFramer::Split(const uint8_t *data, int size, int *rest)
{
    std::vector<int> frames;
    int at = 0;
    for (int n; (n = FrameAt(data + at, size - at)) > 0; at += n)
        frames.push_back(n);
    *rest = size - at;
    return frames;
}

std::unique_ptr<AudioFramer> AudioFramer::For(const TrackDescription &track)
{
    switch (track.Codec()) {
    case AV_CODEC_ID_AAC: {
        if (track.adts)
            return std::make_unique<AdtsFramer>(track);
        auto framer = std::make_unique<AacFramer>(track);
        return framer->IsOpen() ? std::move(framer) : nullptr;
    }
    case AV_CODEC_ID_MP3:
    case AV_CODEC_ID_MP2:
        return std::make_unique<MpegAudioFramer>(track);
    default:
        return nullptr;
    }
}

bool ParseMpegAudioHeader(const uint8_t *p, int size, MpegAudioHeader *h)
{
    // ISO/IEC 11172-3 and 13818-3: 11 sync bits, version, layer, protection, bit rate index,
    // sample rate index, padding, private, channel mode, mode extension, copyright, original,
    // emphasis.
    static const int Kbps[2][3][15] = {
        {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
         {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
         {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
        {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
         {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
         {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}}};
    static const int Rates[3] = {44100, 48000, 32000};
    if (size < 4 || p[0] != 0xff || (p[1] & 0xe0) != 0xe0)
        return false;
    const int versionBits = (p[1] >> 3) & 3, layerBits = (p[1] >> 1) & 3;
    const int rateIndex = (p[2] >> 2) & 3, bitrateIndex = p[2] >> 4;
    if (versionBits == 1 || layerBits == 0 || rateIndex == 3 || bitrateIndex == 0 || bitrateIndex == 15 ||
        (p[3] & 3) == 2)
        return false;
    h->version = versionBits == 3 ? 1 : (versionBits == 2 ? 2 : 25);
    h->layer = 4 - layerBits;
    h->sampleRate = Rates[rateIndex] / (h->version == 1 ? 1 : (h->version == 2 ? 2 : 4));
    h->channels = (p[3] >> 6) == 3 ? 1 : 2;
    const int bitrate = Kbps[h->version == 1 ? 0 : 1][h->layer - 1][bitrateIndex] * 1000;
    const int padding = (p[2] >> 1) & 1;
    if (h->layer == 1) {
        h->samples = 384;
        h->length = (12 * bitrate / h->sampleRate + padding) * 4;
    } else {
        h->samples = h->layer == 3 && h->version != 1 ? 576 : 1152;
        h->length = h->samples / 8 * bitrate / h->sampleRate + padding;
    }
    return h->length >= 4;
}

MpegAudioFramer::MpegAudioFramer(const TrackDescription &track)
    : m_layer(track.Codec() == AV_CODEC_ID_MP2 ? 2 : 3), m_sampleRate(track.params->sample_rate)
{
}

int MpegAudioFramer::Length(const uint8_t *data, int size) const
{
    MpegAudioHeader h;
    if (!ParseMpegAudioHeader(data, size, &h) || h.layer != m_layer ||
        (m_sampleRate > 0 && h.sampleRate != m_sampleRate))
        return 0;
    return h.length;
}

int MpegAudioFramer::FrameAt(const uint8_t *data, int size)
{
    const int n = Length(data, size);
    return n <= size ? n : 0;
}


bool ParseAdtsHeader(const uint8_t *p, int size, AdtsHeader *h)
{
    // syncword (12), ID, layer (2, always 0), protection_absent, profile (2), sampling frequency
    // index (4), private bit, channel configuration (3), four bits, frame length (13), buffer
    // fullness (11), number of raw data blocks - 1 (2).
    if (size < 7 || p[0] != 0xff || (p[1] & 0xf6) != 0xf0)
        return false;
    h->profile = p[2] >> 6;
    h->rateIndex = (p[2] >> 2) & 0x0f;
    h->channels = ((p[2] & 1) << 2) | (p[3] >> 6);
    h->length = ((p[3] & 3) << 11) | (p[4] << 3) | (p[5] >> 5);
    h->header = (p[1] & 1) ? 7 : 9;
    return h->rateIndex < 13 && h->channels > 0 && (p[6] & 3) == 0 && h->length > h->header;
}

AdtsFramer::AdtsFramer(const TrackDescription &track) : m_channels(track.params->ch_layout.nb_channels)
{
    static const int Rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
    m_rateIndex = int(std::find(std::begin(Rates), std::end(Rates), track.params->sample_rate) - std::begin(Rates));
}

int AdtsFramer::Length(const uint8_t *data, int size) const
{
    AdtsHeader h;
    if (!ParseAdtsHeader(data, size, &h) || h.rateIndex != m_rateIndex || h.channels != m_channels)
        return 0;
    return h.length;
}

int AdtsFramer::FrameAt(const uint8_t *data, int size)
{
    const int n = Length(data, size);
    return n <= size ? n : 0;
}

int AdtsFramer::HeaderLength(const uint8_t *data, int size) const
{
    AdtsHeader h;
    return ParseAdtsHeader(data, size, &h) ? h.header : 0;
}

