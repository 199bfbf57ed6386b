// A damaged video-only file as the first file a process re-encodes: no sound has been encoded in the
// process yet, and the result must still be finished (its index written), play as much as the ffmpeg
// command makes the file play, and be called repaired. This has to run in a process of its own.

#include "Bytes.h"
#include "Fixtures.h"
#include "repair/ThreadVideoRepair.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>

class TstReEncodeFirstVideo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void videoOnlyFirstIsFinished()
    {
        QTemporaryDir dir;
        const QString source = dir.filePath("video-only.mp4");
        QVERIFY(Fixtures::Make(source, Fixtures::Clip::Of("libx264", "", 4, {"-b:v", "1500k", "-g", "5"})));
        QByteArray bytes = Bytes::ReadFile(source);
        bytes.replace(bytes.size() / 2, 65536, QByteArray(65536, '\0'));
        QVERIFY(Bytes::WriteFile(source, bytes));
        const QString temp = dir.filePath("work");
        QVERIFY(QDir().mkpath(temp));

        ThreadVideoRepair worker;
        worker.SetInitialSettings({source}, temp);
        QVERIFY(worker.wait(120000));

        QVERIFY(worker.UnsupportedList().isEmpty());
        QCOMPARE(QDir(temp).entryList(QDir::Files), QStringList{"video-only.mp4"});
        QCOMPARE(worker.Outcomes().value(0).verdict, RepairOutcome::Verdict::Repaired);
        QCOMPARE(worker.Outcomes().value(0).madeBy, QString("re-encoded"));
        const QString theirs = dir.filePath("ffmpeg.mp4");
        QVERIFY(Fixtures::Ffmpeg(
            {"-err_detect", "ignore_err", "-i", source, "-c:v", "libx264", "-preset", "veryfast", theirs}));
        const qint64 ours = Fixtures::Played(temp + "/video-only.mp4").frames;
        const qint64 ffmpeg = Fixtures::Played(theirs).frames;
        QVERIFY2(ours >= std::ceil(0.99 * double(ffmpeg)),
                 qPrintable(QString("%1 of %2").arg(ours).arg(ffmpeg)));
    }
};

QTEST_GUILESS_MAIN(TstReEncodeFirstVideo)
#include "tst_reencode_firstvideo.moc"
