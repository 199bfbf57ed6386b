#include "pages/repair/PagePreview.h"

#include "app/AppGlobals.h"
#include "previewer/NativeBridge.h"
#include "workers/PreviewCopy.h"
#include "workers/PreviewState.h"

#include <QMessageBox>
#include <QWidget>

PagePreview::PagePreview(QWidget *page) : QObject(page), m_page(page), m_version(PreviewRouteVersion())
{
    m_quickLookTimer.setInterval(40);
    connect(&m_quickLookTimer, &QTimer::timeout, this, &PagePreview::OnQuickLookSlot);
}

void PagePreview::CleanPreviews()
{
    RemovePreviewCopies();
    // Only the preview programs this process started: another program's, or another account's, are
    // none of ours.
    lstProcessID = ThreadPreview::RunningPreviews();
    for (unsigned int id : qAsConst(lstProcessID)) {
        nRunningID = id;
        ThreadPreview::EndPreview(id);
    }
}

bool PagePreview::Begin()
{
    if (m_version == 6)
        return false;
    if (m_version > 8) {
        CleanPreviews();
        // The earlier preview thread may still be ending; it must have ended before it can start
        // again, or this preview would never open.
        m_preview.StopPreviewer();
    }
    bQuickLookClose = false;
    return true;
}

void PagePreview::Show(const QString &path, const QString &f4vTitle)
{
    if (path.endsWith(".f4v", Qt::CaseInsensitive)) {
        QMessageBox box(QMessageBox::Information, f4vTitle, tr("\nPreview not supported for this file type."),
                        QMessageBox::Ok);
        box.exec();
        return;
    }

    QString reason;
    const QString copy = MakePreviewCopy(path, &reason);
    if (copy.isEmpty()) {
        // The file has gone or cannot be read: the player would only say it cannot play it.
        QMessageBox box(QMessageBox::Warning, tr("Corvane Aldrake Video Repair"),
                        tr("Preview not available."), QMessageBox::Ok, m_page);
        box.setInformativeText(tr("The file could not be copied for the preview.") + "\n" + reason);
        box.exec();
        return;
    }
    if (m_version == 8) {
        strFileForPreview = copy;
        if (!strFileForPreview.isEmpty())
            SetWindowLevel(0, nArgc, cArgv);
        m_quickLookTimer.start();
    } else if (m_version == 7) {
        CallSelectedItems(copy);
        m_quickLookTimer.start();
    } else {
        lstRunningFilePath.clear();
        lstRunningFilePath << copy;
        m_preview.SetInitialSettings(strPreviewerPath, copy);
        m_preview.start();
    }
}

void PagePreview::OnQuickLookSlot()
{
    if (!bQuickLookClose)
        return;
    m_quickLookTimer.stop();
    m_page->activateWindow();
}
