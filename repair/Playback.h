#pragma once

#include <QString>

#include <atomic>

// What a file plays: the pictures FFmpeg's decoder returns for its first video stream, and how far
// into the file the sound its first audio stream decodes to reaches, counted as `ffmpeg -i FILE
// -map 0:v:0 -f null -` (and -map 0:a:0) counts them. Every verdict of the program is made with this measure:
// a result is never kept when something else at hand plays more, and a file counts as repaired
// only when its result plays.
struct Playback
{
    bool opens = false;     // libavformat opened the file and read its stream information
    bool hasVideo = false;  // it has a video stream (cover pictures do not count)
    bool hasAudio = false;  // it has an audio stream
    qint64 videoFrames = 0; // pictures decoded from the first video stream
    qint64 damagedFrames = 0; // of those, pictures the decoder had to conceal or knew to be corrupt
    double audioSeconds = 0; // end of the last decoded sound, in seconds from the start of the file

    // At least one picture; for a file without video, at least one second of sound.
    bool Plays() const;
};

// Ranks by pictures, then by seconds of sound; for files without video, by seconds of sound.
// True when `a` plays strictly more than `b`.
bool PlaysMore(const Playback &a, const Playback &b);

// Decodes the whole of the first video and the first audio stream. A raised `stop` ends the count
// early (what was counted so far is returned).
Playback MeasurePlayback(const QString &path, const std::atomic<bool> *stop = nullptr);

// The cheap form: decodes only until the file plays at all (one picture, or one second of sound
// for a file without video). The counts it returns stop there.
Playback MeasureFirstPlay(const QString &path, const std::atomic<bool> *stop = nullptr);
