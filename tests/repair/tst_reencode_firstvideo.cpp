// A video-only file as the first file a process re-encodes. No audio packet has been flushed in the
// process yet, so the output gets no trailer; it still replaces the working copy. This has to run in
// a process of its own.

#include "Fixtures.h"
#include "repair/ThreadVideoRepair.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

class TstReEncodeFirstVideo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void videoOnlyFirstHasNoTrailer()
    {
        QTemporaryDir dir;
        Fixtures::Clip clip;
        clip.audioCodec.clear();
        const QString source = dir.filePath("video-only.mp4");
        QVERIFY(Fixtures::Make(source, clip));
        const QString temp = dir.filePath("work");
        QDir().mkpath(temp);

        ThreadVideoRepair worker;
        worker.SetInitialSettings({source}, temp);
        QVERIFY(worker.wait(120000));

        QVERIFY(worker.UnsupportedList().isEmpty());
        QCOMPARE(QDir(temp).entryList(QDir::Files), QStringList{"video-only.mp4"});
        QFile out(temp + "/video-only.mp4");
        QVERIFY(out.open(QIODevice::ReadOnly));
        const QByteArray bytes = out.readAll();
        // The muxer's header and media data are there, the movie box written by the trailer is not.
        QVERIFY(bytes.contains("mdat"));
        QVERIFY(!bytes.contains("moov"));
        QVERIFY(bytes.size() > 1000);
    }
};

QTEST_GUILESS_MAIN(TstReEncodeFirstVideo)
#include "tst_reencode_firstvideo.moc"
