// The re-encoding pass on real files made with ffmpeg: outputs that decode and keep their streams,
// files refused for their audio, the odd-size and frame-rate rules, and stops inside the pass.

#include "Fixtures.h"
#include "SignalLog.h"
#include "StdoutCapture.h"
#include "repair/AudioPipeline.h"
#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

using Fixtures::Clip;

namespace {

// Four seconds: the pass does not drain the video decoder, so the two or three pictures it holds
// back for reordering at the end stay well inside the 5% the duration checks allow.
Clip MakeClip(const QString &video, const QString &audio)
{
    Clip c;
    c.videoCodec = video;
    c.audioCodec = audio;
    c.seconds = 4;
    return c;
}

QStringList Sorted(QStringList l)
{
    l.sort();
    return l;
}

// One repair run over `sources` into `temp`; returns the worker's unsupported list.
QStringList Repair(const QStringList &sources, const QString &temp, SignalLog *log = nullptr,
                   const std::function<void(ThreadVideoRepair &)> &setUp = {})
{
    ThreadVideoRepair worker;
    if (log) {
        log->Watch(&worker, &ThreadVideoRepair::Info, "Info");
        log->Watch(&worker, &ThreadVideoRepair::RepairFinish, "RepairFinish");
        log->Watch(&worker, &ThreadVideoRepair::ProcessAborted, "ProcessAborted");
    }
    if (setUp)
        setUp(worker);
    worker.SetInitialSettings(sources, temp);
    if (!worker.wait(180000))
        qFatal("repair run did not end");
    return worker.UnsupportedList();
}

} // namespace

class TstReEncode : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_in;
    QString m_temp;
    QStringList m_unsupported;

    QString Fresh(const QString &name)
    {
        const QString path = m_dir.filePath(name);
        QDir(path).removeRecursively();
        QDir().mkpath(path);
        return path;
    }

private Q_SLOTS:
    // One run over the common kinds of file, in this order; the checks below look at its results.
    void initTestCase()
    {
        m_in = Fresh("in");
        m_temp = Fresh("work");
        const QList<QPair<QString, Clip>> clips{
            {"h264-aac.mp4", MakeClip("libx264", "aac")},
            {"h264-aac.mov", MakeClip("libx264", "aac")},
            {"mpeg4-mp3.mov", MakeClip("mpeg4", "libmp3lame")},
            {"clip.m4v", MakeClip("libx264", "aac")},
            {"clip.f4v", MakeClip("libx264", "aac")},
            {"pcm.mov", MakeClip("libx264", "pcm_s16le")},
            {"video-only.mp4", MakeClip("libx264", "")},
        };
        QStringList sources;
        for (const auto &c : clips) {
            QVERIFY(Fixtures::Make(m_in + "/" + c.first, c.second));
            sources << m_in + "/" + c.first;
        }
        m_unsupported = Repair(sources, m_temp);
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        QVERIFY(!pHandle);
    }

    void outputsDecode_data()
    {
        QTest::addColumn<QString>("name");
        for (const char *name : {"h264-aac.mp4", "h264-aac.mov", "mpeg4-mp3.mov", "clip.m4v", "clip.f4v",
                                 "video-only.mp4"})
            QTest::newRow(name) << QString(name);
    }

    void outputsDecode()
    {
        QFETCH(QString, name);
        const QString out = m_temp + "/" + name;
        const QString in = m_in + "/" + name;
        QVERIFY(QFileInfo::exists(out));
        QVERIFY2(Fixtures::DecodeErrors(out).isEmpty(), qPrintable(Fixtures::DecodeErrors(out)));
        // The output's audio stream is made first, so compare the kinds, not their order.
        QCOMPARE(Sorted(Fixtures::StreamKinds(out)), Sorted(Fixtures::StreamKinds(in)));
        QCOMPARE(Fixtures::CodecName(out, "video"), QString("h264"));
        if (Fixtures::StreamKinds(in).contains("audio"))
            QCOMPARE(Fixtures::CodecName(out, "audio"), QString("aac"));
        const double want = Fixtures::Duration(in);
        const double got = Fixtures::Duration(out);
        QVERIFY2(qAbs(got - want) <= 0.05 * want, qPrintable(QString("%1 s for %2 s").arg(got).arg(want)));
        // Re-encoded, not just left by the structural pass.
        QVERIFY(Fixtures::CodecName(in, "video") != "h264" || QFileInfo(out).size() != QFileInfo(in).size());
    }

    void pcmAudioIsRefused()
    {
        QCOMPARE(m_unsupported, QStringList{m_temp + "/pcm.mov"});
        QVERIFY(!QFileInfo::exists(m_temp + "/pcm.mov"));
    }

    // Only the files under their own names are left: no "000" output, no "00" staging copy.
    void onlyResultsRemain()
    {
        QStringList expected{"clip.f4v", "clip.m4v", "h264-aac.mov", "h264-aac.mp4", "mpeg4-mp3.mov",
                             "video-only.mp4"};
        QCOMPARE(QDir(m_temp).entryList(QDir::Files, QDir::Name), expected);
    }

    void oddSizeGrowsByNine()
    {
        const QString in = Fresh("odd") + "/odd.mov";
        Clip c = MakeClip("qtrle", "aac");
        c.size = "641x361";
        c.pixelFormat = "rgb24";
        QVERIFY(Fixtures::Make(in, c));
        const QString temp = Fresh("odd-work");
        QVERIFY(Repair({in}, temp).isEmpty());
        QCOMPARE(Fixtures::VideoSize(temp + "/odd.mov"), QString("650x370"));
        QVERIFY(Fixtures::DecodeErrors(temp + "/odd.mov").isEmpty());
    }

    // The routines on their own: frame-rate time base and the audio bit-rate threshold.
    void encoderSetUp_data()
    {
        QTest::addColumn<QString>("rate");
        QTest::addColumn<int>("bitRate");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("timeBaseDen");
        QTest::newRow("29.97 fps") << "30000/1001" << -1 << 0 << 29;
        QTest::newRow("25 fps") << "25" << -1 << 0 << 25;
        QTest::newRow("bit rate 100") << "25" << 100 << -1 << 0;
        QTest::newRow("bit rate 101") << "25" << 101 << 0 << 25;
        // Below one frame per second the integer time base would be 1/0: no video encoder.
        QTest::newRow("half a frame per second") << "1/2" << -1 << 0 << 0;
    }

    void encoderSetUp()
    {
        QFETCH(QString, rate);
        QFETCH(int, bitRate);
        QFETCH(int, result);
        QFETCH(int, timeBaseDen);

        const QString dir = Fresh("setup");
        Clip c = MakeClip("libx264", "aac");
        c.rate = rate;
        c.seconds = 1;
        QVERIFY(Fixtures::Make(dir + "/in.mp4", c));

        ThreadVideoRepair w;
        Pipeline::Release();
        Pipeline::audio_stream_index = Pipeline::videoStreamIndex = -1;
        QCOMPARE(w.open_audio_input(QFile::encodeName(dir + "/in.mp4").constData()), 0);
        if (bitRate >= 0)
            Pipeline::audio_bit_rate = bitRate;
        const int e = w.open_encoder(QFile::encodeName(dir + "/000in.mp4").constData());
        QCOMPARE(e < 0 ? -1 : 0, result);
        if (timeBaseDen) {
            QVERIFY(Pipeline::videoEncoderCtx);
            QCOMPARE(Pipeline::videoEncoderCtx->time_base.num, 1);
            QCOMPARE(Pipeline::videoEncoderCtx->time_base.den, timeBaseDen);
            QVERIFY(Pipeline::headerWritten);
        } else if (result == 0) {
            QVERIFY(!Pipeline::encoder);
            QVERIFY(!Pipeline::headerWritten);
        }
        Pipeline::Release();
    }

    void unknownExtensionKeepsTheCopy()
    {
        const QString dir = Fresh("ext");
        QVERIFY(Fixtures::Make(dir + "/clip.mp4", MakeClip("libx264", "aac")));
        QVERIFY(QFile::rename(dir + "/clip.mp4", dir + "/clip.xyz"));
        const QString temp = Fresh("ext-work");
        QFile::copy(dir + "/clip.xyz", temp + "/clip.xyz");
        QFile f(temp + "/clip.xyz");
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray original = f.readAll();
        f.close();

        ThreadVideoRepair w;
        StdoutCapture capture;
        w.ReRepairFiles({temp + "/clip.xyz"});
        const QString printed = capture.Take();
        QVERIFY2(printed.contains("Could not deduce output format from file extension: using MPEG.\n"),
                 qPrintable(printed));
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), original);
        QCOMPARE(QDir(temp).entryList(QDir::Files), QStringList{"clip.xyz"});
        QVERIFY(w.UnsupportedList().isEmpty());
    }

    // Names in the shared working folder may be links planted by someone else: the repair writes
    // only its own files and never through a link.
    void plantedLinksAreNotFollowed()
    {
        const QString in = Fresh("links");
        QVERIFY(Fixtures::Make(in + "/a.mp4", MakeClip("libx264", "aac")));
        QVERIFY(Fixtures::Make(in + "/b.mp4", MakeClip("libx264", "aac")));
        const QString temp = Fresh("links-work");
        const QString victim = m_dir.filePath("victim");
        QFile v(victim);
        QVERIFY(v.open(QIODevice::WriteOnly));
        v.write("untouched");
        v.close();
        // a.mp4 itself is a link, so its copy fails and the pass must not write through it; b.mp4's
        // intermediate files are links.
        QVERIFY(QFile::link(victim, temp + "/a.mp4"));
        QVERIFY(QFile::link(victim, temp + "/000b.mp4"));
        QVERIFY(QFile::link(victim, temp + "/00b.mp4"));

        Repair({in + "/a.mp4", in + "/b.mp4"}, temp);
        QVERIFY(v.open(QIODevice::ReadOnly));
        QCOMPARE(v.readAll(), QByteArray("untouched"));
        QVERIFY(Fixtures::DecodeErrors(temp + "/b.mp4").isEmpty());
        QVERIFY(!QFileInfo(temp + "/b.mp4").isSymLink());
    }

    void stopInPacketLoopOfSecond()
    {
        const QString in = Fresh("stop");
        QStringList sources;
        for (const char *name : {"a.mp4", "b.mp4", "c.mp4"}) {
            QVERIFY(Fixtures::Make(in + "/" + name, MakeClip("libx264", "aac")));
            sources << in + "/" + name;
        }
        const QString temp = Fresh("stop-work");
        SignalLog log;
        int bSeen = 0;
        bool armed = false;
        Repair(sources, temp, &log, [&](ThreadVideoRepair &w) {
            connect(&w, &ThreadVideoRepair::Info, &w, [&](const QString &text) {
                if (text == "Repairing b.mp4 file" && ++bSeen == 2)
                    armed = true; // the re-encoding pass has reached the second file
            }, Qt::DirectConnection);
            connect(&w, &ThreadVideoRepair::ProgressValue, &w, [&](unsigned long) {
                if (armed)
                    bStopFlag = true;
            }, Qt::DirectConnection);
        });
        QVERIFY(armed);
        QCOMPARE(log.Lines().last(), QString("ProcessAborted()"));
        QCOMPARE(log.Lines().count("Info(Repairing c.mp4 file)"), 1);
        QCOMPARE(QDir(temp).entryList(QDir::Files, QDir::Name),
                 (QStringList{"000b.mp4", "a.mp4", "b.mp4", "c.mp4"}));
        QVERIFY(Fixtures::DecodeErrors(temp + "/a.mp4").isEmpty());
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);

        // The next run releases what the stop left open and works.
        const QString again = Fresh("stop-again");
        QVERIFY(Repair({sources.at(2)}, again).isEmpty());
        QVERIFY(!pHandle);
        QVERIFY(Fixtures::DecodeErrors(again + "/c.mp4").isEmpty());
        QCOMPARE(QDir(again).entryList(QDir::Files), QStringList{"c.mp4"});
    }
};

QTEST_GUILESS_MAIN(TstReEncode)
#include "tst_reencode.moc"
