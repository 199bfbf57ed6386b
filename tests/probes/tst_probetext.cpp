// The probes' parsers, both platforms, on canned output.
#include "probes/ProbeText.h"

#include <QtTest>

class TestProbeText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freeSpace_data()
    {
        QTest::addColumn<int>("parser"); // 0 mac repair page, 1 mac save page, 2 df
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<qint64>("bytes");
        QTest::newRow("repair page: volume line")
            << 0
            << QStringList{"   Volume Free Space:        100.2 GB (100234567890 Bytes) (exactly 195770640 "
                           "512-Byte-Units)"}
            << qint64(100234567890);
        QTest::newRow("repair page: a unit that is not bytes is skipped")
            << 0
            << QStringList{"   Volume Free Space: 1 GB (1073741824 Blocks)",
                           "   Free Space: 2 GB (2147483648 Bytes)"}
            << qint64(2147483648);
        // Below a terabyte the figure is truncated to whole units first.
        QTest::newRow("save page: 12.9 GB")
            << 1 << QStringList{"   Volume Free Space:        12.9 GB (13851840512 Bytes)"}
            << qint64(12884901888);
        QTest::newRow("save page: 1.5 TB")
            << 1 << QStringList{"   Volume Free Space: 1.5 TB (1649267441664 Bytes)"}
            << qint64(1649267441664);
        QTest::newRow("save page: unknown unit skipped")
            << 1 << QStringList{"   Free Space: 5 PX", "   Free Space: 2 MB"} << qint64(2097152);
        QTest::newRow("save page: huge figure held")
            << 1 << QStringList{"   Free Space: 1e30 TB"} << std::numeric_limits<qint64>::max();
        QTest::newRow("df: mount point with blanks")
            << 2
            << QStringList{"Filesystem 1-blocks Used Available Capacity Mounted on",
                           "/dev/sdb1 1000 400 600 40% /media/My Disk"}
            << qint64(600);
        QTest::newRow("df: empty") << 2 << QStringList{} << qint64(0);
    }

    void freeSpace()
    {
        QFETCH(int, parser);
        QFETCH(QStringList, lines);
        QFETCH(qint64, bytes);
        const qint64 got = parser == 0   ? MacProbe::ParseFreeSpaceRepairPage(lines)
                           : parser == 1 ? MacProbe::ParseFreeSpaceSavePage(lines)
                                         : LinuxProbe::ParseDfAvailable(lines);
        QCOMPARE(got, bytes);
    }

    void osVersion()
    {
        QCOMPARE(MacProbe::ParseOsVersion("ProductVersion:\t10.9.5"), QString("10.9.5"));
        QCOMPARE(LinuxProbe::ParseOsVersion("VERSION_ID=\"12\""), QString("12"));
        QCOMPARE(LinuxProbe::ParseOsVersion(""), QString());
    }

    void macBrowserName_data()
    {
        QTest::addColumn<QStringList>("defaults");
        QTest::addColumn<QString>("browser");
        const auto handler = [](const QString &id, const QString &scheme) {
            return QStringList{"    {", "        LSHandlerPreferredVersions =         {",
                               "            LSHandlerRoleAll = \"-\";", "        };",
                               "        LSHandlerRoleAll = \"" + id + "\";",
                               "        LSHandlerURLScheme = " + scheme + ";", "    },"};
        };
        QTest::newRow("firefox") << handler("org.mozilla.firefox", "http") << "firefox";
        QTest::newRow("chrome") << handler("com.google.chrome", "http") << "Google Chrome";
        QTest::newRow("role on the scheme line")
            << QStringList{"{ LSHandlerRoleAll = \"com.apple.safari\"; LSHandlerURLScheme = http; }"}
            << "safari";
        QTest::newRow("only mailto") << handler("com.apple.mail", "mailto") << "";
    }

    void macBrowserName()
    {
        QFETCH(QStringList, defaults);
        QFETCH(QString, browser);
        const QString line = MacProbe::FindHandlerLine(defaults);
        QCOMPARE(MacProbe::CleanBrowserName(MacProbe::BrowserFromHandlerLine(line)), browser);
    }

    void macBrowserPath()
    {
        const QStringList dump{"/Users/anna/.Trash/Firefox.app", "/Volumes/Old/Firefox.app",
                               "/Users/anna/Applications/Firefox.app", "/Applications/Firefox.app"};
        const auto isDir = [&](const QString &p) { return p != "/Volumes/Old/Firefox.app"; };
        QCOMPARE(MacProbe::PickBrowserPath(dump, "firefox", isDir),
                 QString("/Users/anna/Applications/Firefox.app"));
        QCOMPARE(MacProbe::PickBrowserPath(dump, "opera", isDir), QString());
    }

    // The entry's own Exec line, not an action's; env and quoting are run for real in tst_shellprobes.
    // A sandbox's launcher cannot take a page as its only argument.
    void execProgram()
    {
        const QString head = "[Desktop Entry]\nType=Application\nName=Browser\n";
        QCOMPARE(LinuxProbe::ExecProgram("[Desktop Action new]\nExec=/bin/wrong\n" + head +
                                         "Exec=/bin/right %u\n[Desktop Action p]\nExec=/bin/no\n"),
                 QString("/bin/right"));
        for (const char *exec : {"/usr/bin/flatpak run org.example.Web @@u %u @@", "snap run web %u"})
            QCOMPARE(LinuxProbe::ExecProgram(head + "Exec=" + exec + "\n"), QString());
    }

    // Every account has its own output files: another's leftovers never answer for it.
    void commandsNameTheUsersFiles()
    {
        QCOMPARE(LinuxProbe::FreeSpaceCommandRepairPage("/", 1000),
                 QString("timeout 10 df -P -B1 / >> /var/tmp/TempFile-1000"));
        QCOMPARE(MacProbe::OsVersionCommand(true, 501),
                 QString("sw_vers | grep ProductVersion >& /var/tmp/TempFile-501"));
        QCOMPARE(ProbeFiles::ForUser(ProbeFiles::RepairTemp, 7),
                 QString("/var/tmp/.CorvaneVideoRepairTemp-7"));
    }
};

QTEST_APPLESS_MAIN(TestProbeText)
#include "tst_probetext.moc"
