// The re-encoding pass on real files made with ffmpeg: outputs that decode and keep their streams,
// damaged files that play as much as the ffmpeg command makes them play, files refused for their
// audio or of which nothing plays, the candidates a result is chosen from, the odd-size and
// frame-rate rules, and stops inside the pass.

#include "Bytes.h"
#include "Fixtures.h"
#include "SignalLog.h"
#include "StdoutCapture.h"
#include "repair/AudioPipeline.h"
#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

using Fixtures::Clip;
using Verdict = RepairOutcome::Verdict;

namespace {

Clip MakeClip(const QString &video, const QString &audio, const QStringList &extra = {})
{
    Clip c;
    c.videoCodec = video;
    c.audioCodec = audio;
    c.seconds = 4;
    c.extra = extra;
    return c;
}

// Byte position of the index-th packet of the first video stream.
qint64 VideoPacketAt(const QString &path, int index)
{
    AVFormatContext *fmt = nullptr;
    qint64 pos = -1;
    if (avformat_open_input(&fmt, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return pos;
    AVPacket *packet = av_packet_alloc();
    const int video = av_find_best_stream(fmt, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    while (pos < 0 && av_read_frame(fmt, packet) >= 0) {
        if (packet->stream_index == video && index-- == 0)
            pos = packet->pos;
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&fmt);
    return pos;
}

enum class Damage { None, ZeroedStretch, FlippedBytes, BrokenNalLength, CutOff };

bool Harm(const QString &path, Damage damage)
{
    QByteArray b = Bytes::ReadFile(path);
    const int n = b.size();
    switch (damage) {
    case Damage::None:
        return true;
    case Damage::ZeroedStretch: // 64 KiB in the middle of the media data
        b.replace(n / 2 - 32768, 65536, QByteArray(65536, '\0'));
        break;
    case Damage::FlippedBytes: // every 8 KiB of the media data
        for (int at = n / 10; at < n * 8 / 10; at += 8192)
            b[at] = char(~b.at(at));
        break;
    case Damage::BrokenNalLength: { // the first NAL unit of video packet 40 claims 2 GiB
        const qint64 at = VideoPacketAt(path, 40);
        if (at < 0)
            return false;
        b.replace(int(at), 4, Bytes::U32(0x7FFFFFFF));
        break;
    }
    case Damage::CutOff: // the last 40% is lost
        b.truncate(n * 6 / 10);
        break;
    }
    return Bytes::WriteFile(path, b);
}

// A video whose MP3 sound switches from stereo to mono half-way, as damaged frame headers make it.
bool MakeMp3Switch(const QString &path)
{
    const QString stereo = path + ".2.mp3", mono = path + ".1.mp3", both = path + ".mp3";
    auto tone = [](int channels, const QString &out) {
        return Fixtures::Ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=44100:duration=2",
                                 "-ac", QString::number(channels), "-c:a", "libmp3lame", out});
    };
    return tone(2, stereo) && tone(1, mono) &&
           Bytes::WriteFile(both, Bytes::ReadFile(stereo) + Bytes::ReadFile(mono)) &&
           Fixtures::Ffmpeg({"-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=4", "-i", both,
                             "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "copy", path});
}

QStringList Sorted(QStringList l)
{
    l.sort();
    return l;
}

struct Run
{
    QStringList unsupported;
    RepairOutcomes outcomes;
};

// One repair run over `sources` into `temp`.
Run Repair(const QStringList &sources, const QString &temp, SignalLog *log = nullptr,
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
    return {worker.UnsupportedList(), worker.Outcomes()};
}

// A run whose header pass made `copy` out of `source`, as far as the re-encoding pass can tell.
class AfterHeaderPass : public ThreadVideoRepair
{
public:
    AfterHeaderPass(const QString &source, const QString &copy, bool rewritten)
    {
        RepairOutcome o;
        o.source = source;
        o.workingCopy = copy;
        m_outcomes = {o};
        if (rewritten)
            m_rewrittenCopies = {copy};
    }
};

} // namespace

class TstReEncode : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_in;
    QString m_temp;
    Run m_run;

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
        m_run = Repair(sources, m_temp);
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
        QCOMPARE(m_run.unsupported, QStringList{m_temp + "/pcm.mov"});
        QVERIFY(!QFileInfo::exists(m_temp + "/pcm.mov"));
        QCOMPARE(m_run.outcomes.size(), 7);
        QCOMPARE(m_run.outcomes.at(5).verdict, Verdict::UnsupportedCodec);
        QCOMPARE(ReportLines(m_run.outcomes.at(5)),
                 QStringList{"Failed due to unsupported Audio or Video codecs."});
    }

    // Only the files under their own names are left: no "000" output, no "00" staging copy.
    void onlyResultsRemain()
    {
        QStringList expected{"clip.f4v", "clip.m4v", "h264-aac.mov", "h264-aac.mp4", "mpeg4-mp3.mov",
                             "video-only.mp4"};
        QCOMPARE(QDir(m_temp).entryList(QDir::Files, QDir::Name), expected);
    }

    // Damaged files: the re-encoded result itself plays at least 99% of what the ffmpeg command's
    // output plays and never less than the damaged file, and the engine's count of it is right; a
    // file of which nothing plays fails.
    void damagedFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Clip>("clip");
        QTest::addColumn<int>("damage");
        QTest::addColumn<bool>("plays");
        const QStringList rich{"-b:v", "1500k", "-g", "5"}; // big enough that 64 KiB is a part
        Clip hevc = MakeClip("libx265", "aac", rich + QStringList{"-preset", "ultrafast", "-tag:v", "hvc1"});
        hevc.seconds = 2;
        QTest::newRow("H.264, zeroed stretch") << "h264.mp4" << MakeClip("libx264", "aac", rich)
                                               << int(Damage::ZeroedStretch) << true;
        QTest::newRow("HEVC, zeroed stretch") << "hevc.mp4" << hevc << int(Damage::ZeroedStretch) << true;
        QTest::newRow("MPEG-4 and MP3, flipped bytes")
            << "mpeg4.mov" << MakeClip("mpeg4", "libmp3lame", rich) << int(Damage::FlippedBytes) << true;
        QTest::newRow("H.264, broken NAL length")
            << "nal.mp4" << MakeClip("libx264", "aac") << int(Damage::BrokenNalLength) << true;
        // Made by MakeMp3Switch; under the sanitizers this is the test of the resampler's buffers.
        QTest::newRow("MP3 switching from stereo to mono") << "mp3-switch.mov" << Clip() << int(Damage::None)
                                                           << true;
        QTest::newRow("sound only, zeroed stretch")
            << "sound.m4a" << MakeClip("", "aac", {"-b:a", "256k", "-movflags", "+faststart"})
            << int(Damage::ZeroedStretch) << true;
        // Pictures that refer to ones past the cut, and sound past it that must not end the pictures.
        for (const QString layout : {"+faststart", "frag_keyframe+empty_moov"}) {
            Clip cut = MakeClip("libx264", "aac", {"-movflags", layout});
            cut.pattern = "testsrc2";
            QTest::newRow(qPrintable("H.264 " + layout + ", cut off"))
                << "cut" + QString::number(layout.size()) + ".mp4" << cut << int(Damage::CutOff) << true;
        }
        QTest::newRow("index cut off")
            << "lost.mp4" << MakeClip("libx264", "aac", rich) << int(Damage::CutOff) << false;
    }

    void damagedFiles()
    {
        QFETCH(QString, name);
        QFETCH(Clip, clip);
        QFETCH(int, damage);
        QFETCH(bool, plays);
        const QString dir = Fresh("damaged"), work = Fresh("damaged-work");
        const QString in = dir + "/" + name, theirs = dir + "/ffmpeg-" + name, result = work + "/" + name;
        QVERIFY(name.startsWith("mp3-switch") ? MakeMp3Switch(in) : Fixtures::Make(in, clip));
        QVERIFY(Harm(in, Damage(damage)));

        const Run run = Repair({in}, work);
        const RepairOutcome o = run.outcomes.value(0);
        if (!plays) {
            QCOMPARE(o.verdict, Verdict::NotPlayable);
            QCOMPARE(run.unsupported, QStringList{result});
            QCOMPARE(QDir(work).entryList(QDir::Files), QStringList());
            QCOMPARE(ReportLines(o), QStringList{"No playable video was found in the file."});
            return;
        }
        QCOMPARE(o.verdict, Verdict::Repaired);
        QCOMPARE(o.madeBy, QString("re-encoded"));
        QCOMPARE(QDir(work).entryList(QDir::Files), QStringList{name});

        QVERIFY(Fixtures::Ffmpeg({"-err_detect", "ignore_err", "-i", in, "-c:v", "libx264", "-preset",
                                  "veryfast", "-c:a", "aac", theirs}));
        const Fixtures::Plays ours = Fixtures::Played(result), ffmpeg = Fixtures::Played(theirs),
                              damaged = Fixtures::Played(in);
        const QString counts = QString("ours %1 frames %2 s, ffmpeg's %3 frames %4 s, damaged %5 frames %6 s")
                                   .arg(ours.frames).arg(ours.audioSeconds).arg(ffmpeg.frames)
                                   .arg(ffmpeg.audioSeconds).arg(damaged.frames).arg(damaged.audioSeconds);
        if (clip.videoCodec.isEmpty() && !name.startsWith("mp3-switch")) {
            QVERIFY2(ours.audioSeconds >= 0.99 * ffmpeg.audioSeconds &&
                         ours.audioSeconds >= damaged.audioSeconds - 0.05,
                     qPrintable(counts));
            QVERIFY2(qAbs(o.plays.audioSeconds - ours.audioSeconds) < 0.1, qPrintable(counts));
        } else {
            QVERIFY2(ours.frames >= std::ceil(0.99 * double(ffmpeg.frames)) && ours.frames >= damaged.frames,
                     qPrintable(counts));
            QCOMPARE(o.plays.videoFrames, ours.frames);
        }
    }

    // Two sources of one name share one working copy, and so one outcome.
    void sameNameSharesAnOutcome()
    {
        const QString a = Fresh("one") + "/same.mp4", b = Fresh("two") + "/same.mp4";
        const QString work = Fresh("same-work");
        QVERIFY(Fixtures::Make(a, MakeClip("libx264", "aac")));
        QVERIFY(Bytes::WriteFile(b, "not a video"));
        const Run run = Repair({a, b}, work);
        QCOMPARE(run.outcomes.size(), 2);
        QCOMPARE(run.outcomes.at(1).source, b);
        for (const RepairOutcome &o : run.outcomes) {
            QCOMPARE(o.workingCopy, work + "/same.mp4");
            QCOMPARE(o.verdict, Verdict::Repaired);
        }
    }

    // With the original codecs kept, a file that plays as it is comes out as a stream copy.
    void keepOriginalCodecs()
    {
        const QString in = Fresh("keep") + "/keep.mov", work = Fresh("keep-work");
        QVERIFY(Fixtures::Make(in, MakeClip("mpeg4", "libmp3lame")));
        const Run run =
            Repair({in}, work, nullptr, [](ThreadVideoRepair &w) { w.SetKeepOriginalCodecs(true); });
        QCOMPARE(run.outcomes.value(0).madeBy, QString("remuxed"));
        QCOMPARE(Fixtures::CodecName(work + "/keep.mov", "video"), QString("mpeg4"));
        QCOMPARE(Fixtures::CodecName(work + "/keep.mov", "audio"), QString("mp3"));
        QCOMPARE(Fixtures::Played(work + "/keep.mov").frames, Fixtures::Played(in).frames);
        QCOMPARE(QDir(work).entryList(QDir::Files), QStringList{"keep.mov"});
    }

    // What the header pass made of a copy against its source. A copy nothing can read: when the header
    // pass made it so, its untouched source is the result; when the copy is as the source was,
    // nothing plays and the file fails. A changed copy whose re-encode is whole against a source
    // that plays as much, or more.
    void headerPassCopy_data()
    {
        QTest::addColumn<bool>("rewritten");
        QTest::addColumn<int>("damage");
        QTest::addColumn<QString>("madeBy");
        QTest::newRow("unreadable, changed by the header pass") << true << -1 << "original";
        QTest::newRow("unreadable, as its source was") << false << -1 << "";
        QTest::newRow("changed, plays as its source") << true << int(Damage::None) << "re-encoded";
        QTest::newRow("changed, plays less than its source") << true << int(Damage::CutOff) << "original";
    }

    void headerPassCopy()
    {
        QFETCH(bool, rewritten);
        QFETCH(int, damage);
        QFETCH(QString, madeBy);
        const QString source = Fresh("fix") + "/fix.mp4", work = Fresh("fix-work"), copy = work + "/fix.mp4";
        QVERIFY(Fixtures::Make(source, MakeClip("libx264", "aac", {"-movflags", "+faststart"})));
        QByteArray bytes = Bytes::ReadFile(source);
        if (damage < 0)
            bytes.replace(bytes.indexOf("moov"), 4, QByteArray(4, '\0'));
        QVERIFY(Bytes::WriteFile(copy, bytes) && (damage < 0 || Harm(copy, Damage(damage))));

        AfterHeaderPass worker(source, copy, rewritten);
        worker.ReRepairFiles({copy});
        const RepairOutcome o = worker.Outcomes().value(0);
        QCOMPARE(o.verdict, madeBy.isEmpty() ? Verdict::NotPlayable : Verdict::Repaired);
        QCOMPARE(o.madeBy, madeBy);
        if (madeBy == "original")
            QCOMPARE(Bytes::ReadFile(copy), Bytes::ReadFile(source));
        if (!madeBy.isEmpty())
            QCOMPARE(o.plays.videoFrames, Fixtures::Played(copy).frames);
        QCOMPARE(QDir(work).entryList(QDir::Files), madeBy.isEmpty() ? QStringList() : QStringList{"fix.mp4"});
    }

    void oddSizeGrowsByNine()
    {
        const QString in = Fresh("odd") + "/odd.mov";
        Clip c = MakeClip("qtrle", "aac");
        c.size = "641x361";
        c.pixelFormat = "rgb24";
        QVERIFY(Fixtures::Make(in, c));
        const QString temp = Fresh("odd-work");
        QVERIFY(Repair({in}, temp).unsupported.isEmpty());
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
        QVERIFY(Repair({sources.at(2)}, again).unsupported.isEmpty());
        QVERIFY(!pHandle);
        QVERIFY(Fixtures::DecodeErrors(again + "/c.mp4").isEmpty());
        QCOMPARE(QDir(again).entryList(QDir::Files), QStringList{"c.mp4"});
    }
};

QTEST_GUILESS_MAIN(TstReEncode)
#include "tst_reencode.moc"
