// Pieces of the file trees that both pages share: size texts, the sort order, Space on a row.

#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"

#include <QtTest>

class TstRepairList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sizeText_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("1.5 GB") << qint64(1610612736) << "1.5 GB";
        QTest::newRow("cut, not rounded") << qint64(1234567) << "1.17 MB";
        QTest::newRow("whole KB") << qint64(2048) << "2 KB";
        QTest::newRow("empty") << qint64(0) << "0 KB";
        QTest::newRow("one byte") << qint64(1) << "0.00 KB";
        QTest::newRow("just under 1 MB") << qint64(1048575) << "1023.99 KB";
        QTest::newRow("terabytes stay in GB") << qint64(3) * (qint64(1) << 40) << "3072 GB";
    }

    void sizeText()
    {
        QFETCH(qint64, bytes);
        QFETCH(QString, text);
        QCOMPARE(GetSizeOfItem(bytes), text);
    }

    void sortBySizeUsesBytes()
    {
        MyTreeWidget tree;
        tree.setColumnCount(7);
        auto *root = new MyRightTreeWidgetItem(&tree);
        const QList<qint64> sizes{qint64(2) << 30, 900 * 1024, 1 << 20};
        for (qint64 s : sizes) {
            auto *row = new MyRightTreeWidgetItem(root);
            row->setText(MyRightTreeWidgetItem::Size, GetSizeOfItem(s));
            row->setText(MyRightTreeWidgetItem::Bytes, QString::number(s));
            row->setText(MyRightTreeWidgetItem::Name, QString("b%1").arg(s));
        }
        tree.sortItems(MyRightTreeWidgetItem::Size, Qt::AscendingOrder);
        QCOMPARE(root->child(0)->text(2), QString("900 KB"));
        QCOMPARE(root->child(1)->text(2), QString("1 MB"));
        QCOMPARE(root->child(2)->text(2), QString("2 GB"));

        // Other columns compare their texts without regard to case.
        root->child(0)->setText(0, "beta");
        root->child(1)->setText(0, "Alpha");
        root->child(2)->setText(0, "gamma");
        tree.sortItems(MyRightTreeWidgetItem::Name, Qt::AscendingOrder);
        QCOMPARE(root->child(0)->text(0), QString("Alpha"));
        QCOMPARE(root->child(2)->text(0), QString("gamma"));
    }

    // The save page gets a deep copy of the list: every row must keep its kind and its data.
    void cloneIsDeepAndKeepsTheClass()
    {
        MyTreeWidget tree;
        auto *root = new MyRightTreeWidgetItem(&tree);
        root->setText(0, "Video File(s)");
        auto *row = new MyRightTreeWidgetItem(root);
        row->setText(MyRightTreeWidgetItem::TemporaryPath, "/tmp/x.mov");
        row->setCheckState(0, Qt::PartiallyChecked);

        std::unique_ptr<QTreeWidgetItem> copy(root->clone());
        QCOMPARE(copy->childCount(), 1);
        QVERIFY(dynamic_cast<MyRightTreeWidgetItem *>(copy.get()));
        QVERIFY(dynamic_cast<MyRightTreeWidgetItem *>(copy->child(0)));
        QVERIFY(copy->child(0) != row);
        QCOMPARE(copy->child(0)->text(MyRightTreeWidgetItem::TemporaryPath), QString("/tmp/x.mov"));
        QCOMPARE(copy->child(0)->checkState(0), Qt::PartiallyChecked);
    }

    void spaceNeverTogglesACheckBox()
    {
        MyTreeWidget tree;
        auto *row = new MyRightTreeWidgetItem(&tree);
        row->setCheckState(0, Qt::Checked);
        tree.setCurrentItem(row);
        tree.show();
        QTest::keyClick(&tree, Qt::Key_Space);
        QCOMPARE(row->checkState(0), Qt::Checked);
    }
};

QTEST_MAIN(TstRepairList)
#include "tst_repairlist.moc"
