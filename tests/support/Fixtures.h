#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>

// Video fixtures made at test time with Debian's ffmpeg, and checks of the results with ffmpeg and
// ffprobe. Sources are ffmpeg's own test patterns, so nothing is shipped.
namespace Fixtures
{

struct Clip {
    QString videoCodec = "libx264"; // empty for no video
    QString audioCodec = "aac";     // empty for no audio
    QString size = "320x240";
    QString pixelFormat = "yuv420p";
    QString rate = "25";
    double seconds = 2.0;
    QStringList extra;           // more output options, e.g. {"-b:a", "128k"}
    QString pattern = "testsrc"; // ffmpeg's picture source; "testsrc2" moves more, so it costs more bits

    static Clip Of(const QString &video, const QString &audio, double seconds = 2.0,
                   const QStringList &extra = {}, const QString &size = "320x240")
    {
        Clip c;
        c.videoCodec = video;
        c.audioCodec = audio;
        c.seconds = seconds;
        c.extra = extra;
        c.size = size;
        return c;
    }
};

// Runs ffmpeg with `args` (after "-hide_banner -v error -y"); true when it exits 0.
bool Ffmpeg(const QStringList &args, QString *errors = nullptr);

// Makes `path` (the container follows its extension); returns false and warns on failure.
bool Make(const QString &path, const Clip &clip = Clip());

// Decodes the whole file and returns what ffmpeg reported as errors; empty when it decodes cleanly.
QString DecodeErrors(const QString &path);

// What a file plays by the ffmpeg command itself (-fps_mode passthrough -f null, -progress): the
// last frame count of its first video stream and the last out_time of its first audio stream.
struct Plays {
    qint64 frames = 0;
    double audioSeconds = 0;
};
Plays Played(const QString &path);

// ffprobe's view of a file: what `ffprobe -v error SELECT -of csv=p=0 FILE` prints.
QString Probe(const QString &path, const QStringList &select);
double Duration(const QString &path);
QStringList StreamKinds(const QString &path); // "video", "audio", in stream order
QString CodecName(const QString &path, const QString &kind);
QString VideoSize(const QString &path); // "650x370"

} // namespace Fixtures

Q_DECLARE_METATYPE(Fixtures::Clip)
