#pragma once

#include <QDialog>

#include <memory>

class QTextEdit;
namespace Ui
{
class LogReportDlg;
}

// The report of the last repair run: one entry per failed file, then one per repaired file, each
// with its coloured status and the time the report was made. It can be saved as a PDF file.
class LogReportDlg : public QDialog
{
    Q_OBJECT

public:
    explicit LogReportDlg(QWidget *parent = nullptr);
    ~LogReportDlg() override;

    QTextEdit *LogTxtEdit() const;

    // The report's file name inside folder.
    static QString LogFileName(const QString &folder);

public Q_SLOTS:
    void OnLogReportStatus();
    void OnSaveLog();

private:
    std::unique_ptr<Ui::LogReportDlg> ui;
};
