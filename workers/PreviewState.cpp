#include "workers/PreviewState.h"

QStringList lstRunningFilePath;
QList<unsigned int> lstProcessID;
unsigned int nRunningID = 0;
std::atomic<bool> bQuickLookClose{true};
QString strFileForPreview;
