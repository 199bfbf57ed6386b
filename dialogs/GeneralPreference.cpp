#include "dialogs/GeneralPreference.h"

#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "app/PlistFormat.h"
#include "pages/repair/VideoRepairWindow.h"
#include "probes/ShellProbes.h"
#include "probes/ShellQuote.h"
#include "repair/ProcessFlags.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDirIterator>
#include <QFileInfo>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QVBoxLayout>

namespace
{

QSettings RepairSettings()
{
    return QSettings("Corvane", "CorvaneVideoRepairPreferences");
}
const char *const KeepCodecsKey = "KeepOriginalCodecs";

// The page has a fixed width, so each note is given the height its wrapped text needs there;
// group boxes do not pass the height of wrapped text up on their own.
const int NoteWidth = 460;

void SetNote(QLabel *label, const QString &text)
{
    label->setText(text);
    label->setMinimumHeight(qMax(0, label->heightForWidth(NoteWidth))); // -1 for an empty note
}

QLabel *Note(const QString &text)
{
    auto *label = new QLabel;
    label->setWordWrap(true);
    SetNote(label, text);
    return label;
}

QGroupBox *Group(const QString &title, std::initializer_list<QWidget *> widgets)
{
    auto *box = new QGroupBox(title);
    auto *layout = new QVBoxLayout(box);
    for (QWidget *w : widgets) {
        if (qobject_cast<QPushButton *>(w)) {
            // Kept to its own width by a stretch: an aligned item would cost the wrapped notes
            // their height for the width.
            auto *row = new QHBoxLayout;
            row->addWidget(w);
            row->addStretch(1);
            layout->addLayout(row);
        } else {
            layout->addWidget(w);
        }
    }
    return box;
}

} // namespace

GeneralPreference::GeneralPreference(QWidget *parent) : QDialog(parent)
{
    LoadProgramResources();
    setWindowTitle(tr("Preferences"));
    setModal(true);

    m_resetGeometry = new QPushButton(tr("Reset Window Size and Position"));
    connect(m_resetGeometry, &QPushButton::clicked, this, &GeneralPreference::OnResetGeometry);
    m_freeRepair = new QPushButton(tr("Upload Video for Free Repair..."));
    connect(m_freeRepair, &QPushButton::clicked, this, &GeneralPreference::OnFreeRepairService);
    m_removeTemp = new QPushButton(tr("Remove Temporary Files"));
    connect(m_removeTemp, &QPushButton::clicked, this, &GeneralPreference::OnRemoveTemporaryFiles);
    m_keepCodecs = new QCheckBox(tr("Keep the original codecs when the file plays without re-encoding"));
    m_keepCodecs->setChecked(KeepOriginalCodecs());
    connect(m_keepCodecs, &QCheckBox::toggled, this,
            [](bool keep) { RepairSettings().setValue(KeepCodecsKey, keep); });
    m_browser = Note(QString());
    m_tempInfo = Note(QString());
    m_status = new QLabel;
    m_status->setStyleSheet("color: #2b6a99;");

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(
        Group(tr("Windows"),
              {Note(tr("Every page opens where you last left it, at the same size.")), m_resetGeometry}));
    layout->addWidget(Group(tr("Repair"),
                            {Note(tr("A file whose headers alone were damaged can be saved as it was "
                                     "recorded, without being encoded again, when it plays as well.")),
                             m_keepCodecs}));
    layout->addWidget(
        Group(tr("Free Repair Service"),
              {Note(tr("If a video cannot be repaired here, our technicians will try to repair it "
                       "for free. Send us an enquiry and we will tell you how to upload the video.")),
               m_freeRepair}));
    layout->addWidget(Group(tr("Temporary Files"), {m_tempInfo, m_removeTemp}));
    layout->addWidget(Group(tr("Help and Support Pages"), {m_browser}));
    layout->addWidget(m_status);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    setFixedWidth(NoteWidth + 60);
    UpdateTempInfo();
}

QString GeneralPreference::TempFolder()
{
    return VideoRepairWindow::TempFolder();
}

bool GeneralPreference::KeepOriginalCodecs()
{
    return RepairSettings().value(KeepCodecsKey, false).toBool();
}

QString GeneralPreference::StatusText() const
{
    return m_status->text();
}

void GeneralPreference::showEvent(QShowEvent *event)
{
    m_status->clear();
    UpdateTempInfo();
    QDialog::showEvent(event);
}

void GeneralPreference::UpdateTempInfo()
{
    qint64 bytes = 0;
    QDirIterator it(TempFolder(), QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        bytes += it.fileInfo().size();
    }
    const bool present = QFileInfo(TempFolder()).isDir();
    QString text =
        tr("While a repair runs, working copies of your videos are kept in %1. They are removed when you "
           "go back to the start page or close the program.")
            .arg(TempFolder());
    text += "\n" + (present ? tr("In use now: %1.").arg(QLocale().formattedDataSize(bytes))
                            : tr("In use now: none."));
    SetNote(m_tempInfo, text);
    m_removeTemp->setEnabled(present);

    SetNote(m_browser, strDefaultBrowser.isEmpty()
                           ? tr("Help and support pages open with your system's default web browser.")
                           : tr("Help and support pages open in %1.").arg(strDefaultBrowser));
    // Wrapped labels take the height they need only for a known width.
    adjustSize();
}

void GeneralPreference::OnResetGeometry()
{
    m_bMax = false;
    if (pMainWin && pMainWin->isVisible()) {
        pMainWin->showNormal();
        pMainWin->resize(pMainWin->minimumSize());
        if (const QScreen *screen = QGuiApplication::primaryScreen())
            pMainWin->move(MainWindow::CentredPosition(screen->virtualGeometry().size(), pMainWin->size()));
    }
    // After the window has moved: its resize stores a geometry of its own.
    QSettings("Corvane", "CorvaneVideoGeometrySettings").remove("geometry");
    m_status->setText(tr("Window size and position have been reset."));
}

void GeneralPreference::OnFreeRepairService()
{
    OpenInBrowser(ProductInfoValue("SubmitEnquiryLink"));
}

void GeneralPreference::OnRemoveTemporaryFiles()
{
    // The working copies belong to a run; while one goes on they stay.
    if (bProcessRunning) {
        m_status->setText(tr("A repair or save is running. Try again when it has finished."));
        return;
    }
    RunShell("rm -R " + ShellQuote(TempFolder()));
    UpdateTempInfo();
    m_status->setText(QFileInfo(TempFolder()).exists() ? tr("Some temporary files could not be removed.")
                                                       : tr("Temporary files have been removed."));
}
