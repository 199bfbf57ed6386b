#include "app/AppGlobals.h"

#include <QtGlobal>

int nArgc = 0;
char **cArgv = nullptr;
QString strPlistPath;
QString HelpFilePath;
QString strPreviewerPath;
MainWindow *pMainWin = nullptr;
bool ProgramRunningOnPowerPc = false;
bool m_bMax = false;
bool CloseSuccess = false;

static void InitResources()
{
    Q_INIT_RESOURCE(CorvaneAldrakeVideoRepair);
}

void LoadProgramResources()
{
    static const bool loaded = (InitResources(), true);
    Q_UNUSED(loaded)
}

QString ProductVersion()
{
    return QStringLiteral(CORVANE_VERSION);
}
