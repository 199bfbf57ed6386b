// Stop requests at random moments of a repair run and of a saving run: the run ends, both flags are
// cleared, the sources are untouched, nothing stays open, and the next run works.
//
// CORVANE_STOP_RUNS sets the number of stopped runs of each worker (default 50).

#include "Fixtures.h"
#include "SignalLog.h"
#include "StdoutCapture.h"
#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"
#include "workers/ThreadVideoSaving.h"

extern "C" {
#include <libavutil/log.h>
}

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

#include <random>

using Fixtures::Clip;

namespace {

int Runs()
{
    bool ok = false;
    const int v = qEnvironmentVariableIntValue("CORVANE_STOP_RUNS", &ok);
    return ok ? v : 50;
}

QByteArray ReadAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

int OpenDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::Files | QDir::System | QDir::NoDotAndDotDot).size();
}

// Sleeps for a random part (seeded) of `span` microseconds, then raises the stop flag unless the
// run has already ended.
void StopLater(QThread &worker, quint32 seed, qint64 spanUs)
{
    std::mt19937 rng(seed);
    QThread::usleep(rng() % quint64(qMax<qint64>(spanUs, 1)));
    if (!worker.isFinished())
        bStopFlag = true;
}

// A stop that came after the run had cleared the flags on its way out leaves the flag up; the worker
// cannot see it, so take it back.
bool CameTooLate(const QStringList &log, const QString &finish)
{
    if (bStopFlag && !log.isEmpty() && log.last() == finish) {
        bStopFlag = false;
        return true;
    }
    return false;
}

} // namespace

class TstStopAnyTime : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QStringList m_sources;
    QList<QByteArray> m_sourceBytes;
    QStringList m_saveSources;
    qint64 m_repairUs = 0;
    qint64 m_saveUs = 0;
    int m_fds = 0;
    int m_repairRuns = 0;
    int m_repairStopped = 0;
    int m_saveRuns = 0;
    int m_saveStopped = 0;

    QString Fresh(const QString &name)
    {
        const QString path = m_dir.filePath(name);
        QDir(path).removeRecursively();
        QDir().mkpath(path);
        return path;
    }

    // A run of the repair worker over the fixtures; returns the signal log. Stops it at a random
    // moment when `seed` is not 0.
    QStringList Repair(const QString &work, quint32 seed, QStringList *unsupported = nullptr)
    {
        SignalLog log;
        ThreadVideoRepair worker;
        log.Watch(&worker, &ThreadVideoRepair::RepairFinish, "RepairFinish");
        log.Watch(&worker, &ThreadVideoRepair::ProcessAborted, "ProcessAborted");
        StdoutCapture quiet;
        worker.SetInitialSettings(m_sources, work);
        if (seed)
            StopLater(worker, seed, m_repairUs);
        if (!worker.wait(120000))
            qFatal("repair run did not end");
        if (unsupported)
            *unsupported = worker.UnsupportedList();
        return log.Lines();
    }

    QStringList Save(const QString &destination, quint32 seed)
    {
        SignalLog log;
        ThreadVideoSaving worker;
        log.Watch(&worker, &ThreadVideoSaving::SavingFinish, "SavingFinish");
        // A slow disk: a saving run of small files then lasts long beside the jitter of a loaded
        // machine's sleeps, so that the stops land inside it.
        connect(&worker, &ThreadVideoSaving::ProgressValue, &worker, [] { QThread::usleep(3000); },
                Qt::DirectConnection);
        worker.SetInitialSettings(m_saveSources, destination);
        if (seed)
            StopLater(worker, seed, m_saveUs);
        if (!worker.wait(120000))
            qFatal("saving run did not end");
        return log.Lines();
    }

    static void StopRows()
    {
        QTest::addColumn<quint32>("seed");
        for (int i = 1; i <= Runs(); ++i)
            QTest::newRow(qPrintable(QString("run %1").arg(i))) << quint32(i);
    }

    void CheckSourcesAndFlags()
    {
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        for (int i = 0; i < m_sources.size(); ++i)
            QVERIFY(ReadAll(m_sources.at(i)) == m_sourceBytes.at(i));
    }

private Q_SLOTS:
    void initTestCase()
    {
        av_log_set_level(AV_LOG_QUIET);
        const QString in = Fresh("in");
        const QList<QPair<QString, QPair<QString, QString>>> clips{
            {"a.mp4", {"libx264", "aac"}}, {"b.mov", {"mpeg4", "libmp3lame"}}, {"c.m4v", {"libx264", ""}}};
        for (const auto &c : clips) {
            Clip clip;
            clip.videoCodec = c.second.first;
            clip.audioCodec = c.second.second;
            clip.size = "160x120";
            clip.seconds = 1;
            m_sources << in + "/" + c.first;
            QVERIFY(Fixtures::Make(m_sources.last(), clip));
            m_sourceBytes << ReadAll(m_sources.last());
        }
        // Saving copies 1 MiB at a time: three files of four blocks each.
        for (int i = 0; i < 3; ++i) {
            QByteArray bytes(4 * 1024 * 1024 - 517 * i, '\0');
            for (int j = 0; j < bytes.size(); ++j)
                bytes[j] = char(j * 31 + i);
            m_saveSources << in + QString("/save-%1.mov").arg(i);
            QFile f(m_saveSources.last());
            QVERIFY(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size());
        }

        // Unstopped runs measure how long a run takes, so that the stops fall inside one; the
        // second of two, as the first also warms the caches.
        for (int i = 0; i < 2; ++i) {
            QElapsedTimer clock;
            clock.start();
            QCOMPARE(Repair(Fresh("measure"), 0), QStringList{"RepairFinish()"});
            m_repairUs = clock.nsecsElapsed() / 1000;
            clock.restart();
            QCOMPARE(Save(Fresh("measure-save"), 0), QStringList{"SavingFinish()"});
            m_saveUs = clock.nsecsElapsed() / 1000;
        }
        m_fds = OpenDescriptors();
        qInfo("stops within %lld us of a repair run's start, %lld us of a saving run's", m_repairUs, m_saveUs);
    }

    void repairStops()
    {
        QFETCH(quint32, seed);
        const QString work = Fresh("work");
        const QStringList log = Repair(work, seed);
        ++m_repairRuns;
        QVERIFY2(log == QStringList{"ProcessAborted()"} || log == QStringList{"RepairFinish()"},
                 qPrintable(log.join(", ")));
        if (!CameTooLate(log, "RepairFinish()") && log.last() == "ProcessAborted()")
            ++m_repairStopped;
        CheckSourcesAndFlags();
        if (QTest::currentTestFailed())
            return;

        // The next run releases whatever the stop left open and repairs every file.
        const QString again = Fresh("again");
        QStringList unsupported;
        QCOMPARE(Repair(again, 0, &unsupported), QStringList{"RepairFinish()"});
        QVERIFY(unsupported.isEmpty());
        QCOMPARE(QDir(again).entryList(QDir::Files, QDir::Name), (QStringList{"a.mp4", "b.mov", "c.m4v"}));
        QVERIFY(Fixtures::DecodeErrors(again + "/a.mp4").isEmpty());
        CheckSourcesAndFlags();
        QVERIFY(!pHandle);
        QCOMPARE(OpenDescriptors(), m_fds);
    }
    void repairStops_data() { StopRows(); }

    void saveStops()
    {
        QFETCH(quint32, seed);
        const QString dest = Fresh("dest");
        const QString folder = dest + "/Repaired-Video-Files";
        const QStringList log = Save(dest, seed);
        ++m_saveRuns;
        QVERIFY2(log.isEmpty() || log == QStringList{"SavingFinish()"}, qPrintable(log.join(", ")));
        CameTooLate(log, "SavingFinish()");
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);

        // What was saved is the files in order, each whole but perhaps the last, which may be cut.
        const QStringList saved = QDir(folder).entryList(QDir::Files, QDir::Name);
        for (int i = 0; i < saved.size(); ++i) {
            const QString name = QFileInfo(m_saveSources.at(i)).fileName();
            QCOMPARE(saved.at(i), name);
            const QByteArray source = ReadAll(m_saveSources.at(i));
            const QByteArray copy = ReadAll(folder + "/" + name);
            QVERIFY(i == saved.size() - 1 ? source.startsWith(copy) : source == copy);
        }
        if (saved.size() < m_saveSources.size() || ReadAll(folder + "/" + saved.last()).size() <
                                                       QFileInfo(m_saveSources.last()).size())
            ++m_saveStopped;

        // The next run into the same folder replaces everything with whole copies.
        QCOMPARE(Save(dest, 0), QStringList{"SavingFinish()"});
        QCOMPARE(QDir(folder).entryList(QDir::Files).size(), m_saveSources.size());
        for (const QString &source : m_saveSources)
            QVERIFY(ReadAll(folder + "/" + QFileInfo(source).fileName()) == ReadAll(source));
        QVERIFY(!bStopFlag);
        QVERIFY(!bProcessRunning);
        QCOMPARE(OpenDescriptors(), m_fds);
    }
    void saveStops_data() { StopRows(); }

    // A stop inside the re-encoding pass leaves that file's output open for the next run to
    // release; the next run's structural pass once opened its first copy over it and lost it.
    void stopInReEncodingLeavesNothingOpen()
    {
        const int before = OpenDescriptors();
        ThreadVideoRepair worker;
        int seen = 0; // the second "Repairing" of the first file is the re-encoding pass's
        connect(&worker, &ThreadVideoRepair::Info, &worker, [&](const QString &text) {
            seen += text == "Repairing a.mp4 file";
        }, Qt::DirectConnection);
        connect(&worker, &ThreadVideoRepair::ProgressValue, &worker, [&] {
            if (seen == 2)
                bStopFlag = true;
        }, Qt::DirectConnection);
        {
            StdoutCapture quiet;
            worker.SetInitialSettings(m_sources, Fresh("work"));
            QVERIFY(worker.wait(120000));
        }
        QCOMPARE(seen, 2);
        QVERIFY(pHandle);
        QCOMPARE(Repair(Fresh("again"), 0), QStringList{"RepairFinish()"});
        QVERIFY(!pHandle);
        QCOMPARE(OpenDescriptors(), before);
    }

    // Most stops must land inside a run, or the test would prove little.
    void cleanupTestCase()
    {
        qInfo("cut short by their stop: %d of %d repair runs, %d of %d saving runs", m_repairStopped,
              m_repairRuns, m_saveStopped, m_saveRuns);
        QVERIFY(m_repairStopped >= m_repairRuns / 2);
        QVERIFY(m_saveStopped >= m_saveRuns / 2);
    }
};

QTEST_GUILESS_MAIN(TstStopAnyTime)
#include "tst_stopanytime.moc"
