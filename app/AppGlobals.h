#pragma once

#include <QString>

class MainWindow;
class QWidget;

// Process-wide state of the window program, written at start-up unless noted.
extern int nArgc;
extern char **cArgv;
extern QString strPlistPath;     // the product information property list
extern QString HelpFilePath;     // the folder holding "help" and "Eula.pdf"
extern QString strPreviewerPath; // the preview program VideoFileUtil
extern MainWindow *pMainWin;
extern bool ProgramRunningOnPowerPc;
// True when the page being left was maximised: the next page opens maximised too.
extern bool m_bMax;
// Set once the close question has been answered; every later close goes through unasked.
extern bool CloseSuccess;

// The close rule shared by the windows: once the close question has been answered (CloseSuccess)
// a close goes through; while a repair or save runs it is refused without a word; otherwise the
// question is asked.
enum class CloseAnswer { AlreadyAnswered, Running, Yes, No };
CloseAnswer AskToClose(QWidget *window);

// Tells the user that `text` (what could not be done) because the fixed path under /var/tmp that it
// needs is taken by something the program may not remove, and what to do about it.
void WarnPathTaken(QWidget *parent, const QString &text, const QString &path);

// Makes the program's images reachable under ":/images". The resources live in a static library,
// so they are registered by hand rather than by a static initialiser the linker may drop.
void LoadProgramResources();

// The product's version, as the build states it.
QString ProductVersion();
