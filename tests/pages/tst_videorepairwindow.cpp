// The repair page driven as a user would: adding and removing files, the check boxes, a real repair
// run on files made with ffmpeg, and previews through a stand-in preview program.

#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "pages/repair/FileDialog.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"
#include "pages/repair/VideoRepairWindow.h"
#include "pages/save/VideoSavingWindow.h"
#include "workers/PreviewCopy.h"
#include "workers/PreviewState.h"

#include <QDir>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

extern QString strPreviewerPath;

namespace {

using Col = MyRightTreeWidgetItem::Column;

// The page with its file dialog answered by the test.
class Page : public VideoRepairWindow
{
public:
    QStringList answer;
    qint64 freeBytes = -1; // the free-space probe's answer; -1 asks the real one

    Page()
    {
        ChooseVideoFiles = [this](QWidget *) { return answer; };
    }
    qint64 GetFree(const QString &path) override
    {
        return freeBytes >= 0 ? freeBytes : VideoRepairWindow::GetFree(path);
    }
};

QProgressBar *Bar(QWidget *page, const char *name)
{
    return page->findChild<QProgressBar *>(name);
}

QPushButton *Button(QWidget *page, const char *name)
{
    return page->findChild<QPushButton *>(name);
}

QStringList ButtonsEnabled(QWidget *page)
{
    QStringList on;
    for (const char *name : {"RemoveButton", "RepairButton", "PreviewButton"})
        if (Button(page, name)->isEnabled())
            on << name;
    return on;
}

QString ReadText(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

void Click(MyTreeWidget *tree, QTreeWidgetItem *row)
{
    // What a click on the check box does: the box toggles, then itemClicked arrives.
    row->setCheckState(0, row->checkState(0) == Qt::Checked ? Qt::Unchecked : Qt::Checked);
    Q_EMIT tree->itemClicked(row, 0);
}

} // namespace

class TstVideoRepairWindow : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString File(const QString &name, int size = 1000)
    {
        const QString path = m_dir.filePath(name);
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(QByteArray(size, 'x'));
        return path;
    }

    // A stand-in preview program in a bundle's place: it logs its argument, then stays open.
    QString FakePreviewer(const QString &log)
    {
        const QString bin = m_dir.filePath("bundle/VideoFileUtil.app/Contents/MacOS");
        QDir().mkpath(bin);
        const QString fake = bin + "/VideoFileUtil";
        QFile f(fake);
        f.open(QIODevice::WriteOnly);
        f.write(QString("#!/bin/sh\necho \"$1\" >> '%1'\nexec sleep 30\n").arg(log).toUtf8());
        f.close();
        QFile::setPermissions(fake, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return fake;
    }

private Q_SLOTS:
    void init()
    {
        bProcessRunning = false;
        bStopFlag = false;
        mY_unsupportedList.clear();
        AllFiles.clear();
    }

    void duplicatesAndFolders()
    {
        Page page;
        page.OnInitialSettings();
        const QString a = File("a.mov");
        QDir().mkpath(m_dir.filePath("folder.mov"));
        page.answer = QStringList{a, a, m_dir.filePath("A.MOV"), m_dir.filePath("folder.mov"), File("b.mp4", 2048)};
        ModalAnswerer boxes(QMessageBox::Ok);
        page.OnAddVideoFile();

        QCOMPARE(boxes.Texts(), (QStringList{"Files already added to list will be skipped.",
                                             "Files already added to list will be skipped.",
                                             "Not a valid video file."}));
        QTreeWidgetItem *root = page.Tree()->topLevelItem(0);
        QCOMPARE(root->text(Col::Name), QString("Video File(s)"));
        QCOMPARE(root->text(Col::FileId), QString("1"));
        // Sorted by name: the folder's empty row, a.mov, b.mp4.
        QCOMPARE(root->childCount(), 3);
        QCOMPARE(root->child(0)->text(Col::Name), QString());
        QCOMPARE(root->child(1)->text(Col::FileId), QString("2"));
        QTreeWidgetItem *b = root->child(2);
        QCOMPARE(b->text(Col::Name), QString("b.mp4"));
        QCOMPARE(b->text(Col::Size), QString("2 KB"));
        QCOMPARE(b->text(Col::Bytes), QString("2048"));
        QCOMPARE(b->text(Col::TemporaryPath), m_dir.filePath("b.mp4"));
        QCOMPARE(b->text(Col::FileId), QString("3"));
        QVERIFY(Button(&page, "RepairButton")->isEnabled());
    }

    void removingTheLastFile()
    {
        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{File("one.mov")};
        page.OnAddVideoFile();
        QTreeWidgetItem *row = page.Tree()->topLevelItem(0)->child(0);
        page.Tree()->setCurrentItem(row);
        row->setSelected(true);
        page.OnRemoveVideoFile();
        QCOMPARE(page.Tree()->topLevelItemCount(), 0);
        QCOMPARE(ButtonsEnabled(&page), QStringList());

        page.answer = QStringList{File("two.mov")};
        page.OnAddVideoFile();
        QTreeWidgetItem *root = page.Tree()->topLevelItem(0);
        QCOMPARE(root->text(Col::FileId), QString("1"));
        QCOMPARE(root->child(0)->text(Col::FileId), QString("3"));
    }

    void checkBoxes()
    {
        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{File("c1.mov"), File("c2.mov"), File("c3.mov")};
        page.OnAddVideoFile();
        MyTreeWidget *tree = page.Tree();
        QTreeWidgetItem *root = tree->topLevelItem(0);

        Click(tree, root->child(0));
        QCOMPARE(root->checkState(0), Qt::PartiallyChecked);
        QCOMPARE(ButtonsEnabled(&page), (QStringList{"RemoveButton", "RepairButton", "PreviewButton"}));

        Click(tree, root->child(1));
        Click(tree, root->child(2));
        QCOMPARE(root->checkState(0), Qt::Unchecked);
        QVERIFY(!Button(&page, "RepairButton")->isEnabled());

        Click(tree, root); // the root ticks every file
        for (int i = 0; i < 3; ++i)
            QCOMPARE(root->child(i)->checkState(0), Qt::Checked);
        QCOMPARE(ButtonsEnabled(&page), (QStringList{"RemoveButton", "RepairButton"}));

        Click(tree, root);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(root->child(i)->checkState(0), Qt::Unchecked);
        QCOMPARE(ButtonsEnabled(&page), QStringList{"RemoveButton"});

        // While a run is going, clicks change no button.
        bProcessRunning = true;
        Click(tree, root->child(0));
        QCOMPARE(ButtonsEnabled(&page), QStringList{"RemoveButton"});
        bProcessRunning = false;

        // An add lets events through: Repair pressed in the middle of it starts no run.
        Click(tree, root);
        QTimer::singleShot(0, &page, [&page] { Button(&page, "RepairButton")->click(); });
        page.answer = QStringList{File("c4.mov")};
        page.OnAddVideoFile();
        QVERIFY(Button(&page, "AddButton")->isEnabled() && Button(&page, "RepairButton")->isEnabled());
    }

    // A repair run through the page on real files; one of them has 16-bit PCM audio and fails.
    void realRun()
    {
        const QString in = m_dir.filePath("run");
        QDir().mkpath(in);
        Fixtures::Clip good;
        good.seconds = 1;
        Fixtures::Clip pcm = good;
        pcm.audioCodec = "pcm_s16le";
        QVERIFY(Fixtures::Make(in + "/good.mp4", good));
        QVERIFY(Fixtures::Make(in + "/good.mov", good));
        QVERIFY(Fixtures::Make(in + "/pcm.mov", pcm));

        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{in + "/good.mp4", in + "/good.mov", in + "/pcm.mov"};
        page.OnAddVideoFile();
        QSignalSpy finished(page.Worker(), &ThreadVideoRepair::RepairFinish);
        ModalAnswerer noBoxes(QMessageBox::Ok, 1000);
        Button(&page, "RepairButton")->click();
        QVERIFY(!noBoxes.Answered());
        QVERIFY(!Button(&page, "AddButton")->isEnabled());
        QVERIFY(finished.wait(120000));
        QTRY_VERIFY(!bProcessRunning);
        QCoreApplication::processEvents();

        QCOMPARE(mY_unsupportedList, QStringList{"pcm.mov"});
        QStringList repaired = AllFiles;
        repaired.sort();
        QCOMPARE(repaired, (QStringList{"good.mov", "good.mp4"}));
        QTreeWidgetItem *root = page.Tree()->topLevelItem(0);
        for (int i = 0; i < root->childCount(); ++i)
            QVERIFY(root->child(i)->text(Col::TemporaryPath).startsWith(VideoRepairWindow::TempFolder() + "/"));
        QVERIFY(QFileInfo::exists(VideoRepairWindow::TempFolder() + "/good.mp4"));
        QVERIFY(!QFileInfo::exists(VideoRepairWindow::TempFolder() + "/pcm.mov"));
        QVERIFY(Fixtures::DecodeErrors(VideoRepairWindow::TempFolder() + "/good.mov").isEmpty());
        QVERIFY(page.Worker()->UnsupportedList().isEmpty());
        QCOMPARE(Bar(&page, "progressBarOverAll")->maximum(), 3);
        QCOMPARE(Bar(&page, "progressBarOverAll")->value(), 2); // the last of the three files

        // After the run a preview plays a copy in the program's own folder.
        strPreviewerPath = "/bin/true";
        QTreeWidgetItem *mp4 = nullptr;
        for (int i = 0; i < root->childCount(); ++i)
            if (root->child(i)->text(Col::Name) == "good.mp4")
                mp4 = root->child(i);
        page.OnDoubleClicked(mp4, 0);
        QCOMPARE(lstRunningFilePath,
                 QStringList{PreviewCopyName(VideoRepairWindow::TempFolder() + "/good.mp4")});
        QVERIFY(QFileInfo::exists(lstRunningFilePath.first()));

        // The save page takes over, with each row's outcome.
        QVERIFY(page.isHidden());
        VideoSavingWindow *save = page.SavingWindow();
        QVERIFY(save && save->isVisible());
        QStringList statuses;
        for (QTreeWidgetItemIterator it(save->Tree()); *it; ++it)
            statuses << (*it)->text(0) + ": " + (*it)->text(7);
        statuses.sort();
        QCOMPARE(statuses, (QStringList{"Video File(s): ", "good.mov: Successfully Repaired",
                                        "good.mp4: Successfully Repaired", "pcm.mov: Repair Failed"}));
    }

    // The stop question during a run: No lets the run go on, Yes ends it with the rows kept.
    void stopQuestion_data()
    {
        QTest::addColumn<int>("answer");
        QTest::newRow("no") << int(QMessageBox::No);
        QTest::newRow("yes") << int(QMessageBox::Yes);
    }

    void stopQuestion()
    {
        QFETCH(int, answer);
        const QString in = m_dir.filePath("stop");
        QDir().mkpath(in);
        Fixtures::Clip clip;
        clip.seconds = 6;
        clip.size = "640x480";
        QVERIFY(Fixtures::Make(in + "/long.mp4", clip));

        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{in + "/long.mp4"};
        page.OnAddVideoFile();
        QSignalSpy finished(page.Worker(), &ThreadVideoRepair::RepairFinish);
        QSignalSpy aborted(page.Worker(), &ThreadVideoRepair::ProcessAborted);
        ModalAnswerer box{QMessageBox::StandardButton(answer)};
        int repairing = 0;
        connect(page.Worker(), &ThreadVideoRepair::Info, &page, [&](const QString &text) {
            if (text.startsWith("Repairing") && ++repairing == 2) // the re-encoding pass has begun
                page.OnStop();
        });
        Button(&page, "RepairButton")->click();
        QTRY_VERIFY_WITH_TIMEOUT(!finished.isEmpty() || !aborted.isEmpty(), 120000);
        QCOMPARE(box.Text(), QString("Process cannot be resumed from the current stage."));
        QCOMPARE(box.InformativeText(), QString("Do you want to abort the current process?"));
        if (answer == QMessageBox::No) {
            QCOMPARE(finished.size(), 1);
            QTRY_VERIFY(page.SavingWindow()); // the hand-over arrives queued
        } else {
            QCOMPARE(aborted.size(), 1);
            // The page learns of the end through a queued signal.
            QTRY_VERIFY(Button(&page, "StopButton")->isHidden());
            QVERIFY(Button(&page, "RepairButton")->isEnabled());
            QVERIFY(Button(&page, "AddButton")->isEnabled());
            QCOMPARE(page.Tree()->topLevelItem(0)->childCount(), 1);
            QVERIFY(!page.SavingWindow());
        }
        QVERIFY(!bStopFlag);
    }

    void notEnoughSpaceStartsNothing()
    {
        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{File("big.mov", 5000)};
        page.OnAddVideoFile();
        page.freeBytes = 4999;
        QSignalSpy started(page.Worker(), &QThread::started);
        ModalAnswerer box(QMessageBox::Ok);
        Button(&page, "RepairButton")->click();
        QCOMPARE(box.Text(), QString("Insufficient space on boot drive to save temporary data."));
        QCOMPARE(box.Icon(), QMessageBox::Warning);
        QVERIFY(!page.Worker()->isRunning());
        QVERIFY(started.isEmpty());
        QVERIFY(Button(&page, "AddButton")->isEnabled());
        QVERIFY(Button(&page, "RepairButton")->isEnabled());
    }

    // A page destroyed with its preview still running leaves nothing behind that stops the next run.
    void nextRunAfterADestroyedPage()
    {
        strPreviewerPath = "/bin/sleep 30 #"; // a preview program that stays open
        {
            Page page;
            page.OnInitialSettings();
            page.answer = QStringList{File("gone.mov")};
            page.OnAddVideoFile();
            page.OnDoubleClicked(page.Tree()->topLevelItem(0)->child(0), 0);
        }
        QVERIFY(!bStopFlag);
        const QString in = m_dir.filePath("next");
        QDir().mkpath(in);
        Fixtures::Clip clip;
        clip.seconds = 1;
        QVERIFY(Fixtures::Make(in + "/next.mp4", clip));
        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{in + "/next.mp4"};
        page.OnAddVideoFile();
        QSignalSpy finished(page.Worker(), &ThreadVideoRepair::RepairFinish);
        Button(&page, "RepairButton")->click();
        QVERIFY(finished.wait(120000));
        QVERIFY(QFileInfo::exists(VideoRepairWindow::TempFolder() + "/next.mp4"));
        page.Worker()->wait();
        ModalAnswerer late(QMessageBox::Yes); // the run is over: a Yes has nothing left to stop
        page.OnStop();
        QVERIFY(!bStopFlag);
    }

    void f4vIsNotPreviewed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("doubleClick");
        QTest::addColumn<QString>("title");
        QTest::newRow("button") << "clip.f4v" << false << "Corvane Aldrake Video Repair";
        QTest::newRow("double-click, upper case") << "CLIP.F4V" << true << "Corvane Aldrake File Video Repair";
    }

    void f4vIsNotPreviewed()
    {
        QFETCH(QString, name);
        QFETCH(bool, doubleClick);
        QFETCH(QString, title);
        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{File(name)};
        page.OnAddVideoFile();
        QTreeWidgetItem *row = page.Tree()->topLevelItem(0)->child(0);
        ModalAnswerer box(QMessageBox::Ok);
        if (doubleClick) {
            page.OnDoubleClicked(row, 0);
        } else {
            row->setSelected(true);
            Button(&page, "PreviewButton")->setEnabled(true);
            Button(&page, "PreviewButton")->click();
        }
        QCOMPARE(box.Text(), QString("\nPreview not supported for this file type."));
        QCOMPARE(box.Title(), title);
        QVERIFY(!QFileInfo::exists(PreviewCopyName(m_dir.filePath(name))));
    }

    // Previews run the preview program on a copy named with a leading blank; a second preview ends
    // the first program and deletes its copy. A stand-in program records what it was given. A
    // double-click on the root only folds the list, and a file that has gone is not played.
    void previewTwice()
    {
        const QString log = m_dir.filePath("previewer.log");
        strPreviewerPath = FakePreviewer(log);

        Page page;
        page.OnInitialSettings();
        const QString first = File("first.mov", 3000);
        const QString second = File("second.mov", 5000);
        page.answer = QStringList{first, second};
        page.OnAddVideoFile();
        QTreeWidgetItem *root = page.Tree()->topLevelItem(0);

        page.OnDoubleClicked(root->child(0), 0);
        const QString firstCopy = PreviewCopyName(first);
        QCOMPARE(QFileInfo(firstCopy).size(), 3000);
        QTRY_VERIFY(QFileInfo::exists(log));

        page.OnDoubleClicked(root->child(1), 0);
        QVERIFY(!QFileInfo::exists(firstCopy));
        QCOMPARE(QFileInfo(PreviewCopyName(second)).size(), 5000);
        QTRY_COMPARE(ReadText(log), firstCopy + "\n" + PreviewCopyName(second) + "\n");
        QCOMPARE(lstRunningFilePath, QStringList{PreviewCopyName(second)});
        QVERIFY(QFileInfo::exists(first)); // the user's files are untouched
        QVERIFY(QFileInfo::exists(second));

        page.OnDoubleClicked(root, 0);
        QVERIFY(QFileInfo::exists(PreviewCopyName(second)));
        QFile::remove(first);
        ModalAnswerer box(QMessageBox::Ok);
        page.OnDoubleClicked(root->child(0), 0);
        QCOMPARE(box.Text(), QString("Preview not available."));
        QCOMPARE(lstRunningFilePath, QStringList{PreviewCopyName(second)});
    }

    // A preview before a run writes nothing beside the user's file and leaves nothing behind after
    // Back; a preview program this process did not start (another running copy's, or another
    // account's) is never ended.
    void previewLeavesNothingAndEndsOnlyItsOwn()
    {
        strPreviewerPath = FakePreviewer(m_dir.filePath("own.log"));
        const QString theirs = m_dir.filePath("VideoFileUtil.app/Contents/MacOS/VideoFileUtil");
        QDir().mkpath(QFileInfo(theirs).path());
        QFile::copy(QStandardPaths::findExecutable("sleep"), theirs);
        QProcess foreign;
        foreign.start(theirs, {"30"});
        QVERIFY(foreign.waitForStarted());
        Page page;
        page.OnInitialSettings();
        page.answer = QStringList{File("mine.mov", 100)};
        page.OnAddVideoFile();
        page.OnDoubleClicked(page.Tree()->topLevelItem(0)->child(0), 0);
        const QString copy = lstRunningFilePath.value(0);
        QCOMPARE(QFileInfo(copy).size(), 100);
        QCOMPARE(QDir(m_dir.path()).entryList({"*mine.mov"}), QStringList{"mine.mov"});
        page.OnGoBack();
        QVERIFY(!QFileInfo::exists(copy));
        QVERIFY(!foreign.waitForFinished(300));
        foreign.kill();
        foreign.waitForFinished();
    }
};

QTEST_MAIN(TstVideoRepairWindow)
#include "tst_videorepairwindow.moc"
