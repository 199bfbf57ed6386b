// The repair page as a user drives it: files, check boxes, stopping, leaving, previews, taken
// names under /var/tmp; and the size texts, sorting and copying of the trees both pages share.

#include "Bytes.h"
#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "Pages.h"
#include "app/AppGlobals.h"
#include "pages/repair/FileDialog.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"
#include "pages/repair/VideoRepairWindow.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "workers/PreviewCopy.h"
#include "workers/PreviewState.h"

#include <QtTest>

using Col = MyRightTreeWidgetItem::Column;
using Pages::Button;
using Pages::Click;
using Pages::Enabled;

namespace
{

const QStringList Buttons{"RemoveButton", "RepairButton", "PreviewButton"};

// The page with its files chosen and its free space told by the test.
class Page : public VideoRepairWindow
{
public:
    qint64 freeBytes = -1; // -1 asks the real probe

    explicit Page(const QStringList &files = {})
    {
        OnInitialSettings();
        Add(files);
    }
    void Add(const QStringList &files)
    {
        ChooseVideoFiles = [files](QWidget *) { return files; };
        OnAddVideoFile();
    }
    QTreeWidgetItem *Root() const { return Tree()->topLevelItem(0); }
    qint64 GetFree(const QString &path) override
    {
        return freeBytes >= 0 ? freeBytes : VideoRepairWindow::GetFree(path);
    }
};

// Whether a preview program started on `file` still runs.
bool Previewing(const QString &file)
{
    for (const QString &id : QDir("/proc").entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray args = Bytes::ReadFile("/proc/" + id + "/cmdline");
        if (args.contains("VideoFileUtil") && args.contains(file.toUtf8()))
            return true;
    }
    return false;
}

} // namespace

class TstVideoRepairWindow : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString File(const QString &name, int size = 1000)
    {
        Bytes::WriteFile(m_dir.filePath(name), QByteArray(size, 'x'));
        return m_dir.filePath(name);
    }

    // A stand-in preview program where the page looks for it: logs its argument and stays open.
    QString Previewer(const QString &log)
    {
        const QString bin = m_dir.filePath("bundle/VideoFileUtil.app/Contents/MacOS");
        QDir().mkpath(bin);
        Bytes::WriteProgram(bin + "/VideoFileUtil", QString("echo \"$1\" >> '%1'\nsleep 30\n").arg(log));
        return bin + "/VideoFileUtil";
    }

private Q_SLOTS:
    void init()
    {
        bProcessRunning = bStopFlag = CloseSuccess = m_bMax = false;
        mY_unsupportedList.clear();
        AllFiles.clear();
    }

    void cleanup() { CloseSuccess = true; }

    // Listed files (in any letter case) are skipped, a folder is refused, rows sort by name with ids
    // in the order of adding; the last removal takes the root, and ids count on.
    void addAndRemove()
    {
        const QString a = File("a.mov");
        QDir().mkpath(m_dir.filePath("folder.mov"));
        ModalAnswerer boxes(QMessageBox::Ok);
        Page page({a, a, m_dir.filePath("A.MOV"), m_dir.filePath("folder.mov"), File("b.mp4", 2048)});
        QCOMPARE(boxes.Texts(),
                 (QStringList{"Files already added to list will be skipped.",
                              "Files already added to list will be skipped.", "Not a valid video file."}));
        QStringList rows;
        for (QTreeWidgetItemIterator it(page.Tree()); *it; ++it)
            rows << QStringList{(*it)->text(Col::Name), (*it)->text(Col::Size), (*it)->text(Col::Bytes),
                                (*it)->text(Col::TemporaryPath), (*it)->text(Col::FileId)}
                        .join('|');
        QCOMPARE(rows, (QStringList{"Video File(s)||||1", "||||", "a.mov|0.97 KB|1000|" + a + "|2",
                                    "b.mp4|2 KB|2048|" + m_dir.filePath("b.mp4") + "|3"}));
        QVERIFY(Button(&page, "RepairButton")->isEnabled());

        for (int i = 0; i < 3; ++i) {
            page.Root()->child(0)->setSelected(true);
            page.OnRemoveVideoFile();
        }
        QCOMPARE(page.Tree()->topLevelItemCount(), 0);
        QCOMPARE(Enabled(&page, Buttons), QStringList());
        page.Add({File("two.mov")});
        QCOMPARE(page.Root()->text(Col::FileId) + page.Root()->child(0)->text(Col::FileId), QString("14"));
    }

    void checkBoxes()
    {
        Page page({File("c1.mov"), File("c2.mov"), File("c3.mov")});
        MyTreeWidget *tree = page.Tree();
        QTreeWidgetItem *root = page.Root();
        Click(tree, root->child(0));
        QCOMPARE(Pages::Ticks(tree), QString("P:UCC"));
        QCOMPARE(Enabled(&page, Buttons), Buttons);
        Click(tree, root->child(1));
        Click(tree, root->child(2));
        QCOMPARE(Pages::Ticks(tree), QString("U:UUU"));
        QCOMPARE(Enabled(&page, Buttons), (QStringList{"RemoveButton", "PreviewButton"}));
        Click(tree, root); // the root ticks every file, and unticks them
        QCOMPARE(Pages::Ticks(tree), QString("C:CCC"));
        QCOMPARE(Enabled(&page, Buttons), (QStringList{"RemoveButton", "RepairButton"}));
        Click(tree, root);
        QCOMPARE(Pages::Ticks(tree), QString("U:UUU"));
        QCOMPARE(Enabled(&page, Buttons), QStringList{"RemoveButton"});

        tree->setCurrentItem(root->child(0));
        QTest::keyClick(tree, Qt::Key_Space); // Space never toggles a box
        bProcessRunning = true;               // while a run is going, clicks change no button
        Click(tree, root->child(0));
        QCOMPARE(Enabled(&page, Buttons), QStringList{"RemoveButton"});
        QCOMPARE(Pages::Ticks(tree), QString("U:CUU"));
        bProcessRunning = false;

        // An add lets events through: Repair pressed in the middle of it starts no run.
        Click(tree, root);
        QTimer::singleShot(0, &page, [&page] { Button(&page, "RepairButton")->click(); });
        page.Add({File("c4.mov")});
        QCOMPARE(Enabled(&page, {"AddButton", "RepairButton"}), (QStringList{"AddButton", "RepairButton"}));
    }

    // No lets the run go on, Yes ends it keeping the rows; a late Yes stops nothing.
    void stopQuestion_data()
    {
        QTest::addColumn<int>("answer");
        QTest::newRow("no") << int(QMessageBox::No);
        QTest::newRow("yes") << int(QMessageBox::Yes);
    }

    void stopQuestion()
    {
        QFETCH(int, answer);
        const QString in = m_dir.filePath("long.mp4");
        QVERIFY(QFileInfo::exists(in) ||
                Fixtures::Make(in, Fixtures::Clip::Of("libx264", "aac", 6, {}, "640x480")));
        Page page({in});
        QSignalSpy finished(page.Worker(), &ThreadVideoRepair::RepairFinish);
        QSignalSpy aborted(page.Worker(), &ThreadVideoRepair::ProcessAborted);
        ModalAnswerer box{QMessageBox::StandardButton(answer)};
        int repairing = 0;
        connect(page.Worker(), &ThreadVideoRepair::Info, &page, [&](const QString &text) {
            if (text.startsWith("Repairing") && ++repairing == 2) // the re-encoding pass has begun
                page.OnStop();
        });
        Button(&page, "RepairButton")->click();
        QCOMPARE(Enabled(&page, {"AddButton", "BackButton"}), QStringList());
        QTRY_VERIFY_WITH_TIMEOUT(!finished.isEmpty() || !aborted.isEmpty(), 120000);
        QCOMPARE(box.Text() + box.InformativeText(),
                 QString("Process cannot be resumed from the current stage.Do you want to abort the current "
                         "process?"));
        if (answer == QMessageBox::No) {
            QCOMPARE(finished.size(), 1);
            QTRY_VERIFY(page.SavingWindow()); // the hand-over arrives queued
            page.Worker()->wait();
            ModalAnswerer late(QMessageBox::Yes);
            page.OnStop();
        } else {
            QCOMPARE(aborted.size(), 1);
            QTRY_VERIFY(Button(&page, "StopButton")->isHidden()); // the end arrives queued
            QCOMPARE(Enabled(&page, {"AddButton", "BackButton", "RepairButton"}),
                     (QStringList{"AddButton", "BackButton", "RepairButton"}));
            QVERIFY(page.Root()->childCount() == 1 && !page.SavingWindow());
        }
        QVERIFY(!bStopFlag);
    }

    void notEnoughSpaceStartsNothing()
    {
        Page page({File("big.mov", 5000)});
        page.freeBytes = 4999;
        ModalAnswerer box(QMessageBox::Ok);
        Button(&page, "RepairButton")->click();
        QCOMPARE(box.Text(), QString("Insufficient space on boot drive to save temporary data."));
        QCOMPARE(box.Icon(), QMessageBox::Warning);
        QVERIFY(!page.Worker()->isRunning() && !bProcessRunning);
        QCOMPARE(Enabled(&page, {"AddButton", "RepairButton"}), (QStringList{"AddButton", "RepairButton"}));
    }

    // Back, or a Yes to close, removes the working folder and previews; Back tells if it was maximised.
    void leaving_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<bool>("cleaned"); // the working folder removed
        QTest::addColumn<bool>("previewsEnded");
        QTest::newRow("back") << "back" << true << true;
        QTest::newRow("back from a maximised page") << "back maximised" << true << true;
        QTest::newRow("close, yes") << "yes" << true << true;
        QTest::newRow("close, no") << "no" << false << false;
        QTest::newRow("close while a run goes") << "running" << false << false;
    }

    void leaving()
    {
        QFETCH(QString, how);
        QFETCH(bool, cleaned);
        QFETCH(bool, previewsEnded);
        const QString leftover = VideoRepairWindow::TempFolder() + "/left.mov";
        QVERIFY(QDir().mkpath(VideoRepairWindow::TempFolder()) && Bytes::WriteFile(leftover, "x"));
        strPreviewerPath = Previewer(m_dir.filePath("leaving.log"));
        Page page({File("shown.mov")});
        page.show();
        page.OnDoubleClicked(page.Root()->child(0), 0);
        const QString copy = PreviewCopyName(m_dir.filePath("shown.mov"));
        QTRY_VERIFY(Previewing(copy));

        QSignalSpy back(&page, &VideoRepairWindow::OnBack);
        ModalAnswerer box(how == "no" ? QMessageBox::No : QMessageBox::Yes, 500);
        bProcessRunning = how == "running";
        if (how.startsWith("back")) {
            page.setWindowState(how == "back" ? Qt::WindowNoState : Qt::WindowMaximized);
            Button(&page, "BackButton")->click();
            QCOMPARE(back.size(), 1);
            QCOMPARE(back.at(0).at(0).toBool(), how == "back maximised");
            QVERIFY(page.isHidden() && !box.Answered());
        } else {
            QCOMPARE(page.close(), how == "yes");
            QCOMPARE(box.Texts(), how == "running"
                                      ? QStringList()
                                      : QStringList{"Do you want to close Corvane Aldrake Video Repair? "});
            QCOMPARE(CloseSuccess, how == "yes");
            QVERIFY(back.isEmpty());
        }
        bProcessRunning = false;
        QCOMPARE(QFileInfo::exists(leftover), !cleaned);
        QCOMPARE(QFileInfo::exists(copy), !previewsEnded);
        if (previewsEnded)
            QTRY_VERIFY(!Previewing(copy));
        else
            QVERIFY(Previewing(copy));
        QDir(VideoRepairWindow::TempFolder()).removeRecursively();
    }

    void f4vIsNotPreviewed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("doubleClick");
        QTest::addColumn<QString>("title");
        QTest::newRow("button") << "clip.f4v" << false << "Corvane Aldrake Video Repair";
        QTest::newRow("double-click, upper case")
            << "CLIP.F4V" << true << "Corvane Aldrake File Video Repair";
    }

    void f4vIsNotPreviewed()
    {
        QFETCH(QString, name);
        QFETCH(bool, doubleClick);
        QFETCH(QString, title);
        Page page({File(name)});
        ModalAnswerer box(QMessageBox::Ok);
        page.Root()->child(0)->setSelected(true);
        if (doubleClick)
            page.OnDoubleClicked(page.Root()->child(0), 0);
        else
            page.OnPreviewMovFile();
        QCOMPARE(box.Title() + box.Text(), title + "\nPreview not supported for this file type.");
        QVERIFY(!QFileInfo::exists(PreviewCopyName(m_dir.filePath(name))));
    }

    // A preview plays a copy named with a leading blank; the next ends the first and deletes its copy.
    // A double-click on the root only folds the list, and a file that has gone is not played.
    void previewTwice()
    {
        const QString log = m_dir.filePath("previewer.log");
        strPreviewerPath = Previewer(log);
        const QString first = File("first.mov", 3000), second = File("second.mov", 5000);
        Page page({first, second});
        page.OnDoubleClicked(page.Root()->child(0), 0);
        QCOMPARE(QFileInfo(PreviewCopyName(first)).size(), 3000);
        QTRY_VERIFY(QFileInfo::exists(log));
        page.OnDoubleClicked(page.Root()->child(1), 0);
        QVERIFY(!QFileInfo::exists(PreviewCopyName(first)));
        QCOMPARE(QFileInfo(PreviewCopyName(second)).size(), 5000);
        QTRY_COMPARE(QString(Bytes::ReadFile(log)),
                     PreviewCopyName(first) + "\n" + PreviewCopyName(second) + "\n");
        QCOMPARE(lstRunningFilePath, QStringList{PreviewCopyName(second)});
        QVERIFY(QFileInfo::exists(first) && QFileInfo::exists(second)); // the user's files are untouched

        page.OnDoubleClicked(page.Root(), 0);
        QVERIFY(QFileInfo::exists(PreviewCopyName(second)));
        QFile::remove(first);
        ModalAnswerer box(QMessageBox::Ok);
        page.OnDoubleClicked(page.Root()->child(0), 0);
        QCOMPARE(box.Text(), QString("Preview not available."));
        QCOMPARE(lstRunningFilePath, QStringList{PreviewCopyName(second)});
    }

    // A preview leaves nothing beside the user's file or after Back, and ends no program but its own.
    void previewLeavesNothingAndEndsOnlyItsOwn()
    {
        strPreviewerPath = Previewer(m_dir.filePath("own.log"));
        const QString theirs = m_dir.filePath("VideoFileUtil.app/Contents/MacOS/VideoFileUtil");
        QDir().mkpath(QFileInfo(theirs).path());
        QFile::copy(QStandardPaths::findExecutable("sleep"), theirs);
        QProcess foreign;
        foreign.start(theirs, {"30"});
        QVERIFY(foreign.waitForStarted());
        Page page({File("mine.mov", 100)});
        page.OnDoubleClicked(page.Root()->child(0), 0);
        const QString copy = lstRunningFilePath.value(0);
        QCOMPARE(QFileInfo(copy).size(), 100);
        QCOMPARE(QDir(m_dir.path()).entryList({"*mine.mov"}), QStringList{"mine.mov"});
        page.OnGoBack();
        QVERIFY(!QFileInfo::exists(copy));
        QVERIFY(!foreign.waitForFinished(300));
        foreign.kill();
        foreign.waitForFinished();
    }

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

    // Sizes sort by bytes, other columns by text ignoring case; a clone keeps every row's kind and data.
    void sortAndClone()
    {
        MyTreeWidget tree;
        tree.setColumnCount(7);
        auto *root = new MyRightTreeWidgetItem(&tree);
        const QStringList names{"beta", "Alpha", "gamma"};
        const QList<qint64> sizes{qint64(2) << 30, 900 * 1024, 1 << 20};
        for (int i = 0; i < 3; ++i) {
            auto *row = new MyRightTreeWidgetItem(root);
            row->setText(Col::Size, GetSizeOfItem(sizes.at(i)));
            row->setText(Col::Bytes, QString::number(sizes.at(i)));
            row->setText(Col::Name, names.at(i));
            row->setText(Col::TemporaryPath, "/tmp/" + names.at(i));
            row->setCheckState(0, Qt::PartiallyChecked);
        }
        auto order = [root](int column) {
            QStringList texts;
            for (int i = 0; i < root->childCount(); ++i)
                texts << root->child(i)->text(column);
            return texts.join(' ');
        };
        tree.sortItems(Col::Size, Qt::AscendingOrder);
        QCOMPARE(order(Col::Size), QString("900 KB 1 MB 2 GB"));
        tree.sortItems(Col::Name, Qt::AscendingOrder);
        QCOMPARE(order(Col::Name), QString("Alpha beta gamma"));

        std::unique_ptr<QTreeWidgetItem> copy(root->clone());
        QVERIFY(dynamic_cast<MyRightTreeWidgetItem *>(copy.get()) && copy->childCount() == 3);
        QVERIFY(dynamic_cast<MyRightTreeWidgetItem *>(copy->child(0)) && copy->child(0) != root->child(0));
        QCOMPARE(copy->child(0)->text(Col::TemporaryPath), QString("/tmp/Alpha"));
        QCOMPARE(copy->child(0)->checkState(0), Qt::PartiallyChecked);
    }

    // Taken names under /var/tmp: another account's are none of our business, our own are reported.
    void takenNames_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("box"); // empty when the repair runs
        QTest::newRow("another account's probe file") << "/var/tmp/TempFile" << QString();
        QTest::newRow("another account's working folder") << "/var/tmp/.CorvaneVideoRepairTemp" << QString();
        QTest::newRow("our probe file")
            << OwnFixedPath(ProbeFiles::TempFile) << "The free space on the boot drive could not be checked.";
        QTest::newRow("our working folder")
            << VideoRepairWindow::TempFolder() << "The working folder for the repair could not be made.";
    }

    void takenNames()
    {
        QFETCH(QString, path);
        QFETCH(QString, box);
        const QString source = m_dir.filePath("clip.mp4");
        QVERIFY(QFileInfo::exists(source) || Fixtures::Make(source, Fixtures::Clip::Of("libx264", "aac", 1)));
        QDir(VideoRepairWindow::TempFolder()).removeRecursively();
        QVERIFY(QDir().mkpath(path));
        const auto unmount = qScopeGuard([&path] {
            QProcess::execute("umount", {path});
            QDir().rmdir(path);
        });
        if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=64k,uid=65534,mode=0755", "tmpfs", path}) != 0)
            QSKIP("mounting a tmpfs is not permitted here");
        VideoRepairWindow page;
        page.OnInitialSettings();
        page.AddFiles({source});
        QSignalSpy finished(page.Worker(), &ThreadVideoRepair::RepairFinish);
        ModalAnswerer answer(QMessageBox::Ok, 1000);
        page.OnRepairVideoFiles();
        QVERIFY(box.isEmpty() ? finished.wait(60000) : finished.isEmpty());
        QTRY_VERIFY(!bProcessRunning);
        QCOMPARE(answer.Text(), box);
    }
};

QTEST_MAIN(TstVideoRepairWindow)
#include "tst_videorepairwindow.moc"
