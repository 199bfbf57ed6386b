// The player widget and its decoder on ffmpeg-made clips: opening, aspect, playing, seeking, the
// end, bad files, bounded queues, the sound clock, tearing down; and the VideoFileUtil program.

#include "Bytes.h"
#include "Fixtures.h"
#include "Pages.h"
#include "previewer/PlayerDecoder.h"
#include "previewer/PlayerWidget.h"
#include "previewer/SoundFeed.h"

#include <QtTest>

#include <memory>

namespace
{

constexpr int kOpenTimeout = 15000;

// Mean difference per colour channel of two pictures, 0 to 255.
double Difference(const QImage &a, const QImage &b)
{
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32).scaled(x.size());
    double sum = 0.0;
    for (int row = 0; row < x.height(); ++row)
        for (int col = 0; col < x.width(); ++col) {
            const QRgb p = x.pixel(col, row), q = y.pixel(col, row);
            sum += qAbs(qRed(p) - qRed(q)) + qAbs(qGreen(p) - qGreen(q)) + qAbs(qBlue(p) - qBlue(q));
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

bool OpenAndWait(PlayerWidget &player, const QString &path, bool play)
{
    QSignalSpy opened(&player, &PlayerWidget::opened);
    player.Open(path, play);
    return opened.wait(kOpenTimeout) || opened.count() == 1;
}

bool OpenDecoder(PlayerDecoder &decoder)
{
    QSignalSpy opened(&decoder, &PlayerDecoder::Opened);
    decoder.Start();
    return (opened.wait(kOpenTimeout) || opened.count() == 1) && opened.at(0).at(2).toBool();
}

} // namespace

class TstPlayerWidget : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_clip; // 3 s, 320x240 at 25 frames a second, H.264 and AAC

    QString Path(const QString &name) const { return m_dir.filePath(name); }

    // The picture ffmpeg itself decodes at `seconds`.
    QImage Reference(double seconds)
    {
        const QString png = Path(QString("ref-%1.png").arg(seconds));
        Fixtures::Ffmpeg({"-ss", QString::number(seconds), "-i", m_clip, "-frames:v", "1", png});
        return QImage(png);
    }

    // Runs the program through a link (the pages' suites end processes at the previewer's path); its
    // state as its test hook prints it, empty unless Escape closed its window.
    QMap<QString, QString> Run(const QStringList &args, const QString &grab)
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.insert("CORVANE_PREVIEWER_TEST_QUIT_MS", "1500");
        env.insert("CORVANE_PREVIEWER_TEST_GRAB", grab);
        process.setProcessEnvironment(env);
        process.start(Path("player"), args);
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return {};
        }
        if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
            qWarning("exit %d: %s", process.exitCode(), process.readAllStandardError().constData());
            return {};
        }
        QMap<QString, QString> state;
        for (const QString &line : QString::fromUtf8(process.readAllStandardOutput()).split('\n'))
            if (line.contains('='))
                state.insert(line.section('=', 0, 0), line.section('=', 1));
        return state;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY(QFile::link(qEnvironmentVariable("VIDEOFILEUTIL"), Path("player")));
        QVERIFY(Fixtures::Make(Path("clip one.mov")));
        QVERIFY(
            Bytes::WriteFile(Path("broken.mp4"), Bytes::Builder().Box(32, "ftyp").Zeros(24).Box(8, "mdat")));
        m_clip = Path("clip.mp4");
        QVERIFY(Fixtures::Make(m_clip, Fixtures::Clip::Of("libx264", "aac", 3)));
    }

    // Files that open (the first picture shows before playing) and files refused with a reason.
    void opens_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("video");
        QTest::addColumn<QString>("audio");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("reason");
        // Rows with bytes are written as they are; "missing" is no file at all.
        auto row = [](const char *tag, const char *name, const char *video, const char *audio,
                      const QByteArray &bytes, const char *reason) {
            QTest::newRow(tag) << QString(name) << QString(video) << QString(audio) << bytes
                               << QString(reason);
        };
        row("MPEG-4 without sound, blank and accents in the name", "vidéo été .mov", "mpeg4", "", {}, "");
        row("sound only in .m4a", "c.m4a", "", "aac", {}, "");
        row("missing", "bad-missing.mov", "", "", "missing", "No such file or directory");
        row("a header and nothing more", "bad.mov", "", "", Bytes::Builder().Box(24, "ftyp").Zeros(16),
            "Invalid data found when processing input");
    }

    void opens()
    {
        QFETCH(QString, name);
        QFETCH(QString, video);
        QFETCH(QString, audio);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        if (bytes.isEmpty())
            QVERIFY(Fixtures::Make(Path(name), Fixtures::Clip::Of(video, audio)));
        else if (bytes != "missing")
            QVERIFY(Bytes::WriteFile(Path(name), bytes));
        PlayerWidget player;
        player.resize(400, 340);
        player.show();
        QSignalSpy errors(&player, &PlayerWidget::error);
        QSignalSpy opened(&player, &PlayerWidget::opened);
        player.Open(Path(name), false);
        if (!reason.isEmpty()) {
            QVERIFY(errors.wait(kOpenTimeout) || errors.count() == 1);
            QCOMPARE(errors.at(0).at(0).toString(), "This file cannot be played.\n" + reason);
            QCOMPARE(opened.count(), 0);
            player.Play();
            QVERIFY(!player.IsOpen() && !player.IsPlaying());
            return;
        }
        QVERIFY(opened.wait(kOpenTimeout) || opened.count() == 1);
        QVERIFY(player.IsOpen() && !player.IsPlaying() && player.Message().isEmpty());
        QVERIFY2(qAbs(player.Duration() - 2000) <= 100, qPrintable(QString::number(player.Duration())));
        if (video.isEmpty()) {
            QTest::qWait(300);
            QCOMPARE(Pages::Colours(player.View()->grab().toImage()), 1);
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(Pages::Colours(player.View()->grab().toImage()) > 8, 5000);
        }
    }

    void keepsTheAspectRatio_data()
    {
        QTest::addColumn<int>("pixelAspect");
        QTest::addColumn<QSize>("view");
        QTest::addColumn<double>("aspect");
        QTest::newRow("square pixels in a tall view") << 1 << QSize(200, 500) << 4.0 / 3.0;
        QTest::newRow("pixels twice as wide") << 2 << QSize(500, 500) << 8.0 / 3.0;
    }

    void keepsTheAspectRatio()
    {
        QFETCH(int, pixelAspect);
        QFETCH(QSize, view);
        QFETCH(double, aspect);
        const QString file = Path(QString("white-%1.mp4").arg(pixelAspect));
        QVERIFY(Fixtures::Ffmpeg({"-f", "lavfi", "-i", "color=c=white:size=320x240:rate=25:duration=1", "-vf",
                                  QString("setsar=%1").arg(pixelAspect), "-c:v", "libx264", "-pix_fmt",
                                  "yuv420p", file}));
        PlayerWidget player;
        player.show();
        QVERIFY(OpenAndWait(player, file, false));
        player.View()->setFixedSize(view);
        QTRY_VERIFY_WITH_TIMEOUT(!player.View()->Frame().isNull(), 5000);
        const QRect drawn = Drawn(player.View()->grab().toImage());
        // Fills the view one way, and is centred the other.
        QVERIFY(drawn.width() >= view.width() - 2 || drawn.height() >= view.height() - 2);
        QVERIFY(qAbs(double(drawn.width()) / drawn.height() - aspect) < 0.05);
        QVERIFY((drawn.center() - QPoint(view.width() / 2, view.height() / 2)).manhattanLength() <= 4);
    }

    // Space plays and pauses, a paused seek shows the right picture, play resumes there, seeks are clamped.
    void playsPausesSeeksAndEnds()
    {
        const QImage at052 = Reference(0.52), at048 = Reference(0.48), at200 = Reference(2.0);
        QVERIFY(!at052.isNull() && !at048.isNull() && !at200.isNull());
        PlayerWidget player;
        player.show();
        QSignalSpy playing(&player, &PlayerWidget::playingChanged);
        QSignalSpy finished(&player, &PlayerWidget::finished);
        QVERIFY(OpenAndWait(player, m_clip, false));
        QTRY_VERIFY_WITH_TIMEOUT(!player.View()->Frame().isNull(), 5000);
        const QImage first = player.View()->Frame();

        QTest::keyClick(&player, Qt::Key_Space);
        QTRY_VERIFY_WITH_TIMEOUT(player.Position() > 600, 5000);
        QVERIFY(Difference(player.View()->Frame(), first) > 1.0);
        QTest::keyClick(&player, Qt::Key_Space);
        const qint64 paused = player.Position();
        const QImage shown = player.View()->Frame();
        QTest::qWait(400);
        QVERIFY(!player.IsPlaying() && player.Position() == paused && player.View()->Frame() == shown);
        QCOMPARE(playing.count(), 2);

        // Targets fall inside a picture's 40 ms, backward then forward.
        player.Seek(530);
        QTRY_VERIFY_WITH_TIMEOUT(Difference(player.View()->Frame(), at052) < 3.0, 5000);
        QVERIFY(Difference(player.View()->Frame(), at048) > Difference(player.View()->Frame(), at052));
        player.Seek(2010);
        QTRY_VERIFY_WITH_TIMEOUT(Difference(player.View()->Frame(), at200) < 3.0, 5000);
        QCOMPARE(player.Position(), qint64(2010));

        player.Seek(100);
        player.Play();
        QTRY_VERIFY_WITH_TIMEOUT(player.Position() > 300, 5000);
        QVERIFY(player.Position() < 1600); // resumed from the seek, not further on
        player.Seek(-5000);
        QCOMPARE(player.Position(), qint64(0));
        player.Seek(60000);
        QCOMPARE(player.Position(), qint64(3000));
        QVERIFY(finished.wait(5000) || finished.count() == 1);
        QVERIFY(!player.IsPlaying());
        QCOMPARE(player.Position(), player.Duration());

        player.Play(); // at the end: again from the beginning
        QVERIFY(player.IsPlaying() && player.Position() < 300);
    }

    // Files opened before the last one answered say nothing; tearing down never waits long.
    void opensInPlaceAndTearsDown()
    {
        auto player = std::make_unique<PlayerWidget>();
        player->show();
        QSignalSpy errors(player.get(), &PlayerWidget::error);
        player->Open(Path("bad-missing.mov"));
        player->Open(Path("c.m4a"));
        QVERIFY(OpenAndWait(*player, m_clip, true));
        QTest::qWait(300);
        QCOMPARE(errors.count(), 0);
        QCOMPARE(player->Duration(), qint64(3000));
        player->Seek(2500);
        QElapsedTimer timer;
        timer.start();
        player.reset();
        QVERIFY(timer.elapsed() < 2000);

        player = std::make_unique<PlayerWidget>();
        player->Open(m_clip);
        player.reset();    // while opening
        QTest::qWait(100); // nothing the decoders left behind reaches a destroyed widget
    }

    // Untaken, the decoder rests; after a seek both queues start at the target; sound is stereo.
    void decoderQueuesStayBounded()
    {
        PlayerDecoder decoder(m_clip, 48000, 0);
        QVERIFY(OpenDecoder(decoder));
        QTest::qWait(1000);
        QVERIFY(decoder.QueuedVideoFrames() <= 32); // of 75
        QVERIFY(!decoder.Drained());

        decoder.Seek(2.0);
        double pts = -1.0;
        QTRY_VERIFY_WITH_TIMEOUT(decoder.PeekVideo(&pts), 5000);
        QVERIFY2(pts > 1.95 && pts <= 2.0, qPrintable(QString::number(pts)));
        QByteArray sound(4097, '\0');
        QTRY_VERIFY_WITH_TIMEOUT(decoder.QueuedAudioBytes() > 0, 5000);
        QCOMPARE(decoder.ReadAudio(sound.data(), sound.size(), &pts, 0.0), qint64(4096)); // whole frames
        QVERIFY2(pts > 1.95 && pts <= 2.0, qPrintable(QString::number(pts)));
        QVERIFY(!Silent(sound.left(4096)));
    }

    // The sound clock without a sound device: what the feed hands out and the time it keeps.
    void soundFeedKeepsTime_data()
    {
        QTest::addColumn<double>("soundStarts");
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
        QVERIFY(OpenDecoder(decoder));

        // Tenths of a second, read as a device would, while the pictures due are taken.
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
        QVERIFY(Silent(tenth) && qAbs(feed.Position() - before - 0.1) < 1e-9);
    }

    // The program plays its file, says plainly when it cannot, and Escape closes it.
    void program_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("playing");
        QTest::newRow("a clip") << QStringList{"clip one.mov"} << "clip one.mov" << QString() << true;
        QTest::newRow("a broken file")
            << QStringList{"broken.mp4"} << "broken.mp4"
            << "This file cannot be played. | Invalid data found when processing input" << false;
        QTest::newRow("no argument")
            << QStringList{} << "VideoFileUtil"
            << "No file to play. | Start VideoFileUtil with the path of a video file." << false;
    }

    void program()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, title);
        QFETCH(QString, message);
        QFETCH(bool, playing);
        for (QString &arg : args)
            arg = Path(arg);
        const QString grab = Path(QString("%1.png").arg(QTest::currentDataTag()));

        const QMap<QString, QString> state = Run(args, grab);
        QVERIFY2(!state.isEmpty(), "the program did not close on Escape");
        QCOMPARE(state.value("title"), title);
        QCOMPARE(state.value("message"), message);
        QCOMPARE(state.value("playing"), QString::number(playing));
        const QImage window(grab);
        QVERIFY(!window.isNull());
        if (playing) {
            QCOMPARE(state.value("duration"), QString("2000"));
            QVERIFY(state.value("position").toInt() > 500);
            QVERIFY2(Pages::Colours(window, 4) > 16, "a real picture, not a uniform colour");
        }
    }
};

QTEST_MAIN(TstPlayerWidget)
#include "tst_playerwidget.moc"
