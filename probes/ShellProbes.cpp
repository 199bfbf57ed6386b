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
    return QString::fromLatin1(ProbeFiles::TempFile);
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

// Runs command, reads the output file, removes it.
QStringList RunAndRead(const QString &command, const QString &file)
{
    if (!ClaimOutputFile(file))
        return QStringList();
    RunShell(command);
    const QStringList lines = ReadProbeLines(file);
    QFile::remove(file);
    return lines;
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
    QFile::remove(ProbeFiles::DotBrowser);
    if (ClaimOutputFile(ProbeFiles::Browser))
        RunShell(MacProbe::DefaultsReadCommand(StrUserName));
    const QString handler = MacProbe::FindHandlerLine(ReadProbeLines(ProbeFiles::Browser));
    const QString browser = MacProbe::CleanBrowserName(MacProbe::BrowserFromHandlerLine(handler));
    QFile::remove(ProbeFiles::Browser);
    if (StrUserName == "root" || browser.isEmpty())
        return browser;

    QFile::remove(ProbeFiles::Browser);
    RunShell("locate lsregister -kill -r -f -domain local -domain system -domain user");
    if (ProbeBootOSVersion(false).contains("10.6"))
        return browser;
    const QString app = "/Applications/" + browser + ".app";
    if (QFileInfo(app).isDir())
        return app;
    if (ClaimOutputFile(ProbeFiles::BrowserPath))
        RunShell(MacProbe::LsregisterCommand(browser));
    const QString path = MacProbe::PickBrowserPath(ReadProbeLines(ProbeFiles::BrowserPath), browser,
                                                   [](const QString &p) { return QFileInfo(p).isDir(); });
    QFile::remove(ProbeFiles::BrowserPath);
    return path.isEmpty() ? browser : path;
}
#else
QString LinuxDefaultBrowser()
{
    QFile::remove(ProbeFiles::DotBrowser);
    // The command appends: a file left by an earlier, interrupted probe must not answer for it.
    if (ClaimOutputFile(ProbeFiles::Browser))
        RunShell(LinuxProbe::DefaultBrowserCommand());
    QString id;
    for (const QString &line : ReadProbeLines(ProbeFiles::Browser)) {
        if (!line.trimmed().isEmpty()) {
            id = line.trimmed();
            break;
        }
    }
    QFile::remove(ProbeFiles::Browser);
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

qint64 ProbeFreeBytesRepairPage(const QString &path)
{
    if (OnMac)
        return MacProbe::ParseFreeSpaceRepairPage(
            RunAndRead(MacProbe::FreeSpaceCommandRepairPage(path), TempFile()));
    return LinuxProbe::ParseDfAvailable(RunAndRead(LinuxProbe::FreeSpaceCommandRepairPage(path), TempFile()));
}

qint64 ProbeFreeBytesSavePage(const QString &volume)
{
    if (OnMac)
        return MacProbe::ParseFreeSpaceSavePage(
            RunAndRead(MacProbe::FreeSpaceCommandSavePage(volume), TempFile()));
    return LinuxProbe::ParseDfAvailable(RunAndRead(LinuxProbe::FreeSpaceCommandSavePage(volume), TempFile()));
}

QString ProbeBootOSVersion(bool powerPc)
{
    if (!ClaimOutputFile(TempFile()))
        return QString();
    RunShell(OnMac ? MacProbe::OsVersionCommand(powerPc) : LinuxProbe::OsVersionCommand());
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

QList<unsigned int> ProbePreviewProcessIds()
{
    const QString command = OnMac ? MacProbe::PreviewProcessCommand() : LinuxProbe::PreviewProcessCommand();
    return ParsePreviewProcessIds(RunAndRead(command, TempFile()));
}

bool IsPreviewProcess(unsigned int id)
{
    if (id == 0)
        return false;
#ifdef Q_OS_MACOS
    return RunShell("ps -p " + QString::number(id) + " -o command= | grep -q " + PreviewerPathTail) == 0;
#else
    QFile cmdline("/proc/" + QString::number(id) + "/cmdline");
    if (!cmdline.open(QIODevice::ReadOnly))
        return false;
    return cmdline.readAll().contains(PreviewerPathTail);
#endif
}

void KillPreviewProcess(unsigned int id)
{
    if (IsPreviewProcess(id))
        RunShell("kill -9 " + QString::number(id));
}
