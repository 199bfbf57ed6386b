// The save page's path and script rules, the finish dialog and the log report.

#include "ModalAnswerer.h"
#include "pages/repair/RepairResults.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/LogReportDlg.h"
#include "pages/save/SaveShell.h"
#include "pages/save/SavingFinishDlg.h"

#include <QDir>
#include <QMouseEvent>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QTextEdit>
#include <QtTest>

namespace
{

QByteArray ReadAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The format of the text fragment that holds text.
QTextCharFormat FormatOf(QTextDocument *doc, const QString &text)
{
    for (QTextBlock b = doc->begin(); b.isValid(); b = b.next())
        for (auto it = b.begin(); !it.atEnd(); ++it)
            if (it.fragment().text().contains(text))
                return it.fragment().charFormat();
    return QTextCharFormat();
}

} // namespace

class TstSaveDialogs : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private Q_SLOTS:
    void initTestCase()
    {
        // Stand-ins for the programs the scripts call. Each records its arguments, NUL-ended;
        // dbus-send fails like a desktop without a file manager service, so xdg-open follows.
        const QString bin = m_dir.filePath("bin");
        QDir().mkpath(bin);
        for (const QString name : {"dbus-send", "xdg-open"}) {
            QFile f(bin + "/" + name);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(
                QString("#!/bin/sh\nprintf '%s\\0' \"$@\" > '%1.args'\n").arg(m_dir.filePath(name)).toUtf8());
            f.write(name == "dbus-send" ? "exit 1\n" : "");
            f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
        qputenv("PATH", bin.toUtf8() + ":" + qgetenv("PATH"));
    }

    void init()
    {
        for (const char *name : {"dbus-send.args", "xdg-open.args"})
            QFile::remove(m_dir.filePath(name));
        QDir(m_dir.filePath("run")).removeRecursively();
        QDir().mkpath(m_dir.filePath("run"));
    }

    void macVolume_data()
    {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QString>("volume");
        QTest::newRow("sub-folder of a volume") << "/Volumes/Data/sub"
                                                << "/Volumes/Data";
        QTest::newRow("letter case ignored") << "/VOLUMES/Data"
                                             << "/VOLUMES/Data";
        QTest::newRow("empty parts dropped") << "/volumes//My Disk//a"
                                             << "/volumes/My Disk";
        QTest::newRow("home folder") << "/Users/x"
                                     << "/";
        QTest::newRow("prefix inside a name") << "/VolumesX/Data"
                                              << "/";
        QTest::newRow("no volume name") << "/Volumes/"
                                        << "/";
    }

    void macVolume()
    {
        QFETCH(QString, destination);
        QFETCH(QString, volume);
        QCOMPARE(MacSaveVolume(destination), volume);
#ifndef Q_OS_MACOS
        QCOMPARE(SaveVolume(destination), destination); // df finds the mount point itself
#endif
    }

    void macScript()
    {
        QCOMPARE(MacRevealScript("/Users/x/Repaired-Video-Files"),
                 QString("#!/bin/bash\nosascript << 'EOT'\nset theFile to \"/Users/x/Repaired-Video-Files\"\n"
                         "set a to POSIX file thefile\ntell application \"Finder\" to activate\n"
                         "tell application \"Finder\"\nreveal a\nend\nEOT\n"));
        QCOMPARE(MacRevealScript("/Volumes/A \"B\"\\\n").section('\n', 2, 2),
                 QString("set theFile to \"/Volumes/A \\\"B\\\"\\\\\\n\""));
    }

    // The Linux script for real, through the dialog: the folder reaches the file manager as one
    // exact argument, and nothing in its name runs.
    void linuxScriptRunsNothing_data()
    {
        // Names that a shell would run, or that would end a heredoc early.
        QTest::addColumn<QString>("name");
        QTest::newRow("ordinary") << "Saved videos";
        QTest::newRow("command substitution") << "$(touch X)";
        QTest::newRow("backticks") << "`touch X`";
        QTest::newRow("line break then EOT") << "a\nEOT\ntouch X\nb";
        QTest::newRow("quotes, backslash, comma") << "it's \"here\" \\ $HOME, Vidéos";
    }

    void linuxScriptRunsNothing()
    {
        QFETCH(QString, name);
        const QString folder = m_dir.filePath("run/" + name);
        const QString cwd = QDir::currentPath();
        QDir::setCurrent(m_dir.filePath("run"));
        SavingFinishDlg(nullptr, folder).ShowDestPath();
        QDir::setCurrent(cwd);

        QVERIFY(!QFileInfo::exists(RevealScriptPath));
        QTRY_COMPARE(ReadAll(m_dir.filePath("xdg-open.args")), folder.toUtf8() + '\0');
        const QByteArray uri = QUrl::fromLocalFile(folder).toEncoded().replace(",", "%2C");
        QVERIFY(ReadAll(m_dir.filePath("dbus-send.args")).split('\0').contains("array:string:" + uri));
        QVERIFY(!QFileInfo::exists(m_dir.filePath("run/X")));
    }

    void finishDialog()
    {
        QWidget parent;
        SavingFinishDlg dlg(&parent, "/somewhere/Repaired-Video-Files");
        QVERIFY(dlg.windowFlags().testFlag(Qt::SplashScreen));
        QVERIFY(qAbs(dlg.windowOpacity() - 0.9) < 0.01); // kept as a byte
        dlg.move(100, 100);
        dlg.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dlg));
        QCOMPARE(dlg.mask(), QRegion(dlg.rect()));

        // Taken at one point and dragged: the dialog follows the pointer.
        const QPoint start = dlg.frameGeometry().topLeft();
        QMouseEvent press(QEvent::MouseButtonPress, {30, 40}, start + QPoint(30, 40), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&dlg, &press);
        QMouseEvent drag(QEvent::MouseMove, {30, 40}, start + QPoint(80, 65), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(&dlg, &drag);
        QCOMPARE(dlg.frameGeometry().topLeft(), start + QPoint(50, 25));

        if (qEnvironmentVariableIsSet("CORVANE_SCREENSHOTS"))
            dlg.grab().save(qEnvironmentVariable("CORVANE_SCREENSHOTS") + "/saving-finish-dialog.png");
        dlg.findChild<QPushButton *>("OkButton")->click();
        QCOMPARE(dlg.result(), int(QDialog::Accepted));
    }

    // One failed and one repaired file, laid out as the report always has been: the two kinds of
    // entry differ in the blank after "File Status:" and in the empty line before the stars.
    void logReportText()
    {
        mY_unsupportedList = QStringList{"bad.mov"};
        AllFiles = QStringList{"good.mp4"};
        LogReportDlg dlg;
        dlg.OnLogReportStatus();
        QVERIFY(dlg.isModal());

        QString text = dlg.LogTxtEdit()->toPlainText();
        QCOMPARE(
            text.count(QRegularExpression("Date and Time:    \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n")),
            2);
        text.replace(QRegularExpression("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"), "STAMP");
        const QString stars = QString("* ").repeated(32) + "*";
        QCOMPARE(text, "***Corvane Aldrake Video Repair Log Report***\n\n"
                       "Video File Name : bad.mov\nFile Status:\n"
                       "Failed due to unsupported Audio or Video codecs.\nDate and Time:    STAMP\n\n" +
                           stars + "\n \n" +
                           "Video File Name : good.mp4\nFile Status: \n"
                           "Successfully Repaired. \nDate and Time:    STAMP\n" +
                           stars + "\n \n");

        QTextDocument *doc = dlg.LogTxtEdit()->document();
        QCOMPARE(doc->begin().blockFormat().alignment() & Qt::AlignHorizontal_Mask, Qt::AlignHCenter);
        QCOMPARE(FormatOf(doc, "Failed due").foreground().color(), QColor("red"));
        QCOMPARE(FormatOf(doc, "Successfully Repaired").foreground().color(), QColor("green"));
        QCOMPARE(FormatOf(doc, "File Status:").foreground().style(), Qt::NoBrush);
        QCOMPARE(FormatOf(doc, "* * *").fontWeight(), int(QFont::Bold));
        QCOMPARE(FormatOf(doc, "good.mp4").fontWeight(), int(QFont::Normal));
    }

    // Saved as PDF over an older report of the same name, without a question.
    void logReportPdf()
    {
        mY_unsupportedList = QStringList{"broken clip.mov"};
        AllFiles = QStringList{"holiday.mp4"};
        const QString pdf = m_dir.filePath("run/VideoFileRepairLog.pdf");
        QFile old(pdf);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("an older report") > 0);
        old.close();
        ChooseFolder = [this] { return m_dir.filePath("run"); };
        LogReportDlg dlg;
        dlg.OnLogReportStatus();
        ModalAnswerer box(QMessageBox::Ok);
        dlg.findChild<QPushButton *>("SavelogBtn")->click();
        QCOMPARE(box.Texts(), QStringList{"Log report saved successfully."});
        QCOMPARE(box.Icon(), QMessageBox::NoIcon);

        QProcess text;
        text.start("pdftotext", {"-layout", pdf, "-"});
        QVERIFY(text.waitForFinished(30000));
        const QString out = QString::fromUtf8(text.readAllStandardOutput());
        QVERIFY2(out.contains("***Corvane Aldrake Video Repair Log Report***"), qPrintable(out));
        QVERIFY(out.contains("Video File Name : broken clip.mov"));
        QVERIFY(out.contains("Video File Name : holiday.mp4"));

        if (qEnvironmentVariableIsSet("CORVANE_SCREENSHOTS")) {
            const QString shots = qEnvironmentVariable("CORVANE_SCREENSHOTS");
            QProcess::execute("pdftoppm", {"-png", "-r", "60", "-singlefile", pdf, shots + "/log-report"});
            dlg.grab().save(shots + "/log-report-dialog.png");
        }
    }
};

QTEST_MAIN(TstSaveDialogs)
#include "tst_savedialogs.moc"
