// The probes: commands and parsers of both platforms on canned output; the Linux probes for real,
// quoting through a real shell, and links planted at their fixed output files.
#include "Bytes.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "probes/ShellQuote.h"

#include <QtTest>

#include <sys/statvfs.h>
#include <unistd.h>

namespace
{
const QString Hostile = QString::fromUtf8("a b 'c' \"d\" ;e $(touch ran1) `touch ran2`\nf Ünï ビデオ");
} // namespace

class TstProbes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Only what the tables say is quoted; an unquoted path is quoted when a shell would split it.
    void texts_data()
    {
        QTest::addColumn<QString>("got");
        QTest::addColumn<QString>("expected");
        auto row = [](const char *name, const QString &got, const QString &expected) {
            QTest::newRow(name) << got << expected;
        };
        // Each account's output files carry its user id: 501 on the Mac, 1000 on Linux.
        const QString grepFree = " | grep 'Free Space:' >> /var/tmp/TempFile-501";
        row("mac free space, repair page", MacProbe::FreeSpaceCommandRepairPage("/Volumes/Data", 501),
            "diskutil info /Volumes/Data" + grepFree);
        row("mac free space, repair page, a blank", MacProbe::FreeSpaceCommandRepairPage("/Volumes/A B", 501),
            "diskutil info '/Volumes/A B'" + grepFree);
        row("mac free space, save page", MacProbe::FreeSpaceCommandSavePage("/Volumes/Data", 501),
            "diskutil info '/Volumes/Data'" + grepFree);
        row("mac version", MacProbe::OsVersionCommand(false, 501),
            "sw_vers | grep ProductVersion >>/var/tmp/TempFile-501");
        row("mac version, PowerPC", MacProbe::OsVersionCommand(true, 501),
            "sw_vers | grep ProductVersion >& /var/tmp/TempFile-501");
        row("mac browser, a user", MacProbe::DefaultsReadCommand("anna", 501),
            "defaults read /Users/anna/Library/Preferences/com.apple.LaunchServices >> /var/tmp/browser-501");
        row("mac browser, root", MacProbe::DefaultsReadCommand("root", 501),
            "defaults read /private/var/root/Library/Preferences/com.apple.LaunchServices >> "
            "/var/tmp/browser-501");
        row("mac browser path", MacProbe::LsregisterCommand("Firefox", 501),
            "/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks/"
            "LaunchServices.framework/"
            "Versions/A/Support/lsregister -dump | grep --after-context 1 ^bundle | grep --only-matching "
            "'/.*Firefox.app' >> /var/tmp/browserPath-501");
        row("linux free space, repair page", LinuxProbe::FreeSpaceCommandRepairPage("/", 1000),
            "timeout 10 df -P -B1 / >> /var/tmp/TempFile-1000");
        row("linux free space, save page", LinuxProbe::FreeSpaceCommandSavePage("/media/a", 1000),
            "timeout 10 df -P -B1 '/media/a' >> /var/tmp/TempFile-1000");
        row("linux version", LinuxProbe::OsVersionCommand(1000),
            "grep VERSION_ID /etc/os-release >>/var/tmp/TempFile-1000");
        row("linux browser", LinuxProbe::DefaultBrowserCommand(1000),
            "xdg-settings get default-web-browser >> /var/tmp/browser-1000");
        row("an account's working folder", ProbeFiles::ForUser(ProbeFiles::RepairTemp, 7),
            "/var/tmp/.CorvaneVideoRepairTemp-7");

        auto bytes = [](qint64 n) { return QString::number(n); };
        row("free space, repair page: the exact count of a volume line",
            bytes(MacProbe::ParseFreeSpaceRepairPage(
                {"   Volume Free Space:  100.2 GB (100234567890 Bytes) (exactly 195770640 512-Byte-Units)"})),
            "100234567890");
        row("free space, repair page: a unit that is not bytes is skipped",
            bytes(MacProbe::ParseFreeSpaceRepairPage({"   Volume Free Space: 1 GB (1073741824 Blocks)",
                                                      "   Free Space: 2 GB (2147483648 Bytes)"})),
            "2147483648");
        // Below a terabyte the figure is truncated to whole units first.
        row("free space, save page: 12.9 GB",
            bytes(MacProbe::ParseFreeSpaceSavePage(
                {"   Volume Free Space:        12.9 GB (13851840512 Bytes)"})),
            "12884901888");
        row("free space, save page: 1.5 TB",
            bytes(MacProbe::ParseFreeSpaceSavePage({"   Volume Free Space: 1.5 TB (1649267441664 Bytes)"})),
            "1649267441664");
        row("free space, save page: unknown unit skipped",
            bytes(MacProbe::ParseFreeSpaceSavePage({"   Free Space: 5 PX", "   Free Space: 2 MB"})),
            "2097152");
        row("free space, save page: huge figure held",
            bytes(MacProbe::ParseFreeSpaceSavePage({"   Free Space: 1e30 TB"})),
            bytes(std::numeric_limits<qint64>::max()));
        row("df: mount point with blanks",
            bytes(LinuxProbe::ParseDfAvailable({"Filesystem 1-blocks Used Available Capacity Mounted on",
                                                "/dev/sdb1 1000 400 600 40% /media/My Disk"})),
            "600");
        row("df: nothing", bytes(LinuxProbe::ParseDfAvailable({})), "0");
        row("mac version line", MacProbe::ParseOsVersion("ProductVersion:\t10.9.5"), "10.9.5");
        row("linux version line", LinuxProbe::ParseOsVersion("VERSION_ID=\"12\""), "12");
        row("no version line", LinuxProbe::ParseOsVersion(""), "");

        auto browser = [](const QStringList &defaults) {
            return MacProbe::CleanBrowserName(
                MacProbe::BrowserFromHandlerLine(MacProbe::FindHandlerLine(defaults)));
        };
        auto handler = [](const QString &id, const QString &scheme) {
            return QStringList{"    {",
                               "        LSHandlerPreferredVersions =         {",
                               "            LSHandlerRoleAll = \"-\";",
                               "        };",
                               "        LSHandlerRoleAll = \"" + id + "\";",
                               "        LSHandlerURLScheme = " + scheme + ";",
                               "    },"};
        };
        row("mac browser: firefox", browser(handler("org.mozilla.firefox2", "http")), "firefox");
        row("mac browser: chrome", browser(handler("com.google.chrome", "http")), "Google Chrome");
        row("mac browser: explorer", browser(handler("com.microsoft.explorer", "http")), "Internet Explorer");
        row("mac browser: role on the scheme line",
            browser({"{ LSHandlerRoleAll = \"com.apple.safari\"; LSHandlerURLScheme = http; }"}), "safari");
        row("mac browser: only mailto", browser(handler("com.apple.mail", "mailto")), "");
        const QStringList dump{"/Users/anna/.Trash/Firefox.app", "/Volumes/Old/Firefox.app",
                               "/Users/anna/Applications/Firefox.app", "/Applications/Firefox.app"};
        const auto isDir = [](const QString &p) { return p != "/Volumes/Old/Firefox.app"; };
        row("mac browser path: not in the Trash, a folder", MacProbe::PickBrowserPath(dump, "firefox", isDir),
            "/Users/anna/Applications/Firefox.app");
        row("mac browser path: none", MacProbe::PickBrowserPath(dump, "opera", isDir), "");

        // The entry's own Exec line; a sandbox's launcher cannot take a page as its only argument.
        const QString head = "[Desktop Entry]\nType=Application\nName=Browser\n";
        row("exec line",
            LinuxProbe::ExecProgram("[Desktop Action new]\nExec=/bin/wrong\n" + head +
                                    "Exec=/bin/right %u\n[Desktop Action p]\nExec=/bin/no\n"),
            "/bin/right");
        row("exec line: flatpak",
            LinuxProbe::ExecProgram(head + "Exec=/usr/bin/flatpak run org.example.Web @@u %u @@\n"), "");
        row("exec line: snap", LinuxProbe::ExecProgram(head + "Exec=snap run web %u\n"), "");

    }

    void texts()
    {
        QFETCH(QString, got);
        QFETCH(QString, expected);
        QCOMPARE(got, expected);
    }

    void quotedPathSurvivesShell_data()
    {
        QTest::addColumn<bool>("onlyIfNeeded");
        QTest::newRow("ShellQuote") << false;
        QTest::newRow("ShellQuoteIfNeeded") << true;
    }

    void quotedPathSurvivesShell()
    {
        QFETCH(bool, onlyIfNeeded);
        const auto quote = onlyIfNeeded ? ShellQuoteIfNeeded : ShellQuote;
        QTemporaryDir dir;
        const QString copy = dir.filePath(Hostile + " copy.mov");
        // Run from inside the folder, where an unquoted touch would leave its marker.
        const QString cd = "cd " + quote(dir.path()) + " && ";
        QCOMPARE(RunShell(cd + "printf '%s' " + quote(Hostile) + " > " + quote(copy)), 0);
        QCOMPARE(QString::fromUtf8(Bytes::ReadFile(copy)), Hostile);
        QVERIFY(!QFile::exists(dir.filePath("ran1")) && !QFile::exists(dir.filePath("ran2")));
        QCOMPARE(RunShell("rm " + quote(copy)), 0);
        QVERIFY(!QFile::exists(copy));
    }

    void realFreeSpace()
    {
        struct statvfs fs = {};
        QCOMPARE(statvfs("/", &fs), 0);
        const double expected = double(fs.f_bavail) * double(fs.f_frsize);
        const qint64 repairPage = ProbeFreeBytesRepairPage("/");
        QVERIFY(repairPage > 0);
        QVERIFY2(qAbs(repairPage - expected) <= expected / 100, qPrintable(QString::number(repairPage)));
        QVERIFY(!QFile::exists(OwnFixedPath(ProbeFiles::TempFile)));

        // A folder with blanks and quotes in its name is quoted and measured; a missing one is 0.
        QTemporaryDir dir;
        const QString odd = dir.filePath("it's a \"folder\"");
        QVERIFY(QDir().mkpath(odd));
        QVERIFY(ProbeFreeBytesSavePage(odd) > 0);
        QCOMPARE(ProbeFreeBytesSavePage(dir.filePath("missing")), qint64(0));
    }

    void realOsVersion() { QCOMPARE(ProbeBootOSVersion(false), QSysInfo::productVersion()); }

    void defaultBrowserFromDesktopEntry()
    {
        if (QStandardPaths::findExecutable("xdg-settings").isEmpty())
            QSKIP("xdg-settings (xdg-utils) is not installed");
        QTemporaryDir xdg;
        const QString program = xdg.filePath("bin dir/fake-browser");
        for (const char *sub : {"bin dir", "data/applications", "config"})
            QVERIFY(QDir().mkpath(xdg.filePath(sub)));
        QVERIFY(Bytes::WriteProgram(program, ""));
        QVERIFY(Bytes::WriteFile(xdg.filePath("data/applications/corvane-test-browser.desktop"),
                                 "[Desktop Entry]\nType=Application\nName=Test Browser\nExec=env A=1 \"" +
                                     program.toUtf8() + "\" %u\n"));
        QVERIFY(
            Bytes::WriteFile(xdg.filePath("config/mimeapps.list"),
                             "[Default Applications]\nx-scheme-handler/http=corvane-test-browser.desktop\n"
                             "x-scheme-handler/https=corvane-test-browser.desktop\n"));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(xdg.filePath("config")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(xdg.filePath("data")));
        qputenv("XDG_DATA_DIRS", QFile::encodeName(xdg.filePath("none")));
        qunsetenv("XDG_CURRENT_DESKTOP");
        qunsetenv("BROWSER");

        QCOMPARE(ProbeDefaultBrowser(), program);
        QCOMPARE(StrUserPath, getuid() == 0 ? QString("/root/") : QString("/home/"));
        QVERIFY(!StrUserName.isEmpty());
        QVERIFY(!QFile::exists(OwnFixedPath(ProbeFiles::Browser)));
    }

    // Links planted at the fixed output names are never written through; what cannot be removed
    // there makes the probe answer that it could not tell.
    void plantedOutputFiles()
    {
        QTemporaryDir dir;
        const QString victim = dir.filePath("victim");
        const QList<QPair<QString, std::function<QString()>>> probes{
            {OwnFixedPath(ProbeFiles::TempFile), [] { return QString::number(ProbeFreeBytesRepairPage("/") > 0); }},
            {OwnFixedPath(ProbeFiles::TempFile), [] { return QString::number(ProbeFreeBytesSavePage("/") > 0); }},
            {OwnFixedPath(ProbeFiles::TempFile), [] { return ProbeBootOSVersion(false); }},
            {OwnFixedPath(ProbeFiles::Browser), [] { return ProbeDefaultBrowser(); }}};
        for (const auto &probe : probes) {
            const QString expected = probe.second();
            QVERIFY(Bytes::WriteFile(victim, "not yours"));
            QFile::remove(probe.first);
            QVERIFY(QFile::link(victim, probe.first));
            QCOMPARE(probe.second(), expected);
            QCOMPARE(Bytes::ReadFile(victim), QByteArray("not yours"));
            QVERIFY(!QFileInfo(probe.first).isSymLink());
        }
        const QString own = OwnFixedPath(ProbeFiles::TempFile);
        QFile::remove(own);
        const auto removed = qScopeGuard([&own] { QDir(own).removeRecursively(); });
        QVERIFY(QDir().mkdir(own) && Bytes::WriteFile(own + "/in", "x"));
        QCOMPARE(ProbeFreeBytesRepairPage("/"), -1); // could not be checked
        QCOMPARE(ProbeBootOSVersion(false), QString());
        QCOMPARE(Bytes::ReadFile(own + "/in"), QByteArray("x"));
    }
};

QTEST_GUILESS_MAIN(TstProbes)
#include "tst_probes.moc"
