// The worker threads: the repair worker's signals, stops and working copies; the saving worker's
// copies, signals, failures and stops, and the copy routine beneath it; the preview worker.

#include "Bytes.h"
#include "SignalLog.h"
#include "repair/BlockCopy.h"
#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"
#include "workers/ThreadPreview.h"
#include "workers/ThreadVideoSaving.h"

#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

using Bytes::Builder;

namespace
{

constexpr int MiB = 1 << 20;

// Stands in for the re-encoding pass: records the list it is handed.
class RecordingRepair : public ThreadVideoRepair
{
public:
    QStringList handed{"not called"};
    void ReRepairFiles(QStringList files) override { handed = files; }
};

// Its thread lingers for a moment after run() has returned, as a thread may before it ends.
class Lingering : public RecordingRepair
{
public:
    QSemaphore returned;
    void run() override
    {
        RecordingRepair::run();
        returned.release();
        QThread::msleep(300);
    }
};

// A file the structural pass changes: the track header after a 92-byte "ftyp" lost its size and type.
QByteArray Damaged()
{
    return Builder().Box(92, "ftyp").Zeros(84).Box(0x300, "trak").Zeros(96).Box(8, "free");
}

// The signals of copying file i, and of its structural pass.
QStringList Copied(int i, const QString &name)
{
    return {"Info(Scanning " + name + " file)", QString("ProgressValue(%1)").arg(i)};
}

QStringList Scanned(int i, const QString &name)
{
    return QString("OverAllProgressValue(%1)|Info(Repairing %2 file)|MaxProgress(%3)|ProgressValue(0)|"
                   "ProgressValue(4)|ProgressValue(96)|ProgressValue(196)")
        .arg(QString::number(i), name, QString::number(Damaged().size()))
        .split('|');
}

QByteArray Pattern(int size)
{
    QByteArray b(size, '\0');
    for (int i = 0; i < size; ++i)
        b[i] = char(i * 7 + 3);
    return b;
}

} // namespace

class TstWorkers : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_temp, m_src, m_dest;

    QString Saved(const QString &name) const { return m_dest + "/Repaired-Video-Files/" + name; }

    void Finish(QThread &w)
    {
        QVERIFY(w.wait(30000));
        QVERIFY(!bStopFlag && !bProcessRunning && !pHandle);
    }

    // One saving run of `sources` into the destination; every signal it gave.
    QStringList Save(const QStringList &sources, std::function<void(const QString &)> onLine = {})
    {
        ThreadVideoSaving w;
        SignalLog emitted(&w);
        emitted.OnLine = onLine;
        w.SetInitialSettings(sources, m_dest);
        Finish(w);
        return emitted.Lines();
    }

private Q_SLOTS:
    void init()
    {
        const QString tag =
            m_dir.filePath(QString("%1-%2").arg(QTest::currentTestFunction(), QTest::currentDataTag()));
        m_temp = tag + "/work", m_src = tag + "/src", m_dest = tag + "/dest";
        QVERIFY(QDir().mkpath(m_temp) && QDir().mkpath(m_src) &&
                QDir().mkpath(m_dest + "/Repaired-Video-Files"));
        bStopFlag = false;
    }

    // Rows: sources ("gone" ones do not exist), the signal a stop comes at ("start": before the run),
    // the signal log, the list handed to the re-encoding pass, the copies repaired and left as they were.
    void run_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("stopAt");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QStringList>("handed");
        QTest::addColumn<QStringList>("repaired");
        QTest::addColumn<QStringList>("untouched");
        const QStringList abc{"a.mov", "b.mov", "c.mov"}, none{"not called"};
        QTest::newRow("no files") << QStringList() << ""
                                  << QStringList{"MaxProgress(0)", "OverAllMaxProgress(0)", "RepairFinish()"}
                                  << QStringList() << QStringList() << QStringList();
        QTest::newRow("one file") << QStringList{"a.mov"} << ""
                                  << QStringList{"MaxProgress(1)"} + Copied(0, "a.mov") +
                                         QStringList{"OverAllMaxProgress(1)"} + Scanned(0, "a.mov") +
                                         QStringList{"RepairFinish()"}
                                  << QStringList{"a.mov"} << QStringList{"a.mov"} << QStringList();
        QTest::newRow("a missing source goes on")
            << QStringList{"gone.mov", "a.mov"} << ""
            << QStringList{"MaxProgress(2)"} + Copied(0, "gone.mov") + Copied(1, "a.mov") +
                   QStringList{"OverAllMaxProgress(2)", "OverAllProgressValue(0)",
                               "Info(Repairing gone.mov file)", "MaxProgress(0)"} +
                   Scanned(1, "a.mov") + QStringList{"RepairFinish()"}
            << QStringList{"gone.mov", "a.mov"} << QStringList{"a.mov"} << QStringList();
        QTest::newRow("stop before the run")
            << abc << "start" << QStringList{"ProcessAborted()"} << none << QStringList() << QStringList();
        QTest::newRow("stop while copying") << abc << "ProgressValue(1)"
                                            << QStringList{"MaxProgress(3)"} + Copied(0, "a.mov") +
                                                   Copied(1, "b.mov") + QStringList{"ProcessAborted()"}
                                            << none << QStringList() << QStringList{"a.mov", "b.mov"};
        QTest::newRow("stop while scanning the second")
            << abc << "Info(Repairing b.mov file)"
            << QStringList{"MaxProgress(3)"} + Copied(0, "a.mov") + Copied(1, "b.mov") + Copied(2, "c.mov") +
                   QStringList{"OverAllMaxProgress(3)"} + Scanned(0, "a.mov") +
                   Scanned(1, "b.mov").mid(0, 3) + QStringList{"ProcessAborted()"}
            << abc << QStringList{"a.mov"} << QStringList{"b.mov", "c.mov"};
    }

    void run()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, stopAt);
        QFETCH(QStringList, log);
        QFETCH(QStringList, handed);
        QFETCH(QStringList, repaired);
        QFETCH(QStringList, untouched);
        QStringList sources;
        QList<QDateTime> written;
        for (const QString &name : files) {
            sources << m_src + "/" + name;
            QVERIFY(name == "gone.mov" || Bytes::WriteFile(sources.last(), Damaged()));
            written << QFileInfo(sources.last()).lastModified();
        }

        RecordingRepair w;
        SignalLog seen(&w);
        bool runningThroughout = true;
        seen.OnLine = [&](const QString &line) {
            runningThroughout &= bool(bProcessRunning);
            if (line == stopAt)
                bStopFlag = true;
        };
        bStopFlag = stopAt == "start";
        w.SetInitialSettings(sources, m_temp);
        Finish(w);

        QCOMPARE(seen.Lines(), log);
        QVERIFY(runningThroughout);
        for (QString &h : handed)
            h = h == "not called" ? h : m_temp + "/" + h;
        QCOMPARE(w.handed, handed);
        QCOMPARE(QDir(m_temp).entryList(QDir::Files), repaired + untouched);
        for (const QString &name : repaired)
            QCOMPARE(Bytes::WordAt(Bytes::ReadFile(m_temp + "/" + name), 100), 92u);
        for (const QString &name : untouched)
            QCOMPARE(Bytes::ReadFile(m_temp + "/" + name), Damaged());
        // The sources are only read.
        for (int i = 0; i < sources.size(); ++i)
            QVERIFY(!QFileInfo::exists(sources.at(i)) ||
                    (Bytes::ReadFile(sources.at(i)) == Damaged() &&
                     QFileInfo(sources.at(i)).lastModified() == written.at(i)));
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
        const QString big = m_dir.filePath("big.mov");
        QVERIFY(Bytes::WriteFile(big, slide));
        auto *w = new ThreadVideoRepair;
        w->SetReEncodingEnabled(false);
        SignalLog emitted(w);
        QSemaphore scanning;
        emitted.OnLine = [&](const QString &line) { scanning.release(line == "ProgressValue(400)"); };
        w->SetInitialSettings({big}, m_temp);
        scanning.acquire();
        delete w;
        QCOMPARE(emitted.Lines().last(), QString("ProcessAborted()"));
        QVERIFY(emitted.Lines().filter(QRegularExpression("^ProgressValue")).size() < slide.size() / 4);
        QVERIFY(!bStopFlag && !bProcessRunning && !pHandle);

        // The next runs work, also one whose settings come as the thread is on its way out of run().
        Lingering next;
        SignalLog after(&next);
        next.SetInitialSettings({}, m_temp);
        next.returned.acquire();
        next.SetInitialSettings({}, m_temp);
        Finish(next);
        QCOMPARE(after.Lines().count("RepairFinish()"), 2);
    }

    // Rows: sources as name=size (-1: missing; a saved file of that name holds 9000 other bytes), signals.
    void saving_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("one block") << QStringList{"a.mov=2500"}
                                   << QStringList{"OverAllMaxProgress(1)",   "Info(Saving a.mov file)",
                                                  "OverAllProgressValue(0)", "MaxProgress(2500)",
                                                  "ProgressValue(2500)",     "SavingFinish()"};
        QTest::newRow("an empty file")
            << QStringList{"empty.mp4=0"}
            << QStringList{"OverAllMaxProgress(1)", "Info(Saving empty.mp4 file)", "OverAllProgressValue(0)",
                           "MaxProgress(0)", "SavingFinish()"};
        QTest::newRow("no files") << QStringList() << QStringList{"OverAllMaxProgress(0)", "SavingFinish()"};
        QTest::newRow("a missing source is skipped")
            << QStringList{"missing.mov=-1", "b.mov=100"}
            << QStringList{"OverAllMaxProgress(2)",   "Info(Saving missing.mov file)",
                           "OverAllProgressValue(0)", "Info(Saving b.mov file)",
                           "OverAllProgressValue(1)", "MaxProgress(100)",
                           "ProgressValue(100)",      "SavingFinish()"};
    }

    void saving()
    {
        QFETCH(QStringList, files);
        QFETCH(QStringList, log);
        QStringList sources;
        for (const QString &f : files) {
            const QString name = f.section('=', 0, 0);
            const int size = f.section('=', 1).toInt();
            sources << m_src + "/" + name;
            QVERIFY(Bytes::WriteFile(Saved(name), Pattern(9000).mid(1)));
            if (size >= 0)
                QVERIFY(Bytes::WriteFile(sources.last(), Pattern(size)));
        }
        QCOMPARE(Save(sources),
                 QStringList{"DestInfo(" + QDir(m_dest).absolutePath() + "/Repaired-Video-Files)"} + log);
        // Each copy replaces what stood under its name; a file that could not be read leaves it.
        for (const QString &f : files)
            QCOMPARE(Bytes::ReadFile(Saved(f.section('=', 0, 0))),
                     f.endsWith("=-1") ? Pattern(9000).mid(1) : Pattern(f.section('=', 1).toInt()));
    }

    // Progress after the first block, then throttled, and always the size last.
    void blocks()
    {
        const QString a = m_src + "/a.mov";
        QVERIFY(Bytes::WriteFile(a, Pattern(5 * MiB + 7)));
        const QStringList lines = Save({a}), progress = lines.filter(QRegularExpression("^ProgressValue"));
        QCOMPARE(lines.mid(4, 2), (QStringList{"MaxProgress(5242887)", "ProgressValue(1048576)"}));
        QCOMPARE(lines.mid(5 + progress.size()), QStringList{"SavingFinish()"});
        QCOMPARE(progress.last(), QString("ProgressValue(5242887)"));
        QCOMPARE(Bytes::ReadFile(Saved("a.mov")), Pattern(5 * MiB + 7));
    }

    // A file of the result folder's name beside the user's video: nothing is written, the run says why.
    void unusableFolder()
    {
        QDir(m_dest + "/Repaired-Video-Files").removeRecursively();
        QVERIFY(Bytes::WriteFile(m_dest + "/Repaired-Video-Files", "mine") &&
                Bytes::WriteFile(m_dest + "/a.mov", "the user's own") &&
                Bytes::WriteFile(m_src + "/a.mov", Pattern(100)));
        QCOMPARE(
            Save({m_src + "/a.mov"}).mid(2),
            (QStringList{"SaveFailed(, Something that is not a folder has that name.)", "SavingFinish()"}));
        QCOMPARE(Bytes::ReadFile(m_dest + "/a.mov"), QByteArray("the user's own"));
        QCOMPARE(QDir(m_dest).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 2);
    }

    void stopDuringSecondOfThree()
    {
        const QStringList files{m_src + "/a.mov", m_src + "/b.mov", m_src + "/c.mov"};
        for (const QString &f : files)
            QVERIFY(Bytes::WriteFile(f, Pattern(3 * MiB)));
        QDir(m_dest + "/Repaired-Video-Files").removeRecursively(); // the worker makes it
        bool second = false;
        const QStringList lines = Save(files, [&](const QString &line) {
            second |= line == "OverAllProgressValue(1)";
            bStopFlag = bStopFlag || (second && line == "ProgressValue(1048576)");
        });
        QCOMPARE(Bytes::ReadFile(Saved("a.mov")), Pattern(3 * MiB));
        QCOMPARE(Bytes::ReadFile(Saved("b.mov")), Pattern(MiB));
        QVERIFY(!QFileInfo::exists(Saved("c.mov")));
        QVERIFY(!lines.contains("Info(Saving c.mov file)"));
        QCOMPARE(lines.last(), QString("SavingFinish()"));
        Save(files); // the next run starts clean and copies everything
        QCOMPARE(Bytes::ReadFile(Saved("c.mov")), Pattern(3 * MiB));
    }

    // Kernel copies between files and reads from a pipe, each with a short source and a failed write.
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
        const QString from = m_src + "/in";
        QVERIFY(Bytes::WriteFile(from, Pattern(bytes)));
        FILE *in = pipe ? popen(qPrintable("cat '" + from + "'"), "r") : fopen(qPrintable(from), "r");
        const int out = open(QFile::encodeName(to).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        QList<quint64> progress;
        const BlockCopyResult r =
            CopyBlocks(fileno(in), out, 2 * MiB + 3, nullptr, [&](quint64 d) { progress << d; });
        close(out);
        pipe ? pclose(in) : fclose(in);
        QCOMPARE(int(r.status), status);
        QCOMPARE(r.copied, quint64(to == "/dev/full" ? 0 : bytes));
        QCOMPARE(r.Reason().isEmpty(), r.Ok());
        if (r.Ok()) {
            QCOMPARE(Bytes::ReadFile(to), Pattern(bytes));
            QCOMPARE(progress.last(), quint64(bytes));
        }
    }

    // The preview program gets the file exactly, nothing in its name runs, and no page waits on it.
    void preview()
    {
        const QString bin = m_dir.filePath("bin dir $(x)"), argument = m_dir.filePath("argument");
        QDir().mkpath(bin);
        QVERIFY(Bytes::WriteProgram(bin + "/VideoFileUtil",
                                    "printf '%s' \"$1\" > '" + argument + "'\nexec sleep 60\n"));
        const QString file = m_dir.filePath(" a'b\"c $(touch marker) `touch marker2`;.mov");
        QElapsedTimer clock;
        clock.start();
        {
            ThreadPreview preview;
            preview.SetInitialSettings(bin + "/VideoFileUtil", file);
            preview.start();
            QTRY_COMPARE(QString::fromUtf8(Bytes::ReadFile(argument)), file);
        }
        QVERIFY(clock.elapsed() < 10000);
        QVERIFY(!bStopFlag);
        QVERIFY(!QFile::exists("marker") && !QFile::exists("marker2"));
    }
};

QTEST_GUILESS_MAIN(TstWorkers)
#include "tst_workers.moc"
