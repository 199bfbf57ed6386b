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
        QTest::addColumn<int>("zeroAt"); // percent of the file where 16 KiB are zeroed, -1 for none
        QTest::addColumn<QStringList>("extra");
        QTest::addColumn<bool>("cutOff"); // the last 40% lost
        QTest::newRow("h264 aac mp4") << "a.mp4" << "libx264" << "aac" << -1 << QStringList() << false;
        QTest::newRow("mpeg4 mp3 mov") << "b.mov" << "mpeg4" << "libmp3lame" << -1 << QStringList() << false;
        QTest::newRow("audio only m4a") << "c.m4a" << "" << "aac" << -1 << QStringList() << false;
        QTest::newRow("zeroed stretch") << "d.mp4" << "libx264" << "aac" << 50 << QStringList() << false;
        // Sound past the cut must not end the pictures' count, nor a damaged picture the ones
        // behind it.
        QTest::newRow("fragmented, cut off") << "e.mp4" << "libx264" << "aac" << -1
                                             << QStringList{"-movflags", "frag_keyframe+empty_moov"} << true;
        QTest::newRow("faststart, cut off") << "f.mp4" << "libx264" << "aac" << -1
                                            << QStringList{"-movflags", "+faststart"} << true;
    }
    void agreesWithFfmpeg()
    {
        QFETCH(QString, name);
        QFETCH(QString, video);
        QFETCH(QString, audio);
        QFETCH(int, zeroAt);
        QFETCH(QStringList, extra);
        QFETCH(bool, cutOff);
        const QString path = m_dir.filePath(name);
        Fixtures::Clip clip;
        clip.videoCodec = video;
        clip.audioCodec = audio;
        clip.seconds = 3;
        clip.extra = extra;
        clip.pattern = cutOff ? "testsrc2" : "testsrc"; // pictures that refer to ones past the cut
        QVERIFY(Fixtures::Make(path, clip));
        QByteArray bytes = Bytes::ReadFile(path);
        if (zeroAt >= 0)
            bytes.replace(bytes.size() * zeroAt / 100, 16384, QByteArray(16384, '\0'));
        if (cutOff)
            bytes.truncate(bytes.size() * 6 / 10);
        Bytes::WriteFile(path, bytes);

        const Playback ours = MeasurePlayback(path);
        const Fixtures::Plays ffmpeg = Fixtures::Played(path);
        QVERIFY(ours.opens);
        QCOMPARE(ours.hasVideo, !video.isEmpty());
        QCOMPARE(ours.videoFrames, ffmpeg.frames);
        QVERIFY2(qAbs(ours.audioSeconds - ffmpeg.audioSeconds) < 0.1,
                 qPrintable(QString("%1 against %2").arg(ours.audioSeconds).arg(ffmpeg.audioSeconds)));
        QVERIFY(ours.Plays());

        const Playback first = MeasureFirstPlay(path);
        QVERIFY(first.Plays());
        QVERIFY(first.videoFrames <= 1 || video.isEmpty());
    }

    void notAVideo()
    {
        const QString path = m_dir.filePath("junk.mov");
        Bytes::WriteFile(path, QByteArray(4096, 'x'));
        const Playback p = MeasurePlayback(path);
        QVERIFY(!p.opens);
        QVERIFY(!p.Plays());
    }

    void ranking_data()
    {
        QTest::addColumn<qint64>("framesA");
        QTest::addColumn<double>("audioA");
        QTest::addColumn<qint64>("framesB");
        QTest::addColumn<double>("audioB");
        QTest::addColumn<bool>("more");
        QTest::newRow("more pictures win over more sound") << qint64(10) << 0.0 << qint64(9) << 60.0 << true;
        QTest::newRow("same pictures, more sound") << qint64(10) << 5.0 << qint64(10) << 4.0 << true;
        QTest::newRow("same pictures, sound within noise") << qint64(10) << 4.02 << qint64(10) << 4.0 << false;
        QTest::newRow("equal is not more") << qint64(0) << 3.0 << qint64(0) << 3.0 << false;
    }
    void ranking()
    {
        QFETCH(qint64, framesA);
        QFETCH(double, audioA);
        QFETCH(qint64, framesB);
        QFETCH(double, audioB);
        QFETCH(bool, more);
        Playback a, b;
        a.videoFrames = framesA;
        a.audioSeconds = audioA;
        b.videoFrames = framesB;
        b.audioSeconds = audioB;
        QCOMPARE(PlaysMore(a, b), more);
    }

    void playsNeedsAPictureOrASecondOfSound()
    {
        Playback p;
        p.hasVideo = true;
        p.audioSeconds = 30;
        QVERIFY(!p.Plays());
        p.videoFrames = 1;
        QVERIFY(p.Plays());
        Playback sound;
        sound.hasAudio = true;
        sound.audioSeconds = 0.5;
        QVERIFY(!sound.Plays());
        sound.audioSeconds = 1.0;
        QVERIFY(sound.Plays());
    }
};

QTEST_GUILESS_MAIN(TstPlayback)
#include "tst_playback.moc"
