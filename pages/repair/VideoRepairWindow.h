#pragma once

#include "app/FadeIn.h"
#include "pages/repair/PagePreview.h"
#include "repair/ThreadVideoRepair.h"

#include <QStringList>
#include <QTimer>
#include <QWidget>

#include <memory>

class MyRightTreeWidgetItem;
class MyTreeWidget;
class QTreeWidgetItem;
class VideoSavingWindow;
namespace Ui {
class VideoRepairWin;
}

// The repair page: the list of files to repair, a repair run over the ticked ones with its
// progress, and previews. At the end of a run it hands the results over to the save page.
class VideoRepairWindow : public QWidget
{
    Q_OBJECT

public:
    explicit VideoRepairWindow(QWidget *parent = nullptr);
    ~VideoRepairWindow() override;

    // Called by the main window before the page is shown: fade-in and the idle state.
    void OnInitialize();
    void OnInitialSettings();

    MyTreeWidget *Tree() const { return m_tree; }
    ThreadVideoRepair *Worker() { return &m_worker; }
    VideoSavingWindow *SavingWindow() const { return m_savingWindow; }

    bool AlreadyAdded(const QString &path);
    QString GetSizeOfItem(qint64 bytes) const;
    // Free bytes of the volume holding path; virtual so that tests can stand in for a full disk.
    virtual qint64 GetFree(const QString &path);
    void GetQuickLookProcessID();

    // Where the working copies go; the same folder for every run.
    static QString TempFolder();
    // What a page removes when the program closes: the working copies, preview copies and programs.
    static void RemoveRunLeftovers();

    // Adds the files as the file dialog would have returned them.
    void AddFiles(const QStringList &paths);

    // The healthy recording whose tracks a file with a lost index is rebuilt with; empty for none.
    // It is only read, and remembered for the next run while it exists.
    QString Reference() const { return m_reference; }

Q_SIGNALS:
    void OnBack(bool maximised);

public Q_SLOTS:
    void OnAddVideoFile();
    void OnRemoveVideoFile();
    void OnChooseReference();
    void OnClearReference();
    void OnItemClicked(QTreeWidgetItem *item, int column);
    void OnRepairVideoFiles();
    void OnStop();
    void OnGoBack();
    void OnThisPage(bool maximised);
    void OpenHelp();
    void OnPreviewMovFile();
    void OnDoubleClicked(QTreeWidgetItem *item, int column);
    void OnQuickLookSlot();

    void OnRepairFinish();
    void OnProcessAborted();
    void OnOverAllMaxProgress(unsigned long n);
    void OnOverAllProgressValue(unsigned long v);
    void OnInfo(QString text);
    void OnMaxProgress(unsigned long n);
    void OnProgressValue(unsigned long v);
    void OnTimerSlot();

protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void SetLayout();
    void SetTreeSettings();
    void EnsureRoot();
    int CountChecked() const;
    void UpdateRepairButton();
    // Repair is never enabled while files are being added or a run is going.
    void SetRepairEnabled(bool enabled);
    void HideRunControls();
    void ShowIdleControls();
    void SetRunningControls(bool running);
    QString GetTempLocation();
    void Preview(QTreeWidgetItem *row, const QString &f4vTitle);
    void StoreGeometry();
    // Shows and remembers `path` as the reference; a file that no longer exists is dropped.
    void SetReference(const QString &path);

    std::unique_ptr<Ui::VideoRepairWin> ui;
    MyTreeWidget *m_tree = nullptr;
    MyRightTreeWidgetItem *m_root = nullptr;
    quint32 m_nextFileId = 2;
    int m_adding = 0;       // AddFiles calls under way (a warning box may start another)
    bool m_running = false; // from Repair until the page has handled the run's end
    ThreadVideoRepair m_worker;
    PagePreview m_previewer{this};
    FadeIn m_fade{this, 30};
    VideoSavingWindow *m_savingWindow = nullptr;
    QString m_reference;
};
