#include "pages/save/VideoSavingWindow.h"
#include "pages/repair/VideoRepairWindow.h"

#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/LogReportDlg.h"
#include "pages/save/SaveShell.h"
#include "pages/save/SavingFinishDlg.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "probes/ShellQuote.h"
#include "repair/ProcessFlags.h"
#include "ui_VideoSavingWin.h"
#include "workers/PreviewState.h"

#include <QCloseEvent>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>
#include <QVBoxLayout>

#include <climits>

namespace
{

using Col = MyRightTreeWidgetItem::Column;
constexpr int ColumnCount = 8;
constexpr int StatusColumn = 7; // the outcome of the repair, written by the repair page

const char *const RootText = "Video File(s)";
const char *const ProductTitle = "Corvane Aldrake Video Repair";
const char *const SavedFolderName = "/Repaired-Video-Files";

bool IsRoot(const QTreeWidgetItem *item)
{
    return item->text(Col::FileId).toUInt() == 1;
}

// Every row of the tree in pre-order.
QList<QTreeWidgetItem *> AllRows(QTreeWidget *tree)
{
    QList<QTreeWidgetItem *> rows;
    for (QTreeWidgetItemIterator it(tree); *it; ++it)
        rows << *it;
    return rows;
}

void SetAllChecked(QTreeWidget *tree, Qt::CheckState state)
{
    for (QTreeWidgetItem *row : AllRows(tree))
        row->setCheckState(0, state);
}

struct FileCounts {
    int total = 0;
    int unchecked = 0;
    int checked = 0;
};

FileCounts CountFiles(QTreeWidget *tree)
{
    FileCounts n;
    for (QTreeWidgetItem *row : AllRows(tree)) {
        if (IsRoot(row))
            continue;
        ++n.total;
        if (row->checkState(0) == Qt::Unchecked)
            ++n.unchecked;
        else if (row->checkState(0) == Qt::Checked)
            ++n.checked;
    }
    return n;
}

int ProgressInt(unsigned long value)
{
    return int(qMin<unsigned long>(value, INT_MAX));
}

} // namespace

VideoSavingWindow::VideoSavingWindow(QWidget *parent, MyRightTreeWidgetItem *root)
    : QWidget(parent), ui(new Ui::VideoSavingWin)
{
    ui->setupUi(this);
    m_nextFileId = 2;
    m_sourceTree = new MyTreeWidget(this);
    m_sourceTree->hide();
    m_tree = new MyTreeWidget(this);
    if (root)
        m_sourceTree->addTopLevelItem(root);
    OnInit();
    SetLayout();

    const QRect desktop = QGuiApplication::primaryScreen()->availableGeometry();
    move((desktop.width() - width()) / 2, (desktop.height() - height()) / 2 - 50);
}

VideoSavingWindow::~VideoSavingWindow() = default;

void VideoSavingWindow::OnInit()
{
    connect(ui->SaveButton, &QPushButton::clicked, this, &VideoSavingWindow::OnSaveFiles);
    connect(m_tree, &QTreeWidget::itemDoubleClicked, this, &VideoSavingWindow::OnDoubleClicked);
    connect(m_tree, &QTreeWidget::itemClicked, this, &VideoSavingWindow::OnItemClicked);
    connect(ui->HelpButton, &QPushButton::clicked, this, &VideoSavingWindow::OpenHelp);
    connect(ui->BackButton, &QPushButton::clicked, this, &VideoSavingWindow::OnBack);
    connect(ui->PreviewButton, &QPushButton::clicked, this, &VideoSavingWindow::OnPreviewMovFile);
    connect(ui->StopButton, &QPushButton::clicked, this, &VideoSavingWindow::OnStop);
    // Only these, and the failures: the per-file bar keeps the range of the form and the overall bar
    // is not driven on this page.
    connect(&m_saving, &ThreadVideoSaving::ProgressValue, this, &VideoSavingWindow::OnProgressValue);
    connect(&m_saving, &ThreadVideoSaving::Info, this, &VideoSavingWindow::OnInfo);
    connect(&m_saving, &ThreadVideoSaving::DestInfo, this, &VideoSavingWindow::OnDestInfo);
    connect(&m_saving, &ThreadVideoSaving::SavingFinish, this, &VideoSavingWindow::OnSavingFinish);
    connect(&m_saving, &ThreadVideoSaving::SaveFailed, this, &VideoSavingWindow::OnSaveFailed);
    connect(ui->LogReport, &QPushButton::clicked, this, &VideoSavingWindow::OnErrorList);


    m_sourceTree->setColumnCount(ColumnCount);
    MyTreeWidget *t = m_tree;
    t->setColumnCount(ColumnCount);
    t->setHeaderLabels({tr("       File Name"), tr("   Path"), tr(" Size"), tr("FileID"), tr("ParentID"),
                        tr("Status"), tr("TemporaryPath"), tr("Status")});
    t->setMinimumSize(783, 200);
    t->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
    t->setAttribute(Qt::WA_MacShowFocusRect, false);
    t->setAutoFillBackground(true);
    t->setAlternatingRowColors(true);
    t->setTextElideMode(Qt::ElideMiddle);
    for (int c = Col::FileId; c <= Col::TemporaryPath; ++c)
        t->setColumnHidden(c, true);
    t->header()->resizeSection(Col::Bytes, 150);
    t->setFont(QFont("Lucida Grande", 12));

    CreatNewTreeItem();
    // Listed by name, A to Z, as on the repair page; the header still sorts on a click.
    t->sortByColumn(Col::Name, Qt::AscendingOrder);
    t->setSortingEnabled(true);
    // The path takes what the other columns leave: sizes and outcomes are never cut off (the header
    // labels with their sort arrows included), and a long path is elided in the middle.
    t->header()->setStretchLastSection(false);
    t->header()->resizeSection(Col::Name, 290);
    t->header()->setSectionResizeMode(Col::Path, QHeaderView::Stretch);
    t->FitColumn(Col::Size, WidestSizeTexts(), t->font());
    t->FitColumn(StatusColumn,
                 {QCoreApplication::translate("VideoRepairWindow", "Successfully Repaired"),
                  QCoreApplication::translate("VideoRepairWindow", "Repair Failed")},
                 t->font());

    SetProgressVisible(false);
    ui->PreviewButton->setEnabled(false);
    ui->SaveButton->setEnabled(CountFiles(m_tree).checked > 0);
}

void VideoSavingWindow::SetLayout()
{
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(10, 10, 10, 10);
    grid->addWidget(ui->label, 0, 0);

    auto *caption = new QHBoxLayout;
    caption->addWidget(ui->label_2);
    caption->addStretch();
    grid->addLayout(caption, 1, 0);
    grid->addWidget(m_tree, 2, 0);
    grid->setRowStretch(2, 1);

    auto *actions = new QHBoxLayout;
    ui->LogReport->setFixedSize(118, 30);
    actions->addWidget(ui->LogReport);
    actions->addStretch();
    actions->addWidget(ui->PreviewButton);
    grid->addLayout(actions, 3, 0);

    grid->addWidget(ui->label_3, 4, 0);
    grid->addWidget(ui->DestinationLabel, 5, 0);

    // Row 6 holds the browsing hint and the progress block on top of each other; one of them is
    // visible at a time.
    auto *hints = new QHBoxLayout;
    hints->addWidget(ui->label_5);
    hints->addWidget(ui->label_4);
    hints->addStretch();
    grid->addLayout(hints, 6, 0);

    auto *progress = new QVBoxLayout;
    progress->setContentsMargins(20, 0, 0, 0);
    progress->addWidget(ui->OverAllLabel);
    progress->addWidget(ui->progressBarOverAll);
    progress->addWidget(ui->FileNameLabel);
    progress->addWidget(ui->progressBar);
    grid->addLayout(progress, 6, 0);

    grid->addWidget(ui->label_6, 7, 0);

    auto *bottom = new QHBoxLayout;
    ui->BackButton->setFixedSize(28, 23);
    ui->HelpButton->setFixedSize(31, 32);
    ui->StopButton->setFixedSize(24, 24);
    ui->SaveButton->setFixedSize(101, 32);
    bottom->addWidget(ui->BackButton);
    bottom->addWidget(ui->HelpButton);
    bottom->addStretch();
    bottom->addWidget(ui->StopButton);
    bottom->addWidget(ui->SaveButton);
    grid->addLayout(bottom, 8, 0);
}

void VideoSavingWindow::OnInitialize()
{
    ui->label_4->setText(tr("Click 'Save' button to save repaired files."));
    m_fade.Start();
}

void VideoSavingWindow::OnTimerSlot()
{
    m_fade.Tick();
}

// ---- The tree ----

void VideoSavingWindow::CreatNewTreeItem()
{
    // Rows the user had not ticked are dropped (an unticked root takes every row with it). The
    // build has always started over after each dropped row and then finished the interrupted pass
    // too, so FileIDs count on through one pass per dropped row plus the last one. The passes in
    // between leave nothing else behind, so only their ids are counted here.
    int dropped = 0;
    for (;;) {
        QTreeWidgetItem *unchecked = nullptr;
        for (QTreeWidgetItem *row : AllRows(m_sourceTree))
            if (row->checkState(0) == Qt::Unchecked) {
                unchecked = row;
                break;
            }
        if (!unchecked)
            break;
        delete unchecked; // leaves its parent, or the top level
        ++dropped;
    }

    QTreeWidgetItem *sourceRoot = m_sourceTree->topLevelItem(0);
    const FileCounts counts = CountFiles(m_sourceTree);
    if (sourceRoot) {
        if (counts.unchecked == counts.total)
            sourceRoot->setCheckState(0, Qt::Unchecked);
        else if (counts.checked == counts.total)
            sourceRoot->setCheckState(0, Qt::Checked);
        else if (counts.unchecked > 0 && counts.unchecked < counts.total)
            sourceRoot->setCheckState(0, Qt::PartiallyChecked);
    }

    const QList<QTreeWidgetItem *> source = AllRows(m_sourceTree);
    if (source.size() < 2)
        return;
    const quint32 files = quint32(source.size() - 1);
    m_nextFileId += quint32(dropped) * files;

    QFont bold("Lucida Grande", 12);
    bold.setWeight(75);
    const QFont normal("Lucida Grande", 12);
    const QSize hint(18, 18);
    m_tree->setIconSize(QSize(16, 16));

    m_tree->clear();
    m_root = new MyRightTreeWidgetItem(m_tree);
    m_root->setText(Col::Name, tr(RootText));
    m_root->setText(Col::FileId, "1");
    m_root->setText(Col::ParentId, "0");
    m_root->setCheckState(0, Qt::Checked);
    for (int c = 0; c < ColumnCount; ++c) {
        m_root->setSizeHint(c, hint);
        if (c <= Col::TemporaryPath)
            m_root->setFont(c, bold);
    }

    QFileIconProvider icons;
    for (int i = 1; i < source.size(); ++i) {
        const QString path = source.at(i)->text(Col::Path);
        const QFileInfo info(path);
        auto *row = new MyRightTreeWidgetItem(m_root);
        row->setText(Col::Name, info.fileName());
        row->setIcon(Col::Name, icons.icon(info));
        row->setText(Col::Path, path);
        row->setText(Col::Size, GetSizeOfItem(info.size()));
        row->setText(Col::FileId, QString::number(m_nextFileId));
        row->setText(Col::ParentId, "1");
        row->setText(Col::Bytes, QString::number(info.size()));
        row->setText(Col::TemporaryPath, source.at(i)->text(Col::TemporaryPath));
        row->setCheckState(0, Qt::Checked);
        for (int c = 0; c < ColumnCount; ++c) {
            row->setSizeHint(c, hint);
            if (c <= Col::TemporaryPath)
                row->setFont(c, c == 0 ? bold : normal);
        }
        ++m_nextFileId;
    }
    m_root->setExpanded(true);
}

void VideoSavingWindow::OnItemClicked(QTreeWidgetItem *item, int)
{
    if (bProcessRunning || !item)
        return;
    ui->PreviewButton->setEnabled(false);
    ui->SaveButton->setEnabled(false);

    if (IsRoot(item)) {
        // The root is a select-all box; only a file row can be previewed.
        const Qt::CheckState state = item->checkState(0);
        if (state == Qt::Checked) {
            SetAllChecked(m_tree, Qt::Checked);
            ui->SaveButton->setEnabled(true);
        } else if (state == Qt::Unchecked) {
            SetAllChecked(m_tree, Qt::Unchecked);
        }
        return;
    }

    ui->PreviewButton->setEnabled(true);
    if (!m_root)
        return;
    const FileCounts n = CountFiles(m_tree);
    if (n.unchecked == n.total) {
        m_root->setCheckState(0, Qt::Unchecked);
        ui->SaveButton->setEnabled(false);
    } else if (n.checked == n.total) {
        m_root->setCheckState(0, Qt::Checked);
        ui->SaveButton->setEnabled(true);
    } else if (n.unchecked > 0 && n.unchecked < n.total) {
        m_root->setCheckState(0, Qt::PartiallyChecked);
        ui->SaveButton->setEnabled(true);
    }
}

// ---- Saving ----

qint64 VideoSavingWindow::GetFree(const QString &volume)
{
    return ProbeFreeBytesSavePage(volume);
}

void VideoSavingWindow::SetProgressVisible(bool saving)
{
    ui->DestinationLabel->setVisible(saving);
    ui->FileNameLabel->setVisible(saving);
    ui->progressBar->setVisible(saving);
    ui->StopButton->setVisible(saving);
    ui->OverAllLabel->setVisible(saving);
    ui->progressBarOverAll->setVisible(saving);
    ui->label_4->setVisible(!saving);
    ui->label_5->setVisible(!saving);
}

void VideoSavingWindow::OnSaveFiles()
{
    m_destination = ChooseFolder();
    if (m_destination.isEmpty())
        return;

    QStringList files;
    quint64 total = 0;
    const QList<QTreeWidgetItem *> rows = AllRows(m_tree);
    for (int i = 1; i < rows.size(); ++i) {
        if (rows.at(i)->checkState(0) != Qt::Checked)
            continue;
        files << rows.at(i)->text(Col::TemporaryPath);
        total += rows.at(i)->text(Col::Bytes).toULong();
    }
    // Checked before the overwrite question: with nothing to save, an earlier save must not be
    // removed for nothing.
    if (files.isEmpty())
        return;

    // Only a folder is offered for removal; anything else of that name is the user's, and the saving
    // worker says why it cannot be used.
    const QString target = m_destination + SavedFolderName;
    if (QFileInfo(target).isDir()) {
        QMessageBox box(QMessageBox::Warning, tr(ProductTitle), tr("Overwrite Existing Folder?"),
                        QMessageBox::Yes | QMessageBox::No, this);
        box.setInformativeText(tr("Click 'Yes' if you wish to overwrite existing folder."));
        box.setDefaultButton(QMessageBox::No);
        if (box.exec() != QMessageBox::Yes)
            return;
        RunShell("rm -R " + ShellQuote(target));
    }

    const qint64 free = GetFree(SaveVolume(m_destination));
    if (free == ProbeUnusable) {
        WarnPathTaken(this, tr("The free space at the destination could not be checked."),
                      OwnFixedPath(ProbeFiles::TempFile));
        return;
    }
    if (static_cast<long long>(qMin<quint64>(total, LLONG_MAX)) > free) {
        QMessageBox box(QMessageBox::Warning, tr(ProductTitle), tr("Insufficient space at destination."),
                        QMessageBox::Ok);
        box.setInformativeText(tr("Sufficient space to save data is not available at destination. "
                                  "Please select another destination. "));
        box.exec();
        return;
    }

    SetProgressVisible(true);
    ui->SaveButton->setEnabled(false);
    ui->PreviewButton->setEnabled(false);
    m_tree->setEnabled(false);
    ui->BackButton->setEnabled(false);
    m_saving.SetInitialSettings(files, m_destination);
}

void VideoSavingWindow::OnMaxProgress(unsigned long maximum)
{
    ui->progressBar->reset();
    ui->progressBar->setMaximum(ProgressInt(maximum));
}

void VideoSavingWindow::OnProgressValue(unsigned long value)
{
    ui->progressBar->setValue(ProgressInt(value));
}

void VideoSavingWindow::OnOverAllMaxProgress(unsigned long maximum)
{
    ui->progressBarOverAll->reset();
    ui->progressBarOverAll->setMaximum(ProgressInt(maximum));
}

void VideoSavingWindow::OnOverAllProgressValue(unsigned long value)
{
    ui->progressBarOverAll->setValue(ProgressInt(value));
}

void VideoSavingWindow::OnInfo(QString text)
{
    ui->FileNameLabel->setText(text);
}

void VideoSavingWindow::OnDestInfo(QString path)
{
    ui->DestinationLabel->setText(tr("Saving Repaired File(s) at ") + path);
}

void VideoSavingWindow::OnSavingFinish()
{
    // A second save needs a new choice of files.
    SetAllChecked(m_tree, Qt::Unchecked);
    SetProgressVisible(false);
    ui->SaveButton->setEnabled(false);
    ui->PreviewButton->setEnabled(false);
    for (QTreeWidgetItem *row : m_tree->selectedItems())
        if (!IsRoot(row))
            ui->PreviewButton->setEnabled(true);
    ui->BackButton->setEnabled(true);
    m_tree->setEnabled(true);

    if (ReportSaveFailures())
        return;
    SavingFinishDlg finished(this, m_destination + SavedFolderName);
    finished.exec();
}

void VideoSavingWindow::OnSaveFailed(QString file, QString reason)
{
    if (file.isEmpty())
        m_folderFailure = reason;
    else
        m_fileFailures << file + ": " + reason;
}

bool VideoSavingWindow::ReportSaveFailures()
{
    if (m_folderFailure.isEmpty() && m_fileFailures.isEmpty())
        return false;
    QMessageBox box(QMessageBox::Warning, tr(ProductTitle), QString(), QMessageBox::Ok, this);
    if (!m_folderFailure.isEmpty()) { // nothing was saved
        box.setText(tr("The folder \"Repaired-Video-Files\" could not be created in %1.").arg(m_destination));
        box.setInformativeText(m_folderFailure);
    } else {
        box.setText(tr("%n file(s) could not be saved in %1.", nullptr, m_fileFailures.size())
                        .arg(m_destination + SavedFolderName));
        box.setInformativeText(m_fileFailures.join('\n'));
    }
    m_folderFailure.clear();
    m_fileFailures.clear();
    box.exec();
    return true;
}

void VideoSavingWindow::OnStop()
{
    QMessageBox box(QMessageBox::Warning, tr(ProductTitle),
                    tr("Process cannot be resumed from the current stage."),
                    QMessageBox::Yes | QMessageBox::No, this);
    box.setInformativeText(tr("Do you want to abort the current process?"));
    box.setDefaultButton(QMessageBox::No);
    // The run may have ended while the question was open; a Yes then has nothing left to stop.
    if (box.exec() == QMessageBox::Yes)
        m_saving.RequestStop();
}

void VideoSavingWindow::OnErrorList()
{
    // A window of its own, destroyed when it is closed.
    auto *report = new LogReportDlg(nullptr);
    report->setAttribute(Qt::WA_DeleteOnClose);
    report->setFixedSize(report->size());
    report->OnLogReportStatus();
    report->show();
}

// ---- Leaving the page ----

void VideoSavingWindow::StoreGeometry()
{
    QSettings("Corvane", "CorvaneVideoGeometrySettings").setValue("geometry", saveGeometry());
}

void VideoSavingWindow::OnBack()
{
    QMessageBox box(QMessageBox::Warning, tr(ProductTitle), tr("Repair result will be lost."),
                    QMessageBox::Yes | QMessageBox::No, this);
    box.setInformativeText(tr("Are you sure to go back?"));
    box.setDefaultButton(QMessageBox::No);
    if (box.exec() != QMessageBox::Yes)
        return;

    // Not the repair page's working folder: this page has always removed this one on Back.
    RunShell("rm -R " + ShellQuote(OwnFixedPath(ProbeFiles::SaveBackTemp)));
    PagePreview::CleanPreviews();
    hide();
    StoreGeometry();
    if (isMaximized())
        m_bMax = true;
    Q_EMIT Goback(isMaximized() || m_bMax);
    AllFiles.clear();
    mY_unsupportedList.clear();
}

void VideoSavingWindow::resizeEvent(QResizeEvent *event)
{
    StoreGeometry();
    m_bMax = false;
    QWidget::resizeEvent(event);
}

void VideoSavingWindow::closeEvent(QCloseEvent *event)
{
    switch (AskToClose(this)) {
    case CloseAnswer::AlreadyAnswered:
        event->accept();
        return;
    case CloseAnswer::Running:
    case CloseAnswer::No: // unlike the main window's, a No asks again next time
        event->ignore();
        return;
    case CloseAnswer::Yes:
        VideoRepairWindow::RemoveRunLeftovers();
        event->accept();
        CloseSuccess = true;
        return;
    }
}

void VideoSavingWindow::OpenHelp()
{
    QString address = "file://" + HelpFilePath + "/help/Save_Video_Files.htm";
    address.replace(" ", "%20");
    OpenInBrowser(address, BrowserRoute::BrowserOrSystem);
}

// ---- Preview ----

void VideoSavingWindow::GetQuickLookProcessID()
{
    lstProcessID = ThreadPreview::RunningPreviews();
}

void VideoSavingWindow::OnPreviewMovFile()
{
    QTreeWidgetItem *first = nullptr;
    const QList<QTreeWidgetItem *> selected = m_tree->selectedItems();
    for (QTreeWidgetItem *row : AllRows(m_tree))
        if (selected.contains(row)) {
            first = row;
            break;
        }
    Preview(first, tr(ProductTitle));
}

void VideoSavingWindow::OnDoubleClicked(QTreeWidgetItem *item, int)
{
    if (bProcessRunning || !item)
        return;
    // The double-click box carries its own title, "File" included.
    Preview(item, tr("Corvane Aldrake File Video Repair"));
}

void VideoSavingWindow::Preview(QTreeWidgetItem *row, const QString &f4vTitle)
{
    // A double-click on the root folds the list; it must not end the preview that is playing.
    if (!MyRightTreeWidgetItem::IsFileRow(row) || !m_previewer.Begin())
        return;
    if (mY_unsupportedList.contains(row->text(Col::Name))) {
        QMessageBox box(QMessageBox::Warning, tr(ProductTitle),
                        tr("Preview not available due to severe corruption."), QMessageBox::Ok);
        box.exec();
        return;
    }
    m_previewer.Show(row->text(Col::TemporaryPath), f4vTitle);
}

void VideoSavingWindow::OnQuickLookSlot()
{
    m_previewer.OnQuickLookSlot();
}
