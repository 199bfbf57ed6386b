// The repair worker as a thread: the order of its signals, stop requests at each stage, working
// copies, and the two process-wide flags.

#include "Bytes.h"
#include "SignalLog.h"
#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QtTest>

using Bytes::Builder;

namespace {

// Stands in for the re-encoding pass: records the list it is handed.
class RecordingRepair : public ThreadVideoRepair
{
public:
    QStringList handed;
    bool called = false;

    void ReRepairFiles(QStringList files) override
    {
        called = true;
        handed = files;
    }
};

// Its thread lingers for a moment after run() has returned, as a thread may before it ends.
class Lingering : public RecordingRepair
{
public:
    QSemaphore returned;
    void run() override { RecordingRepair::run(); returned.release(); QThread::msleep(300); }
};

void Watch(SignalLog &log, ThreadVideoRepair *w)
{
    log.Watch(w, &ThreadVideoRepair::RepairFinish, "RepairFinish");
    log.Watch(w, &ThreadVideoRepair::OverAllMaxProgress, "OverAllMaxProgress");
    log.Watch(w, &ThreadVideoRepair::OverAllProgressValue, "OverAllProgressValue");
    log.Watch(w, &ThreadVideoRepair::Info, "Info");
    log.Watch(w, &ThreadVideoRepair::MaxProgress, "MaxProgress");
    log.Watch(w, &ThreadVideoRepair::ProgressValue, "ProgressValue");
    log.Watch(w, &ThreadVideoRepair::ProcessAborted, "ProcessAborted");
}

// A file the structural pass changes: the track header after a 92-byte "ftyp" lost its size and type.
QByteArray Damaged()
{
    return Builder().Box(92, "ftyp").Zeros(84).Box(0x300, "trak").Zeros(96).Box(8, "free");
}

} // namespace

class TstThreadVideoRepair : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_temp;
    QString m_sources;

    QString Source(const QString &name, const QByteArray &bytes, const QString &folder = QString())
    {
        const QString dir = folder.isEmpty() ? m_sources : folder;
        QDir().mkpath(dir);
        const QString path = dir + "/" + name;
        Bytes::WriteFile(path, bytes);
        return path;
    }

    void Finish(ThreadVideoRepair &w)
    {
        QVERIFY(w.wait(30000));
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        QVERIFY(!pHandle);
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_temp = m_dir.filePath("work");
        m_sources = m_dir.filePath("in");
        QDir(m_temp).removeRecursively();
        QDir(m_sources).removeRecursively();
        QDir().mkpath(m_temp);
        bStopFlag = false;
    }

    void emptyList()
    {
        RecordingRepair w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({}, m_temp);
        Finish(w);
        QCOMPARE(log.Lines(), (QStringList{"MaxProgress(0)", "OverAllMaxProgress(0)", "RepairFinish()"}));
        QVERIFY(w.called);
        QVERIFY(w.handed.isEmpty());
    }

    void fullRunSequence()
    {
        const QString a = Source("a.mov", Damaged());
        RecordingRepair w;
        SignalLog log;
        Watch(log, &w);
        bool runningSeen = false;
        connect(&w, &ThreadVideoRepair::Info, &w, [&](const QString &) { runningSeen = bProcessRunning; },
                Qt::DirectConnection);
        w.SetInitialSettings({a}, m_temp);
        Finish(w);

        const QString copy = m_temp + "/a.mov";
        QCOMPARE(w.handed, QStringList{copy});
        QVERIFY(runningSeen);
        const QStringList lines = log.Lines();
        const QStringList head{"MaxProgress(1)", "Info(Scanning a.mov file)", "ProgressValue(0)",
                               "OverAllMaxProgress(1)", "OverAllProgressValue(0)",
                               "Info(Repairing a.mov file)", QString("MaxProgress(%1)").arg(Damaged().size()),
                               "ProgressValue(0)", "ProgressValue(4)", "ProgressValue(96)",
                               "ProgressValue(196)", "RepairFinish()"};
        QCOMPARE(lines, head);
        // The working copy was repaired in place; the source was not touched.
        QCOMPARE(Bytes::WordAt(Bytes::ReadFile(copy), 100), 92u);
        QCOMPARE(Bytes::ReadFile(a), Damaged());
    }

    void stopBeforeRun()
    {
        const QString a = Source("a.mov", Damaged());
        RecordingRepair w;
        SignalLog log;
        Watch(log, &w);
        bStopFlag = true;
        w.SetInitialSettings({a}, m_temp);
        Finish(w);
        QCOMPARE(log.Lines(), QStringList{"ProcessAborted()"});
        QVERIFY(QDir(m_temp).isEmpty());
        QVERIFY(!w.called);
    }

    void stopDuringCopy()
    {
        const QStringList files{Source("a.mov", Damaged()), Source("b.mov", Damaged()),
                                Source("c.mov", Damaged())};
        RecordingRepair w;
        SignalLog log;
        Watch(log, &w);
        connect(&w, &ThreadVideoRepair::ProgressValue, &w, [](unsigned long i) {
            if (i == 1)
                bStopFlag = true;
        }, Qt::DirectConnection);
        w.SetInitialSettings(files, m_temp);
        Finish(w);

        QCOMPARE(log.Lines(), (QStringList{"MaxProgress(3)", "Info(Scanning a.mov file)", "ProgressValue(0)",
                                           "Info(Scanning b.mov file)", "ProgressValue(1)",
                                           "ProcessAborted()"}));
        QVERIFY(!w.called);
        QCOMPARE(QDir(m_temp).entryList(QDir::Files), (QStringList{"a.mov", "b.mov"}));
        // The copy was left as it came: no scan ran.
        QCOMPARE(Bytes::ReadFile(m_temp + "/a.mov"), Damaged());
    }

    void stopDuringScanOfSecond()
    {
        const QStringList files{Source("a.mov", Damaged()), Source("b.mov", Damaged()),
                                Source("c.mov", Damaged())};
        RecordingRepair w;
        SignalLog log;
        Watch(log, &w);
        connect(&w, &ThreadVideoRepair::Info, &w, [](const QString &text) {
            if (text == "Repairing b.mov file")
                bStopFlag = true;
        }, Qt::DirectConnection);
        w.SetInitialSettings(files, m_temp);
        Finish(w);

        const QStringList lines = log.Lines();
        const int at = lines.indexOf("Info(Repairing b.mov file)");
        QVERIFY(at > 0);
        QCOMPARE(lines.mid(at + 1),
                 (QStringList{QString("MaxProgress(%1)").arg(Damaged().size()), "ProcessAborted()"}));
        QVERIFY(!lines.contains("Info(Repairing c.mov file)"));
        QCOMPARE(w.handed, (QStringList{m_temp + "/a.mov", m_temp + "/b.mov", m_temp + "/c.mov"}));
        QCOMPARE(Bytes::WordAt(Bytes::ReadFile(m_temp + "/a.mov"), 100), 92u);
        QCOMPARE(Bytes::ReadFile(m_temp + "/b.mov"), Damaged());
        QCOMPARE(Bytes::ReadFile(m_temp + "/c.mov"), Damaged());
    }

    // Two sources with one name share a working copy: the second copy fails and the first file's
    // copy is repaired twice.
    void sameNameTwice()
    {
        const QString first = Source("same.mov", Damaged(), m_dir.filePath("in/one"));
        const QString second = Source("same.mov", Builder().Zeros(32), m_dir.filePath("in/two"));
        RecordingRepair w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({first, second}, m_temp);
        Finish(w);

        const QString copy = m_temp + "/same.mov";
        QCOMPARE(w.handed, (QStringList{copy, copy}));
        QCOMPARE(log.Only("Info").count("Info(Repairing same.mov file)"), 2);
        QCOMPARE(QDir(m_temp).entryList(QDir::Files), QStringList{"same.mov"});
        QCOMPARE(Bytes::ReadFile(copy).size(), Damaged().size());
    }

    void missingSourceGoesOn()
    {
        const QString a = Source("a.mov", Damaged());
        RecordingRepair w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({m_sources + "/gone.mov", a}, m_temp);
        Finish(w);
        const QStringList lines = log.Lines();
        QVERIFY(lines.contains("Info(Repairing gone.mov file)"));
        QCOMPARE(lines.at(lines.indexOf("Info(Repairing gone.mov file)") + 1), QString("MaxProgress(0)"));
        QCOMPARE(lines.last(), QString("RepairFinish()"));
        QCOMPARE(Bytes::WordAt(Bytes::ReadFile(m_temp + "/a.mov"), 100), 92u);
    }

    void sourcesNeverWritten()
    {
        const QString a = Source("a.mov", Damaged());
        const QString b = Source("b.m4v", Builder().Fcc("ftyp").Fcc("isom").Zeros(64));
        QFile::setPermissions(a, QFile::ReadOwner | QFile::WriteOwner);
        const QDateTime aTime = QFileInfo(a).lastModified();
        const QDateTime bTime = QFileInfo(b).lastModified();
        QTest::qWait(20);

        RecordingRepair w;
        w.SetInitialSettings({a, b}, m_temp);
        Finish(w);
        QCOMPARE(Bytes::ReadFile(a), Damaged());
        QCOMPARE(Bytes::ReadFile(b), Builder().Fcc("ftyp").Fcc("isom").Zeros(64).Data());
        QCOMPARE(QFileInfo(a).lastModified(), aTime);
        QCOMPARE(QFileInfo(b).lastModified(), bTime);
        QVERIFY(Bytes::ReadFile(m_temp + "/a.mov") != Damaged());
    }

    // Destroying a running worker stops it and waits; destroying an idle one leaves no stop request.
    void destructor()
    {
        {
            ThreadVideoRepair idle;
        }
        QVERIFY(!bStopFlag);

        // A long scan: 8 MiB of 92-byte size words, each read as "nothing to do".
        QByteArray slide;
        for (int i = 0; i < (8 << 20) / 4; ++i)
            slide += Bytes::U32(92);
        const QString big = Source("big.mov", slide);

        SignalLog log;
        {
            auto *w = new ThreadVideoRepair;
            w->SetReEncodingEnabled(false);
            Watch(log, w);
            QMutex m;
            QWaitCondition scanning;
            bool started = false;
            connect(w, &ThreadVideoRepair::ProgressValue, w, [&](unsigned long pos) {
                if (pos != 400)
                    return;
                QMutexLocker l(&m);
                started = true;
                scanning.wakeAll();
            }, Qt::DirectConnection);
            w->SetInitialSettings({big}, m_temp);
            {
                QMutexLocker l(&m);
                while (!started)
                    scanning.wait(&m);
            }
            delete w;
        }
        QCOMPARE(log.Lines().last(), QString("ProcessAborted()"));
        QVERIFY(log.Only("ProgressValue").size() < slide.size() / 4);
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        QVERIFY(!pHandle);

        // The next runs work, also one whose settings come as the thread is on its way out of run().
        Lingering next;
        SignalLog after;
        Watch(after, &next);
        next.SetInitialSettings({}, m_temp);
        next.returned.acquire();
        next.SetInitialSettings({}, m_temp);
        Finish(next);
        QCOMPARE(after.Only("RepairFinish").size(), 2);
    }
};

QTEST_GUILESS_MAIN(TstThreadVideoRepair)
#include "tst_threadvideorepair.moc"
