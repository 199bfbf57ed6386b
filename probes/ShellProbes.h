#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// Facts about the machine, each obtained by running a shell command whose output goes to a fixed
// file under /var/tmp, then reading that file back. They run on the calling thread and never
// report an error: a failed probe gives 0, an empty text or an empty list.

// Filled by ProbeDefaultBrowser: the user's login name and the folder that holds the homes.
extern QString StrUserName;
extern QString StrUserPath;
// The default browser: an application name or path on macOS, the browser program's absolute path
// on Linux; empty when unknown, and help then goes to the system's handler.
extern QString strDefaultBrowser;

// Runs command through /bin/sh and waits for it; the shell's exit status. The text goes to the
// shell in the file system's encoding, so that names with non-ASCII letters arrive intact.
int RunShell(const QString &command);

// The lines of a probe's output file; empty when it cannot be read.
QStringList ReadProbeLines(const QString &file);

// Free bytes of the volume holding path. The repair page's form leaves an ordinary path unquoted
// and counts exact bytes; the save page's quotes the volume and counts the rounded figure.
qint64 ProbeFreeBytesRepairPage(const QString &path);
qint64 ProbeFreeBytesSavePage(const QString &volume);

// The system's version ("10.9.5"; "12" on Debian 12); empty when the output cannot be read.
QString ProbeBootOSVersion(bool powerPc);

// Fills StrUserName and StrUserPath and returns the default browser (see strDefaultBrowser).
QString ProbeDefaultBrowser();

// Process ids of running preview programs (the lookup's own grep among them).
QList<unsigned int> ProbePreviewProcessIds();

// True while id is a running preview program. Ids go stale the moment they are read, so a kill
// checks again just before it is sent.
bool IsPreviewProcess(unsigned int id);
// "kill -9 id", sent only while id still is a preview program.
void KillPreviewProcess(unsigned int id);
