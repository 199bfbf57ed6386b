// The whole road through the pages: names a shell would split, expand or run, refused sound, a cut
// file with its reference, a run, saving into such a folder, the reveal script and the PDF report.
// Nothing in a name runs; a link planted (and planted again) at the working folder leads nowhere.
// With CORVANE_SCREENSHOTS set to a folder, the pages are pictured on the way, with plain names.

#include "Bytes.h"
#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "Pages.h"
#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "app/MyButton.h"
#include "pages/repair/FileDialog.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"
#include "pages/repair/VideoRepairWindow.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/LogReportDlg.h"
#include "pages/save/SavingFinishDlg.h"
#include "pages/save/VideoSavingWindow.h"

#include <QProgressBar>
#include <QtTest>

using Col = MyRightTreeWidgetItem::Column;
using Pages::Button;

namespace
{

const char *const Marker = "CORVANE_MARKER";
const QString Refused = "Interview.mov"; // 16-bit PCM sound
const QString Cut = "Power Cut.mp4";     // cut off before its index; rebuilt from Reference.mp4

void Picture(QWidget *w, const QString &name)
{
    const QString folder = qEnvironmentVariable("CORVANE_SCREENSHOTS");
    if (!folder.isEmpty())
        w->grab().save(folder + "/" + name + ".png");
}

// 200 letters, 52 of them two bytes: with the "000" prefix exactly the 255-byte name limit.
QString LongName()
{
    return QString(52, QChar(0xe9)) + QString(144, 'a') + ".mov";
}

QStringList HostileNames()
{
    const QString touch = QString("touch ") + Marker;
    const QStringList plain{"two  blanks here.mov", "it's.mp4",
                            "say \"hi\".mov",       "semi;colon & pipe | < > * ?.mp4",
                            "line\nbreak.mov",      QString::fromUtf8("Vidéo ünïcödé 日本語.mp4"),
                            "-leading dash.mov"};
    return plain + QStringList{"$HOME $(" + touch + ").mov", "`" + touch + "`.mp4", "'; " + touch + "; '.mov",
                               LongName(),
                               "-x 'a' \"b\" $(" + touch + "); `" + touch + "` \\ é\n" + touch + ".mov"};
}

QString Temp(const QString &name)
{
    return VideoRepairWindow::TempFolder() + "/" + name;
}

} // namespace

class TstEndToEnd : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_source, m_dest;
    QStringList m_names; // the files that are repaired
    MainWindow *m_main = nullptr;

    VideoSavingWindow *Save() const { return m_main->RepairPage()->SavingWindow(); }
    QTreeWidgetItem *SaveRow(const QString &name) const { return Pages::Row(Save()->Tree(), name); }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        LoadProgramResources();
        SetBrowserLauncher([](const BrowserLaunch &) { return true; });
        // The shell's current folder is where a command in a name would leave its marker.
        QVERIFY(QDir().mkpath(m_dir.filePath("cwd")));
        QDir::setCurrent(m_dir.filePath("cwd"));
        const bool plain = !qEnvironmentVariableIsEmpty("CORVANE_SCREENSHOTS");
        m_names = plain ? QStringList{"Beach Day.mp4", "Birthday.mov"} : HostileNames();
        m_source =
            m_dir.filePath(plain ? "videos" : QString::fromUtf8("src $(touch %1) 'q' \"d\" ; é").arg(Marker));
        m_dest =
            m_dir.filePath(plain ? "destination" : QString::fromUtf8("-dest `touch %1` it's ü").arg(Marker));
        QVERIFY(QDir().mkpath(m_source) && QDir().mkpath(m_dest));
        QCOMPARE(QFile::encodeName(LongName()).size(), 252);

        Fixtures::Clip clip = Fixtures::Clip::Of("libx264", "aac", 1), pcm = clip;
        clip.size = pcm.size = "160x120";
        pcm.audioCodec = "pcm_s16le";
        const QString mov = m_dir.filePath("clip.mov"), mp4 = m_dir.filePath("clip.mp4");
        QVERIFY(Fixtures::Make(mov, clip) && Fixtures::Make(mp4, clip));
        QVERIFY(Fixtures::Make(m_source + "/" + Refused, pcm));
        for (const QString &name : qAsConst(m_names))
            QVERIFY2(QFile::copy(name.endsWith(".mov") ? mov : mp4, m_source + "/" + name), qPrintable(name));
        // A two-second recording cut off before its index at the end, and another from the same camera.
        clip.seconds = 2;
        QVERIFY(Fixtures::Make(m_dir.filePath("Reference.mp4"), clip) && Fixtures::Make(m_dir.filePath("cut.mp4"), clip));
        const QByteArray whole = Bytes::ReadFile(m_dir.filePath("cut.mp4"));
        QVERIFY(Bytes::WriteFile(m_source + "/" + Cut, whole.left(whole.size() * 6 / 10)));

        // Stand-ins for the reveal script's programs; dbus-send fails so that xdg-open follows.
        const QString bin = m_dir.filePath("bin dir");
        QDir().mkpath(bin);
        QVERIFY(Bytes::WriteProgram(
            bin + "/xdg-open", QString("printf '%s' \"$1\" > '%1'\n").arg(m_dir.filePath("xdg-open.arg"))));
        QVERIFY(Bytes::WriteProgram(bin + "/dbus-send", "exit 1\n"));
        // rm plants the link again right after the page removed the working folder.
        QVERIFY(Bytes::WriteProgram(
            bin + "/rm", "/bin/rm \"$@\"; s=$?\n[ -n \"$REPLANT_AT\" ] && [ \"$2\" = \"$REPLANT_AT\" ] && "
                         "ln -s \"$REPLANT\" \"$2\"\nexit $s\n"));
        const QString temp = VideoRepairWindow::TempFolder();
        QDir(temp).removeRecursively();
        QVERIFY(QDir().mkdir(m_dir.filePath("victim")) && QFile::link(m_dir.filePath("victim"), temp));
        qputenv("REPLANT", QFile::encodeName(m_dir.filePath("victim")));
        qputenv("REPLANT_AT", QFile::encodeName(temp));
        qputenv("PATH", QFile::encodeName(bin) + ":" + qgetenv("PATH"));
        m_main = new MainWindow;
    }

    void cleanupTestCase()
    {
        CloseSuccess = true;
        delete m_main;
        // Whatever happened on the way, no name may have run as a command.
        for (const QString &folder :
             {m_dir.filePath("cwd"), m_source, m_dest, m_dest + "/Repaired-Video-Files",
              VideoRepairWindow::TempFolder(), QString("/var/tmp"), QString("/tmp")})
            QVERIFY2(!QFileInfo::exists(folder + "/" + Marker), qPrintable(folder));
        QDir(VideoRepairWindow::TempFolder()).removeRecursively();
    }

    void repair()
    {
        m_main->OnInitialize();
        m_main->show();
        m_main->resize(820, 560);
        Picture(m_main, "main-window-flow");
        m_main->findChild<MyButton *>()->click(); // the large button leads to the repair page
        VideoRepairWindow *repair = m_main->RepairPage();
        QTRY_VERIFY(repair->isVisible() && m_main->isHidden());

        QStringList chosen{m_source + "/" + Refused, m_source + "/" + Cut};
        for (const QString &name : qAsConst(m_names))
            chosen << m_source + "/" + name;
        ChooseVideoFiles = [chosen](QWidget *) { return chosen; };
        ModalAnswerer noBoxes(QMessageBox::Ok, 1000);
        Button(repair, "AddButton")->click();
        QCOMPARE(repair->Tree()->topLevelItem(0)->childCount(), chosen.size());
        ChooseReferenceFile = [this](QWidget *, const QString &) { return m_dir.filePath("Reference.mp4"); };
        Button(repair, "ReferenceButton")->click();
        Picture(repair, "repair-page-reference");

        int repairing = 0; // picture the page once the re-encoding pass is under way
        connect(repair->Worker(), &ThreadVideoRepair::Info, repair, [&](const QString &text) {
            if (text.startsWith("Repairing") && ++repairing == chosen.size() + 2)
                Picture(repair, "repair-page-running");
        });
        Button(repair, "RepairButton")->click();
        qunsetenv("REPLANT_AT");
        QVERIFY(!Button(repair, "AddButton")->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(Save() && Save()->isVisible(), 180000);
        QTRY_VERIFY(!bProcessRunning);
        QVERIFY2(!noBoxes.Answered(), qPrintable(noBoxes.Text()));
        QVERIFY(repair->isHidden() && !QFileInfo(VideoRepairWindow::TempFolder()).isSymLink());
        QVERIFY(QDir(m_dir.filePath("victim")).isEmpty());
        QVERIFY(!(QFileInfo(m_dir.filePath("victim")).permissions() & QFile::WriteOther));
        // The working folder holds the user's results: no other account may enter it.
        const QFileDevice::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                                QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
        QVERIFY(!(QFileInfo(VideoRepairWindow::TempFolder()).permissions() & others));
        Save()->resize(820, 600);
        Picture(Save(), "save-page-flow");

        QCOMPARE(mY_unsupportedList, QStringList{Refused});
        QStringList repaired = AllFiles, expected = m_names + QStringList{Cut};
        repaired.sort();
        expected.sort();
        QCOMPARE(repaired, expected);
        QVERIFY(repair->Worker()->UnsupportedList().isEmpty());
        QCOMPARE(repair->findChild<QProgressBar *>("progressBarOverAll")->maximum(), chosen.size());
        QCOMPARE(SaveRow(Refused)->text(7), QString("Repair Failed"));
        QVERIFY(!QFileInfo::exists(Temp(Refused)));
        QCOMPARE(SaveRow(Cut)->text(7), QString("Successfully Repaired"));
        for (const QString &name : qAsConst(m_names)) {
            QTreeWidgetItem *row = SaveRow(name);
            QVERIFY2(row, qPrintable(name));
            QCOMPARE(row->text(7), QString("Successfully Repaired"));
            QCOMPARE(row->text(Col::TemporaryPath), Temp(name));
            QVERIFY2(Fixtures::Duration(Temp(name)) > 0.5, qPrintable(name));
            // Re-encoded (its prefixed names fitted), and its own files are gone.
            QVERIFY2(Bytes::ReadFile(Temp(name)) != Bytes::ReadFile(m_source + "/" + name), qPrintable(name));
            QVERIFY(!QFileInfo::exists(Temp("000" + name)) && !QFileInfo::exists(Temp("00" + name)));
        }
    }

    // Every ticked file is saved (the refused one has nothing to save), then revealed.
    void saveAndReveal()
    {
        ChooseFolder = [this] { return m_dest; };
        Pages::DialogAnswerer<SavingFinishDlg> finish([](SavingFinishDlg *dlg) {
            Picture(dlg, "saving-finish-flow");
            dlg->ShowDestPath();
        });
        ModalAnswerer noBoxes(QMessageBox::Ok, 1000);
        Button(Save(), "SaveButton")->click();
        QVERIFY(QTest::qWaitFor([&finish] { return finish.Answered(); }, 60000));
        QTRY_VERIFY(!bProcessRunning);
        QVERIFY2(!noBoxes.Answered(), qPrintable(noBoxes.Text()));

        const QString saved = m_dest + "/Repaired-Video-Files";
        QTRY_COMPARE(Bytes::ReadFile(m_dir.filePath("xdg-open.arg")), QFile::encodeName(saved));
        QCOMPARE(QDir(saved).entryList(QDir::Files).size(), m_names.size() + 1);
        for (const QString &name : qAsConst(m_names))
            QVERIFY2(Bytes::ReadFile(saved + "/" + name) == Bytes::ReadFile(Temp(name)), qPrintable(name));
        for (const QString &name : {m_names.first(), Cut})
            QVERIFY2(Fixtures::DecodeErrors(saved + "/" + name).isEmpty(), qPrintable(name));
    }

    // Saved as PDF over an older report of the same name, without a question.
    void logReport()
    {
        const QString pdf = m_dest + "/VideoFileRepairLog.pdf";
        QVERIFY(Bytes::WriteFile(pdf, "an older report"));
        Button(Save(), "LogReport")->click();
        LogReportDlg *report = nullptr;
        QTRY_VERIFY((report = Pages::Shown<LogReportDlg>()));
        Picture(report, "log-report-flow");
        {
            ModalAnswerer done(QMessageBox::Ok);
            report->findChild<QPushButton *>("SavelogBtn")->click();
            QCOMPARE(done.Texts(), QStringList{"Log report saved successfully."});
        }
        report->close();
        QProcess text;
        text.start("pdftotext", {"-layout", pdf, "-"});
        QVERIFY(text.waitForFinished(30000));
        const QString words = QString::fromUtf8(text.readAllStandardOutput());
        for (const QString &line :
             QStringList{"***Corvane Aldrake Video Repair Log Report***", "Video File Name : " + Refused,
                         QString("Failed due to unsupported Audio or Video codecs."),
                         "Video File Name : " + m_names.at(1)})
            QVERIFY2(words.contains(line), qPrintable(words));
        const QRegularExpression rebuilt(
            "Video File Name : Power Cut.mp4\\s+File Status:\\s+Successfully Repaired.\\s+"
            "Index rebuilt from Reference.mp4; [1-9][0-9]*\\.[0-9] s recovered.\\s+Date");
        QVERIFY2(words.contains(rebuilt), qPrintable(words));
    }
};

QTEST_MAIN(TstEndToEnd)
#include "tst_endtoend.moc"
