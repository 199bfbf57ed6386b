#pragma once

#include "workers/ThreadPreview.h"

#include <QObject>
#include <QString>
#include <QTimer>

class QWidget;

// Previewing as both pages do it: earlier preview copies and preview programs are cleaned away,
// the file is copied (preview never plays the file itself), and the copy is shown by the route
// that suits the system: the preview program, or the panel, after which the page takes the focus
// back.
class PagePreview : public QObject
{
    Q_OBJECT

public:
    explicit PagePreview(QWidget *page);

    // Removes the preview copies and ends the preview programs this process started: before each
    // preview and on every way out of the pages.
    static void CleanPreviews();

    // The first half of a preview; false on a system that has none.
    bool Begin();
    // The second half, for the file at path: ".f4v" is refused in a box titled f4vTitle, and a file
    // that cannot be copied is reported instead of being handed to the player.
    void Show(const QString &path, const QString &f4vTitle);

    // Polled while a panel shows: once it has closed, the page is activated again.
    void OnQuickLookSlot();

private:
    QWidget *m_page;
    ThreadPreview m_preview;
    QTimer m_quickLookTimer;
    int m_version;
};
