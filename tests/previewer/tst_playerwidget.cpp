// The player widget and its decoder on clips made with ffmpeg: opening, drawing with the aspect
// ratio kept, playing, pausing, seeking to the right picture, the end of a file, files it cannot
// open, bounded queues, and tearing down at any moment.

#include "Bytes.h"
#include "Fixtures.h"
#include "previewer/PlayerDecoder.h"
#include "previewer/PlayerWidget.h"
#include "previewer/SoundFeed.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace
{

constexpr int kOpenTimeout = 15000;

// Mean difference per colour channel of two pictures of the same size, 0 to 255.
double Difference(const QImage &a, const QImage &b)
{
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32).scaled(x.size());
    double sum = 0.0;
    for (int row = 0; row < x.height(); ++row) {
        const QRgb *p = reinterpret_cast<const QRgb *>(x.constScanLine(row));
        const QRgb *q = reinterpret_cast<const QRgb *>(y.constScanLine(row));
        for (int col = 0; col < x.width(); ++col)
            sum += qAbs(qRed(p[col]) - qRed(q[col])) + qAbs(qGreen(p[col]) - qGreen(q[col])) +
                   qAbs(qBlue(p[col]) - qBlue(q[col]));
    }
    return sum / (3.0 * x.width() * x.height());
}

// The part of a grabbed picture area that is not black.
QRect Drawn(const QImage &image)
{
    QRect box;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (qGray(image.pixel(x, y)) > 64)
                box |= QRect(x, y, 1, 1);
    return box;
}

bool Silent(const QByteArray &sound)
{
    return sound.count('\0') == sound.size();
}

int Colours(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 3)
        for (int x = 0; x < image.width(); x += 3)
            colours.insert(image.pixel(x, y));
    return colours.size();
}

} // namespace

class TstPlayerWidget : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_clip;  // 3 s, 320x240 at 25 frames a second, H.264 and AAC, one key frame
    QString m_short; // 1 s, pictures only

    QString Path(const QString &name) const { return m_dir.filePath(name); }

    // The picture ffmpeg itself decodes at `seconds`.
    QImage Reference(double seconds)
    {
        const QString png = Path(QString("ref-%1.png").arg(seconds));
        if (!QFile::exists(png) &&
            !Fixtures::Ffmpeg({"-ss", QString::number(seconds), "-i", m_clip, "-frames:v", "1", png}))
            return {};
        return QImage(png);
    }

    static bool OpenAndWait(PlayerWidget &player, const QString &path, bool play)
    {
        QSignalSpy opened(&player, &PlayerWidget::opened);
        player.Open(path, play);
        return opened.wait(kOpenTimeout) || opened.count() == 1;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_clip = Path("clip.mp4");
        Fixtures::Clip clip;
        clip.seconds = 3.0;
        QVERIFY(Fixtures::Make(m_clip, clip));
        m_short = Path("short.mov");
        clip.seconds = 1.0;
        clip.audioCodec.clear();
        QVERIFY(Fixtures::Make(m_short, clip));
    }

    void opens_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("video");
        QTest::addColumn<QString>("audio");
        QTest::addColumn<qint64>("duration");

        QTest::newRow("H.264 and AAC in .mp4") << "a.mp4"
                                               << "libx264"
                                               << "aac" << qint64(2000);
        QTest::newRow("MPEG-4 without sound in .mov") << "b.mov"
                                                      << "mpeg4"
                                                      << "" << qint64(2000);
        QTest::newRow("sound only in .m4a") << "c.m4a"
                                            << ""
                                            << "aac" << qint64(2000);
        QTest::newRow("blank and accents in the name") << "vidéo été .m4v"
                                                       << "libx264"
                                                       << "aac" << qint64(2000);
    }

    void opens()
    {
        QFETCH(QString, name);
        QFETCH(QString, video);
        QFETCH(QString, audio);
        QFETCH(qint64, duration);
        Fixtures::Clip clip;
        clip.videoCodec = video;
        clip.audioCodec = audio;
        QVERIFY(Fixtures::Make(Path(name), clip));

        PlayerWidget player;
        player.resize(400, 340);
        player.show();
        QSignalSpy errors(&player, &PlayerWidget::error);
        QVERIFY(OpenAndWait(player, Path(name), false));
        QCOMPARE(errors.count(), 0);
        QVERIFY(player.IsOpen());
        QVERIFY2(qAbs(player.Duration() - duration) <= 100, qPrintable(QString::number(player.Duration())));
        QCOMPARE(player.Position(), qint64(0));
        QVERIFY(!player.IsPlaying());
        if (video.isEmpty()) {
            QTest::qWait(300);
            QCOMPARE(Colours(player.View()->grab().toImage()), 1);
        } else {
            // The first picture shows before playing starts.
            QTRY_VERIFY_WITH_TIMEOUT(Colours(player.View()->grab().toImage()) > 8, 5000);
        }
    }

    void keepsTheAspectRatio_data()
    {
        QTest::addColumn<int>("pixelAspect");
        QTest::addColumn<QSize>("view");
        QTest::addColumn<double>("aspect");

        QTest::newRow("square pixels in a wide view") << 1 << QSize(600, 200) << 4.0 / 3.0;
        QTest::newRow("square pixels in a tall view") << 1 << QSize(200, 500) << 4.0 / 3.0;
        QTest::newRow("pixels twice as wide") << 2 << QSize(500, 500) << 8.0 / 3.0;
    }

    void keepsTheAspectRatio()
    {
        QFETCH(int, pixelAspect);
        QFETCH(QSize, view);
        QFETCH(double, aspect);
        const QString file = Path(QString("white-%1.mp4").arg(pixelAspect));
        if (!QFile::exists(file))
            QVERIFY(Fixtures::Ffmpeg({"-f", "lavfi", "-i", "color=c=white:size=320x240:rate=25:duration=1",
                                      "-vf", QString("setsar=%1").arg(pixelAspect), "-c:v", "libx264",
                                      "-pix_fmt", "yuv420p", file}));

        PlayerWidget player;
        player.show();
        QVERIFY(OpenAndWait(player, file, false));
        player.View()->setFixedSize(view);
        QTRY_VERIFY_WITH_TIMEOUT(!player.View()->Frame().isNull(), 5000);
        const QRect drawn = Drawn(player.View()->grab().toImage());
        // Fills the view one way, and is centred the other.
        QVERIFY2(drawn.width() >= view.width() - 2 || drawn.height() >= view.height() - 2,
                 qPrintable(QString("%1x%2").arg(drawn.width()).arg(drawn.height())));
        QVERIFY(qAbs(double(drawn.width()) / drawn.height() - aspect) < 0.05);
        QVERIFY(qAbs(drawn.center().x() - view.width() / 2) <= 2);
        QVERIFY(qAbs(drawn.center().y() - view.height() / 2) <= 2);
    }

    void playsAndPausesWithSpace()
    {
        PlayerWidget player;
        player.show();
        QVERIFY(OpenAndWait(player, m_clip, false));
        QTRY_VERIFY_WITH_TIMEOUT(!player.View()->Frame().isNull(), 5000);
        const QImage first = player.View()->Frame();

        QSignalSpy playing(&player, &PlayerWidget::playingChanged);
        QTest::keyClick(&player, Qt::Key_Space);
        QVERIFY(player.IsPlaying());
        QTRY_VERIFY_WITH_TIMEOUT(player.Position() > 600, 5000);
        QVERIFY(Difference(player.View()->Frame(), first) > 1.0);

        QTest::keyClick(&player, Qt::Key_Space);
        QVERIFY(!player.IsPlaying());
        const qint64 paused = player.Position();
        const QImage shown = player.View()->Frame();
        QTest::qWait(400);
        QCOMPARE(player.Position(), paused);
        QCOMPARE(player.View()->Frame(), shown);
        QCOMPARE(playing.count(), 2);

        player.Play();
        QTRY_VERIFY_WITH_TIMEOUT(player.Position() > paused + 200, 5000);
        // Resumed from where it stopped, not from the start or further on.
        QVERIFY(player.Position() < paused + 1500);
    }

    void seeksToThePicture_data()
    {
        QTest::addColumn<qint64>("before");
        QTest::addColumn<qint64>("target");
        QTest::addColumn<double>("picture");
        QTest::addColumn<double>("neighbour");

        // Targets fall inside a picture's 40 ms; `picture` is the one showing then.
        QTest::newRow("forward") << qint64(0) << qint64(2010) << 2.0 << 1.96;
        QTest::newRow("backward") << qint64(2500) << qint64(530) << 0.52 << 0.48;
        QTest::newRow("the start again") << qint64(1500) << qint64(0) << 0.0 << 0.04;
    }

    void seeksToThePicture()
    {
        QFETCH(qint64, before);
        QFETCH(qint64, target);
        QFETCH(double, picture);
        QFETCH(double, neighbour);
        const QImage expected = Reference(picture);
        const QImage other = Reference(neighbour);
        QVERIFY(!expected.isNull() && !other.isNull());

        PlayerWidget player;
        player.show();
        QVERIFY(OpenAndWait(player, m_clip, false));
        if (before > 0)
            player.Seek(before);
        QTRY_VERIFY_WITH_TIMEOUT(!player.View()->Frame().isNull(), 5000);
        player.Seek(target);
        QCOMPARE(player.Position(), target);
        QTRY_VERIFY_WITH_TIMEOUT(Difference(player.View()->Frame(), expected) < 3.0, 5000);
        QVERIFY(Difference(player.View()->Frame(), other) > Difference(player.View()->Frame(), expected));
        QCOMPARE(player.Position(), target);
    }

    void seeksWhilePlaying_data()
    {
        QTest::addColumn<qint64>("target");
        QTest::addColumn<qint64>("expected");

        QTest::newRow("forward") << qint64(2000) << qint64(2000);
        QTest::newRow("backward") << qint64(100) << qint64(100);
        QTest::newRow("past the end") << qint64(60000) << qint64(3000);
        QTest::newRow("before the start") << qint64(-5000) << qint64(0);
    }

    void seeksWhilePlaying()
    {
        QFETCH(qint64, target);
        QFETCH(qint64, expected);
        PlayerWidget player;
        player.show();
        QVERIFY(OpenAndWait(player, m_clip, true));
        QTRY_VERIFY_WITH_TIMEOUT(player.Position() > 800, 5000);
        player.Seek(target);
        QCOMPARE(player.Position(), expected);
        QTest::qWait(300);
        QVERIFY2(player.Position() >= expected && player.Position() <= expected + 600,
                 qPrintable(QString::number(player.Position())));
    }

    void playsToTheEnd()
    {
        PlayerWidget player;
        player.show();
        QSignalSpy finished(&player, &PlayerWidget::finished);
        QVERIFY(OpenAndWait(player, m_short, true));
        QVERIFY(finished.wait(5000) || finished.count() == 1);
        QVERIFY(!player.IsPlaying());
        QCOMPARE(player.Position(), player.Duration());

        // Play at the end starts again from the beginning.
        player.Play();
        QVERIFY(player.IsPlaying());
        QVERIFY(player.Position() < 300);
        QTRY_VERIFY_WITH_TIMEOUT(player.Position() > 300, 5000);
    }

    void refusesFiles_data()
    {
        QTest::addColumn<QByteArray>("bytes"); // "missing" for no file at all
        QTest::addColumn<QString>("reason");

        QTest::newRow("missing") << QByteArray("missing") << "No such file or directory";
        QTest::newRow("empty") << QByteArray() << "Invalid data found when processing input";
        QTest::newRow("text") << QByteArray("not a film\n").repeated(100)
                              << "Invalid data found when processing input";
        QTest::newRow("a header and nothing more") << Bytes::Builder().Box(24, "ftyp").Zeros(16).Data()
                                                   << "Invalid data found when processing input";
    }

    void refusesFiles()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        const QString file = Path(QString("bad-%1.mov").arg(QTest::currentDataTag()));
        if (bytes != "missing")
            Bytes::WriteFile(file, bytes);

        PlayerWidget player;
        player.show();
        QSignalSpy errors(&player, &PlayerWidget::error);
        QSignalSpy opened(&player, &PlayerWidget::opened);
        player.Open(file);
        QVERIFY(errors.wait(kOpenTimeout) || errors.count() == 1);
        const QString message = "This file cannot be played.\n" + reason;
        QCOMPARE(errors.at(0).at(0).toString(), message);
        QCOMPARE(player.Message(), message);
        QCOMPARE(opened.count(), 0);
        QVERIFY(!player.IsOpen());
        player.Play();
        QVERIFY(!player.IsPlaying());
        QCOMPARE(player.Duration(), qint64(0));
    }

    void opensAnotherFileInPlace()
    {
        PlayerWidget player;
        player.show();
        QSignalSpy errors(&player, &PlayerWidget::error);
        player.Open(Path("bad-missing.mov"));
        player.Open(m_clip); // before the first one has answered
        QVERIFY(OpenAndWait(player, m_short, true));
        QTest::qWait(300);
        // Only the file open now speaks.
        QCOMPARE(errors.count(), 0);
        QCOMPARE(player.Duration(), qint64(1000));
    }

    void tearsDownAtAnyMoment_data()
    {
        QTest::addColumn<int>("stage"); // 0 opening, 1 open and paused, 2 playing, 3 playing sought

        QTest::newRow("while opening") << 0;
        QTest::newRow("paused") << 1;
        QTest::newRow("playing") << 2;
        QTest::newRow("just after a seek") << 3;
    }

    void tearsDownAtAnyMoment()
    {
        QFETCH(int, stage);
        auto player = std::make_unique<PlayerWidget>();
        player->show();
        if (stage == 0) {
            player->Open(m_clip);
        } else {
            QVERIFY(OpenAndWait(*player, m_clip, stage >= 2));
            QTest::qWait(200);
            if (stage == 3)
                player->Seek(2500);
        }
        QElapsedTimer timer;
        timer.start();
        player.reset();
        QVERIFY(timer.elapsed() < 2000);
        // Nothing the decoder left behind reaches a destroyed widget.
        QTest::qWait(100);
    }

    void decoderQueuesStayBounded()
    {
        const QString file = Path("long.mp4");
        Fixtures::Clip clip;
        clip.seconds = 30.0;
        clip.extra = QStringList{"-preset", "ultrafast"};
        QVERIFY(Fixtures::Make(file, clip));

        // Nobody takes anything: the decoder must rest instead of reading the whole file.
        PlayerDecoder decoder(file, 48000, 2);
        QSignalSpy opened(&decoder, &PlayerDecoder::Opened);
        decoder.Start();
        QVERIFY(opened.wait(kOpenTimeout) || opened.count() == 1);
        QCOMPARE(opened.at(0).at(2).toBool(), true);
        QTest::qWait(1000);
        QVERIFY(decoder.QueuedVideoFrames() <= 32);
        QVERIFY(decoder.QueuedAudioBytes() <= 4 * 48000 * 4);
        QVERIFY(!decoder.Drained());

        // After a seek both queues start at the target: the picture showing then, and sound from
        // no earlier than one block before it.
        decoder.Seek(20.0);
        double pts = -1.0;
        QTRY_VERIFY_WITH_TIMEOUT(decoder.PeekVideo(&pts), 5000);
        QVERIFY2(pts > 19.95 && pts <= 20.0, qPrintable(QString::number(pts)));
        QByteArray sound(4096, '\0');
        QTRY_VERIFY_WITH_TIMEOUT(decoder.QueuedAudioBytes() > 0, 5000);
        QCOMPARE(decoder.ReadAudio(sound.data(), sound.size(), &pts, 0.0), qint64(sound.size()));
        QVERIFY2(pts > 19.95 && pts <= 20.0, qPrintable(QString::number(pts)));
        // The sound is the 440 Hz tone, not silence.
        const qint16 *samples = reinterpret_cast<const qint16 *>(sound.constData());
        int loud = 0;
        for (int i = 0; i < sound.size() / 2; ++i)
            loud += qAbs(samples[i]) > 1000;
        QVERIFY(loud > 100);
    }

    // The sound clock without a sound device: what the feed hands out and the time it keeps.
    void soundFeedKeepsTime_data()
    {
        QTest::addColumn<double>("soundStarts"); // where the file's sound starts

        QTest::newRow("sound from the start") << 0.0;
        QTest::newRow("sound starting a second late") << 1.0;
    }

    void soundFeedKeepsTime()
    {
        QFETCH(double, soundStarts);
        const QString file = Path(QString("late-%1.mp4").arg(soundStarts));
        QVERIFY(Fixtures::Ffmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:rate=25:duration=3",
                                  "-itsoffset", QString::number(soundStarts), "-f", "lavfi", "-i",
                                  "sine=frequency=440:sample_rate=44100:duration=2", "-c:v", "libx264",
                                  "-c:a", "aac", file}));
        PlayerDecoder decoder(file, 48000, 2);
        QSignalSpy opened(&decoder, &PlayerDecoder::Opened);
        decoder.Start();
        QVERIFY(opened.wait(kOpenTimeout) || opened.count() == 1);

        // Tenths of a second, read one after the other as a device would, while the pictures due
        // are taken as the player would take them.
        SoundFeed feed(&decoder, 48000, 2);
        feed.Restart(0.0);
        QByteArray tenth(48000 * 4 / 10, 'x');
        QList<bool> silent;
        for (int i = 0; i < 15; ++i) {
            VideoFrame frame;
            double pts = 0.0;
            while (decoder.PeekVideo(&pts) && pts < feed.Position())
                decoder.TakeVideo(&frame);
            QTRY_VERIFY_WITH_TIMEOUT(decoder.QueuedAudioBytes() >= tenth.size(), 5000);
            // A read stops short where late sound begins; the device asks again.
            for (qint64 got = 0; got < tenth.size();)
                got += feed.Read(tenth.data() + got, tenth.size() - got);
            silent << Silent(tenth);
        }
        // The time runs on with the bytes, across the silence before late sound too.
        QVERIFY2(qAbs(feed.Position() - 1.5) < 0.03, qPrintable(QString::number(feed.Position())));
        QCOMPARE(silent.first(), soundStarts > 0.0);
        QVERIFY(!silent.last());
        QVERIFY(qAbs(feed.LastSound() - feed.Position()) < 0.03);

        // Whole sample frames only, so that left and right never swap.
        QCOMPARE(feed.Read(tenth.data(), 4097), qint64(4096));

        // Nothing queued: silence, and the time still runs on.
        decoder.DisableAudio();
        const double before = feed.Position();
        QCOMPARE(feed.Read(tenth.data(), tenth.size()), qint64(tenth.size()));
        QVERIFY(Silent(tenth));
        QVERIFY(qAbs(feed.Position() - before - 0.1) < 1e-9);
    }
};

QTEST_MAIN(TstPlayerWidget)
#include "tst_playerwidget.moc"
