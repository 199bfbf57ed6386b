// The helper that answers modal boxes, which the window tests rely on.

#include "ModalAnswerer.h"

#include <QtTest>

class TstModalAnswerer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersTheNextBox_data()
    {
        QTest::addColumn<int>("button");
        QTest::newRow("yes") << int(QMessageBox::Yes);
        QTest::newRow("no") << int(QMessageBox::No);
    }

    void answersTheNextBox()
    {
        QFETCH(int, button);
        ModalAnswerer answer{QMessageBox::StandardButton(button)};
        const auto result = QMessageBox::question(nullptr, "Title", "Close now?",
                                                  QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
        QCOMPARE(int(result), button);
        QVERIFY(answer.Answered());
        QCOMPARE(answer.Text(), QString("Close now?"));
        QCOMPARE(answer.Title(), QString("Title"));
        QCOMPARE(answer.Icon(), QMessageBox::Question);
    }

    void givesUpWhenNoBoxOpens()
    {
        ModalAnswerer answer(QMessageBox::Ok, 50);
        QTest::qWait(120);
        QVERIFY(!answer.Answered());
    }
};

QTEST_MAIN(TstModalAnswerer)
#include "tst_modalanswerer.moc"
