#include "repair/ScanGuard.h"

#include <QtTest>

// Feeds made-up position sequences to the guard and counts the steps it admits.
class TstScanGuard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void admits_data()
    {
        QTest::addColumn<quint64>("fileSize");
        QTest::addColumn<QList<qulonglong>>("tail");   // positions before the loop
        QTest::addColumn<QList<qulonglong>>("round");  // repeated for ever, empty for none
        QTest::addColumn<int>("minAdmitted");
        QTest::addColumn<int>("maxAdmitted");

        const QList<qulonglong> none;
        QList<qulonglong> forward;
        for (qulonglong p = 0; p < 1200; p += 4)
            forward << p;
        // A scan that never comes back is only cut by the backstop: 400 / 4 + 64 steps.
        QTest::newRow("forward stops at the backstop") << quint64(400) << forward << none << 164 << 164;
        QTest::newRow("stationary") << quint64(1 << 20) << QList<qulonglong>{96} << QList<qulonglong>{96}
                                    << 2 << 6;
        QTest::newRow("between 0 and 4") << quint64(1 << 20) << none << QList<qulonglong>{0, 4} << 4 << 10;
        QTest::newRow("long tail then a round of five")
            << quint64(1 << 20) << QList<qulonglong>{8, 12, 16, 20, 24, 28, 32}
            << QList<qulonglong>{100, 104, 96, 200, 300} << 12 << 7 + 5 * 6;
        // Revisiting one position once is not a loop.
        QTest::newRow("one revisit") << quint64(1 << 20) << QList<qulonglong>{0, 4, 0, 8, 12, 16, 20}
                                     << none << 7 << 7;
    }

    void admits()
    {
        QFETCH(quint64, fileSize);
        QFETCH(QList<qulonglong>, tail);
        QFETCH(QList<qulonglong>, round);
        QFETCH(int, minAdmitted);
        QFETCH(int, maxAdmitted);

        ScanGuard guard(fileSize);
        int admitted = 0;
        auto feed = [&](qulonglong p) {
            if (!guard.Admit(p))
                return false;
            ++admitted;
            return true;
        };
        bool open = true;
        for (qulonglong p : tail)
            if (open)
                open = feed(p);
        for (int i = 0; open && !round.isEmpty() && i < 100000; ++i)
            open = feed(round.at(i % round.size()));

        QVERIFY2(admitted >= minAdmitted, qPrintable(QString::number(admitted)));
        QVERIFY2(admitted <= maxAdmitted, qPrintable(QString::number(admitted)));
    }
};

QTEST_APPLESS_MAIN(TstScanGuard)
#include "tst_scanguard.moc"
