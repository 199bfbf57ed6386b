// Recordings whose index was lost or broken, rebuilt with a reference of the same recorder profile:
// each damaged copy goes through corvane-repair, and what its result plays is held against what the
// damage left recoverable. Then the sample walker's fuzzing corpus and every input that once failed.

#include "Bytes.h"
#include "Fixtures.h"
#include "Recoverable.h"
#include "StructuralCheck.h"
#include "WalkerCheck.h"

#include "rebuild/Rebuild.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <QtTest>

namespace {

struct Recorder
{
    QString name; // the original's file name
    Fixtures::Clip clip;
};

// Recorders as people bring them: a camera's .mp4 (index at the end), a phone's .mov with a
// timecode track and its media in half-second chunks, HEVC in a .mov, and sound alone.
QList<Recorder> Recorders()
{
    using Fixtures::Clip;
    const Clip camera = Clip::Of("libx264", "aac", 4, {"-g", "25"});
    const Clip phone =
        Clip::Of("libx264", "aac", 4, {"-g", "25", "-timecode", "01:00:00:00", "-chunk_duration", "500000"});
    const Clip hevc =
        Clip::Of("libx265", "aac", 4,
                 {"-preset", "ultrafast", "-x265-params", "log-level=error:keyint=25", "-tag:v", "hvc1"});
    const Clip sound = Clip::Of("", "aac", 4, {"-b:a", "128k"});
    return {{"camera.mp4", camera}, {"phone.mov", phone}, {"hevc.mov", hevc}, {"sound.m4a", sound}};
}

enum class Harm {
    Cut30, Cut60, Cut95, MoovType, StszSize, StscSize, StcoSize, FtypLost,
    FirstSectors, // the first 4 KiB zeroed
    MiddleGap,    // 64 KiB zeroed in the middle of the media data, and the index cut off
    MoofType,     // the type code of the third fragment's header damaged
    MoovLost,     // the whole "moov" zeroed
    Bare,         // a bare stream behind an "ftyp" and an "mdat" header, with no index
};

// The offset of the first box of `type` at or after `from`, found by its type code; -1 if none.
qint64 BoxAt(const QByteArray &data, const char *type, qint64 from = 0)
{
    const qint64 at = data.indexOf(type, from);
    return at < 4 ? -1 : at - 4;
}

// Damages `data` (the original's bytes); returns the original's byte ranges that survive intact.
Recoverable::Ranges Damage(QByteArray &data, Harm harm, QPair<qint64, qint64> media)
{
    const qint64 size = data.size();
    auto cut = [&](double share) {
        data.truncate(int(media.first + share * double(media.second - media.first)));
        return Recoverable::Ranges{{0, data.size()}};
    };
    auto sizeWord = [&](const char *type) {
        const qint64 box = BoxAt(data, type, media.second);
        if (box >= 0)
            memcpy(data.data() + box, "\xff\xff\xff\xf0", 4);
        return Recoverable::Ranges{{0, size}};
    };
    switch (harm) {
    case Harm::Cut30: return cut(0.30);
    case Harm::Cut60: return cut(0.60);
    case Harm::Cut95: return cut(0.95);
    case Harm::MoovType: {
        const qint64 box = BoxAt(data, "moov", media.second);
        memcpy(data.data() + box + 4, "\xde\xad\x00\x01", 4);
        return {{0, size}};
    }
    case Harm::StszSize: return sizeWord("stsz");
    case Harm::StscSize: return sizeWord("stsc");
    case Harm::StcoSize: return sizeWord("stco");
    case Harm::FtypLost: {
        const qint64 ftypSize = Bytes::WordAt(data, 0);
        data.replace(0, int(ftypSize), QByteArray(int(ftypSize), '\0'));
        return {{ftypSize, size}};
    }
    case Harm::FirstSectors:
        data.replace(0, 4096, QByteArray(4096, '\0'));
        return {{4096, size}};
    case Harm::MiddleGap: {
        const qint64 gap = (media.first + media.second) / 2;
        data.truncate(int(media.second));
        data.replace(int(gap), 65536, QByteArray(65536, '\0'));
        return {{0, gap}, {gap + 65536, media.second}};
    }
    case Harm::MoofType: {
        qint64 moof = -1;
        for (int n = 0; n < 3; ++n)
            moof = BoxAt(data, "moof", moof + 5);
        memcpy(data.data() + moof + 4, "\xde\xad\x00\x01", 4);
        return {{0, size}};
    }
    case Harm::Bare:
        data.prepend(QByteArray::fromHex("00000014667479704d344120000002004d344120" "000000006d646174"));
        return {{0, size}};
    case Harm::MoovLost: {
        const qint64 moov = BoxAt(data, "moov");
        const qint64 moovSize = Bytes::WordAt(data, int(moov));
        data.replace(int(moov), int(moovSize), QByteArray(int(moovSize), '\0'));
        return {{0, size}};
    }
    }
    return {};
}

// Presentation times of the first `n` video packets, in seconds from the first.
QList<double> VideoTimes(const QString &path, int n)
{
    QList<double> times;
    AVFormatContext *fmt = nullptr;
    if (avformat_open_input(&fmt, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return times;
    avformat_find_stream_info(fmt, nullptr);
    const int video = av_find_best_stream(fmt, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    AVPacket *p = av_packet_alloc();
    while (times.size() < n && av_read_frame(fmt, p) >= 0) {
        if (p->stream_index == video)
            times << p->pts * av_q2d(fmt->streams[video]->time_base);
        av_packet_unref(p);
    }
    av_packet_free(&p);
    avformat_close_input(&fmt);
    for (int i = times.size() - 1; i >= 0; --i)
        times[i] -= times.value(0);
    return times;
}

} // namespace

Q_DECLARE_METATYPE(Harm)

class TstRebuild : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString Original(const QString &name) const { return m_dir.filePath("rec/" + name); }

    // Damages a copy of `original` with `harm`, repairs it with corvane-repair `args`, and checks
    // that the result plays at least `share` of what the damage left recoverable (pictures, and
    // seconds of sound) and that the output says each of `says`.
    void Check(const QString &original, Harm harm, const QStringList &args, double share, const QStringList &says)
    {
        const QString name = QFileInfo(original).fileName();
        const QString case_ = m_dir.filePath(QString("case-%1").arg(QTest::currentDataTag()).replace(' ', '-'));
        QVERIFY(QDir().mkpath(case_ + "/out") && QDir().mkpath(case_ + "/tmp"));
        QByteArray data = Bytes::ReadFile(original);
        const Recoverable::Ranges surviving = Damage(data, harm, Recoverable::MediaData(original));
        const QString damaged = case_ + "/" + name;
        QVERIFY(Bytes::WriteFile(damaged, data));

        QProcess p;
        p.start(CORVANE_REPAIR_BIN, QStringList{"--output", case_ + "/out", "--temp", case_ + "/tmp"} + args +
                                        QStringList{damaged});
        QVERIFY(p.waitForFinished(600000));
        const QString out = QString::fromUtf8(p.readAllStandardOutput());
        QVERIFY2(p.exitCode() == 0, qPrintable(out + p.readAllStandardError()));
        for (const QString &text : says)
            QVERIFY2(out.contains(text), qPrintable(out));

        const Recoverable::Target target = Recoverable::Of(original, surviving);
        const Fixtures::Plays plays = Fixtures::Played(case_ + "/out/Repaired-Video-Files/" + name);
        const QString counts =
            QString::asprintf("plays %lld frames, %g s; recoverable %lld frames, %g s", plays.frames,
                              plays.audioSeconds, target.frames, target.audioSeconds);
        qInfo("%s", qPrintable(counts));
        QVERIFY2(plays.frames >= share * double(target.frames), qPrintable(counts));
        QVERIFY2(plays.audioSeconds >= share * target.audioSeconds, qPrintable(counts));
    }
    QString Reference(const QString &name) const { return m_dir.filePath("ref/" + name); }

private slots:
    void initTestCase()
    {
        QVERIFY(QDir(m_dir.path()).mkpath("rec") && QDir(m_dir.path()).mkpath("ref"));
        for (Recorder r : Recorders()) {
            QVERIFY(Fixtures::Make(Original(r.name), r.clip));
            // The same recorder on another day: other pictures, other length, same settings.
            r.clip.pattern = "testsrc2";
            r.clip.seconds = 2;
            QVERIFY(Fixtures::Make(Reference(r.name), r.clip));
        }
    }

    void commandLine_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Harm>("harm");
        const QList<QPair<const char *, Harm>> harms{
            {"cut at 30%", Harm::Cut30},   {"cut at 60%", Harm::Cut60},       {"cut at 95%", Harm::Cut95},
            {"moov type", Harm::MoovType}, {"stsz size", Harm::StszSize},     {"stsc size", Harm::StscSize},
            {"stco size", Harm::StcoSize}, {"ftyp lost", Harm::FtypLost}};
        for (const Recorder &r : Recorders())
            for (const auto &[what, harm] : harms)
                QTest::newRow(qPrintable(r.name + ", " + what)) << r.name << harm;
    }

    // Every case plays at least 95% of what its damage left recoverable, and says how it was mended.
    void commandLine()
    {
        QFETCH(QString, name);
        QFETCH(Harm, harm);
        const bool cut = harm == Harm::Cut30 || harm == Harm::Cut60 || harm == Harm::Cut95;
        Check(Original(name), harm, {"--reference", Reference(name)}, 0.95,
              cut ? QStringList{"Index rebuilt from " + name} : QStringList());
    }

    // Without a reference: the tracks come from what survives in the file itself, and what had to
    // be assumed is said.
    void withoutReference_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Fixtures::Clip>("clip");
        QTest::addColumn<Harm>("harm");
        QTest::addColumn<QStringList>("says");
        const QString rebuilt = "Index rebuilt from the file itself";
        using Fixtures::Clip;
        const QStringList headers{"-g", "25", "-x264-params", "repeat-headers=1"};
        const Clip h264 = Clip::Of("libx264", "aac", 4, headers),
                   mp3 = Clip::Of("libx264", "libmp3lame", 4, headers);
        const Clip hevc = Clip::Of("libx265", "aac", 4,
                                   {"-preset", "ultrafast", "-x265-params",
                                    "log-level=error:keyint=25:repeat-headers=1", "-tag:v", "hvc1"});
        const Clip faststart = Clip::Of("libx264", "aac", 4, {"-movflags", "+faststart"});
        const Clip sound = Clip::Of("", "aac", 4), adts = Clip::Of("", "aac", 4, {"-f", "adts"});
        QTest::newRow("H.264 .mp4 cut") << "own.mp4" << h264 << Harm::Cut60 << QStringList{rebuilt};
        QTest::newRow("HEVC .mov cut") << "own.mov" << hevc << Harm::Cut60 << QStringList{rebuilt};
        QTest::newRow("faststart, stsz") << "fast.mp4" << faststart << Harm::StszSize << QStringList();
        QTest::newRow("sound .m4a cut") << "own.m4a" << sound << Harm::Cut60
                                        << QStringList{rebuilt, "audio rate assumed 48 kHz"};
        QTest::newRow("MP3 in .mov cut") << "mp3.mov" << mp3 << Harm::Cut60 << QStringList{rebuilt};
        QTest::newRow("AAC with ADTS headers") << "adts.m4a" << adts << Harm::Bare << QStringList{rebuilt};
    }

    void withoutReference()
    {
        QFETCH(QString, name);
        QFETCH(Fixtures::Clip, clip);
        QFETCH(Harm, harm);
        QFETCH(QStringList, says);
        const QString original = m_dir.filePath("own-" + name);
        QVERIFY(Fixtures::Make(original, clip));
        Check(original, harm, {}, 0.90, says);
    }
    // Lost sectors, gaps and broken fragments, and MPEG-4 Part 2 video; a reference where the file
    // keeps no description of its own.
    void lostAndBroken_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Fixtures::Clip>("clip");
        QTest::addColumn<Harm>("harm");
        QTest::addColumn<bool>("reference");
        using Fixtures::Clip;
        const QStringList vop{"-g", "25", "-q:v", "4"}, rich{"-g", "25", "-b:v", "1500k"};
        const Clip mpeg4 = Clip::Of("mpeg4", "libmp3lame", 4, vop),
                   inBand = Clip::Of("mpeg4", "libmp3lame", 4,
                                     vop + QStringList{"-bsf:v", "dump_extra=freq=keyframe"});
        const Clip camera = Clip::Of("libx264", "aac", 4, rich),
                   faststart = Clip::Of("libx264", "aac", 4, rich + QStringList{"-movflags", "+faststart"}),
                   fragmented = Clip::Of("libx264", "aac", 4,
                                         rich + QStringList{"-movflags", "frag_keyframe+empty_moov"});
        QTest::newRow("MPEG-4 Part 2 + MP3, cut") << "vop.mov" << mpeg4 << Harm::Cut60 << true;
        QTest::newRow("MPEG-4 Part 2 + MP3, cut, no reference") << "vop.mov" << inBand << Harm::Cut60 << false;
        QTest::newRow("first 4 KiB, index at the end") << "lost.mp4" << camera << Harm::FirstSectors << false;
        QTest::newRow("first 4 KiB, faststart") << "lost.mp4" << faststart << Harm::FirstSectors << true;
        QTest::newRow("first 4 KiB, fragmented") << "lost.mp4" << fragmented << Harm::FirstSectors << true;
        QTest::newRow("first 4 KiB, .mov") << "lost.mov" << camera << Harm::FirstSectors << false;
        QTest::newRow("64 KiB gap, no index") << "gap.mp4" << camera << Harm::MiddleGap << true;
        QTest::newRow("fragment header damaged") << "frag.mp4" << fragmented << Harm::MoofType << false;
        QTest::newRow("fragmented, moov lost") << "frag.mp4" << fragmented << Harm::MoovLost << true;
    }

    void lostAndBroken()
    {
        QFETCH(QString, name);
        QFETCH(Fixtures::Clip, clip);
        QFETCH(Harm, harm);
        QFETCH(bool, reference);
        const QString original = m_dir.filePath("lost-" + name), other = m_dir.filePath("other-" + name);
        QVERIFY(Fixtures::Make(original, clip));
        QStringList args;
        if (reference) {
            clip.pattern = "testsrc2";
            clip.seconds = 2;
            QVERIFY(Fixtures::Make(other, clip));
            args << "--reference" << other;
        }
        Check(original, harm, args, 0.90, {});
    }

    // The rebuilt index shows the pictures in their order (B-frames included) at their times.
    void pictureTimes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("H.264") << "camera.mp4";
        QTest::newRow("HEVC") << "hevc.mov";
    }

    void pictureTimes()
    {
        QFETCH(QString, name);
        const QString original = Original(name), cut = m_dir.filePath("times-" + name),
                      rebuilt = m_dir.filePath("rebuilt-" + name);
        QByteArray data = Bytes::ReadFile(original);
        Damage(data, Harm::Cut60, Recoverable::MediaData(original));
        QVERIFY(Bytes::WriteFile(cut, data));
        const RebuildResult r = RebuildIndex(cut, rebuilt, LearnFromReference(Reference(name)));
        QVERIFY(r.Recovered());
        const QList<double> theirs = VideoTimes(original, int(r.videoSamples)), ours = VideoTimes(rebuilt, 1000);
        QCOMPARE(ours.size(), theirs.size());
        for (int i = 0; i < ours.size(); ++i)
            QVERIFY2(qAbs(ours[i] - theirs[i]) < 1e-3, qPrintable(QString("picture %1: %2 s, not %3 s")
                                                                       .arg(i).arg(ours[i]).arg(theirs[i])));
    }

    void walkerInputs_data()
    {
        AddReplayRows("walker-corpus", "walker-crashes");
    }

    void walkerInputs()
    {
        QFETCH(QString, input);
        const QString problem = CheckSampleWalker(Bytes::ReadFile(input));
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }
};

QTEST_GUILESS_MAIN(TstRebuild)
#include "tst_rebuild.moc"
