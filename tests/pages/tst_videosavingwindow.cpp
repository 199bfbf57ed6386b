// The save page as a user drives it: the tree, check boxes, saving and its questions, a full
// destination, leaving, previews; path and script rules, the finish dialog's script, the log report.

#include "Bytes.h"
#include "ModalAnswerer.h"
#include "Pages.h"
#include "app/AppGlobals.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/LogReportDlg.h"
#include "pages/save/SaveShell.h"
#include "pages/save/SavingFinishDlg.h"
#include "pages/save/VideoSavingWindow.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"
#include "workers/PreviewCopy.h"
#include "workers/PreviewState.h"

#include <QHeaderView>
#include <QLabel>
#include <QTextEdit>
#include <QtTest>

using Col = MyRightTreeWidgetItem::Column;
using Pages::Button;
using Pages::Click;

namespace
{

// The page with a free-space figure chosen by the test; it records the volumes it measured.
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
    QTreeWidgetItem *Row(const QString &name) { return Pages::Row(Tree(), name); }
    // The ticks and the enabled buttons, as Pages::Ticks and Pages::Enabled give them.
    QString State()
    {
        return Pages::Ticks(Tree()) + " " + Pages::Enabled(this, {"SaveButton", "PreviewButton"}).join(',');
    }
};

// Saves through the Save button and answers the finish dialog; the folder it was to reveal.
QString SaveAndFinish(VideoSavingWindow &page)
{
    QString folder;
    Pages::DialogAnswerer<SavingFinishDlg> finish(
        [&folder](SavingFinishDlg *dlg) { folder = dlg->SavedFolder(); });
    Button(&page, "SaveButton")->click();
    // The worker's run ends just after its last signal.
    return QTest::qWaitFor([&finish] { return finish.Answered() && !bProcessRunning; }, 20000) ? folder
                                                                                               : QString();
}

} // namespace

class TstVideoSavingWindow : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // A repair result ticked as given ("CUC"); sources of 1000 bytes, repaired copies of 1007.
    MyRightTreeWidgetItem *Result(const QStringList &names, const QString &ticks = "CCC")
    {
        auto *root = new MyRightTreeWidgetItem(static_cast<QTreeWidget *>(nullptr));
        root->setText(Col::FileId, "1");
        root->setCheckState(0, ticks.contains('U')
                                   ? (ticks.contains('C') ? Qt::PartiallyChecked : Qt::Unchecked)
                                   : Qt::Checked);
        for (int i = 0; i < names.size(); ++i) {
            auto *row = new MyRightTreeWidgetItem(root);
            for (int c : {int(Col::Path), int(Col::TemporaryPath)}) {
                const QString file = m_dir.filePath(QString::number(c) + "/" + names[i]);
                QDir().mkpath(QFileInfo(file).path());
                Bytes::WriteFile(file, QByteArray(c == Col::Path ? 1000 : 1007, 'v'));
                row->setText(c, file);
            }
            row->setText(Col::FileId, QString::number(i + 2));
            row->setCheckState(0, ticks.at(i) == 'C' ? Qt::Checked : Qt::Unchecked);
        }
        return root;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Stand-ins record their arguments, NUL-ended; dbus-send fails so that xdg-open follows.
        const QString bin = m_dir.filePath("bin");
        QDir().mkpath(bin);
        for (const QString name : {"dbus-send", "xdg-open"})
            QVERIFY(Bytes::WriteProgram(bin + "/" + name,
                                        QString("printf '%s\\0' \"$@\" > '%1.args'\n%2")
                                            .arg(m_dir.filePath(name), name == "dbus-send" ? "exit 1" : "")));
        qputenv("PATH", bin.toUtf8() + ":" + qgetenv("PATH"));
    }

    void init()
    {
        bProcessRunning = CloseSuccess = m_bMax = false;
        mY_unsupportedList.clear();
        AllFiles.clear();
        QDir(m_dir.filePath("run")).removeRecursively();
        QDir().mkpath(m_dir.filePath("run"));
    }

    // Unticked rows are dropped. Each drop has always cost the build a pass, so FileIDs count on.
    void treeBuild()
    {
        Page page(nullptr, Result({"a.mov", "b.mov", "c.mov"}, "CUC"));
        QStringList built;
        for (QTreeWidgetItemIterator it(page.Tree()); *it; ++it)
            built << (*it)->text(Col::Name) + "=" + (*it)->text(Col::FileId);
        QCOMPARE(built, (QStringList{"Video File(s)=1", "a.mov=4", "c.mov=5"}));
        QCOMPARE(page.State(), QString("C:CC SaveButton"));
        QVERIFY(page.SourceTree()->isHidden());
        Page none(nullptr, Result({"a.mov", "b.mov", "c.mov"}, "UUU"));
        QCOMPARE(none.Tree()->topLevelItemCount(), 0);
        QCOMPARE(none.State(), QString(" "));
    }

    void checkBoxes()
    {
        Page page(nullptr, Result({"a.mov", "b.mov", "c.mov"}));
        QTreeWidget *tree = page.Tree();
        QTreeWidgetItem *root = tree->topLevelItem(0);
        Click(tree, root); // the root unticks every file
        QCOMPARE(page.State(), QString("U:UUU "));
        Click(tree, root->child(1));
        QCOMPARE(page.State(), QString("P:UCU SaveButton,PreviewButton"));
        Q_EMIT tree->itemClicked(root, 0); // a partly ticked root changes nothing, enables nothing
        QCOMPARE(page.State(), QString("P:UCU "));
        Click(tree, root->child(1));
        QCOMPARE(page.State(), QString("U:UUU PreviewButton"));
        Click(tree, root); // and ticks them all again
        QCOMPARE(page.State(), QString("C:CCC SaveButton"));
        tree->setCurrentItem(root->child(0));
        QTest::keyClick(tree, Qt::Key_Space); // Space never toggles a box
        bProcessRunning = true;               // while saving, clicks change nothing
        Click(tree, root->child(0));
        QCOMPARE(page.State(), QString("C:UCC SaveButton"));
    }

    // A real save of the ticked files, then the questions that a second save meets.
    void saving()
    {
        Page page(nullptr, Result({"a.mov", "b.mov", "c.mov"}));
        page.show();
        const QString dest = m_dir.filePath("dest"), saved = dest + "/Repaired-Video-Files";
        QDir().mkpath(dest);
        ChooseFolder = [dest] { return dest; };
        Click(page.Tree(), page.Row("b.mov"));
        QCOMPARE(SaveAndFinish(page), saved);
        QCOMPARE(page.volumes, QStringList{dest});
        QCOMPARE(QDir(saved).entryList(QDir::Files), (QStringList{"a.mov", "c.mov"}));
        QCOMPARE(QFileInfo(saved + "/a.mov").size(), 1007); // the repaired copy
        QVERIFY(Button(&page, "BackButton")->isEnabled() && page.Tree()->isEnabled());
        QCOMPARE(page.State(), QString("U:UUU "));

        Click(page.Tree(), page.Row("b.mov"));
        {
            ModalAnswerer no(QMessageBox::No);
            Button(&page, "SaveButton")->click();
            QCOMPARE(no.Texts(), QStringList{"Overwrite Existing Folder?"});
        }
        QVERIFY(QFileInfo::exists(saved + "/a.mov") && page.volumes.size() == 1);
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

    // Three 1.5 MiB files on a 2 MiB tmpfs: which failed and why, no cut-off file, the page browses again.
    void fullDestination()
    {
        const QString mount = m_dir.filePath("small"), folder = mount + "/Repaired-Video-Files";
        QDir().mkpath(mount);
        if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=2m", "tmpfs", mount}) != 0)
            QSKIP("mounting a small tmpfs is not permitted here");
        MyRightTreeWidgetItem *result = Result({"clip0.mov", "clip1.mov", "clip2.mov"});
        for (int i = 0; i < 3; ++i)
            Bytes::WriteFile(result->child(i)->text(Col::TemporaryPath),
                             QByteArray(1536 * 1024, char('a' + i)));
        Page page(nullptr, result);
        page.show();
        ChooseFolder = [mount] { return mount; };
        ModalAnswerer failures(QMessageBox::Ok, 30000);
        Button(&page, "SaveButton")->click();
        QTRY_VERIFY_WITH_TIMEOUT(failures.Answered() && !bProcessRunning, 30000);
        const QStringList left = QDir(folder).entryList(QDir::Files);
        const QByteArray first = Bytes::ReadFile(folder + "/clip0.mov");
        QProcess::execute("umount", {mount});
        QCOMPARE(failures.Text(), "2 file(s) could not be saved in " + folder + ".");
        QCOMPARE(failures.InformativeText(),
                 QString("clip1.mov: No space left on device\nclip2.mov: No space left on device"));
        QVERIFY(!QApplication::activeModalWidget()); // no "File saved successfully."
        QCOMPARE(left, QStringList{"clip0.mov"});
        QCOMPARE(first, QByteArray(1536 * 1024, 'a')); // the first file fitted and is whole
        QCOMPARE(page.State(), QString("U:UUU "));
        QVERIFY(page.Tree()->isEnabled() && Button(&page, "StopButton")->isHidden());
        QVERIFY(Button(&page, "BackButton")->isEnabled());
    }

    // A close while saving is refused silently; otherwise close and Back ask; Back's Yes forgets results.
    void leaving()
    {
        AllFiles = QStringList{"a.mov"};
        mY_unsupportedList = QStringList{"b.mov"};
        Page page(nullptr, Result({"a.mov", "b.mov"}));
        page.show();
        QSignalSpy back(&page, &VideoSavingWindow::Goback);
        bProcessRunning = true;
        {
            ModalAnswerer none(QMessageBox::Yes, 300);
            QVERIFY(!page.close() && !none.Answered());
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
        {
            ModalAnswerer yes(QMessageBox::Yes);
            Button(&page, "BackButton")->click();
        }
        QVERIFY(!page.isVisible() && back.count() == 1);
        QVERIFY(AllFiles.isEmpty() && mY_unsupportedList.isEmpty());
    }

    // At the smallest size the widest size and outcome show whole; a long name asks for no more.
    void longTextsAtTheSmallestSize()
    {
        MyRightTreeWidgetItem *result = Result({"big.mov"});
        QVERIFY(QFile::resize(result->child(0)->text(Col::Path), (qint64(1) << 30) - (qint64(1) << 13)));
        Page page(nullptr, result);
        QTreeWidgetItem *row = page.Row("big.mov");
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
        QVERIFY(Bytes::WriteProgram(strPreviewerPath, QString("echo \"$1\" >> '%1'\n").arg(log)));
        mY_unsupportedList = QStringList{"bad.mov"};
        Page page(nullptr, Result({"bad.mov", "good.mov"}));
        {
            ModalAnswerer box(QMessageBox::Ok);
            page.OnDoubleClicked(page.Row("bad.mov"), 0);
            QCOMPARE(box.Texts(), QStringList{"Preview not available due to severe corruption."});
            QCOMPARE(box.Icon(), QMessageBox::Warning);
        }
        QVERIFY(!QFileInfo::exists(PreviewCopyName(page.Row("bad.mov")->text(Col::TemporaryPath))));
        const QString copy = PreviewCopyName(page.Row("good.mov")->text(Col::TemporaryPath));
        page.Tree()->setCurrentItem(page.Row("good.mov"));
        page.OnPreviewMovFile();
        QCOMPARE(QFileInfo(copy).size(), 1007);
        QTRY_COMPARE(QFileInfo(log).size(), copy.toUtf8().size() + 1);
    }

    // Under /Volumes (any case) a volume is measured, else "/"; the Finder script escapes the folder.
    void macRules()
    {
        QCOMPARE(MacSaveVolume("/Volumes/Data/sub"), QString("/Volumes/Data"));
        QCOMPARE(MacSaveVolume("/VOLUMES/Data"), QString("/VOLUMES/Data"));
        QCOMPARE(MacSaveVolume("/Users/x") + MacSaveVolume("/VolumesX/Data"), QString("//"));
        QCOMPARE(MacRevealScript("/Volumes/A \"B\"\\\n").section('\n', 2, 2),
                 QString("set theFile to \"/Volumes/A \\\"B\\\"\\\\\\n\""));
    }

    // The real script: the folder is one argument, nothing in it runs, a planted link is not followed.
    void linuxScriptRunsNothing_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("planted");
        QTest::newRow("command substitution") << "$(touch X)" << false;
        QTest::newRow("line break then EOT") << "a\nEOT\ntouch X\nb" << false; // would end a heredoc
        QTest::newRow("quotes, backslash, comma") << "it's \"here\" \\ $HOME, Vidéos" << false;
        QTest::newRow("a link at the script's path") << "Repaired-Video-Files" << true;
    }

    void linuxScriptRunsNothing()
    {
        QFETCH(QString, name);
        QFETCH(bool, planted);
        const QString folder = m_dir.filePath("run/" + name), victim = m_dir.filePath("run/victim");
        const QString script = OwnFixedPath(ProbeFiles::RevealScript);
        QFile::remove(script);
        if (planted)
            QVERIFY(Bytes::WriteFile(victim, "exit 0\n") && QFile::link(victim, script));
        const QString cwd = QDir::currentPath();
        QDir::setCurrent(m_dir.filePath("run"));
        SavingFinishDlg(nullptr, folder).ShowDestPath();
        QDir::setCurrent(cwd);
        QVERIFY(!QFileInfo::exists(script) && !QFileInfo(script).isSymLink());
        QTRY_COMPARE(Bytes::ReadFile(m_dir.filePath("xdg-open.args")), folder.toUtf8() + '\0');
        QVERIFY(!planted || Bytes::ReadFile(victim) == "exit 0\n");
        const QByteArray uri = QUrl::fromLocalFile(folder).toEncoded().replace(",", "%2C");
        QVERIFY(
            Bytes::ReadFile(m_dir.filePath("dbus-send.args")).split('\0').contains("array:string:" + uri));
        QVERIFY(!QFileInfo::exists(m_dir.filePath("run/X")));
    }

    // The report's layout (entries differ in the blank after "File Status:" and the line before the
    // stars), reasons in red, statuses in green, and further lines from the outcome.
    void logReportText()
    {
        mY_unsupportedList = QStringList{"bad.mov", "lost.mp4"};
        AllFiles = QStringList{"good.mp4"};
        RepairOutcome lost, good;
        lost.source = "/in/lost.mp4";
        lost.verdict = RepairOutcome::Verdict::NotPlayable;
        good.source = "/in/good.mp4";
        good.notes = QStringList{"A line of its own."};
        lstRepairOutcomes = {lost, good};
        LogReportDlg dlg;
        dlg.OnLogReportStatus();
        QString text = dlg.LogTxtEdit()->toPlainText();
        const QRegularExpression stamp("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n");
        QCOMPARE(text.count(stamp), 3);
        text.replace(stamp, "STAMP\n");
        const QString stars = QString("* ").repeated(32) + "*\n \n";
        QCOMPARE(
            text,
            "***Corvane Aldrake Video Repair Log Report***\n\nVideo File Name : bad.mov\nFile Status:\n"
            "Failed due to unsupported Audio or Video codecs.\nDate and Time:    STAMP\n\n" +
                stars +
                "Video File Name : lost.mp4\nFile Status:\nNo playable video was found in the file.\n"
                "Date and Time:    STAMP\n\n" +
                stars +
                "Video File Name : good.mp4\nFile Status: \nSuccessfully Repaired. \nA line of its own.\n"
                "Date and Time:    STAMP\n" +
                stars);
        auto colour = [&dlg](const QString &text) {
            QTextCursor at = dlg.LogTxtEdit()->document()->find(text);
            at.setPosition(at.selectionStart() + 1);
            return at.charFormat().foreground().style() == Qt::NoBrush
                       ? QString("none")
                       : at.charFormat().foreground().color().name();
        };
        QCOMPARE(QStringList({colour("Failed due"), colour("No playable"), colour("Successfully Repaired"),
                              colour("A line of its own")}),
                 QStringList({"#ff0000", "#ff0000", "#008000", "none"}));
        lstRepairOutcomes.clear();
    }
};

QTEST_MAIN(TstVideoSavingWindow)
#include "tst_videosavingwindow.moc"
