#include "pages/repair/VideoRepairWindow.h"

#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "dialogs/GeneralPreference.h"
#include "pages/repair/FileDialog.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/PagePreview.h"
#include "pages/repair/RepairResults.h"
#include "pages/save/VideoSavingWindow.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "probes/ShellQuote.h"
#include "rebuild/TrackDescription.h"
#include "ui_VideoRepairWin.h"
#include "workers/PreviewState.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>
#include <QVBoxLayout>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const char *const RootText = "Video File(s)";
// The reference recording is remembered on its own, apart from the pages' geometry.
const char *const ReferenceSettings = "CorvaneVideoReferenceSettings";
const char *const ReferenceKey = "reference";
// The save page's visible status column.
constexpr int StatusColumn = 7;

QFont TreeFont(bool bold)
{
    QFont f("Lucida Grande", 12);
    f.setBold(bold);
    return f;
}

bool IsRoot(const QTreeWidgetItem *item)
{
    return item->text(MyRightTreeWidgetItem::FileId).toUInt() == 1;
}

// Every row of the tree in pre-order.
QList<QTreeWidgetItem *> AllRows(QTreeWidget *tree)
{
    QList<QTreeWidgetItem *> rows;
    for (QTreeWidgetItemIterator it(tree); *it; ++it)
        rows << *it;
    return rows;
}

} // namespace

VideoRepairWindow::VideoRepairWindow(QWidget *parent) : QWidget(parent), ui(new Ui::VideoRepairWin)
{
    ui->setupUi(this);
    setWindowIcon(QIcon(":/images/img_Product.png"));
    m_tree = new MyTreeWidget(this);
    SetTreeSettings();
    SetLayout();

    connect(ui->AddButton, &QPushButton::clicked, this, &VideoRepairWindow::OnAddVideoFile);
    connect(ui->RemoveButton, &QPushButton::clicked, this, &VideoRepairWindow::OnRemoveVideoFile);
    connect(ui->ReferenceButton, &QPushButton::clicked, this, &VideoRepairWindow::OnChooseReference);
    connect(ui->ClearReferenceButton, &QPushButton::clicked, this, &VideoRepairWindow::OnClearReference);
    connect(ui->RepairButton, &QPushButton::clicked, this, &VideoRepairWindow::OnRepairVideoFiles);
    connect(ui->PreviewButton, &QPushButton::clicked, this, &VideoRepairWindow::OnPreviewMovFile);
    connect(ui->StopButton, &QPushButton::clicked, this, &VideoRepairWindow::OnStop);
    connect(ui->BackButton, &QPushButton::clicked, this, &VideoRepairWindow::OnGoBack);
    connect(ui->HelpButton, &QPushButton::clicked, this, &VideoRepairWindow::OpenHelp);
    connect(m_tree, &QTreeWidget::itemClicked, this, &VideoRepairWindow::OnItemClicked);
    connect(m_tree, &QTreeWidget::itemDoubleClicked, this, &VideoRepairWindow::OnDoubleClicked);

    connect(&m_worker, &ThreadVideoRepair::RepairFinish, this, &VideoRepairWindow::OnRepairFinish);
    connect(&m_worker, &ThreadVideoRepair::OverAllMaxProgress, this, &VideoRepairWindow::OnOverAllMaxProgress);
    connect(&m_worker, &ThreadVideoRepair::OverAllProgressValue, this,
            &VideoRepairWindow::OnOverAllProgressValue);
    connect(&m_worker, &ThreadVideoRepair::Info, this, &VideoRepairWindow::OnInfo);
    connect(&m_worker, &ThreadVideoRepair::MaxProgress, this, &VideoRepairWindow::OnMaxProgress);
    connect(&m_worker, &ThreadVideoRepair::ProgressValue, this, &VideoRepairWindow::OnProgressValue);
    connect(&m_worker, &ThreadVideoRepair::ProcessAborted, this, &VideoRepairWindow::OnProcessAborted);
    SetReference(QSettings("Corvane", ReferenceSettings).value(ReferenceKey).toString());

    if (const QScreen *screen = QGuiApplication::primaryScreen())
        move(MainWindow::CentredPosition(screen->virtualGeometry().size(), size()));
}

VideoRepairWindow::~VideoRepairWindow()
{
    delete m_savingWindow;
}

void VideoRepairWindow::SetTreeSettings()
{
    MyTreeWidget *t = m_tree;
    t->setColumnCount(7);
    t->setHeaderLabels({tr("       File Name"), tr("   Path"), tr(" Size"), tr("FileID"), tr("ParentID"),
                        tr("Status"), tr("TemporaryPath")});
    t->setMinimumSize(783, 228);
    t->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
    t->setAttribute(Qt::WA_MacShowFocusRect, false);
    t->setAutoFillBackground(true);
    t->setAlternatingRowColors(true);
    t->setTextElideMode(Qt::ElideMiddle);
    t->setSortingEnabled(true);
    t->sortByColumn(MyRightTreeWidgetItem::Name, Qt::AscendingOrder);
    for (int c = 3; c <= 6; ++c)
        t->setColumnHidden(c, true);
    // The path takes what the name and the size leave: a size is never cut off, and a long path is
    // elided in the middle.
    t->header()->setStretchLastSection(false);
    t->header()->resizeSection(MyRightTreeWidgetItem::Name, 290);
    t->header()->setSectionResizeMode(MyRightTreeWidgetItem::Path, QHeaderView::Stretch);
    t->FitColumn(MyRightTreeWidgetItem::Size, WidestSizeTexts(), TreeFont(false));
    t->setIconSize(QSize(16, 16));
    t->hide();
}

void VideoRepairWindow::SetLayout()
{
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(10, 10, 10, 10);
    grid->addWidget(ui->label, 0, 0);

    auto *caption = new QHBoxLayout;
    caption->addWidget(ui->label_2);
    caption->addStretch();
    caption->addWidget(ui->AddButton);
    caption->addWidget(ui->RemoveButton);
    grid->addLayout(caption, 1, 0);
    grid->addWidget(m_tree, 2, 0);
    grid->setRowStretch(2, 1);

    auto *actions = new QHBoxLayout;
    actions->addWidget(ui->ReferenceButton);
    actions->addWidget(ui->ReferenceLabel, 1);
    actions->addWidget(ui->ClearReferenceButton);
    actions->addSpacing(20);
    actions->addWidget(ui->PreviewButton);
    grid->addLayout(actions, 3, 0);

    auto *hints = new QHBoxLayout;
    hints->addWidget(ui->label_5);
    hints->addWidget(ui->label_4);
    hints->addStretch();
    grid->addLayout(hints, 4, 0);

    auto *progress = new QVBoxLayout;
    progress->setContentsMargins(20, 0, 0, 0);
    progress->addWidget(ui->FileNameLabel_2);
    progress->addWidget(ui->progressBarOverAll);
    progress->addWidget(ui->FileNameLabel);
    progress->addWidget(ui->progressBar);
    grid->addLayout(progress, 5, 0);

    auto *bottom = new QHBoxLayout;
    bottom->addWidget(ui->BackButton);
    bottom->addWidget(ui->HelpButton);
    bottom->addStretch();
    bottom->addWidget(ui->StopButton);
    bottom->addWidget(ui->RepairButton);
    grid->addLayout(bottom, 6, 0);
}

void VideoRepairWindow::OnInitialize()
{
    setWindowIcon(QIcon("images/img_Product.png"));
    m_fade.Start();
}

void VideoRepairWindow::OnTimerSlot()
{
    m_fade.Tick();
}

void VideoRepairWindow::OnInitialSettings()
{
    m_tree->clear();
    m_root = nullptr;
    ui->RemoveButton->setEnabled(false);
    ui->RepairButton->setEnabled(false);
    ui->PreviewButton->setEnabled(false);
    HideRunControls();
    ShowIdleControls();
    SetReference(m_reference);
}

void VideoRepairWindow::HideRunControls()
{
    ui->FileNameLabel->hide();
    ui->progressBar->hide();
    ui->StopButton->hide();
    ui->FileNameLabel_2->hide();
    ui->progressBarOverAll->hide();
}

void VideoRepairWindow::ShowIdleControls()
{
    ui->label_4->setText(tr("Click 'Repair' button to repair selected files."));
    ui->label_5->show();
    ui->label_4->show();
}

// ---- The file list ----

std::function<QStringList(QWidget *)> ChooseVideoFiles = [](QWidget *parent) {
    return QFileDialog::getOpenFileNames(parent, VideoRepairWindow::tr("Select one or more files to open"), "/home",
                                         VideoRepairWindow::tr("Video (*.mov *.mp4 *.m4v *.m4a *.f4v)"));
};

void VideoRepairWindow::OnAddVideoFile()
{
    AddFiles(ChooseVideoFiles(this));
}

std::function<QString(QWidget *, const QString &)> ChooseReferenceFile = [](QWidget *parent,
                                                                            const QString &folder) {
    return QFileDialog::getOpenFileName(parent, VideoRepairWindow::tr("Select a reference recording"), folder,
                                        VideoRepairWindow::tr("Video (*.mov *.mp4 *.m4v *.m4a *.f4v)"));
};

// ---- The reference recording ----

void VideoRepairWindow::OnChooseReference()
{
    // A reference usually sits beside the damaged recordings, on the same card.
    QString folder = "/home";
    if (!m_reference.isEmpty())
        folder = QFileInfo(m_reference).path();
    else if (m_root && m_root->childCount() > 0)
        folder = QFileInfo(m_root->child(0)->text(MyRightTreeWidgetItem::Path)).path();
    const QString path = ChooseReferenceFile(this, folder);
    if (path.isEmpty())
        return;
    // A file that cannot lend its tracks (often the damaged recording itself) is refused at once,
    // rather than leaving the run to find out.
    if (!LearnFromReference(path).Usable()) {
        QMessageBox box(QMessageBox::Warning, tr("Corvane Aldrake Video Repair"),
                        tr("This video cannot serve as a reference."), QMessageBox::Ok, this);
        box.setInformativeText(
            tr("Choose a healthy video from the same camera or phone, recorded with the same settings."));
        box.exec();
        return;
    }
    SetReference(path);
}

void VideoRepairWindow::OnClearReference()
{
    SetReference(QString());
}

void VideoRepairWindow::SetReference(const QString &path)
{
    m_reference = QFileInfo(path).isFile() ? path : QString();
    QSettings settings("Corvane", ReferenceSettings);
    if (m_reference.isEmpty())
        settings.remove(ReferenceKey);
    else
        settings.setValue(ReferenceKey, m_reference);
    ui->ReferenceLabel->setText(m_reference.isEmpty() ? tr("No reference recording") : m_reference);
    ui->ReferenceLabel->setToolTip(m_reference);
    ui->ReferenceLabel->setEnabled(!m_reference.isEmpty());
    ui->ClearReferenceButton->setVisible(!m_reference.isEmpty());
}

void VideoRepairWindow::EnsureRoot()
{
    if (m_root)
        return;
    m_root = new MyRightTreeWidgetItem(m_tree);
    m_tree->insertTopLevelItem(0, m_root);
    m_root->setText(MyRightTreeWidgetItem::Name, tr(RootText));
    m_root->setText(MyRightTreeWidgetItem::FileId, "1");
    m_root->setText(MyRightTreeWidgetItem::ParentId, "0");
    m_root->setCheckState(0, Qt::Checked);
    for (int c = 0; c < 7; ++c) {
        m_root->setFont(c, TreeFont(true));
        if (c != MyRightTreeWidgetItem::Path)
            m_root->setSizeHint(c, QSize(18, 18));
    }
}

void VideoRepairWindow::AddFiles(const QStringList &paths)
{
    if (paths.isEmpty())
        return;
    // Events are processed on the way (and each warning box runs its own loop): Repair must not be
    // pressed on a half-made list.
    ++m_adding;
    ui->RepairButton->setEnabled(false);
    QFileIconProvider icons;
    for (const QString &path : paths) {
        QCoreApplication::processEvents();
        EnsureRoot();
        if (AlreadyAdded(path))
            continue;
        auto *row = new MyRightTreeWidgetItem(m_root);
        for (int c = 0; c < 7; ++c)
            if (c != MyRightTreeWidgetItem::Path)
                row->setSizeHint(c, QSize(18, 18));
        const QFileInfo info(path);
        if (info.isDir()) {
            // The empty row stays in the list.
            QMessageBox::warning(this, tr("Corvane Aldrake Video Repair"), tr("Not a valid video file."),
                                 QMessageBox::Ok);
            continue;
        }
        row->setText(MyRightTreeWidgetItem::Name, info.fileName());
        row->setIcon(MyRightTreeWidgetItem::Name, icons.icon(info));
        row->setText(MyRightTreeWidgetItem::Path, path);
        row->setText(MyRightTreeWidgetItem::TemporaryPath, path);
        row->setText(MyRightTreeWidgetItem::Size, GetSizeOfItem(info.size()));
        row->setText(MyRightTreeWidgetItem::Bytes, QString::number(info.size()));
        row->setCheckState(0, Qt::Checked);
        row->setText(MyRightTreeWidgetItem::FileId, QString::number(m_nextFileId));
        row->setText(MyRightTreeWidgetItem::ParentId, "1");
        row->setFont(0, TreeFont(true));
        for (int c = 1; c < 7; ++c)
            row->setFont(c, TreeFont(false));
        ++m_nextFileId;
    }
    if (m_root)
        m_root->setExpanded(true);
    --m_adding;
    UpdateRepairButton();
}

bool VideoRepairWindow::AlreadyAdded(const QString &path)
{
    for (QTreeWidgetItem *row : AllRows(m_tree)) {
        if (row->text(MyRightTreeWidgetItem::Path).compare(path, Qt::CaseInsensitive) == 0) {
            QMessageBox::warning(this, tr("Corvane Aldrake Video Repair"),
                                 tr("Files already added to list will be skipped."), QMessageBox::Ok);
            return true;
        }
    }
    return false;
}

QString VideoRepairWindow::GetSizeOfItem(qint64 bytes) const
{
    return ::GetSizeOfItem(bytes);
}

int VideoRepairWindow::CountChecked() const
{
    int n = 0;
    for (QTreeWidgetItem *row : AllRows(m_tree))
        if (row->checkState(0) == Qt::Checked)
            ++n;
    return n;
}

void VideoRepairWindow::UpdateRepairButton()
{
    SetRepairEnabled(CountChecked() > 1);
}

void VideoRepairWindow::SetRepairEnabled(bool enabled)
{
    ui->RepairButton->setEnabled(enabled && m_adding == 0 && !m_running);
}

void VideoRepairWindow::OnRemoveVideoFile()
{
    const QList<QTreeWidgetItem *> selected = m_tree->selectedItems();
    QTreeWidgetItem *first = nullptr;
    for (QTreeWidgetItem *row : AllRows(m_tree))
        if (selected.contains(row)) {
            first = row;
            break;
        }
    if (first) {
        if (first == m_root)
            m_root = nullptr;
        delete first; // takes it out of its parent or of the tree, children included
    }

    UpdateRepairButton();
    const int rows = AllRows(m_tree).size();
    if (rows == 1) {
        m_root = nullptr;
        m_tree->clear();
        ui->PreviewButton->setEnabled(false);
        ui->RemoveButton->setEnabled(false);
        ui->RepairButton->setEnabled(false);
        return;
    }
    ui->RemoveButton->setEnabled(false);
    if (rows == 0)
        m_root = nullptr;
    else
        ui->RemoveButton->setEnabled(true);
    ui->PreviewButton->setEnabled(false);
    for (QTreeWidgetItem *row : m_tree->selectedItems())
        ui->PreviewButton->setEnabled(!IsRoot(row));
}

void VideoRepairWindow::OnItemClicked(QTreeWidgetItem *item, int)
{
    if (bProcessRunning || m_running || !item)
        return;
    ui->PreviewButton->setEnabled(false);
    ui->RemoveButton->setEnabled(true);
    ui->RepairButton->setEnabled(false);

    const QList<QTreeWidgetItem *> rows = AllRows(m_tree);
    if (IsRoot(item)) {
        const Qt::CheckState state = item->checkState(0);
        if (state == Qt::PartiallyChecked)
            return;
        for (QTreeWidgetItem *row : rows)
            row->setCheckState(0, state);
        if (state == Qt::Checked)
            SetRepairEnabled(rows.size() > 1);
        return;
    }

    ui->PreviewButton->setEnabled(true);
    int files = 0, unchecked = 0, checked = 0;
    for (QTreeWidgetItem *row : rows) {
        if (IsRoot(row))
            continue;
        ++files;
        if (row->checkState(0) == Qt::Unchecked)
            ++unchecked;
        else if (row->checkState(0) == Qt::Checked)
            ++checked;
    }
    if (!m_root)
        return;
    if (unchecked == files) {
        m_root->setCheckState(0, Qt::Unchecked);
        ui->RepairButton->setEnabled(false);
    } else if (checked == files) {
        m_root->setCheckState(0, Qt::Checked);
        SetRepairEnabled(true);
    } else {
        m_root->setCheckState(0, Qt::PartiallyChecked);
        SetRepairEnabled(true);
    }
}

// ---- A repair run ----

QString VideoRepairWindow::TempFolder()
{
    // Made afresh by every Repair and removed by Back, close and the preferences: none of that can
    // touch another running copy's working files. The name is this account's own, the command line
    // never uses it (its working folders are private ones), and SingleInstance lets one window
    // program run per account.
    return OwnFixedPath(ProbeFiles::RepairTemp);
}

namespace {

// True when path is a real folder of ours, not a link to one.
bool IsOwnFolder(const QByteArray &path)
{
    struct stat st;
    return ::lstat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid();
}

} // namespace

QString VideoRepairWindow::GetTempLocation()
{
    const QString folder = TempFolder();
    RunShell("rm -R " + ShellQuote(folder)); // a planted link goes, not what it points to
    // /var/tmp is shared: somebody may plant a link under the folder's name at any moment, and the
    // copies and the whole run would then go to wherever it points. mkdir never follows one; what
    // stands in its way is removed once more (unlink takes a link itself) and the folder made again.
    // Once it is ours, nobody else can replace it in the sticky /var/tmp. Empty when it cannot be
    // made ours.
    const QByteArray name = QFile::encodeName(folder);
    if (::mkdir(name.constData(), 0700) != 0 && !IsOwnFolder(name)) {
        ::unlink(name.constData());
        ::mkdir(name.constData(), 0700);
    }
    if (!IsOwnFolder(name))
        return QString();
    // The folder holds the user's repaired videos until they are saved: open to every account (as
    // it once was, chmod -R 777) anyone could delete or replace them. It is the user's alone.
    ::chmod(name.constData(), 0700);
    return folder;
}

qint64 VideoRepairWindow::GetFree(const QString &path)
{
    return ProbeFreeBytesRepairPage(path);
}

void VideoRepairWindow::SetRunningControls(bool running)
{
    ui->AddButton->setEnabled(!running);
    ui->BackButton->setEnabled(!running);
    ui->ReferenceButton->setEnabled(!running);
    ui->ClearReferenceButton->setEnabled(!running);
    m_tree->setEnabled(!running);
}

void VideoRepairWindow::OnRepairVideoFiles()
{
    const QString folder = GetTempLocation();
    if (folder.isEmpty()) { // no working folder of our own: nothing may be written for this run
        WarnPathTaken(this, tr("The working folder for the repair could not be made."), TempFolder());
        return;
    }
    QStringList paths;
    quint64 total = 0;
    const QList<QTreeWidgetItem *> rows = AllRows(m_tree);
    for (int i = 1; i < rows.size(); ++i) {
        QTreeWidgetItem *row = rows.at(i);
        if (row->checkState(0) != Qt::Checked)
            continue;
        const QString path = row->text(MyRightTreeWidgetItem::Path);
        paths << path;
        total += row->text(MyRightTreeWidgetItem::Bytes).toULongLong();
        row->setText(MyRightTreeWidgetItem::TemporaryPath, QString());
        row->setText(MyRightTreeWidgetItem::TemporaryPath, folder + "/" + QFileInfo(path).fileName());
    }

    const qint64 free = GetFree("/");
    if (free == ProbeUnusable) {
        WarnPathTaken(this, tr("The free space on the boot drive could not be checked."),
                      OwnFixedPath(ProbeFiles::TempFile));
        return;
    }
    if (static_cast<long long>(total) > free) {
        QMessageBox box(QMessageBox::Warning, tr("Corvane Aldrake Video Repair"),
                        tr("Insufficient space on boot drive to save temporary data."), QMessageBox::Ok, this);
        box.setInformativeText(tr("Sufficient space to save temporary data is not available on boot drive. "
                                  "Please create empty space on boot drive to repair selected files."));
        box.exec();
        return;
    }

    ui->FileNameLabel->show();
    ui->progressBar->show();
    ui->StopButton->show();
    ui->FileNameLabel_2->hide();
    ui->progressBarOverAll->hide();
    ui->label_5->hide();
    ui->label_4->hide();
    ui->RemoveButton->setEnabled(false);
    ui->RepairButton->setEnabled(false);
    ui->PreviewButton->setEnabled(false);
    SetRunningControls(true);
    m_running = true;
    m_worker.SetKeepOriginalCodecs(GeneralPreference::KeepOriginalCodecs());
    SetReference(m_reference); // it may have gone since it was chosen
    m_worker.SetReferences(m_reference.isEmpty() ? QStringList() : QStringList{m_reference});
    m_worker.SetInitialSettings(paths, folder);
}

void VideoRepairWindow::OnMaxProgress(unsigned long n)
{
    ui->progressBar->reset();
    ui->progressBar->setMaximum(int(qMin<unsigned long>(n, INT_MAX)));
}

void VideoRepairWindow::OnProgressValue(unsigned long v)
{
    ui->progressBar->setValue(int(qMin<unsigned long>(v, INT_MAX)));
}

void VideoRepairWindow::OnOverAllMaxProgress(unsigned long n)
{
    ui->progressBarOverAll->reset();
    ui->progressBarOverAll->setMaximum(int(qMin<unsigned long>(n, INT_MAX)));
    ui->FileNameLabel_2->show();
    ui->progressBarOverAll->show();
}

void VideoRepairWindow::OnOverAllProgressValue(unsigned long v)
{
    ui->progressBarOverAll->setValue(int(qMin<unsigned long>(v, INT_MAX)));
}

void VideoRepairWindow::OnInfo(QString text)
{
    ui->FileNameLabel->setText(text);
}

void VideoRepairWindow::OnStop()
{
    QMessageBox box(QMessageBox::Warning, tr("Corvane Aldrake Video Repair"),
                    tr("Process cannot be resumed from the current stage."), QMessageBox::Yes | QMessageBox::No,
                    this);
    box.setInformativeText(tr("Do you want to abort the current process?"));
    box.setDefaultButton(QMessageBox::No);
    // The run may have ended while the question was open; a Yes then has nothing left to stop.
    if (box.exec() != QMessageBox::Yes || !m_worker.RequestStop())
        return;
    m_tree->setEnabled(true);
}

void VideoRepairWindow::OnProcessAborted()
{
    m_running = false;
    ui->RemoveButton->setEnabled(false);
    ui->PreviewButton->setEnabled(false);
    SetRepairEnabled(true);
    HideRunControls();
    ShowIdleControls();
    SetRunningControls(false);
}

void VideoRepairWindow::OnRepairFinish()
{
    m_running = false;
    if (!m_root) // nothing was listed; there is nothing to hand over
        return;
    hide();
    if (m_savingWindow)
        m_savingWindow->deleteLater();
    // The save page takes a deep copy of the list, the results of every row with it.
    m_savingWindow = new VideoSavingWindow(nullptr, static_cast<MyRightTreeWidgetItem *>(m_root->clone()));

    // Outcome by file name: a row is repaired only when its file's result plays. Two ticked files of
    // one name share one working copy, and so one outcome.
    lstRepairOutcomes = m_worker.Outcomes();
    for (QTreeWidgetItem *row : AllRows(m_savingWindow->Tree())) {
        const QString name = row->text(MyRightTreeWidgetItem::Name);
        if (name == RootText)
            continue;
        const RepairOutcome outcome = OutcomeOf(name, RepairOutcome::Verdict::NotPlayable);
        if (outcome.verdict == RepairOutcome::Verdict::Repaired) {
            row->setText(StatusColumn, tr("Successfully Repaired"));
            row->setForeground(StatusColumn, QColor("Green"));
            AllFiles << name;
        } else {
            mY_unsupportedList << name;
            row->setText(StatusColumn, tr("Repair Failed"));
            row->setForeground(StatusColumn, QColor("Red"));
        }
    }
    m_worker.ClearUnsupportedList();

    StoreGeometry();
    m_savingWindow->OnInitialize();
    if (!m_bMax) {
        m_savingWindow->restoreGeometry(
            QSettings("Corvane", "CorvaneVideoGeometrySettings").value("geometry").toByteArray());
        m_savingWindow->Tree()->show();
        m_savingWindow->show();
    } else {
        m_savingWindow->Tree()->show();
        m_savingWindow->showMaximized();
    }
    connect(m_savingWindow, &VideoSavingWindow::Goback, this, &VideoRepairWindow::OnThisPage);
}

void VideoRepairWindow::StoreGeometry()
{
    QSettings("Corvane", "CorvaneVideoGeometrySettings").setValue("geometry", saveGeometry());
    if (isMaximized())
        m_bMax = true;
}

void VideoRepairWindow::OnGoBack()
{
    RunShell("rm -R " + ShellQuote(TempFolder()));
    PagePreview::CleanPreviews();
    m_root = nullptr;
    StoreGeometry(); // m_bMax is never cleared here: a page once maximised keeps reporting it
    hide();
    Q_EMIT OnBack(m_bMax);
}

void VideoRepairWindow::OnThisPage(bool maximised)
{
    if (m_savingWindow) {
        // The save page that sent us back is finished with; it goes once its own handler returns.
        m_savingWindow->deleteLater();
        m_savingWindow = nullptr;
    }
    m_tree->clear();
    SetRunningControls(false);
    ui->RemoveButton->setEnabled(false);
    ui->RepairButton->setEnabled(false);
    ui->PreviewButton->setEnabled(false);
    HideRunControls();
    ShowIdleControls();
    SetReference(m_reference);
    m_root = nullptr;
    OnInitialize();
    m_bMax = maximised;
    if (!maximised) {
        restoreGeometry(QSettings("Corvane", "CorvaneVideoGeometrySettings").value("geometry").toByteArray());
        show();
    } else {
        showMaximized();
    }
}

void VideoRepairWindow::OpenHelp()
{
    QString address = "file://" + HelpFilePath + "/help/Preview_and_Repair_Video_Files.htm";
    address.replace(" ", "%20");
    OpenInBrowser(address, BrowserRoute::BrowserOrSystem);
}

void VideoRepairWindow::closeEvent(QCloseEvent *event)
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

void VideoRepairWindow::RemoveRunLeftovers()
{
    RunShell("rm -R " + ShellQuote(TempFolder()));
    PagePreview::CleanPreviews();
}

// ---- Preview ----

void VideoRepairWindow::GetQuickLookProcessID()
{
    lstProcessID = ThreadPreview::RunningPreviews();
}

void VideoRepairWindow::OnPreviewMovFile()
{
    QTreeWidgetItem *first = nullptr;
    const QList<QTreeWidgetItem *> selected = m_tree->selectedItems();
    for (QTreeWidgetItem *row : AllRows(m_tree))
        if (selected.contains(row)) {
            first = row;
            break;
        }
    Preview(first, tr("Corvane Aldrake Video Repair"));
}

void VideoRepairWindow::OnDoubleClicked(QTreeWidgetItem *item, int)
{
    if (bProcessRunning || !item)
        return;
    // The double-click box carries its own title, "File" included.
    Preview(item, tr("Corvane Aldrake File Video Repair"));
}

void VideoRepairWindow::Preview(QTreeWidgetItem *row, const QString &f4vTitle)
{
    // A double-click on the root folds the list; it must not end the preview that is playing.
    if (!MyRightTreeWidgetItem::IsFileRow(row) || !m_previewer.Begin())
        return;
    m_previewer.Show(row->text(MyRightTreeWidgetItem::TemporaryPath), f4vTitle);
}

void VideoRepairWindow::OnQuickLookSlot()
{
    m_previewer.OnQuickLookSlot();
}

void VideoRepairWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}
