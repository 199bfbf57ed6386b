#include "app/AppGlobals.h"
#include "app/BundlePaths.h"
#include "app/MainWindow.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QCoreApplication::setSetuidAllowed(true);
    QApplication app(argc, argv);
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
