#pragma once

#include "app/FadeIn.h"
#include "pages/repair/PagePreview.h"
#include "workers/ThreadVideoSaving.h"

#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWidget>

#include <memory>

class MyRightTreeWidgetItem;
class MyTreeWidget;
class QTreeWidgetItem;
namespace Ui
{
class VideoSavingWin;
}

// The save page: the files of the last repair run that the user had ticked, to preview, to save
// into "Repaired-Video-Files" under a chosen folder, and the run's log report.
class VideoSavingWindow : public QWidget
{
    Q_OBJECT

public:
    // Takes over root, the repair page's result tree; rows that were not ticked are dropped.
    VideoSavingWindow(QWidget *parent, MyRightTreeWidgetItem *root);
    ~VideoSavingWindow() override;

    // Called once the page is built: the idle texts and the fade-in.
    void OnInitialize();

    MyTreeWidget *Tree() const { return m_tree; }
    MyTreeWidget *SourceTree() const { return m_sourceTree; }
    ThreadVideoSaving *Worker() { return &m_saving; }
    QString Destination() const { return m_destination; }

    // Free bytes of volume; virtual so that tests can stand in for a full disk.
    virtual qint64 GetFree(const QString &volume);
    void GetQuickLookProcessID();

Q_SIGNALS:
    void Goback(bool maximised);

public Q_SLOTS:
    void OnItemClicked(QTreeWidgetItem *item, int column);
    void OnDoubleClicked(QTreeWidgetItem *item, int column);
    void OnPreviewMovFile();
    void OnQuickLookSlot();
    void OnSaveFiles();
    void OnStop();
    void OnProgressValue(unsigned long value);
    void OnMaxProgress(unsigned long maximum);
    void OnOverAllProgressValue(unsigned long value);
    void OnOverAllMaxProgress(unsigned long maximum);
    void OnInfo(QString text);
    void OnDestInfo(QString path);
    void OnSaveFailed(QString file, QString reason);
    void OnSavingFinish();
    void OnErrorList();
    void OpenHelp();
    void OnBack();
    void OnTimerSlot();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void OnInit();
    void SetLayout();
    void CreatNewTreeItem();
    void SetProgressVisible(bool saving);
    void Preview(QTreeWidgetItem *row, const QString &f4vTitle);
    void StoreGeometry();
    // Tells which files of the run could not be saved, and why; false when all were.
    bool ReportSaveFailures();

    PagePreview m_previewer{this};
    ThreadVideoSaving m_saving;
    std::unique_ptr<Ui::VideoSavingWin> ui;
    MyTreeWidget *m_sourceTree = nullptr;
    MyTreeWidget *m_tree = nullptr;
    MyRightTreeWidgetItem *m_root = nullptr;
    quint32 m_nextFileId = 2;
    QString m_destination;
    // What the saving run in hand could not save: why the folder could not be used, and
    // "file: reason" for each file.
    QString m_folderFailure;
    QStringList m_fileFailures;
    FadeIn m_fade{this, 30};
};
