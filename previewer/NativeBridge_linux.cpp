#include "previewer/NativeBridge.h"

#include "previewer/PlayerWidget.h"
#include "previewer/PreviewPanel.h"
#include "workers/PreviewState.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QPointer>

namespace
{

// The one panel, like the system's shared Quick Look panel. It deletes itself when closed.
QPointer<PreviewPanel> &SharedPanel()
{
    static QPointer<PreviewPanel> panel;
    return panel;
}

PreviewPanel *Panel()
{
    QPointer<PreviewPanel> &panel = SharedPanel();
    if (!panel) {
        panel = new PreviewPanel;
        panel->setAttribute(Qt::WA_DeleteOnClose);
        // A closed panel waits for its deferred deletion: the next preview makes a new one.
        QObject::connect(panel, &PreviewPanel::Closed, [] { SharedPanel().clear(); });
        // A panel still open when the program quits goes with it.
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, panel, &QObject::deleteLater);
    }
    return panel;
}

bool PanelShowing()
{
    const QPointer<PreviewPanel> &panel = SharedPanel();
    return panel && panel->isVisible();
}

} // namespace

void CallSelectedItems(QString path)
{
    if (PanelShowing()) {
        SharedPanel()->close();
        return;
    }
    Panel()->ShowFile(path, true);
}

void RemoveTemp()
{
    bQuickLookClose = true;
    QFile::remove(strFileForPreview);
}

int MyApplicationMain()
{
    if (PanelShowing()) {
        SharedPanel()->close();
        RemoveTemp();
        return 0;
    }
    PreviewPanel *panel = Panel();
    QEventLoop loop;
    QObject::connect(panel, &PreviewPanel::Closed, &loop, &QEventLoop::quit);
    QObject::connect(panel, &QObject::destroyed, &loop, &QEventLoop::quit);
    // The file goes as soon as the panel is showing it, as with the system's panel.
    QObject::connect(panel->Player(), &PlayerWidget::opened, &loop, [] { RemoveTemp(); });
    QObject::connect(panel->Player(), &PlayerWidget::error, &loop, [] { RemoveTemp(); });
    panel->ShowFile(strFileForPreview, false);
    loop.exec();
    RemoveTemp();
    return 0;
}

int SetWindowLevel(int, int, char **)
{
    return MyApplicationMain();
}
