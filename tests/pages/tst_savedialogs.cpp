// The save page's path and script rules, the finish dialog's script and the log report.

#include "Bytes.h"
#include "ModalAnswerer.h"
#include "pages/repair/RepairResults.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/LogReportDlg.h"
#include "pages/save/SaveShell.h"
#include "pages/save/SavingFinishDlg.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"

#include <QDir>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QTextEdit>
#include <QtTest>

namespace
{

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
            const QString script =
                QString("#!/bin/sh\nprintf '%s\\0' \"$@\" > '%1.args'\n").arg(m_dir.filePath(name));
            QVERIFY(Bytes::WriteFile(bin + "/" + name,
                                     script.toUtf8() + (name == "dbus-send" ? "exit 1\n" : "")));
            QFile::setPermissions(bin + "/" + name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
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

    // A destination under /Volumes (any letter case) is measured on its volume, anything else on "/".
    void macVolume()
    {
        QCOMPARE(MacSaveVolume("/Volumes/Data/sub"), QString("/Volumes/Data"));
        QCOMPARE(MacSaveVolume("/VOLUMES/Data"), QString("/VOLUMES/Data"));
        QCOMPARE(MacSaveVolume("/Users/x"), QString("/"));
        QCOMPARE(MacSaveVolume("/VolumesX/Data"), QString("/"));
    }

    void macScriptEscapes()
    {
        QCOMPARE(MacRevealScript("/Volumes/A \"B\"\\\n").section('\n', 2, 2),
                 QString("set theFile to \"/Volumes/A \\\"B\\\"\\\\\\n\""));
    }

    // The Linux script for real, through the dialog: the folder reaches the file manager as one
    // exact argument, and nothing in its name runs.
    void linuxScriptRunsNothing_data()
    {
        // Names that a shell would run, or that would end a heredoc early.
        QTest::addColumn<QString>("name");
        QTest::newRow("command substitution") << "$(touch X)";
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

        QVERIFY(!QFileInfo::exists(OwnFixedPath(ProbeFiles::RevealScript)));
        QTRY_COMPARE(Bytes::ReadFile(m_dir.filePath("xdg-open.args")), folder.toUtf8() + '\0');
        const QByteArray uri = QUrl::fromLocalFile(folder).toEncoded().replace(",", "%2C");
        QVERIFY(
            Bytes::ReadFile(m_dir.filePath("dbus-send.args")).split('\0').contains("array:string:" + uri));
        QVERIFY(!QFileInfo::exists(m_dir.filePath("run/X")));
    }

    // Failed and repaired files, laid out as the report always has been (the two kinds of entry
    // differ in the blank after "File Status:" and in the empty line before the stars), with each
    // file's reason and further lines from its outcome; a name without one keeps the old texts.
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
        QCOMPARE(
            text.count(QRegularExpression("Date and Time:    \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n")),
            3);
        text.replace(QRegularExpression("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"), "STAMP");
        const QString stars = QString("* ").repeated(32) + "*";
        QCOMPARE(text, "***Corvane Aldrake Video Repair Log Report***\n\n"
                       "Video File Name : bad.mov\nFile Status:\n"
                       "Failed due to unsupported Audio or Video codecs.\nDate and Time:    STAMP\n\n" +
                           stars + "\n \n" +
                           "Video File Name : lost.mp4\nFile Status:\n"
                           "No playable video was found in the file.\nDate and Time:    STAMP\n\n" +
                           stars + "\n \n" +
                           "Video File Name : good.mp4\nFile Status: \n"
                           "Successfully Repaired. \nA line of its own.\nDate and Time:    STAMP\n" +
                           stars + "\n \n");

        QTextDocument *doc = dlg.LogTxtEdit()->document();
        QCOMPARE(FormatOf(doc, "Failed due").foreground().color(), QColor("red"));
        QCOMPARE(FormatOf(doc, "No playable").foreground().color(), QColor("red"));
        QCOMPARE(FormatOf(doc, "Successfully Repaired").foreground().color(), QColor("green"));
        QVERIFY(FormatOf(doc, "A line of its own").foreground().style() == Qt::NoBrush);
        lstRepairOutcomes.clear();
    }

    // Saved as PDF over an older report of the same name, without a question.
    void logReportPdf()
    {
        mY_unsupportedList = QStringList{"broken clip.mov"};
        AllFiles = QStringList{"holiday.mp4"};
        const QString pdf = m_dir.filePath("run/VideoFileRepairLog.pdf");
        QVERIFY(Bytes::WriteFile(pdf, "an older report"));
        ChooseFolder = [this] { return m_dir.filePath("run"); };
        LogReportDlg dlg;
        dlg.OnLogReportStatus();
        ModalAnswerer box(QMessageBox::Ok);
        dlg.findChild<QPushButton *>("SavelogBtn")->click();
        QCOMPARE(box.Texts(), QStringList{"Log report saved successfully."});

        QProcess text;
        text.start("pdftotext", {"-layout", pdf, "-"});
        QVERIFY(text.waitForFinished(30000));
        const QString out = QString::fromUtf8(text.readAllStandardOutput());
        QVERIFY2(out.contains("***Corvane Aldrake Video Repair Log Report***"), qPrintable(out));
        QVERIFY(out.contains("Video File Name : broken clip.mov"));
        QVERIFY(out.contains("Video File Name : holiday.mp4"));
    }
};

QTEST_MAIN(TstSaveDialogs)
#include "tst_savedialogs.moc"
