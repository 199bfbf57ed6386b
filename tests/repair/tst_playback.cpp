// The engine's count of what a file plays agrees with the ffmpeg command, and ranks results.

#include "Bytes.h"
#include "Fixtures.h"
#include "repair/Playback.h"

#include <QtTest>

class TstPlayback : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;

private Q_SLOTS:
    void agreesWithFfmpeg_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("video");
        QTest::addColumn<QString>("audio");
        QTest::addColumn<QString>("damage"); // "zero": 16 KiB in the middle, "cut": the last 40% lost
        QTest::addColumn<QStringList>("extra");
        auto row = [](const char *tag, const char *name, const char *video, const char *audio,
                      const char *damage, const QStringList &extra = {}) {
            QTest::newRow(tag) << QString(name) << QString(video) << QString(audio) << QString(damage)
                               << extra;
        };
        row("h264 aac mp4", "a.mp4", "libx264", "aac", "");
        row("mpeg4 mp3 mov", "b.mov", "mpeg4", "libmp3lame", "");
        row("audio only m4a", "c.m4a", "", "aac", "");
        row("zeroed stretch", "d.mp4", "libx264", "aac", "zero");
        // Neither sound past the cut nor a damaged picture ends the pictures' count.
        row("fragmented, cut off", "e.mp4", "libx264", "aac", "cut",
            {"-movflags", "frag_keyframe+empty_moov"});
        row("faststart, cut off", "f.mp4", "libx264", "aac", "cut", {"-movflags", "+faststart"});
    }

    void agreesWithFfmpeg()
    {
        QFETCH(QString, name);
        QFETCH(QString, video);
        QFETCH(QString, audio);
        QFETCH(QString, damage);
        QFETCH(QStringList, extra);
        const QString path = m_dir.filePath(name);
        Fixtures::Clip clip = Fixtures::Clip::Of(video, audio, 3, extra);
        if (damage == "cut")
            clip.pattern = "testsrc2"; // pictures that refer to ones past the cut
        QVERIFY(Fixtures::Make(path, clip));
        QByteArray bytes = Bytes::ReadFile(path);
        if (damage == "zero")
            bytes.replace(bytes.size() / 2, 16384, QByteArray(16384, '\0'));
        if (damage == "cut")
            bytes.truncate(bytes.size() * 6 / 10);
        QVERIFY(Bytes::WriteFile(path, bytes));

        const Playback ours = MeasurePlayback(path);
        const Fixtures::Plays ffmpeg = Fixtures::Played(path);
        QVERIFY(ours.opens && ours.Plays());
        QCOMPARE(ours.hasVideo, !video.isEmpty());
        QCOMPARE(ours.videoFrames, ffmpeg.frames);
        QVERIFY2(qAbs(ours.audioSeconds - ffmpeg.audioSeconds) < 0.1,
                 qPrintable(QString("%1 against %2").arg(ours.audioSeconds).arg(ffmpeg.audioSeconds)));

        const Playback first = MeasureFirstPlay(path);
        QVERIFY(first.Plays());
        QVERIFY(first.videoFrames <= 1 || video.isEmpty());
    }

    // Which result plays more (pictures, then sound beyond noise), and whether a file plays at all.
    void ranking()
    {
        auto p = [](bool video, qint64 frames, double audio) {
            Playback r;
            r.opens = r.hasAudio = true;
            r.hasVideo = video;
            r.videoFrames = frames;
            r.audioSeconds = audio;
            return r;
        };
        QVERIFY(PlaysMore(p(true, 10, 0), p(true, 9, 60)));        // more pictures win over more sound
        QVERIFY(PlaysMore(p(true, 10, 5), p(true, 10, 4)));        // same pictures, more sound
        QVERIFY(!PlaysMore(p(true, 10, 4.02), p(true, 10, 4)));    // sound within noise
        QVERIFY(!PlaysMore(p(false, 0, 3), p(false, 0, 3)));       // equal is not more
        QVERIFY(p(true, 1, 0).Plays() && !p(true, 0, 30).Plays()); // sound alone is not a video that plays
        QVERIFY(p(false, 0, 1).Plays() && !p(false, 0, 0.5).Plays());
        const QString junk = m_dir.filePath("junk.mov");
        QVERIFY(Bytes::WriteFile(junk, QByteArray(4096, 'x')));
        QVERIFY(!MeasurePlayback(junk).opens && !MeasurePlayback(junk).Plays());
    }
};

QTEST_GUILESS_MAIN(TstPlayback)
#include "tst_playback.moc"
