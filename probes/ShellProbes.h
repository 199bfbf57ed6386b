#pragma once

#include <QString>
#include <QStringList>

// Facts about the machine, each obtained by running a shell command whose output goes to a fixed
// file under /var/tmp (one for each account), then reading that file back. They run on the calling
// thread. A failed command gives 0 or an empty text; an output file that cannot be used is told
// apart where the user must hear of it (ProbeUnusable).

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

// A fixed name under /var/tmp (ProbeFiles) as this process's account uses it.
QString OwnFixedPath(const char *name);

// What a free-space probe gives when its output file cannot be made ours: something of another
// account's stands at its name.
constexpr qint64 ProbeUnusable = -1;

// Free bytes of the volume holding path, or ProbeUnusable. The repair page's form leaves an
// ordinary path unquoted and counts exact bytes; the save page's quotes the volume and counts the
// rounded figure.
qint64 ProbeFreeBytesRepairPage(const QString &path);
qint64 ProbeFreeBytesSavePage(const QString &volume);

// The system's version ("10.9.5"; "12" on Debian 12); empty when the output cannot be read.
QString ProbeBootOSVersion(bool powerPc);

// Fills StrUserName and StrUserPath and returns the default browser (see strDefaultBrowser).
QString ProbeDefaultBrowser();
