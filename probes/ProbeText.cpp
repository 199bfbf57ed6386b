#include "probes/ProbeText.h"

#include "probes/ShellQuote.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

const QString FreeSpaceTag = QStringLiteral("Free Space:");
const QString VolumeFreeSpaceTag = QStringLiteral("Volume Free Space:");

QString Redirect(const QString &command, const char *file, uint uid, const char *op = " >> ")
{
    return command + QLatin1String(op) + ProbeFiles::ForUser(file, uid);
}

// A float figure scaled to bytes. A figure too large for 64 bits (or not a number) would make the
// conversion undefined; it is held at the largest count instead.
qint64 ToBytes(double bytes)
{
    if (!(bytes > 0))
        return 0;
    if (bytes >= 9.2e18)
        return std::numeric_limits<qint64>::max();
    return static_cast<qint64>(bytes);
}

} // namespace

QString ProbeFiles::ForUser(const char *name, uint uid)
{
    return QLatin1String(name) + "-" + QString::number(uid);
}

QStringList ProbeFields(const QString &line)
{
    return line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

// ---- macOS ----

QString MacProbe::FreeSpaceCommandRepairPage(const QString &path, uint uid)
{
    return Redirect("diskutil info " + ShellQuoteIfNeeded(path) + " | grep 'Free Space:'",
                    ProbeFiles::TempFile, uid);
}

QString MacProbe::FreeSpaceCommandSavePage(const QString &volume, uint uid)
{
    return Redirect("diskutil info " + ShellQuote(volume) + " | grep 'Free Space:'", ProbeFiles::TempFile,
                    uid);
}

qint64 MacProbe::ParseFreeSpaceRepairPage(const QStringList &lines)
{
    for (const QString &line : lines) {
        if (!line.contains(FreeSpaceTag))
            continue;
        const QStringList f = ProbeFields(line);
        const bool volume = line.contains(VolumeFreeSpaceTag);
        const int at = volume ? 5 : 4;
        if (f.size() < at + 2)
            continue;
        const QString count = QString(f.at(at)).remove('(');
        const QString unit = QString(f.at(at + 1)).remove(')');
        if (unit.contains(volume ? QStringLiteral("Bytes") : QStringLiteral("B"), Qt::CaseInsensitive))
            return count.toLongLong();
    }
    return 0;
}

qint64 MacProbe::ParseFreeSpaceSavePage(const QStringList &lines)
{
    for (const QString &line : lines) {
        if (!line.contains(FreeSpaceTag))
            continue;
        const QStringList f = ProbeFields(line);
        const bool volume = line.contains(VolumeFreeSpaceTag);
        const int at = volume ? 3 : 2;
        if (f.size() < at + 2)
            continue;
        const float number = f.at(at).toFloat();
        const QString unit = f.at(at + 1);
        const double whole = std::trunc(double(number));
        if (unit.contains("TB") || unit.contains("Ti"))
            return ToBytes(double(number) * 1024.0 * 1024.0 * 1024.0 * 1024.0);
        if (unit.contains("GB") || unit.contains("Gi"))
            return ToBytes(whole * 1073741824.0);
        if (unit.contains("MB") || unit.contains("Mi"))
            return ToBytes(whole * 1048576.0);
        if (unit.contains("KB") || unit.contains("Ki"))
            return ToBytes(whole * 1024.0);
        if (unit.contains("B"))
            return ToBytes(whole);
    }
    return 0;
}

QString MacProbe::OsVersionCommand(bool powerPc, uint uid)
{
    return Redirect("sw_vers | grep ProductVersion", ProbeFiles::TempFile, uid, powerPc ? " >& " : " >>");
}

QString MacProbe::ParseOsVersion(const QString &firstLine)
{
    const QStringList parts = firstLine.split(':', Qt::SkipEmptyParts);
    return parts.size() < 2 ? QString() : parts.at(1).trimmed();
}

QString MacProbe::UserHomePrefix(const QString &user)
{
    return user == "root" ? QStringLiteral("/private/var/") : QStringLiteral("/Users/");
}

QString MacProbe::DefaultsReadCommand(const QString &user, uint uid)
{
    // The user name comes from the system, but a name is still a word the shell must not read.
    return Redirect("defaults read " + ShellQuoteIfNeeded(UserHomePrefix(user) + user +
                                                          "/Library/Preferences/com.apple.LaunchServices"),
                    ProbeFiles::Browser, uid);
}

QString MacProbe::FindHandlerLine(const QStringList &lines)
{
    QString previous;
    for (const QString &line : lines) {
        if (line.contains("LSHandlerURLScheme = http"))
            return line.contains("LSHandlerRoleAll") ? line : previous;
        previous = line;
    }
    return QString();
}

QString MacProbe::BrowserFromHandlerLine(const QString &handlerLine)
{
    if (!handlerLine.contains("LSHandlerRoleAll"))
        return QString();
    QString line = handlerLine;
    line.replace('"', '*');
    const QString id = line.section('*', 1, 1);
    return id.split('.').last();
}

QString MacProbe::CleanBrowserName(const QString &name)
{
    QString clean = name;
    for (int i = 0; i <= 10; ++i)
        clean.remove(QString::number(i));
    clean.remove('.');
    if (clean.contains("explorer"))
        return QStringLiteral("Internet Explorer");
    if (clean.contains("chrome"))
        return QStringLiteral("Google Chrome");
    return clean;
}

QString MacProbe::LsregisterCommand(const QString &name, uint uid)
{
    return Redirect("/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks/"
                    "LaunchServices.framework/Versions/A/Support/lsregister -dump | grep --after-context 1 "
                    "^bundle | grep --only-matching " +
                        ShellQuote("/.*" + name + ".app"),
                    ProbeFiles::BrowserPath, uid);
}

QString MacProbe::PickBrowserPath(const QStringList &lines, const QString &name,
                                  const std::function<bool(const QString &)> &isDir)
{
    for (const QString &line : lines) {
        if (line.contains(name + ".app", Qt::CaseInsensitive) &&
            !line.contains(".Trash", Qt::CaseInsensitive) && isDir(line))
            return line;
    }
    return QString();
}

// ---- Linux ----

QString LinuxProbe::FreeSpaceCommandRepairPage(const QString &path, uint uid)
{
    return Redirect("timeout 10 df -P -B1 " + ShellQuoteIfNeeded(path), ProbeFiles::TempFile, uid);
}

QString LinuxProbe::FreeSpaceCommandSavePage(const QString &volume, uint uid)
{
    return Redirect("timeout 10 df -P -B1 " + ShellQuote(volume), ProbeFiles::TempFile, uid);
}

qint64 LinuxProbe::ParseDfAvailable(const QStringList &lines)
{
    for (const QString &line : lines) {
        // Filesystem, 1-blocks, Used, Available, Capacity, Mounted on (which may hold blanks).
        const QStringList f = ProbeFields(line);
        if (f.size() < 6)
            continue;
        bool ok = false;
        const qint64 available = f.at(3).toLongLong(&ok);
        if (ok)
            return available;
    }
    return 0;
}

QString LinuxProbe::OsVersionCommand(uint uid)
{
    return Redirect("grep VERSION_ID /etc/os-release", ProbeFiles::TempFile, uid, " >>");
}

QString LinuxProbe::ParseOsVersion(const QString &firstLine)
{
    const QStringList parts = firstLine.split('=', Qt::SkipEmptyParts);
    if (parts.size() < 2)
        return QString();
    QString version = parts.at(1);
    version.remove('"').remove('\'');
    return version.trimmed();
}

QString LinuxProbe::UserHomePrefix(const QString &user)
{
    return user == "root" ? QStringLiteral("/root/") : QStringLiteral("/home/");
}

QString LinuxProbe::DefaultBrowserCommand(uint uid)
{
    return Redirect("xdg-settings get default-web-browser", ProbeFiles::Browser, uid);
}

namespace
{

// Splits an Exec value into arguments: blanks separate, double quotes group, a backslash escapes
// the next character.
QStringList ExecArguments(const QString &value)
{
    QStringList args;
    QString current;
    bool inQuotes = false;
    bool any = false;
    for (int i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c == '\\' && i + 1 < value.size()) {
            current += value.at(++i);
            any = true;
        } else if (c == '"') {
            inQuotes = !inQuotes;
            any = true;
        } else if (c.isSpace() && !inQuotes) {
            if (any)
                args << current;
            current.clear();
            any = false;
        } else {
            current += c;
            any = true;
        }
    }
    if (any)
        args << current;
    return args;
}

} // namespace

QString LinuxProbe::ExecProgram(const QString &desktopFileText)
{
    bool inEntry = false;
    const QStringList lines = desktopFileText.split('\n');
    for (const QString &raw : lines) {
        const QString line = raw.trimmed();
        if (line.startsWith('[')) {
            inEntry = line == "[Desktop Entry]";
            continue;
        }
        if (!inEntry || !line.startsWith("Exec"))
            continue;
        const int eq = line.indexOf('=');
        if (eq < 0 || line.left(eq).trimmed() != "Exec")
            continue;
        QStringList args = ExecArguments(line.mid(eq + 1));
        // Field codes (%u, %U, %f ...) stand for what the launcher fills in; they are not arguments.
        args.erase(std::remove_if(args.begin(), args.end(),
                                  [](const QString &a) { return a.size() == 2 && a.startsWith('%'); }),
                   args.end());
        int i = 0;
        if (i < args.size() && (args.at(i) == "env" || args.at(i).endsWith("/env"))) {
            ++i;
            while (i < args.size() && (args.at(i).contains('=') || args.at(i).startsWith('-')))
                ++i;
        }
        if (i == args.size())
            return QString();
        const QString name = args.at(i).mid(args.at(i).lastIndexOf('/') + 1);
        return name == "flatpak" || name == "snap" ? QString() : args.at(i);
    }
    return QString();
}
