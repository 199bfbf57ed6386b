#include "Fixtures.h"

#include <QProcess>
#include <QtGlobal>

namespace Fixtures
{

namespace
{

QString Run(const QString &program, const QStringList &args, int *exitCode, QString *err = nullptr)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(120000)) {
        p.kill();
        p.waitForFinished();
        *exitCode = -1;
        return {};
    }
    *exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    if (err)
        *err = QString::fromLocal8Bit(p.readAllStandardError());
    return QString::fromLocal8Bit(p.readAllStandardOutput());
}

} // namespace

QString Probe(const QString &path, const QStringList &select)
{
    int code = 0;
    return Run("ffprobe", QStringList{"-v", "error"} + select + QStringList{"-of", "csv=p=0", path}, &code)
        .trimmed();
}

bool Ffmpeg(const QStringList &args, QString *errors)
{
    int code = 0;
    QString err;
    Run("ffmpeg", QStringList{"-hide_banner", "-nostdin", "-v", "error", "-y"} + args, &code, &err);
    if (errors)
        *errors = err;
    return code == 0;
}

bool Make(const QString &path, const Clip &clip)
{
    const QString seconds = QString::number(clip.seconds);
    QStringList args;
    const QStringList lavfi{"-f", "lavfi", "-i"};
    if (!clip.videoCodec.isEmpty())
        args << lavfi
             << QString("%1=size=%2:rate=%3:duration=%4").arg(clip.pattern, clip.size, clip.rate, seconds);
    if (!clip.audioCodec.isEmpty())
        args << lavfi << QString("sine=frequency=440:sample_rate=44100:duration=%1").arg(seconds);
    if (!clip.videoCodec.isEmpty())
        args << "-c:v" << clip.videoCodec << "-pix_fmt" << clip.pixelFormat;
    if (!clip.audioCodec.isEmpty())
        args << "-c:a" << clip.audioCodec << QStringList{"-ac", "2"};
    args << clip.extra << path;
    QString errors;
    const bool made = Ffmpeg(args, &errors);
    if (!made)
        qWarning("ffmpeg could not make %s: %s", qPrintable(path), qPrintable(errors));
    return made;
}

QString DecodeErrors(const QString &path)
{
    QString errors;
    if (!Ffmpeg({"-i", path, "-f", "null", "-"}, &errors) && errors.isEmpty())
        errors = "ffmpeg failed";
    return errors.trimmed();
}

namespace
{

// The last value of `key` in ffmpeg's -progress output over one stream of the file.
QString LastProgress(const QString &path, const QString &map, const QString &key)
{
    int code = 0;
    const QString out = Run("ffmpeg",
                            {"-hide_banner", "-nostdin", "-v", "error", "-i", path, "-map", map, "-fps_mode",
                             "passthrough", "-f", "null", "-", "-progress", "pipe:1"},
                            &code);
    QString value;
    for (const QString &line : out.split('\n'))
        if (line.startsWith(key + "="))
            value = line.mid(key.size() + 1).trimmed();
    return value;
}

} // namespace

Plays Played(const QString &path)
{
    Plays p;
    p.frames = LastProgress(path, "0:v:0", "frame").toLongLong();
    const QString us = LastProgress(path, "0:a:0", "out_time_us");
    p.audioSeconds = us.toLongLong() > 0 ? us.toLongLong() / 1e6 : 0.0;
    return p;
}

double Duration(const QString &path)
{
    return Probe(path, {"-show_entries", "format=duration"}).toDouble();
}

QStringList StreamKinds(const QString &path)
{
    return Probe(path, {"-show_entries", "stream=codec_type"}).split('\n', Qt::SkipEmptyParts);
}

QString CodecName(const QString &path, const QString &kind)
{
    return Probe(path, {"-select_streams", kind.left(1), "-show_entries", "stream=codec_name"})
        .section('\n', 0, 0);
}

QString VideoSize(const QString &path)
{
    return Probe(path, {"-select_streams", "v", "-show_entries", "stream=width,height"}).replace(',', 'x');
}

} // namespace Fixtures
