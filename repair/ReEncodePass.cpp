#include "repair/ThreadVideoRepair.h"

// Second pass of a run: the working copies are re-encoded through FFmpeg and replace themselves.
// Until that pass lands it only announces the files, so that listeners see both passes.
void ThreadVideoRepair::ReRepairFiles(QStringList files)
{
    Q_EMIT OverAllMaxProgress(static_cast<unsigned long>(files.size()));
}
