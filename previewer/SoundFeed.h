#pragma once

#include <QtGlobal>

#include <atomic>

class PlayerDecoder;

// Turns the decoder's sound queue into the unbroken stream a sound device pulls, and keeps the time
// of the next byte it hands out. When the queue runs dry it hands out silence and lets that time run
// on, so pictures never wait for sound that is late or missing in a damaged file; sound that arrives
// after its time has passed is dropped. Read may run on the device's thread; Position and LastSound
// are safe to read from any thread.
class SoundFeed
{
public:
    SoundFeed(PlayerDecoder *decoder, int rate, int channels);

    void Restart(double at);
    // Fills `data` with as many whole sample frames as fit, with silence where no sound is queued;
    // returns the bytes filled.
    qint64 Read(char *data, qint64 size);

    double Position() const { return m_position; }
    // The end of the last real sound handed out.
    double LastSound() const { return m_lastSound; }
    double BytesPerSecond() const { return m_bytesPerSecond; }

private:
    PlayerDecoder *m_decoder;
    const qint64 m_frameBytes;
    const double m_bytesPerSecond;
    std::atomic<double> m_position{0.0};
    std::atomic<double> m_lastSound{0.0};
};
