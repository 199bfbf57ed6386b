// The engine's own count of what a file plays must agree with the ffmpeg command it stands for,
// damaged files included, and must rank results as the verdicts need.

#include "Bytes.h"
#include "Fixtures.h"
#include "repair/Playback.h"

#include <QTemporaryDir>
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
        QTest::newRow("h264 aac mp4") << "a.mp4"
                                      << "libx264"
                                      << "aac"
                                      << "" << QStringList();
        QTest::newRow("mpeg4 mp3 mov") << "b.mov"
                                       << "mpeg4"
                                       << "libmp3lame"
                                       << "" << QStringList();
        QTest::newRow("audio only m4a") << "c.m4a"
                                        << ""
                                        << "aac"
                                        << "" << QStringList();
        QTest::newRow("zeroed stretch") << "d.mp4"
                                        << "libx264"
                                        << "aac"
                                        << "zero" << QStringList();
        // Sound past the cut must not end the pictures' count, nor a damaged picture the ones
        // behind it.
        QTest::newRow("fragmented, cut off") << "e.mp4"
                                             << "libx264"
                                             << "aac"
                                             << "cut" << QStringList{"-movflags", "frag_keyframe+empty_moov"};
        QTest::newRow("faststart, cut off") << "f.mp4"
                                            << "libx264"
                                            << "aac"
                                            << "cut" << QStringList{"-movflags", "+faststart"};
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

    void notAVideo()
    {
        const QString path = m_dir.filePath("junk.mov");
        QVERIFY(Bytes::WriteFile(path, QByteArray(4096, 'x')));
        const Playback p = MeasurePlayback(path);
        QVERIFY(!p.opens && !p.Plays());
    }

    // Whether A plays more than B, and whether A plays at all: a picture, or a second of sound
    // for a file without pictures.
    void ranking_data()
    {
        QTest::addColumn<bool>("hasVideo");
        QTest::addColumn<qint64>("framesA");
        QTest::addColumn<double>("audioA");
        QTest::addColumn<qint64>("framesB");
        QTest::addColumn<double>("audioB");
        QTest::addColumn<bool>("more");
        QTest::addColumn<bool>("plays");
        QTest::newRow("more pictures win over more sound")
            << true << qint64(10) << 0.0 << qint64(9) << 60.0 << true << true;
        QTest::newRow("same pictures, more sound")
            << true << qint64(10) << 5.0 << qint64(10) << 4.0 << true << true;
        QTest::newRow("same pictures, sound within noise")
            << true << qint64(10) << 4.02 << qint64(10) << 4.0 << false << true;
        QTest::newRow("one picture plays") << true << qint64(1) << 0.0 << qint64(1) << 0.0 << false << true;
        QTest::newRow("sound alone is not a video that plays")
            << true << qint64(0) << 30.0 << qint64(0) << 3.0 << true << false;
        QTest::newRow("equal is not more, half a second of sound does not play")
            << false << qint64(0) << 0.5 << qint64(0) << 0.5 << false << false;
        QTest::newRow("a second of sound plays")
            << false << qint64(0) << 1.0 << qint64(0) << 3.0 << false << true;
    }

    void ranking()
    {
        QFETCH(bool, hasVideo);
        QFETCH(qint64, framesA);
        QFETCH(double, audioA);
        QFETCH(qint64, framesB);
        QFETCH(double, audioB);
        QFETCH(bool, more);
        QFETCH(bool, plays);
        Playback a, b;
        a.hasVideo = hasVideo;
        a.hasAudio = true;
        a.videoFrames = framesA;
        a.audioSeconds = audioA;
        b.videoFrames = framesB;
        b.audioSeconds = audioB;
        QCOMPARE(PlaysMore(a, b), more);
        QCOMPARE(a.Plays(), plays);
    }
};

QTEST_GUILESS_MAIN(TstPlayback)
#include "tst_playback.moc"
