// The save page driven as a user would: the tree built from a repair result, the check boxes, a
// real save with the questions on the way, leaving the page, and previews.

#include "Bytes.h"
#include "ModalAnswerer.h"
#include "app/AppGlobals.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/SavingFinishDlg.h"
#include "pages/save/VideoSavingWindow.h"
#include "repair/ProcessFlags.h"
#include "workers/PreviewCopy.h"
#include "workers/PreviewState.h"

#include <QApplication>
#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <climits>

namespace
{

using Col = MyRightTreeWidgetItem::Column;
using Ticks = QList<Qt::CheckState>;

// The page with a free-space figure chosen by the test.
class Page : public VideoSavingWindow
{
public:
    using VideoSavingWindow::VideoSavingWindow;
    qint64 free = LLONG_MAX;
    QStringList volumes;
    qint64 GetFree(const QString &volume) override
    {
        volumes << volume;
        return free;
    }
};

QPushButton *Button(QWidget *page, const char *name)
{
    return page->findChild<QPushButton *>(name);
}

QStringList ButtonsEnabled(QWidget *page)
{
    QStringList on;
    for (const char *name : {"SaveButton", "PreviewButton"})
        if (Button(page, name)->isEnabled())
            on << name;
    return on;
}

// What a click on a check box does: the box toggles, then itemClicked arrives.
void Click(QTreeWidget *tree, QTreeWidgetItem *row)
{
    row->setCheckState(0, row->checkState(0) == Qt::Checked ? Qt::Unchecked : Qt::Checked);
    Q_EMIT tree->itemClicked(row, 0);
}

QTreeWidgetItem *Row(VideoSavingWindow &page, const QString &name)
{
    return page.Tree()->findItems(name, Qt::MatchExactly | Qt::MatchRecursive).value(0);
}

// Saves through the Save button and answers the finish dialog; the folder it was to reveal.
QString SaveAndFinish(VideoSavingWindow &page)
{
    QString folder;
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, [&folder] {
        // Only once the dialog's own loop runs: accepted while it is still being shown, it would
        // wait on a loop that nothing ends.
        auto *dlg = qobject_cast<SavingFinishDlg *>(QApplication::activeModalWidget());
        if (dlg && QThread::currentThread()->loopLevel() > 0) {
            folder = dlg->SavedFolder();
            dlg->accept();
        }
    });
    answer.start(10);
    Button(&page, "SaveButton")->click();
    if (!QTest::qWaitFor([&folder] { return !folder.isEmpty(); }, 20000))
        return QString();
    // The worker's run ends just after its last signal.
    return QTest::qWaitFor([] { return !bProcessRunning; }) ? folder : QString();
}

} // namespace

class TstVideoSavingWindow : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // The repair page's result: a root and a row per file, ticked as given. Sources have 1000
    // bytes; the repaired working copies, in their own folder, 1007.
    MyRightTreeWidgetItem *Result(const QStringList &names, const Ticks &ticks = {},
                                  Qt::CheckState rootTick = Qt::Checked)
    {
        auto *root = new MyRightTreeWidgetItem(static_cast<QTreeWidget *>(nullptr));
        root->setText(Col::FileId, "1");
        root->setCheckState(0, rootTick);
        for (int i = 0; i < names.size(); ++i) {
            auto *row = new MyRightTreeWidgetItem(root);
            for (int c : {int(Col::Path), int(Col::TemporaryPath)}) {
                const QString file = m_dir.filePath(QString::number(c) + "/" + names[i]);
                QDir().mkpath(QFileInfo(file).path());
                Bytes::WriteFile(file, QByteArray(c == Col::Path ? 1000 : 1007, 'v'));
                row->setText(c, file);
            }
            row->setText(Col::FileId, QString::number(i + 2));
            row->setCheckState(0, ticks.value(i, Qt::Checked));
        }
        return root;
    }

private Q_SLOTS:
    void init()
    {
        bProcessRunning = false;
        CloseSuccess = false;
        m_bMax = false;
        mY_unsupportedList.clear();
        AllFiles.clear();
    }

    // Unticked rows are dropped. Each drop has always cost the build a pass, so FileIDs count on.
    void treeBuild_data()
    {
        QTest::addColumn<Ticks>("ticks");
        QTest::addColumn<Qt::CheckState>("rootTick");
        QTest::addColumn<QStringList>("rows"); // name=FileID, in the tree's order
        const auto C = Qt::Checked, U = Qt::Unchecked;
        QTest::newRow("one dropped") << Ticks{C, U, C} << Qt::PartiallyChecked
                                     << QStringList{"a.mov=4", "c.mov=5"};
        QTest::newRow("nothing ticked") << Ticks{U, U, U} << U << QStringList{};
    }

    void treeBuild()
    {
        QFETCH(Ticks, ticks);
        QFETCH(Qt::CheckState, rootTick);
        QFETCH(QStringList, rows);
        Page page(nullptr, Result({"a.mov", "b.mov", "c.mov"}, ticks, rootTick));
        QStringList built;
        for (QTreeWidgetItemIterator it(page.Tree()); *it; ++it)
            if ((*it)->text(Col::FileId) != "1")
                built << (*it)->text(Col::Name) + "=" + (*it)->text(Col::FileId);
        QCOMPARE(built, rows);
        QCOMPARE(page.Tree()->topLevelItemCount(), rows.isEmpty() ? 0 : 1);
        QCOMPARE(ButtonsEnabled(&page), rows.isEmpty() ? QStringList() : QStringList{"SaveButton"});
        QVERIFY(page.SourceTree()->isHidden());
    }

    void checkBoxes()
    {
        Page page(nullptr, Result({"a.mov", "b.mov", "c.mov"}));
        QTreeWidget *tree = page.Tree();
        QTreeWidgetItem *root = tree->topLevelItem(0);

        Click(tree, root); // the root unticks every file
        QCOMPARE(root->child(2)->checkState(0), Qt::Unchecked);
        QCOMPARE(ButtonsEnabled(&page), QStringList());
        Click(tree, root->child(1));
        QCOMPARE(root->checkState(0), Qt::PartiallyChecked);
        QCOMPARE(ButtonsEnabled(&page), (QStringList{"SaveButton", "PreviewButton"}));
        Q_EMIT tree->itemClicked(root, 0); // a partly ticked root changes nothing, enables nothing
        QCOMPARE(root->child(0)->checkState(0), Qt::Unchecked);
        QCOMPARE(ButtonsEnabled(&page), QStringList());
        Click(tree, root->child(1));
        QCOMPARE(root->checkState(0), Qt::Unchecked);
        QCOMPARE(ButtonsEnabled(&page), QStringList{"PreviewButton"});
        Click(tree, root); // and ticks them all again
        QCOMPARE(root->child(0)->checkState(0), Qt::Checked);
        QCOMPARE(ButtonsEnabled(&page), QStringList{"SaveButton"});

        tree->setCurrentItem(root->child(0));
        QTest::keyClick(tree, Qt::Key_Space);
        QCOMPARE(root->child(0)->checkState(0), Qt::Checked);

        bProcessRunning = true;
        Click(tree, root->child(0));
        QCOMPARE(root->checkState(0), Qt::Checked);
        QCOMPARE(ButtonsEnabled(&page), QStringList{"SaveButton"});
    }

    // A real save of the ticked files, then the questions that a second save meets.
    void saving()
    {
        Page page(nullptr, Result({"a.mov", "b.mov", "c.mov"}));
        page.show();
        const QString dest = m_dir.filePath("dest");
        const QString saved = dest + "/Repaired-Video-Files";
        QDir().mkpath(dest);
        ChooseFolder = [dest] { return dest; };
        Click(page.Tree(), Row(page, "b.mov"));

        QCOMPARE(SaveAndFinish(page), saved);
        QCOMPARE(page.volumes, QStringList{dest});
        QCOMPARE(QDir(saved).entryList(QDir::Files), (QStringList{"a.mov", "c.mov"}));
        QCOMPARE(QFileInfo(saved + "/a.mov").size(), 1007); // the repaired copy
        QVERIFY(Button(&page, "BackButton")->isEnabled() && page.Tree()->isEnabled());
        QCOMPARE(ButtonsEnabled(&page), QStringList());

        Click(page.Tree(), Row(page, "b.mov"));
        {
            ModalAnswerer no(QMessageBox::No);
            Button(&page, "SaveButton")->click();
            QCOMPARE(no.Texts(), QStringList{"Overwrite Existing Folder?"});
        }
        QVERIFY(QFileInfo::exists(saved + "/a.mov"));
        QCOMPARE(page.volumes.size(), 1);

        page.free = 999; // b.mov needs 1000
        {
            ModalAnswerer yes(QMessageBox::Yes);
            Button(&page, "SaveButton")->click();
            QCOMPARE(yes.Texts(),
                     (QStringList{"Overwrite Existing Folder?", "Insufficient space at destination."}));
        }
        QVERIFY(!QFileInfo::exists(saved));
        QVERIFY(Button(&page, "SaveButton")->isEnabled() && Button(&page, "BackButton")->isEnabled());

        page.free = 1000;
        QCOMPARE(SaveAndFinish(page), saved);
        QCOMPARE(QDir(saved).entryList(QDir::Files), QStringList{"b.mov"});
        page.Worker()->wait();
        ModalAnswerer late(QMessageBox::Yes); // the run is over: a Yes has nothing left to stop
        page.OnStop();
        QVERIFY(!bStopFlag);
    }

    void leaving()
    {
        AllFiles = QStringList{"a.mov"};
        mY_unsupportedList = QStringList{"b.mov"};
        Page page(nullptr, Result({"a.mov", "b.mov"}));
        page.show();
        QSignalSpy back(&page, &VideoSavingWindow::Goback);

        bProcessRunning = true; // a close while saving is refused without a question
        {
            ModalAnswerer none(QMessageBox::Yes, 300);
            QVERIFY(!page.close());
            QVERIFY(!none.Answered());
        }
        bProcessRunning = false;
        {
            ModalAnswerer no(QMessageBox::No);
            QVERIFY(!page.close());
            Button(&page, "BackButton")->click();
            QCOMPARE(no.Texts(), (QStringList{"Do you want to close Corvane Aldrake Video Repair? ",
                                              "Repair result will be lost."}));
        }
        QVERIFY(page.isVisible() && back.isEmpty());

        m_bMax = true; // the page before this one was maximised
        {
            ModalAnswerer yes(QMessageBox::Yes);
            Button(&page, "BackButton")->click();
        }
        QVERIFY(!page.isVisible());
        QCOMPARE(back.count(), 1);
        QVERIFY(back.at(0).at(0).toBool()); // maximised again
        QVERIFY(AllFiles.isEmpty() && mY_unsupportedList.isEmpty());
    }

    // At the smallest size the widest size and outcome show whole; a long name asks for no more.
    void longTextsAtTheSmallestSize()
    {
        MyRightTreeWidgetItem *result = Result({"big.mov"});
        QVERIFY(QFile::resize(result->child(0)->text(Col::Path), (qint64(1) << 30) - (qint64(1) << 13)));
        Page page(nullptr, result);
        QTreeWidgetItem *row = Row(page, "big.mov");
        row->setText(7, "Successfully Repaired");
        page.resize(page.minimumSize());
        page.show();
        page.OnInfo("Saving " + QString(200, 'n') + ".mov file");
        QVERIFY(page.findChild<QLabel *>("FileNameLabel")->minimumSizeHint().width() < page.width());
        QCoreApplication::processEvents();
        QTreeView *t = page.Tree();
        const int margins = 2 * (t->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, t) + 1);
        for (int c : {int(Col::Size), 7})
            QVERIFY(t->fontMetrics().horizontalAdvance(row->text(c)) + margins <= t->columnWidth(c) &&
                    t->header()->sectionViewportPosition(c) + t->columnWidth(c) <= t->viewport()->width());
    }

    // A file whose repair failed is not previewed; a repaired one plays from a copy.
    void preview()
    {
        const QString log = m_dir.filePath("previewer.log");
        strPreviewerPath = m_dir.filePath("VideoFileUtil");
        QVERIFY(Bytes::WriteFile(strPreviewerPath,
                                 QString("#!/bin/sh\necho \"$1\" >> '%1'\n").arg(log).toUtf8()));
        QFile::setPermissions(strPreviewerPath, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        mY_unsupportedList = QStringList{"bad.mov"};
        Page page(nullptr, Result({"bad.mov", "good.mov"}));
        {
            ModalAnswerer box(QMessageBox::Ok);
            page.OnDoubleClicked(Row(page, "bad.mov"), 0);
            QCOMPARE(box.Texts(), QStringList{"Preview not available due to severe corruption."});
            QCOMPARE(box.Icon(), QMessageBox::Warning);
        }
        QVERIFY(!QFileInfo::exists(PreviewCopyName(Row(page, "bad.mov")->text(Col::TemporaryPath))));

        const QString copy = PreviewCopyName(Row(page, "good.mov")->text(Col::TemporaryPath));
        page.Tree()->setCurrentItem(Row(page, "good.mov"));
        page.OnPreviewMovFile();
        QCOMPARE(QFileInfo(copy).size(), 1007);
        QTRY_COMPARE(QFileInfo(log).size(), copy.toUtf8().size() + 1);
    }

};

QTEST_MAIN(TstVideoSavingWindow)
#include "tst_videosavingwindow.moc"
