#include "previewer/SoundFeed.h"

#include "previewer/PlayerDecoder.h"

#include <algorithm>
#include <cstring>

namespace
{

// Gaps shorter than this are closed up rather than filled.
constexpr double kGap = 0.05;

} // namespace

SoundFeed::SoundFeed(PlayerDecoder *decoder, int rate, int channels)
    : m_decoder(decoder), m_frameBytes(qint64(channels) * 2), m_bytesPerSecond(double(rate) * channels * 2)
{
}

void SoundFeed::Restart(double at)
{
    m_position = at;
}

qint64 SoundFeed::Read(char *data, qint64 size)
{
    size -= size % m_frameBytes;
    qint64 done = 0;
    while (done < size) {
        double pts = 0.0;
        // Sound that starts later than now (a gap in the file) waits its turn behind silence.
        if (m_decoder->PeekAudio(&pts) && pts > m_position + kGap)
            break;
        const qint64 n = m_decoder->ReadAudio(data + done, size - done, &pts, m_position);
        if (n <= 0)
            break;
        m_position = pts + double(n) / m_bytesPerSecond;
        m_lastSound = std::max(m_lastSound.load(), m_position.load());
        done += n;
    }
    qint64 silence = size - done;
    double next = 0.0;
    if (silence > 0 && m_decoder->PeekAudio(&next) && next > m_position) {
        // Silence up to the next sound and no further, so that it plays on time.
        const qint64 gap = qint64((next - m_position) * m_bytesPerSecond) / m_frameBytes * m_frameBytes;
        silence = std::min(silence, std::max(gap, m_frameBytes));
    }
    std::memset(data + done, 0, size_t(silence));
    m_position = m_position + double(silence) / m_bytesPerSecond;
    return done + silence;
}
