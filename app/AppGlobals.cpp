#include "app/AppGlobals.h"

#include "repair/ProcessFlags.h"

#include <QCoreApplication>
#include <QMessageBox>
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

CloseAnswer AskToClose(QWidget *window)
{
    if (CloseSuccess)
        return CloseAnswer::AlreadyAnswered;
    if (bProcessRunning)
        return CloseAnswer::Running;
    const auto answer = QMessageBox::warning(
        window, QCoreApplication::translate("MainWindow", "Corvane Aldrake Video Repair"),
        QCoreApplication::translate("MainWindow", "Do you want to close Corvane Aldrake Video Repair? "),
        QMessageBox::Yes | QMessageBox::No,
        QMessageBox::No); // Enter must not close the program
    return answer == QMessageBox::Yes ? CloseAnswer::Yes : CloseAnswer::No;
}

void WarnPathTaken(QWidget *parent, const QString &text, const QString &path)
{
    QMessageBox box(QMessageBox::Warning,
                    QCoreApplication::translate("MainWindow", "Corvane Aldrake Video Repair"), text,
                    QMessageBox::Ok, parent);
    box.setInformativeText(QCoreApplication::translate("MainWindow",
                                                       "%1 is taken by something that is not this program's "
                                                       "own, and it cannot be removed. Remove it, or ask the "
                                                       "computer's administrator to, then try again.")
                               .arg(path));
    box.exec();
}
