// The saving worker: chunked copies into "Repaired-Video-Files", its signals, and stop requests.

#include "Bytes.h"
#include "SignalLog.h"
#include "repair/ProcessFlags.h"
#include "workers/ThreadVideoSaving.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

namespace {

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

    void chunks()
    {
        const QByteArray data = Pattern(2500);
        const QString a = Source("a.mov", data);
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        w.SetInitialSettings({a}, m_dest);
        Finish(w);

        const QString folder = QDir(m_dest + "/Repaired-Video-Files").absolutePath();
        QCOMPARE(log.Lines(), (QStringList{"DestInfo(" + folder + ")", "OverAllMaxProgress(1)",
                                           "Info(Saving a.mov file)", "OverAllProgressValue(0)",
                                           "MaxProgress(2500)", "ProgressValue(1024)", "ProgressValue(2048)",
                                           "ProgressValue(2500)", "SavingFinish()"}));
        QCOMPARE(Bytes::ReadFile(Saved("a.mov")), data);
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
        const QStringList files{Source("a.mov", Pattern(3000)), Source("b.mov", Pattern(3000)),
                                Source("c.mov", Pattern(3000))};
        ThreadVideoSaving w;
        SignalLog log;
        Watch(log, &w);
        bool second = false;
        connect(&w, &ThreadVideoSaving::OverAllProgressValue, &w, [&](unsigned long i) { second = i == 1; },
                Qt::DirectConnection);
        connect(&w, &ThreadVideoSaving::ProgressValue, &w, [&](unsigned long done) {
            if (second && done == 1024)
                bStopFlag = true;
        }, Qt::DirectConnection);
        w.SetInitialSettings(files, m_dest);
        Finish(w);

        QCOMPARE(Bytes::ReadFile(Saved("a.mov")), Pattern(3000));
        QCOMPARE(Bytes::ReadFile(Saved("b.mov")), Pattern(1024));
        QVERIFY(!QFileInfo::exists(Saved("c.mov")));
        QVERIFY(!log.Lines().contains("Info(Saving c.mov file)"));
        QCOMPARE(log.Lines().last(), QString("SavingFinish()"));

        // The next run starts clean and copies everything.
        ThreadVideoSaving again;
        again.SetInitialSettings(files, m_dest);
        Finish(again);
        QCOMPARE(Bytes::ReadFile(Saved("c.mov")), Pattern(3000));
    }
};

QTEST_GUILESS_MAIN(TstThreadVideoSaving)
#include "tst_threadvideosaving.moc"
