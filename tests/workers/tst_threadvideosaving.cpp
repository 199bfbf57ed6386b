// The saving worker: block copies into "Repaired-Video-Files", its signals, failures and stop
// requests; and the copy routine beneath it.

#include "Bytes.h"
#include "SignalLog.h"
#include "repair/BlockCopy.h"
#include "repair/ProcessFlags.h"
#include "workers/ThreadVideoSaving.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int MiB = 1 << 20;

QByteArray Pattern(int size)
{
    QByteArray b(size, '\0');
    for (int i = 0; i < size; ++i)
        b[i] = char(i * 7 + 3);
    return b;
}

void Watch(SignalLog &log, ThreadVideoSaving *w)
{
    log.Watch(w, &ThreadVideoSaving::ProgressValue, "ProgressValue");
    log.Watch(w, &ThreadVideoSaving::MaxProgress, "MaxProgress");
    log.Watch(w, &ThreadVideoSaving::OverAllProgressValue, "OverAllProgressValue");
    log.Watch(w, &ThreadVideoSaving::Info, "Info");
    log.Watch(w, &ThreadVideoSaving::DestInfo, "DestInfo");
    log.Watch(w, &ThreadVideoSaving::OverAllMaxProgress, "OverAllMaxProgress");
    log.Watch(w, &ThreadVideoSaving::SaveFailed, "SaveFailed");
    log.Watch(w, &ThreadVideoSaving::SavingFinish, "SavingFinish");
}

} // namespace

class TstThreadVideoSaving : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_src;
    QString m_dest;

    QString Source(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_src + "/" + name;
        Bytes::WriteFile(path, bytes);
        return path;
    }

    QString Saved(const QString &name) const { return m_dest + "/Repaired-Video-Files/" + name; }

    void Finish(ThreadVideoSaving &w)
    {
        QVERIFY(w.wait(30000));
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
    }

private Q_SLOTS:
    void init()
    {
        m_src = m_dir.filePath("src");
        m_dest = m_dir.filePath("dest");
        QDir(m_src).removeRecursively();
        QDir(m_dest).removeRecursively();
        QDir().mkpath(m_src);
        QDir().mkpath(m_dest);
        bStopFlag = false;
    }

    // Progress after the first block, then throttled, and always the size last.
    void blocks()
    {
        const QByteArray data = Pattern(5 * MiB + 7);
        const QString a = Source("a.mov", data);
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({a}, m_dest);
        Finish(w);

        const QString folder = QDir(m_dest + "/Repaired-Video-Files").absolutePath();
        const QStringList progress = log.Only("ProgressValue");
        QCOMPARE(log.Lines().mid(0, 6),
                 (QStringList{"DestInfo(" + folder + ")", "OverAllMaxProgress(1)", "Info(Saving a.mov file)",
                              "OverAllProgressValue(0)", "MaxProgress(5242887)", "ProgressValue(1048576)"}));
        QCOMPARE(log.Lines().mid(5 + progress.size()), (QStringList{"SavingFinish()"}));
        QCOMPARE(progress.last(), QString("ProgressValue(5242887)"));
        QCOMPARE(Bytes::ReadFile(Saved("a.mov")), data);
    }

    // A file of the result folder's name beside the user's video: nothing is written, the run says why.
    void unusableFolder()
    {
        const QString blocker = m_dest + "/Repaired-Video-Files";
        QVERIFY(Bytes::WriteFile(blocker, "mine") && Bytes::WriteFile(m_dest + "/a.mov", "the user's own"));
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({Source("a.mov", Pattern(100))}, m_dest);
        Finish(w);
        QCOMPARE(
            log.Lines().mid(2),
            (QStringList{"SaveFailed(, Something that is not a folder has that name.)", "SavingFinish()"}));
        QCOMPARE(Bytes::ReadFile(m_dest + "/a.mov"), QByteArray("the user's own"));
        QCOMPARE(QDir(m_dest).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 2);
    }

    void zeroByteSource()
    {
        const QString a = Source("empty.mp4", {});
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({a}, m_dest);
        Finish(w);
        QCOMPARE(log.Only("MaxProgress"), QStringList{"MaxProgress(0)"});
        QVERIFY(log.Only("ProgressValue").isEmpty());
        QVERIFY(QFileInfo::exists(Saved("empty.mp4")));
        QCOMPARE(QFileInfo(Saved("empty.mp4")).size(), 0);
    }

    void emptyListStillCreatesTheFolder()
    {
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({}, m_dest);
        Finish(w);
        QVERIFY(QFileInfo(m_dest + "/Repaired-Video-Files").isDir());
        QCOMPARE(log.Lines().mid(1), (QStringList{"OverAllMaxProgress(0)", "SavingFinish()"}));
    }

    void existingTargetOverwritten()
    {
        QDir().mkpath(m_dest + "/Repaired-Video-Files");
        Bytes::WriteFile(Saved("a.mov"), Pattern(9000));
        const QString a = Source("a.mov", QByteArray(1500, 'x'));
        ThreadVideoSaving w;
        w.SetInitialSettings({a}, m_dest);
        Finish(w);
        QCOMPARE(Bytes::ReadFile(Saved("a.mov")), QByteArray(1500, 'x'));
    }

    void unopenableSourceSkipped()
    {
        const QString b = Source("b.mov", Pattern(100));
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({m_src + "/missing.mov", b}, m_dest);
        Finish(w);
        QCOMPARE(log.Only("MaxProgress"), QStringList{"MaxProgress(100)"});
        QCOMPARE(log.Only("OverAllProgressValue"),
                 (QStringList{"OverAllProgressValue(0)", "OverAllProgressValue(1)"}));
        QVERIFY(!QFileInfo::exists(Saved("missing.mov")));
        QCOMPARE(Bytes::ReadFile(Saved("b.mov")), Pattern(100));
    }

    void stopDuringSecondOfThree()
    {
        const QByteArray data = Pattern(3 * MiB);
        const QStringList files{Source("a.mov", data), Source("b.mov", data), Source("c.mov", data)};
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        bool second = false;
        connect(&w, &ThreadVideoSaving::OverAllProgressValue, &w, [&](unsigned long i) { second = i == 1; },
                Qt::DirectConnection);
        connect(
            &w, &ThreadVideoSaving::ProgressValue, &w,
            [&](unsigned long done) {
                if (second && done == MiB)
                    bStopFlag = true;
            },
            Qt::DirectConnection);
        w.SetInitialSettings(files, m_dest);
        Finish(w);

        QCOMPARE(Bytes::ReadFile(Saved("a.mov")), data);
        QCOMPARE(Bytes::ReadFile(Saved("b.mov")), data.left(MiB));
        QVERIFY(!QFileInfo::exists(Saved("c.mov")));
        QVERIFY(!log.Lines().contains("Info(Saving c.mov file)"));
        QCOMPARE(log.Lines().last(), QString("SavingFinish()"));

        // The next run starts clean and copies everything.
        ThreadVideoSaving again;
        again.SetInitialSettings(files, m_dest);
        Finish(again);
        QCOMPARE(Bytes::ReadFile(Saved("c.mov")), data);
    }

    // Both ways of copying (the kernel's between files, reads and writes from a pipe) see a source
    // that ends early and a failed write.
    void copyRoutine_data()
    {
        QTest::addColumn<bool>("pipe");
        QTest::addColumn<int>("bytes"); // what the source holds; the copy is asked for 2 MiB + 3
        QTest::addColumn<QString>("to");
        QTest::addColumn<int>("status");
        const QString file = m_dir.filePath("out");
        QTest::newRow("pipe: whole") << true << 2 * MiB + 3 << file << int(BlockCopyResult::Complete);
        for (bool pipe : {false, true}) {
            const QByteArray how = pipe ? "pipe: " : "file: ";
            QTest::newRow(how + "ends early") << pipe << MiB + 5 << file << int(BlockCopyResult::ReadFailed);
            QTest::newRow(how + "full disk")
                << pipe << MiB << "/dev/full" << int(BlockCopyResult::WriteFailed);
        }
    }

    void copyRoutine()
    {
        QFETCH(bool, pipe);
        QFETCH(int, bytes);
        QFETCH(QString, to);
        QFETCH(int, status);
        const QString from = Source("in", Pattern(bytes));
        FILE *in = pipe ? popen(qPrintable("cat " + from), "r") : fopen(qPrintable(from), "r");
        const int out = open(QFile::encodeName(to).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        QList<quint64> progress;
        const BlockCopyResult r =
            CopyBlocks(fileno(in), out, 2 * MiB + 3, nullptr, [&](quint64 d) { progress << d; });
        close(out);
        pipe ? pclose(in) : fclose(in);
        QCOMPARE(int(r.status), status);
        const bool full = to == "/dev/full";
        QCOMPARE(r.copied, quint64(full ? 0 : bytes));
        QCOMPARE(r.Reason().isEmpty(), r.Ok());
        if (r.Ok()) {
            QCOMPARE(Bytes::ReadFile(to), Pattern(bytes));
            QCOMPARE(progress.last(), quint64(bytes));
        }
    }
};

QTEST_GUILESS_MAIN(TstThreadVideoSaving)
#include "tst_threadvideosaving.moc"
