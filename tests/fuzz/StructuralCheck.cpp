#include "StructuralCheck.h"

#include <QDirIterator>
#include <QtTest>

#include "repair/RepairContext.h"
#include "repair/ThreadVideoRepair.h"

#include <QFile>
#include <QFileInfo>

#include <ctime>

namespace {
// The farthest a repair writes past the position it read at the end of the file: a movie header's
// duration word, 28 bytes on.
constexpr qint64 MaxGrowth = 32;
} // namespace

void AddReplayRows(const QString &corpus, const QString &failed)
{
    QTest::addColumn<QString>("input");
    for (const QString &folder : {corpus, failed})
        for (QDirIterator it(QString(CORVANE_FUZZ_DIR) + "/" + folder, QDir::Files); it.hasNext();) {
            const QString file = it.next();
            QTest::newRow(qPrintable(folder + "/" + it.fileName())) << file;
        }
    QVERIFY2(QDir(QString(CORVANE_FUZZ_DIR) + "/" + corpus).count() > 2, "no inputs to replay");
}

qint64 BudgetMs()
{
    return 1000 * qMax(1, qEnvironmentVariableIntValue("CORVANE_SLOWDOWN"));
}

qint64 ThreadMs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return qint64(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

QString CheckStructuralPass(const QByteArray &input, const QString &path)
{
    {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(input) != input.size())
            return "cannot write the working copy";
    }
    ThreadVideoRepair worker;
    worker.SetReEncodingEnabled(false);
    quint64 steps = 0;
    QObject::connect(&worker, &ThreadVideoRepair::ProgressValue, [&steps](unsigned long) { ++steps; });

    const qint64 start = ThreadMs();
    worker.RepairFiles({path});
    const qint64 ms = ThreadMs() - start;

    const qint64 size = QFileInfo(path).size();
    const quint64 budget = quint64(input.size()) / 4 + 64;
    if (pHandle)
        return "the working copy was left open";
    if (bStopFlag)
        return "the stop flag was left set";
    if (steps > budget)
        return QString("%1 scan steps for a budget of %2").arg(steps).arg(budget);
    if (size > input.size() + MaxGrowth)
        return QString("the file grew from %1 to %2 bytes").arg(input.size()).arg(size);
    if (ms > BudgetMs())
        return QString("the scan took %1 ms").arg(ms);
    return {};
}
