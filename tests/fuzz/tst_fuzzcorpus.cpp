// Replays the fuzzing corpora, and every input that once failed, through the structural pass and
// the rebuild's sample walker.

#include "StructuralCheck.h"
#include "WalkerCheck.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

class TstFuzzCorpus : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private Q_SLOTS:
    void replay_data()
    {
        QTest::addColumn<QString>("input");
        int rows = 0;
        for (const char *folder : {"corpus", "crashes", "walker-corpus", "walker-crashes"}) {
            QDirIterator it(QString(CORVANE_FUZZ_DIR) + "/" + folder, QDir::Files);
            while (it.hasNext()) {
                const QString file = it.next();
                QTest::newRow(qPrintable(QString(folder) + "/" + it.fileName())) << file;
                ++rows;
            }
        }
        QVERIFY2(rows > 0, "no inputs to replay");
    }

    void replay()
    {
        QFETCH(QString, input);
        QFile f(input);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray bytes = f.readAll();
        const QString problem = input.contains("/walker-") ? CheckSampleWalker(bytes)
                                                           : CheckStructuralPass(bytes, m_dir.filePath("input.mov"));
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }
};

QTEST_GUILESS_MAIN(TstFuzzCorpus)
#include "tst_fuzzcorpus.moc"
