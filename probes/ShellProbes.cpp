#include "probes/ShellProbes.h"

#include "probes/ProbeText.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTextStream>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#ifdef Q_OS_MACOS
#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#endif

QString StrUserName;
QString StrUserPath;
QString strDefaultBrowser;

int RunShell(const QString &command)
{
    return std::system(QFile::encodeName(command).constData());
}

QStringList ReadProbeLines(const QString &file)
{
    QStringList lines;
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return lines;
    QTextStream in(&f);
    while (!in.atEnd())
        lines << in.readLine();
    return lines;
}

namespace
{

#ifdef Q_OS_MACOS
constexpr bool OnMac = true;
#else
constexpr bool OnMac = false;
#endif

QString TempFile()
{
    return OwnFixedPath(ProbeFiles::TempFile);
}

// The output files sit in /var/tmp, where anybody may plant a link under their names, and the
// shell's ">" and ">>" follow links. So whatever is there is removed (a link itself, never what it
// points to) and an empty file of our own is created in its place without following links, before
// the command runs: /var/tmp is sticky, so from then on nobody else can replace it. False when the
// name could not be claimed (an entry of another user that we may not remove); the command must
// not run then.
bool ClaimOutputFile(const QString &file)
{
    const QByteArray name = QFile::encodeName(file);
    if (::unlink(name.constData()) != 0 && errno != ENOENT)
        return false;
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

// Runs command, reads the output file, removes it. False when the file could not be claimed.
bool RunAndRead(const QString &command, const QString &file, QStringList *lines)
{
    if (!ClaimOutputFile(file))
        return false;
    RunShell(command);
    *lines = ReadProbeLines(file);
    QFile::remove(file);
    return true;
}

uint Uid()
{
    return uint(geteuid());
}

// A free-space probe: ProbeUnusable when its output file cannot be claimed.
qint64 FreeBytes(const QString &command, qint64 (*parse)(const QStringList &))
{
    QStringList lines;
    return RunAndRead(command, TempFile(), &lines) ? parse(lines) : ProbeUnusable;
}

QString ConsoleUser()
{
#ifdef Q_OS_MACOS
    QString name;
    if (CFStringRef user = SCDynamicStoreCopyConsoleUser(nullptr, nullptr, nullptr)) {
        char buffer[256] = {};
        if (CFStringGetCString(user, buffer, sizeof buffer, CFStringGetSystemEncoding()))
            name = QString::fromLocal8Bit(buffer);
        CFRelease(user);
    }
    return name;
#else
    const passwd *pw = getpwuid(geteuid());
    return pw ? QString::fromLocal8Bit(pw->pw_name) : QString();
#endif
}

#ifdef Q_OS_MACOS
QString MacDefaultBrowser()
{
    const QString output = OwnFixedPath(ProbeFiles::Browser);
    const QString paths = OwnFixedPath(ProbeFiles::BrowserPath);
    QFile::remove(OwnFixedPath(ProbeFiles::DotBrowser));
    if (ClaimOutputFile(output))
        RunShell(MacProbe::DefaultsReadCommand(StrUserName, Uid()));
    const QString handler = MacProbe::FindHandlerLine(ReadProbeLines(output));
    const QString browser = MacProbe::CleanBrowserName(MacProbe::BrowserFromHandlerLine(handler));
    QFile::remove(output);
    if (StrUserName == "root" || browser.isEmpty())
        return browser;

    QFile::remove(output);
    RunShell("locate lsregister -kill -r -f -domain local -domain system -domain user");
    if (ProbeBootOSVersion(false).contains("10.6"))
        return browser;
    const QString app = "/Applications/" + browser + ".app";
    if (QFileInfo(app).isDir())
        return app;
    if (ClaimOutputFile(paths))
        RunShell(MacProbe::LsregisterCommand(browser, Uid()));
    const QString path = MacProbe::PickBrowserPath(ReadProbeLines(paths), browser,
                                                   [](const QString &p) { return QFileInfo(p).isDir(); });
    QFile::remove(paths);
    return path.isEmpty() ? browser : path;
}
#else
QString LinuxDefaultBrowser()
{
    const QString output = OwnFixedPath(ProbeFiles::Browser);
    QFile::remove(OwnFixedPath(ProbeFiles::DotBrowser));
    // The command appends: a file left by an earlier, interrupted probe must not answer for it.
    if (ClaimOutputFile(output))
        RunShell(LinuxProbe::DefaultBrowserCommand(Uid()));
    QString id;
    for (const QString &line : ReadProbeLines(output)) {
        if (!line.trimmed().isEmpty()) {
            id = line.trimmed();
            break;
        }
    }
    QFile::remove(output);
    if (!id.endsWith(".desktop") || id.contains('/'))
        return QString();

    const QString entry = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, id);
    QFile file(entry);
    if (entry.isEmpty() || !file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    const QString program = LinuxProbe::ExecProgram(QString::fromUtf8(file.readAll()));
    if (program.isEmpty())
        return QString();
    if (QDir::isAbsolutePath(program)) {
        const QFileInfo info(program);
        return info.isFile() && info.isExecutable() ? info.absoluteFilePath() : QString();
    }
    return program.contains('/') ? QString() : QStandardPaths::findExecutable(program);
}
#endif

} // namespace

QString OwnFixedPath(const char *name)
{
    return ProbeFiles::ForUser(name, Uid());
}

qint64 ProbeFreeBytesRepairPage(const QString &path)
{
    return OnMac
               ? FreeBytes(MacProbe::FreeSpaceCommandRepairPage(path, Uid()),
                           MacProbe::ParseFreeSpaceRepairPage)
               : FreeBytes(LinuxProbe::FreeSpaceCommandRepairPage(path, Uid()), LinuxProbe::ParseDfAvailable);
}

qint64 ProbeFreeBytesSavePage(const QString &volume)
{
    return OnMac
               ? FreeBytes(MacProbe::FreeSpaceCommandSavePage(volume, Uid()),
                           MacProbe::ParseFreeSpaceSavePage)
               : FreeBytes(LinuxProbe::FreeSpaceCommandSavePage(volume, Uid()), LinuxProbe::ParseDfAvailable);
}

QString ProbeBootOSVersion(bool powerPc)
{
    if (!ClaimOutputFile(TempFile()))
        return QString();
    RunShell(OnMac ? MacProbe::OsVersionCommand(powerPc, Uid()) : LinuxProbe::OsVersionCommand(Uid()));
    QFile file(TempFile());
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    QTextStream in(&file);
    const QString first = in.readLine();
    // The output file is left in place; the next probe removes it before it runs.
    return OnMac ? MacProbe::ParseOsVersion(first) : LinuxProbe::ParseOsVersion(first);
}

QString ProbeDefaultBrowser()
{
    StrUserName = ConsoleUser();
    StrUserPath = OnMac ? MacProbe::UserHomePrefix(StrUserName) : LinuxProbe::UserHomePrefix(StrUserName);
#ifdef Q_OS_MACOS
    return MacDefaultBrowser();
#else
    return LinuxDefaultBrowser();
#endif
}
