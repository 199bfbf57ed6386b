#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// Command texts and output parsers of the shell probes, as plain functions of text (and of the user
// id that names their output files). Both the macOS
// and the Linux versions are built everywhere, so that each is tested on canned command output;
// ShellProbes picks the one of the platform it runs on.

namespace ProbeFiles
{
// The program's fixed names under /var/tmp, which the whole machine shares: the probes' output files,
// the repair page's working folder, the folder the save page removes on Back and the reveal script.
// Each account uses its own, the name + "-" + its user id (ForUser), so that what one account
// leaves there never answers, or blocks, another's.
inline const char *const TempFile = "/var/tmp/TempFile";
inline const char *const Browser = "/var/tmp/browser";
inline const char *const DotBrowser = "/var/tmp/.browser";
inline const char *const BrowserPath = "/var/tmp/browserPath";
inline const char *const RepairTemp = "/var/tmp/.CorvaneVideoRepairTemp";
inline const char *const SaveBackTemp = "/var/tmp/.CorvaneVideoFileRepairTemp";
inline const char *const RevealScript = "/var/tmp/slpScpt";

// "/var/tmp/TempFile" of user 1000 is "/var/tmp/TempFile-1000".
QString ForUser(const char *name, uint uid);
} // namespace ProbeFiles

// Splits a line at blanks, dropping empty parts.
QStringList ProbeFields(const QString &line);

namespace MacProbe
{

QString FreeSpaceCommandRepairPage(const QString &path, uint uid);
QString FreeSpaceCommandSavePage(const QString &volume, uint uid);
// Free bytes from "diskutil info" lines: the exact byte count in brackets (repair page) ...
qint64 ParseFreeSpaceRepairPage(const QStringList &lines);
// ... or the rounded figure with its unit (save page). Figures in GB and below are truncated to
// whole units before scaling; terabytes keep their fraction.
qint64 ParseFreeSpaceSavePage(const QStringList &lines);

QString OsVersionCommand(bool powerPc, uint uid);
// "ProductVersion:\t10.9.5" gives "10.9.5".
QString ParseOsVersion(const QString &firstLine);

// "/private/var/" for root, "/Users/" for everybody else.
QString UserHomePrefix(const QString &user);
QString DefaultsReadCommand(const QString &user, uint uid);
// The line naming the http handler in the LaunchServices preferences, or empty: the line that
// holds "LSHandlerURLScheme = http" when it also holds "LSHandlerRoleAll", else the line before it.
QString FindHandlerLine(const QStringList &lines);
// The last part of the bundle identifier between the first two double quotes of a handler line
// ("com.google.chrome" gives "chrome"); empty when the line names no role.
QString BrowserFromHandlerLine(const QString &handlerLine);
// Digits and dots removed; "explorer" and "chrome" become the applications' names.
QString CleanBrowserName(const QString &name);
QString LsregisterCommand(const QString &name, uint uid);
// The first line naming name + ".app" (any case), outside the Trash, that is an existing folder.
QString PickBrowserPath(const QStringList &lines, const QString &name,
                        const std::function<bool(const QString &)> &isDir);

} // namespace MacProbe

namespace LinuxProbe
{

// "timeout" keeps a dead network mount from freezing the window.
QString FreeSpaceCommandRepairPage(const QString &path, uint uid);
QString FreeSpaceCommandSavePage(const QString &volume, uint uid);
// The Available column of the first data line of "df -P -B1"; 0 when there is none.
qint64 ParseDfAvailable(const QStringList &lines);

QString OsVersionCommand(uint uid);
// 'VERSION_ID="12"' gives "12".
QString ParseOsVersion(const QString &firstLine);

// The root's home and everybody else's.
QString UserHomePrefix(const QString &user);
QString DefaultBrowserCommand(uint uid);
// The program of the Exec line in the [Desktop Entry] group of a .desktop file, without its
// arguments; a leading "env VAR=value ..." is skipped. Empty when there is none, and for a sandbox's
// launcher ("flatpak run ...", "snap run ..."), which cannot take a page as its only argument.
QString ExecProgram(const QString &desktopFileText);

} // namespace LinuxProbe
