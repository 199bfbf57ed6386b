#pragma once

#include <QDialog>
#include <QString>

#include <memory>

namespace Ui
{
class SavingFinishDlg;
}

// Shown when a save has finished: a frameless, slightly transparent box that can be dragged by any
// point, and that can reveal the saved folder in the file manager.
class SavingFinishDlg : public QDialog
{
    Q_OBJECT

public:
    SavingFinishDlg(QWidget *parent, QString savedFolder);
    ~SavingFinishDlg() override;

    QString SavedFolder() const { return m_savedFolder; }

public Q_SLOTS:
    void ShowDestPath();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    std::unique_ptr<Ui::SavingFinishDlg> ui;
    QString m_savedFolder;
    int m_nX = 0;
    int m_nY = 0;
};
