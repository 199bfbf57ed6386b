// The whole road, driven through the pages as a user would: the main window, the repair page with
// four files (one with 16-bit PCM audio, one cut off before its index) and a reference recording, a
// repair run, the save page with its results, saving, and the log report saved as a PDF. With
// CORVANE_SCREENSHOTS set to a folder, the pages are pictured on the way.

#include "Bytes.h"
#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "app/MyButton.h"
#include "pages/repair/FileDialog.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/VideoRepairWindow.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/LogReportDlg.h"
#include "pages/save/SavingFinishDlg.h"
#include "pages/save/VideoSavingWindow.h"

#include <QDir>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

namespace {

void Picture(QWidget *w, const QString &name)
{
    const QString folder = qEnvironmentVariable("CORVANE_SCREENSHOTS");
    if (!folder.isEmpty())
        w->grab().save(folder + "/" + name + ".png");
}

QPushButton *Button(QWidget *page, const char *name)
{
    return page->findChild<QPushButton *>(name);
}

template <typename T> T *OpenWindow()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *t = qobject_cast<T *>(w); t && t->isVisible())
            return t;
    return nullptr;
}

} // namespace

class TstEndToEnd : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        LoadProgramResources();
        SetBrowserLauncher([](const BrowserLaunch &) { return true; });
    }

    void cleanupTestCase() { CloseSuccess = true; }

    void repairSaveAndReport()
    {
        QTemporaryDir dir;
        const QString in = dir.filePath("videos");
        const QString dest = dir.filePath("destination");
        QDir().mkpath(in);
        QDir().mkpath(dest);
        Fixtures::Clip clip;
        clip.seconds = 2;
        Fixtures::Clip pcm = clip;
        pcm.audioCodec = "pcm_s16le";
        QVERIFY(Fixtures::Make(in + "/Beach Day.mp4", clip));
        QVERIFY(Fixtures::Make(in + "/Birthday.mov", clip));
        QVERIFY(Fixtures::Make(in + "/Interview.mov", pcm));
        // A recording cut off before its index at the end, and another from the same camera.
        QVERIFY(Fixtures::Make(dir.filePath("Reference.mp4"), clip));
        const QByteArray whole = Bytes::ReadFile(in + "/Beach Day.mp4");
        QVERIFY(Bytes::WriteFile(in + "/Power Cut.mp4", whole.left(whole.size() * 6 / 10)));

        MainWindow main;
        main.OnInitialize();
        main.show();
        main.resize(820, 560);
        Picture(&main, "main-window-flow");

        // The large button leads to the repair page.
        main.findChild<MyButton *>()->click();
        VideoRepairWindow *repair = main.RepairPage();
        QTRY_VERIFY(repair->isVisible());
        QVERIFY(main.isHidden());

        ChooseVideoFiles = [&](QWidget *) {
            return QStringList{in + "/Beach Day.mp4", in + "/Birthday.mov", in + "/Power Cut.mp4",
                               in + "/Interview.mov"};
        };
        Button(repair, "AddButton")->click();
        QCOMPARE(repair->Tree()->topLevelItem(0)->childCount(), 4);
        ChooseReferenceFile = [&](QWidget *, const QString &) { return dir.filePath("Reference.mp4"); };
        Button(repair, "ReferenceButton")->click();
        Picture(repair, "repair-page-reference");

        // Picture the page once the re-encoding pass is under way.
        int repairing = 0;
        connect(repair->Worker(), &ThreadVideoRepair::Info, repair, [&](const QString &text) {
            if (text.startsWith("Repairing") && ++repairing == 5)
                Picture(repair, "repair-page-running");
        });
        Button(repair, "RepairButton")->click();
        QTRY_VERIFY_WITH_TIMEOUT(repair->SavingWindow() && repair->SavingWindow()->isVisible(), 180000);
        VideoSavingWindow *save = repair->SavingWindow();
        QVERIFY(repair->isHidden());

        QMap<QString, QString> status;
        for (QTreeWidgetItemIterator it(save->Tree()); *it; ++it)
            status[(*it)->text(0)] = (*it)->text(7);
        QCOMPARE(status.value("Beach Day.mp4"), QString("Successfully Repaired"));
        QCOMPARE(status.value("Birthday.mov"), QString("Successfully Repaired"));
        QCOMPARE(status.value("Power Cut.mp4"), QString("Successfully Repaired"));
        QCOMPARE(status.value("Interview.mov"), QString("Repair Failed"));
        save->resize(820, 600);
        Picture(save, "save-page-flow");

        // Save every ticked file; the finish dialog is answered once its own loop runs.
        ChooseFolder = [&] { return dest; };
        QTimer finish;
        QString savedFolder;
        connect(&finish, &QTimer::timeout, [&] {
            auto *dlg = qobject_cast<SavingFinishDlg *>(QApplication::activeModalWidget());
            if (dlg && QThread::currentThread()->loopLevel() > 0) {
                savedFolder = dlg->SavedFolder();
                Picture(dlg, "saving-finish-flow");
                dlg->accept();
            }
        });
        finish.start(20);
        Button(save, "SaveButton")->click();
        QTRY_VERIFY_WITH_TIMEOUT(!savedFolder.isEmpty(), 60000);
        finish.stop();

        const QString saved = dest + "/Repaired-Video-Files";
        QCOMPARE(QDir(saved).absolutePath(), QDir(savedFolder).absolutePath());
        QStringList files = QDir(saved).entryList(QDir::Files, QDir::Name);
        QCOMPARE(files, (QStringList{"Beach Day.mp4", "Birthday.mov", "Power Cut.mp4"}));
        for (const QString &f : files)
            QVERIFY2(Fixtures::DecodeErrors(saved + "/" + f).isEmpty(), qPrintable(f));

        // The log report, saved as a PDF.
        Button(save, "LogReport")->click();
        LogReportDlg *report = nullptr;
        QTRY_VERIFY((report = OpenWindow<LogReportDlg>()) != nullptr);
        Picture(report, "log-report-flow");
        {
            ModalAnswerer done(QMessageBox::Ok);
            report->findChild<QPushButton *>("SavelogBtn")->click();
            QCOMPARE(done.Text(), QString("Log report saved successfully."));
        }
        const QString pdf = dest + "/VideoFileRepairLog.pdf";
        QVERIFY(QFileInfo::exists(pdf));
        QProcess text;
        text.start("pdftotext", {pdf, "-"});
        QVERIFY(text.waitForFinished(30000));
        const QString words = QString::fromUtf8(text.readAllStandardOutput());
        QVERIFY(words.contains("***Corvane Aldrake Video Repair Log Report***"));
        QVERIFY(words.contains("Video File Name : Interview.mov"));
        QVERIFY(words.contains("Video File Name : Beach Day.mp4"));
        QVERIFY(words.contains("Failed due to unsupported Audio or Video codecs."));
        const QRegularExpression rebuilt(
            "Video File Name : Power Cut.mp4\\s+File Status:\\s+Successfully Repaired.\\s+"
            "Index rebuilt from Reference.mp4; [1-9][0-9]*\\.[0-9] s recovered.\\s+Date");
        QVERIFY2(words.contains(rebuilt), qPrintable(words));
        report->close();

        // The sources were only read.
        QCOMPARE(QDir(in).entryList(QDir::Files).size(), 4);
    }
};

QTEST_MAIN(TstEndToEnd)
#include "tst_endtoend.moc"
