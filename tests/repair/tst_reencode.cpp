// The re-encoding pass on files made with ffmpeg: results, refused sound, progress signals, damaged
// files against the ffmpeg command, the candidates a result is chosen from, and stops.

#include "Bytes.h"
#include "Fixtures.h"
#include "SignalLog.h"
#include "StdoutCapture.h"
#include "repair/AudioPipeline.h"
#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"

#include <QtTest>

#include <cmath>

using Fixtures::Clip;
using Verdict = RepairOutcome::Verdict;

namespace
{

// A video whose MP3 sound switches from stereo to mono half-way, as damaged frame headers make it.
bool MakeMp3Switch(const QString &path)
{
    auto tone = [path](int channels) {
        return Fixtures::Ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=44100:duration=2",
                                 "-ac", QString::number(channels), "-c:a", "libmp3lame",
                                 path + QString::number(channels) + ".mp3"});
    };
    return tone(2) && tone(1) &&
           Bytes::WriteFile(path + ".mp3",
                            Bytes::ReadFile(path + "2.mp3") + Bytes::ReadFile(path + "1.mp3")) &&
           Fixtures::Ffmpeg({"-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=4", "-i",
                             path + ".mp3", "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "copy", path});
}

// Damage: 64 KiB zeroed mid-file, a byte flipped every 8 KiB, packet 40's NAL claiming 2 GiB, or cut.
bool Harm(const QString &path, const QString &damage)
{
    QByteArray b = Bytes::ReadFile(path);
    const int n = b.size();
    if (damage == "zero")
        b.replace(n / 2 - 32768, 65536, QByteArray(65536, '\0'));
    for (int at = n / 10; damage == "flip" && at < n * 8 / 10; at += 8192)
        b[at] = char(~b.at(at));
    if (damage == "nal") {
        const QStringList packets =
            Fixtures::Probe(path, {"-select_streams", "v", "-show_entries", "packet=pos"}).split('\n');
        b.replace(packets.value(40, "-1").toInt(), 4, Bytes::U32(0x7FFFFFFF));
    }
    if (damage == "cut")
        b.truncate(n * 6 / 10);
    return Bytes::WriteFile(path, b);
}

struct Run {
    QStringList unsupported;
    RepairOutcomes outcomes;
    QStringList log; // every signal of the run
};

// One repair run over `sources` into `temp`; `onLine` sees each signal as it comes.
Run Repair(const QStringList &sources, const QString &temp, std::function<void(const QString &)> onLine = {})
{
    ThreadVideoRepair worker;
    SignalLog log(&worker);
    log.OnLine = onLine;
    worker.SetInitialSettings(sources, temp);
    if (!worker.wait(180000))
        qFatal("repair run did not end");
    return {worker.UnsupportedList(), worker.Outcomes(), log.Lines()};
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

// One common run: name, video and audio codec, refused ones fail for their sound. Video-only
// first: it once lost its index when no sound had been encoded yet in the process.
const QStringList Common =
    QString("video-only.mp4 libx264 -;h264-aac.mp4 libx264 aac;h264-aac.mov libx264 aac;"
            "mpeg4-mp3.mov mpeg4 libmp3lame;clip.m4v libx264 aac;clip.f4v libx264 aac;odd.mov qtrle aac;"
            "s16le.mov libx264 pcm_s16le refused;s16be.mov libx264 pcm_s16be refused;"
            "u8.mov libx264 pcm_u8 refused;mulaw.mov libx264 pcm_mulaw refused;"
            "ima.mov libx264 adpcm_ima_qt refused;alaw.mov libx264 pcm_alaw;s8.mov libx264 pcm_s8;"
            "s24.mov libx264 pcm_s24le")
        .split(';');

QStringList Fields(int index)
{
    return Common.at(index).split(' ').replaceInStrings(QRegularExpression("^-$"), "");
}

} // namespace

class TstReEncode : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_in, m_temp;
    Run m_run;

    QString Fresh(const QString &name)
    {
        QDir(m_dir.filePath(name)).removeRecursively();
        QDir().mkpath(m_dir.filePath(name));
        return m_dir.filePath(name);
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_in = Fresh("in");
        m_temp = Fresh("work");
        QStringList sources;
        for (int i = 0; i < Common.size(); ++i) {
            const QStringList c = Fields(i);
            Clip clip = Clip::Of(c.at(1), c.at(2), c.at(2).contains("pcm") ? 1 : 4);
            if (c.at(1) == "qtrle") {
                clip.size = "641x361";
                clip.pixelFormat = "rgb24";
            }
            sources << m_in + "/" + c.at(0);
            QVERIFY(Fixtures::Make(sources.last(), clip));
        }
        m_run = Repair(sources, m_temp);
        QVERIFY(!bStopFlag && !bProcessRunning && !pHandle);
    }

    void results_data()
    {
        QTest::addColumn<int>("index");
        for (int i = 0; i < Common.size(); ++i)
            QTest::newRow(qPrintable(Fields(i).at(0))) << i;
    }

    // Refused files fail and leave no copy; the others become H.264 and AAC with their streams and
    // length, and decode cleanly. An odd picture size grows by nine each way.
    void results()
    {
        QFETCH(int, index);
        const QStringList c = Fields(index);
        const QString name = c.at(0), in = m_in + "/" + name, out = m_temp + "/" + name;
        const bool refused = c.size() > 3;
        if (c.at(2).contains("pcm"))
            QCOMPARE(Fixtures::CodecName(in, "audio"), c.at(2));
        const RepairOutcome o = m_run.outcomes.at(index);
        QCOMPARE(o.verdict, refused ? Verdict::UnsupportedCodec : Verdict::Repaired);
        QCOMPARE(m_run.unsupported.contains(out), refused);
        QCOMPARE(QFileInfo::exists(out), !refused);
        if (refused) {
            QCOMPARE(ReportLines(o), QStringList{"Failed due to unsupported Audio or Video codecs."});
            return;
        }
        QCOMPARE(o.madeBy, QString("re-encoded"));
        QVERIFY2(Fixtures::DecodeErrors(out).isEmpty(), qPrintable(Fixtures::DecodeErrors(out)));
        // The output's audio stream is made first, so compare the kinds, not their order.
        QStringList kinds = Fixtures::StreamKinds(out), wanted = Fixtures::StreamKinds(in);
        kinds.sort();
        wanted.sort();
        QCOMPARE(kinds, wanted);
        QCOMPARE(Fixtures::CodecName(out, "video"), QString(wanted.contains("video") ? "h264" : ""));
        QCOMPARE(Fixtures::CodecName(out, "audio"), QString(wanted.contains("audio") ? "aac" : ""));
        QCOMPARE(Fixtures::VideoSize(out), QString(name == "odd.mov" ? "650x370" : "320x240"));
        const double want = Fixtures::Duration(in), got = Fixtures::Duration(out);
        QVERIFY2(qAbs(got - want) <= 0.05 * want, qPrintable(QString("%1 s for %2 s").arg(got).arg(want)));
        QVERIFY(Bytes::ReadFile(out) != Bytes::ReadFile(in));
    }

    // Per file: its place, name and size, then each packet's position within it. Only results stay.
    void progressSignals()
    {
        const QStringList log = m_run.log;
        const QString max = QString("OverAllMaxProgress(%1)").arg(Common.size());
        int at = log.lastIndexOf(max);
        QVERIFY(at > log.indexOf(max));
        QStringList left;
        for (int i = 0; i < Common.size(); ++i) {
            const QString name = Fields(i).at(0);
            const qint64 size = QFileInfo(m_in + "/" + name).size();
            QCOMPARE(log.mid(at + 1, 3), (QStringList{QString("OverAllProgressValue(%1)").arg(i),
                                                      "Info(Repairing " + name + " file)",
                                                      QString("MaxProgress(%1)").arg(size)}));
            int packets = 0;
            for (at += 4; log.at(at).startsWith("ProgressValue("); ++at, ++packets)
                QVERIFY2(log.at(at).mid(14).chopped(1).toLongLong() < size, qPrintable(log.at(at)));
            QVERIFY(Fields(i).size() > 3 ? packets == 0 : packets > 10);
            --at;
            if (Fields(i).size() == 3)
                left << name;
        }
        QCOMPARE(log.mid(at + 1), QStringList{"RepairFinish()"});
        left.sort();
        QCOMPARE(QDir(m_temp).entryList(QDir::Files, QDir::Name), left);
    }

    // A result plays at least 99% of what the ffmpeg command's output plays and never less than the
    // damaged file, as the engine counts it; a file of which nothing plays fails.
    void damagedFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Clip>("clip");
        QTest::addColumn<QString>("damage");
        const QStringList rich{"-b:v", "1500k", "-g", "5"}; // big enough that 64 KiB is a part
        QTest::newRow("H.264, zeroed stretch") << "h264.mp4" << Clip::Of("libx264", "aac", 4, rich) << "zero";
        QTest::newRow("HEVC, zeroed stretch")
            << "hevc.mp4"
            << Clip::Of("libx265", "aac", 2, rich + QStringList{"-preset", "ultrafast", "-tag:v", "hvc1"})
            << "zero";
        QTest::newRow("MPEG-4 and MP3, flipped bytes")
            << "mpeg4.mov" << Clip::Of("mpeg4", "libmp3lame", 4, rich) << "flip";
        QTest::newRow("H.264, broken NAL length") << "nal.mp4" << Clip::Of("libx264", "aac", 4) << "nal";
        // Made by MakeMp3Switch; under the sanitizers this is the test of the resampler's buffers.
        QTest::newRow("MP3 switching from stereo to mono") << "mp3-switch.mov" << Clip() << "";
        QTest::newRow("sound only, zeroed stretch")
            << "sound.m4a" << Clip::Of("", "aac", 4, {"-b:a", "256k", "-movflags", "+faststart"}) << "zero";
        // Pictures that refer to ones past the cut, and sound past it that must not end the pictures.
        for (const QString layout : {"+faststart", "frag_keyframe+empty_moov"}) {
            Clip cut = Clip::Of("libx264", "aac", 4, {"-movflags", layout});
            cut.pattern = "testsrc2";
            QTest::newRow(qPrintable("H.264 " + layout + ", cut off"))
                << "cut" + QString::number(layout.size()) + ".mp4" << cut << "cut";
        }
        QTest::newRow("index cut off") << "lost.mp4" << Clip::Of("libx264", "aac", 4, rich) << "cut";
    }

    void damagedFiles()
    {
        QFETCH(QString, name);
        QFETCH(Clip, clip);
        QFETCH(QString, damage);
        const QString dir = Fresh("damaged"), work = Fresh("damaged-work");
        const QString in = dir + "/" + name, theirs = dir + "/ffmpeg-" + name, result = work + "/" + name;
        QVERIFY(name.startsWith("mp3-switch") ? MakeMp3Switch(in) : Fixtures::Make(in, clip));
        QVERIFY(Harm(in, damage));

        const Run run = Repair({in}, work);
        const RepairOutcome o = run.outcomes.value(0);
        if (name == "lost.mp4") {
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
        auto text = [](const Fixtures::Plays &p) {
            return QString("%1 frames %2 s").arg(p.frames).arg(p.audioSeconds);
        };
        const QString counts =
            "ours " + text(ours) + ", ffmpeg's " + text(ffmpeg) + ", damaged " + text(damaged);
        if (name == "sound.m4a") {
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
        const QString a = Fresh("one") + "/same.mp4", b = Fresh("two") + "/same.mp4",
                      work = Fresh("same-work");
        QVERIFY(Fixtures::Make(a, Clip::Of("libx264", "aac", 1)) && Bytes::WriteFile(b, "not a video"));
        const Run run = Repair({a, b}, work);
        QCOMPARE(run.outcomes.size(), 2);
        QCOMPARE(run.outcomes.at(1).source, b);
        for (const RepairOutcome &o : run.outcomes) {
            QCOMPARE(o.workingCopy, work + "/same.mp4");
            QCOMPARE(o.verdict, Verdict::Repaired);
        }
    }

    // A copy the header pass changed (or not) against its source: the untouched source is the
    // result when the change made the copy worse; an unreadable copy as the source was fails.
    void headerPassCopy_data()
    {
        QTest::addColumn<bool>("rewritten");
        QTest::addColumn<QString>("damage"); // "unreadable", or as Harm names it
        QTest::addColumn<QString>("madeBy");
        auto row = [](const char *tag, bool rewritten, const char *damage, const char *madeBy) {
            QTest::newRow(tag) << rewritten << QString(damage) << QString(madeBy);
        };
        row("unreadable, changed by the header pass", true, "unreadable", "original");
        row("unreadable, as its source was", false, "unreadable", "");
        row("changed, plays as its source", true, "", "re-encoded");
        row("changed, plays less than its source", true, "cut", "original");
    }

    void headerPassCopy()
    {
        QFETCH(bool, rewritten);
        QFETCH(QString, damage);
        QFETCH(QString, madeBy);
        const QString source = Fresh("fix") + "/fix.mp4", work = Fresh("fix-work"), copy = work + "/fix.mp4";
        QVERIFY(Fixtures::Make(source, Clip::Of("libx264", "aac", 4, {"-movflags", "+faststart"})));
        QByteArray bytes = Bytes::ReadFile(source);
        if (damage == "unreadable")
            bytes.replace(bytes.indexOf("moov"), 4, QByteArray(4, '\0'));
        QVERIFY(Bytes::WriteFile(copy, bytes) && Harm(copy, damage));

        AfterHeaderPass worker(source, copy, rewritten);
        worker.ReRepairFiles({copy});
        const RepairOutcome o = worker.Outcomes().value(0);
        QCOMPARE(o.verdict, madeBy.isEmpty() ? Verdict::NotPlayable : Verdict::Repaired);
        QCOMPARE(o.madeBy, madeBy);
        if (madeBy == "original")
            QCOMPARE(Bytes::ReadFile(copy), Bytes::ReadFile(source));
        if (!madeBy.isEmpty())
            QCOMPARE(o.plays.videoFrames, Fixtures::Played(copy).frames);
        QCOMPARE(QDir(work).entryList(QDir::Files),
                 madeBy.isEmpty() ? QStringList() : QStringList{"fix.mp4"});
    }

    // The routines on their own: the frame-rate time base and the audio bit-rate threshold.
    void encoderSetUp_data()
    {
        QTest::addColumn<QString>("rate");
        QTest::addColumn<int>("bitRate");
        QTest::addColumn<int>("timeBaseDen"); // 0: no video encoder; -1: the encoder fails
        QTest::newRow("29.97 fps") << "30000/1001" << -1 << 29;
        QTest::newRow("25 fps") << "25" << -1 << 25;
        QTest::newRow("bit rate 100") << "25" << 100 << -1;
        QTest::newRow("bit rate 101") << "25" << 101 << 25;
        // Below one frame per second the integer time base would be 1/0: no video encoder.
        QTest::newRow("half a frame per second") << "1/2" << -1 << 0;
    }

    void encoderSetUp()
    {
        QFETCH(QString, rate);
        QFETCH(int, bitRate);
        QFETCH(int, timeBaseDen);
        const QString dir = Fresh("setup");
        Clip c = Clip::Of("libx264", "aac", 1);
        c.rate = rate;
        QVERIFY(Fixtures::Make(dir + "/in.mp4", c));
        ThreadVideoRepair w;
        Pipeline::Release();
        Pipeline::audio_stream_index = Pipeline::videoStreamIndex = -1;
        QCOMPARE(w.open_audio_input(QFile::encodeName(dir + "/in.mp4").constData()), 0);
        if (bitRate >= 0)
            Pipeline::audio_bit_rate = bitRate;
        QCOMPARE(w.open_encoder(QFile::encodeName(dir + "/000in.mp4").constData()) < 0, timeBaseDen < 0);
        if (timeBaseDen > 0) {
            QCOMPARE(Pipeline::videoEncoderCtx->time_base.num, 1);
            QCOMPARE(Pipeline::videoEncoderCtx->time_base.den, timeBaseDen);
        }
        if (timeBaseDen >= 0)
            QCOMPARE(bool(Pipeline::encoder) && Pipeline::headerWritten, timeBaseDen > 0);
        Pipeline::Release();
    }

    void unknownExtensionKeepsTheCopy()
    {
        const QString temp = Fresh("ext-work"), copy = temp + "/clip.xyz";
        QVERIFY(Fixtures::Make(temp + "/clip.mp4", Clip::Of("libx264", "aac", 1)));
        QVERIFY(QFile::rename(temp + "/clip.mp4", copy));
        const QByteArray original = Bytes::ReadFile(copy);
        ThreadVideoRepair w;
        StdoutCapture capture;
        w.ReRepairFiles({copy});
        const QString printed = capture.Take();
        QVERIFY2(printed.contains("Could not deduce output format from file extension: using MPEG.\n"),
                 qPrintable(printed));
        QCOMPARE(Bytes::ReadFile(copy), original);
        QCOMPARE(QDir(temp).entryList(QDir::Files), QStringList{"clip.xyz"});
        QVERIFY(w.UnsupportedList().isEmpty());
    }

    // Links planted in the working folder (a.mp4's copy, b.mp4's intermediates) are not written through.
    void plantedLinksAreNotFollowed()
    {
        const QString in = Fresh("links"), temp = Fresh("links-work"), victim = m_dir.filePath("victim");
        QVERIFY(Fixtures::Make(in + "/a.mp4", Clip::Of("libx264", "aac", 1)));
        QVERIFY(QFile::copy(in + "/a.mp4", in + "/b.mp4") && Bytes::WriteFile(victim, "untouched"));
        for (const char *name : {"a.mp4", "000b.mp4", "00b.mp4"})
            QVERIFY(QFile::link(victim, temp + "/" + name));
        Repair({in + "/a.mp4", in + "/b.mp4"}, temp);
        QCOMPARE(Bytes::ReadFile(victim), QByteArray("untouched"));
        QVERIFY(Fixtures::DecodeErrors(temp + "/b.mp4").isEmpty());
        QVERIFY(!QFileInfo(temp + "/b.mp4").isSymLink());
    }

    // A stop in the second file's pass ends the run; the next run releases its open output.
    void stopInPacketLoopOfSecond()
    {
        const QString in = Fresh("stop"), temp = Fresh("stop-work");
        const QStringList sources{in + "/a.mp4", in + "/b.mp4", in + "/c.mp4"};
        QVERIFY(Fixtures::Make(sources.at(0), Clip::Of("libx264", "aac", 4)));
        QVERIFY(QFile::copy(sources.at(0), sources.at(1)) && QFile::copy(sources.at(0), sources.at(2)));
        int bSeen = 0; // the second "Repairing b.mp4" is the re-encoding pass's
        const Run run = Repair(sources, temp, [&](const QString &line) {
            bSeen += line == "Info(Repairing b.mp4 file)";
            if (bSeen == 2 && line.startsWith("ProgressValue"))
                bStopFlag = true;
        });
        QCOMPARE(run.log.last(), QString("ProcessAborted()"));
        QCOMPARE(run.log.count("Info(Repairing c.mp4 file)"), 1);
        QCOMPARE(QDir(temp).entryList(QDir::Files, QDir::Name),
                 (QStringList{"000b.mp4", "a.mp4", "b.mp4", "c.mp4"}));
        QVERIFY(Fixtures::DecodeErrors(temp + "/a.mp4").isEmpty());
        QVERIFY(!bStopFlag && !bProcessRunning && pHandle);

        const QString again = Fresh("stop-again");
        QVERIFY(Repair({sources.at(2)}, again).unsupported.isEmpty());
        QVERIFY(!pHandle);
        QVERIFY(Fixtures::DecodeErrors(again + "/c.mp4").isEmpty());
        QCOMPARE(QDir(again).entryList(QDir::Files), QStringList{"c.mp4"});
    }
};

QTEST_GUILESS_MAIN(TstReEncode)
#include "tst_reencode.moc"
