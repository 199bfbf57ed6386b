#include "pages/save/LogReportDlg.h"

#include "pages/repair/RepairResults.h"
#include "pages/save/FolderDialog.h"
#include "ui_LogReportDlg.h"

#include <QDateTime>
#include <QFile>
#include <QMessageBox>
#include <QPrinter>
#include <QTextCharFormat>
#include <QTextCursor>

LogReportDlg::LogReportDlg(QWidget *parent) : QDialog(parent), ui(new Ui::LogReportDlg)
{
    ui->setupUi(this);
    connect(ui->SavelogBtn, &QPushButton::clicked, this, &LogReportDlg::OnSaveLog);
}

LogReportDlg::~LogReportDlg() = default;

QTextEdit *LogReportDlg::LogTxtEdit() const
{
    return ui->LogTxtEdit;
}

// The two kinds of entry differ on purpose: a failed entry has no blank after "File Status:", moves
// the edit's own cursor to the end before its status, and has an extra empty block before its
// separator line. Reports made by earlier versions look the same.
void LogReportDlg::OnLogReportStatus()
{
    setModal(true);
    const QString stamp = QDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss");
    QTextEdit *edit = ui->LogTxtEdit;

    edit->clear();
    QTextCursor cursor = edit->textCursor();
    cursor.movePosition(QTextCursor::Start);

    const QTextCharFormat plain;
    QTextCharFormat separatorFormat;
    separatorFormat.setFontWeight(QFont::Bold);
    const QString separator = "* * * * * * * * * * * * * * * * * * * * * * * * * * * * * * * * *";

    edit->setAlignment(Qt::AlignCenter);
    edit->append(tr("***Corvane Aldrake Video Repair Log Report***"));
    cursor.insertBlock();
    cursor.insertBlock();
    edit->setAlignment(Qt::AlignLeft);

    // A file's status sentence and the lines after it come from its outcome, as the command line's.
    auto details = [&](const QStringList &lines) {
        for (const QString &line : lines)
            cursor.insertText(line + "\n", plain);
    };

    for (const QString &name : qAsConst(mY_unsupportedList)) {
        const QStringList lines = ReportLines(OutcomeOf(name, RepairOutcome::Verdict::UnsupportedCodec));
        cursor.insertText(tr("Video File Name : ") + name + "\n", plain);
        cursor.insertText(tr("File Status:"), plain);
        edit->moveCursor(QTextCursor::End);
        edit->setTextColor(QColor("Red"));
        edit->append(lines.first() + "\n");
        details(lines.mid(1));
        cursor.insertText(tr("Date and Time: "), plain);
        cursor.insertText("   ", plain);
        cursor.insertText(stamp, plain);
        cursor.insertBlock();
        cursor.insertText("\n", plain);
        cursor.insertText(separator + "\n" + " ", separatorFormat);
        cursor.insertBlock();
    }

    for (const QString &name : qAsConst(AllFiles)) {
        const QStringList lines = ReportLines(OutcomeOf(name, RepairOutcome::Verdict::Repaired));
        cursor.insertText(tr("Video File Name : ") + name + "\n", plain);
        cursor.insertText(tr("File Status: "), plain);
        edit->setTextColor(QColor("Green"));
        edit->append(lines.first() + " \n");
        details(lines.mid(1));
        cursor.insertText(tr("Date and Time: "), plain);
        cursor.insertText("   ", plain);
        cursor.insertText(stamp, plain);
        cursor.insertText("\n", plain);
        cursor.insertText(separator + "\n" + " ", separatorFormat);
        cursor.insertBlock();
    }

    edit->moveCursor(QTextCursor::Start);
    edit->ensureCursorVisible();
}

QString LogReportDlg::LogFileName(const QString &folder)
{
    QString name = folder + "/" + "VideoFileRepairLog" + ".pdf";
    if (!name.contains(".pdf"))
        name += ".pdf";
    return name;
}

void LogReportDlg::OnSaveLog()
{
    const QString folder = ChooseFolder();
    if (folder.isEmpty())
        return;
    const QString fileName = LogFileName(folder);
    if (QFile::exists(fileName))
        QFile::remove(fileName);

    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(fileName);
    ui->LogTxtEdit->document()->print(&printer);

    QMessageBox box;
    box.setWindowTitle(tr("Corvane Aldrake Video Repair"));
    box.setText(tr("Log report saved successfully."));
    box.setStandardButtons(QMessageBox::Ok);
    box.setDefaultButton(QMessageBox::Ok);
    box.exec();
}
