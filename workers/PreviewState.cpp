#include "workers/PreviewState.h"

#include <QOperatingSystemVersion>

QStringList lstRunningFilePath;
QList<unsigned int> lstProcessID;
unsigned int nRunningID = 0;
std::atomic<bool> bQuickLookClose{true};
QString strFileForPreview;

int PreviewRouteVersion()
{
#ifdef Q_OS_MACOS
    const QOperatingSystemVersion v = QOperatingSystemVersion::current();
    if (v.majorVersion() == 10 && v.minorVersion() < 7)
        return qMax(6, v.minorVersion() + 2);
#endif
    return 9;
}
