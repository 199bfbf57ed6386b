#include "rebuild/AudioFramer.h"

#include "rebuild/QuietLog.h"
#include "rebuild/TrackDescription.h"

#include <algorithm>
#include <cstring>

AudioFramer::AudioFramer(const TrackDescription &track)
{
    // A raw_data_block holds at most 6144 bits per channel (ISO/IEC 14496-3, 4.5.3); the decoder
    // never needs more bytes than that to decode one.
    const int channels = std::max(1, track.params->ch_layout.nb_channels);
    m_largest = int(std::min<int64_t>(track.SampleLimit(), 768 * channels + 64));
    m_first = track.firstBytes;
    if (m_first.none()) {
        // A raw_data_block begins with the id of its first element (three bits) and the element's
        // instance tag: a single or paired channel element, or fill, or a data stream element.
        for (int b = 0; b < 256; ++b) {
            const int id = b >> 5;
            if (id == 0 || id == 1 || id == 3 || id == 4 || id == 6)
                m_first.set(b);
        }
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

AudioFramer::~AudioFramer()
{
    QuietLog::Restore(m_decoder.get());
}

std::vector<int> AudioFramer::Decode(const uint8_t *data, int size, bool *error)
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
    while (ret >= 0) {
        ret = avcodec_receive_frame(m_decoder.get(), m_frame.get());
        if (ret < 0)
            break;
        left.push_back(m_frame->pkt_size);
        av_frame_unref(m_frame.get());
    }
    *error = ret != AVERROR(EAGAIN) && ret != AVERROR_EOF;
    return left;
}

bool AudioFramer::Reserve(int size)
{
    av_packet_unref(m_packet.get());
    m_capacity = 0;
    if (av_new_packet(m_packet.get(), std::max(size, 64 << 10)) < 0)
        return false;
    m_capacity = m_packet->size;
    return true;
}

bool AudioFramer::Decodes(const uint8_t *data, int size)
{
    bool error = false;
    return !Decode(data, size, &error).empty();
}

bool AudioFramer::StartsFrame(const uint8_t *data, int size)
{
    return m_decoder && size > 0 && MayStart(data[0]) && Decodes(data, std::min(size, m_largest));
}

int AudioFramer::FrameAt(const uint8_t *data, int size)
{
    if (!m_decoder || size <= 0 || !MayStart(data[0]))
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

std::vector<int> AudioFramer::Split(const uint8_t *data, int size, int *rest)
{
    std::vector<int> frames;
    *rest = size;
    if (!m_decoder || size <= 0 || !MayStart(data[0]))
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
        if (f <= 0 || f > m_largest || !MayStart(data[at]))
            break;
        at += f;
        ++kept;
    }
    frames.resize(size_t(kept));
    *rest = size - at;
    return frames;
}
