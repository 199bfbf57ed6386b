#include "app/AppGlobals.h"
#include "app/BundlePaths.h"
#include "app/MainWindow.h"
#include "app/SingleInstance.h"
#include "pages/repair/PagePreview.h"

#include <QApplication>
#include <QStandardPaths>

int main(int argc, char *argv[])
{
    QCoreApplication::setSetuidAllowed(true);
    QApplication app(argc, argv);
    SingleInstance instance(QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation));
    if (!instance.Claim())
        return 0;
    QObject::connect(&instance, &SingleInstance::ShowRequested, &ShowRunningProgram);
    // The only window program of the account: preview copies left by one that crashed go, and every
    // way out takes this one's with it.
    PagePreview::CleanPreviews();
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &PagePreview::CleanPreviews);
    nArgc = argc;
    cArgv = argv;

    const BundlePaths paths = BundlePathsFrom(QCoreApplication::applicationDirPath());
    strPlistPath = paths.plist;
    HelpFilePath = paths.help;
    strPreviewerPath = paths.previewer;

    MainWindow window;
    window.OnInitialize();
    window.raise();
    window.activateWindow();
    window.show();
    return app.exec();
}
