#include "pages/save/SaveShell.h"

#include "probes/ShellQuote.h"

#include <QStringList>
#include <QUrl>

QString MacSaveVolume(const QString &destination)
{
    if (!destination.startsWith("/Volumes/", Qt::CaseInsensitive))
        return "/";
    const QStringList parts = destination.split('/', Qt::SkipEmptyParts);
    // "/Volumes/" alone names no volume; the boot volume is the best guess.
    if (parts.size() < 2)
        return "/";
    return "/" + parts.at(0) + "/" + parts.at(1);
}

QString SaveVolume(const QString &destination)
{
#ifdef Q_OS_MACOS
    return MacSaveVolume(destination);
#else
    return destination;
#endif
}

QString MacRevealScript(const QString &folder)
{
    // AppleScript string escapes. A line break written as \n keeps the whole name on one line of
    // the heredoc, so no line of it can read "EOT".
    QString escaped;
    escaped.reserve(folder.size() + 8);
    for (const QChar c : folder) {
        switch (c.unicode()) {
        case '\\':
            escaped += "\\\\";
            break;
        case '"':
            escaped += "\\\"";
            break;
        case '\n':
            escaped += "\\n";
            break;
        case '\r':
            escaped += "\\r";
            break;
        default:
            escaped += c;
        }
    }
    const QString finder = "\"Finder\"";
    const QStringList lines = {
        "#!/bin/bash",
        "osascript << 'EOT'",
        "set theFile to \"" + escaped + "\"",
        "set a to POSIX file thefile",
        "tell application " + finder + " to activate",
        "tell application " + finder,
        "reveal a",
        "end",
        "EOT",
    };
    return lines.join('\n') + '\n';
}

QString LinuxRevealScript(const QString &folder)
{
    // dbus-send splits array items at commas, so a comma in the name is sent percent-encoded.
    QString uri = QString::fromLatin1(QUrl::fromLocalFile(folder).toEncoded());
    uri.replace(",", "%2C");
    const QStringList lines = {
        "#!/bin/bash",
        "folder=" + ShellQuote(folder),
        "uri=" + ShellQuote(uri),
        "( dbus-send --session --print-reply --reply-timeout=5000 --type=method_call"
        " --dest=org.freedesktop.FileManager1 /org/freedesktop/FileManager1"
        " org.freedesktop.FileManager1.ShowItems \"array:string:$uri\" string: ||"
        " xdg-open \"$folder\" ) </dev/null >/dev/null 2>&1 &",
    };
    return lines.join('\n') + '\n';
}

QString RevealScript(const QString &folder)
{
#ifdef Q_OS_MACOS
    return MacRevealScript(folder);
#else
    return LinuxRevealScript(folder);
#endif
}
