// Command texts and parsers of the shell probes, both platforms, on canned output.
#include "probes/ProbeText.h"
#include "probes/ShellQuote.h"

#include <QtTest>

class TestProbeText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void quoting_data();
    void quoting();
    void commands_data();
    void commands();

    void macFreeSpaceRepairPage_data();
    void macFreeSpaceRepairPage();
    void macFreeSpaceSavePage_data();
    void macFreeSpaceSavePage();
    void dfAvailable_data();
    void dfAvailable();
    void osVersion_data();
    void osVersion();

    void macBrowserName_data();
    void macBrowserName();
    void macBrowserPath();
    void execProgram_data();
    void execProgram();

    void previewProcessIds();
};

void TestProbeText::quoting_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("quoted");
    QTest::addColumn<QString>("ifNeeded");
    QTest::newRow("plain path") << "/Users/me/a.mov"
                                << "'/Users/me/a.mov'"
                                << "/Users/me/a.mov";
    QTest::newRow("non-ASCII letters")
        << QString::fromUtf8("/tmp/Ünï/ビデオ.mov") << QString::fromUtf8("'/tmp/Ünï/ビデオ.mov'")
        << QString::fromUtf8("/tmp/Ünï/ビデオ.mov");
    QTest::newRow("blank") << "/Volumes/My Disk"
                           << "'/Volumes/My Disk'"
                           << "'/Volumes/My Disk'";
    QTest::newRow("single quote") << "it's"
                                  << "'it'\\''s'"
                                  << "'it'\\''s'";
    QTest::newRow("newline") << "a\nb"
                             << "'a\nb'"
                             << "'a\nb'";
}

void TestProbeText::quoting()
{
    QFETCH(QString, text);
    QFETCH(QString, quoted);
    QFETCH(QString, ifNeeded);
    QCOMPARE(ShellQuote(text), quoted);
    QCOMPARE(ShellQuoteIfNeeded(text), ifNeeded);
}

void TestProbeText::commands_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("expected");
    QTest::newRow("mac free space, repair page, blank")
        << MacProbe::FreeSpaceCommandRepairPage("/Volumes/My Disk")
        << "diskutil info '/Volumes/My Disk' | grep 'Free Space:' >> /var/tmp/TempFile";
    QTest::newRow("mac free space, save page") << MacProbe::FreeSpaceCommandSavePage("/Volumes/Backup")
                                               << "diskutil info '/Volumes/Backup' | grep 'Free Space:' >> "
                                                  "/var/tmp/TempFile";
    QTest::newRow("mac version") << MacProbe::OsVersionCommand(false)
                                 << "sw_vers | grep ProductVersion >>/var/tmp/TempFile";
    QTest::newRow("mac version, PowerPC")
        << MacProbe::OsVersionCommand(true) << "sw_vers | grep ProductVersion >& /var/tmp/TempFile";
    QTest::newRow("mac defaults")
        << MacProbe::DefaultsReadCommand("anna")
        << "defaults read /Users/anna/Library/Preferences/com.apple.LaunchServices >> "
           "/var/tmp/browser";
    QTest::newRow("mac lsregister")
        << MacProbe::LsregisterCommand("firefox")
        << "/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks/"
           "LaunchServices.framework/Versions/A/Support/lsregister -dump | grep "
           "--after-context 1 ^bundle | grep --only-matching '/.*firefox.app' >> "
           "/var/tmp/browserPath";
    QTest::newRow("mac ps")
        << MacProbe::PreviewProcessCommand()
        << "ps -A | grep /VideoFileUtil.app/Contents/MacOS/VideoFileUtil > /var/tmp/TempFile";
    QTest::newRow("linux free space, save page")
        << LinuxProbe::FreeSpaceCommandSavePage("/media/it's")
        << "timeout 10 df -P -B1 '/media/it'\\''s' >> /var/tmp/TempFile";
}

void TestProbeText::commands()
{
    QFETCH(QString, command);
    QFETCH(QString, expected);
    QCOMPARE(command, expected);
}

void TestProbeText::macFreeSpaceRepairPage_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<qint64>("bytes");
    QTest::newRow("volume line") << QStringList{"   Volume Free Space:        100.2 GB (100234567890 Bytes) "
                                                "(exactly 195770640 512-Byte-Units)"}
                                 << qint64(100234567890);
    QTest::newRow("older line; a unit that is not bytes is skipped")
        << QStringList{"   Volume Free Space: 1 GB (1073741824 Blocks)",
                       "   Free Space: 2 GB (2147483648 Bytes)"}
        << qint64(2147483648);
}

void TestProbeText::macFreeSpaceRepairPage()
{
    QFETCH(QStringList, lines);
    QFETCH(qint64, bytes);
    QCOMPARE(MacProbe::ParseFreeSpaceRepairPage(lines), bytes);
}

void TestProbeText::macFreeSpaceSavePage_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<qint64>("bytes");
    // Below a terabyte the figure is truncated to whole units first.
    QTest::newRow("12.9 GB") << QStringList{"   Volume Free Space:        12.9 GB (13851840512 Bytes)"}
                             << qint64(12884901888);
    QTest::newRow("1.5 TB") << QStringList{"   Volume Free Space: 1.5 TB (1649267441664 Bytes)"}
                            << qint64(1649267441664);
    QTest::newRow("MB") << QStringList{"   Free Space: 512.6 MB (537500000 Bytes)"} << qint64(536870912);
    QTest::newRow("unknown unit skipped")
        << QStringList{"   Free Space: 5 PX", "   Free Space: 2 MB"} << qint64(2097152);
    QTest::newRow("huge figure held")
        << QStringList{"   Free Space: 1e30 TB"} << std::numeric_limits<qint64>::max();
}

void TestProbeText::macFreeSpaceSavePage()
{
    QFETCH(QStringList, lines);
    QFETCH(qint64, bytes);
    QCOMPARE(MacProbe::ParseFreeSpaceSavePage(lines), bytes);
}

void TestProbeText::dfAvailable_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<qint64>("bytes");
    QTest::newRow("root")
        << QStringList{"Filesystem         1-blocks        Used   Available Capacity Mounted on",
                       "/dev/vda       270553174016 17528176640 85217103872      18% /"}
        << qint64(85217103872);
    QTest::newRow("mount point with blanks")
        << QStringList{"Filesystem 1-blocks Used Available Capacity Mounted on",
                       "/dev/sdb1 1000 400 600 40% /media/My Disk"}
        << qint64(600);
    QTest::newRow("empty") << QStringList{} << qint64(0);
}

void TestProbeText::dfAvailable()
{
    QFETCH(QStringList, lines);
    QFETCH(qint64, bytes);
    QCOMPARE(LinuxProbe::ParseDfAvailable(lines), bytes);
}

void TestProbeText::osVersion_data()
{
    QTest::addColumn<bool>("mac");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("version");
    QTest::newRow("mac tab") << true << "ProductVersion:\t10.9.5"
                             << "10.9.5";
    QTest::newRow("linux quoted") << false << "VERSION_ID=\"12\""
                                  << "12";
    QTest::newRow("linux empty") << false << ""
                                 << "";
}

void TestProbeText::osVersion()
{
    QFETCH(bool, mac);
    QFETCH(QString, line);
    QFETCH(QString, version);
    QCOMPARE(mac ? MacProbe::ParseOsVersion(line) : LinuxProbe::ParseOsVersion(line), version);
}

void TestProbeText::macBrowserName_data()
{
    QTest::addColumn<QStringList>("defaults");
    QTest::addColumn<QString>("browser");
    const auto handler = [](const QString &id, const QString &scheme) {
        return QStringList{"    {",
                           "        LSHandlerPreferredVersions =         {",
                           "            LSHandlerRoleAll = \"-\";",
                           "        };",
                           "        LSHandlerRoleAll = \"" + id + "\";",
                           "        LSHandlerURLScheme = " + scheme + ";",
                           "    },"};
    };
    QTest::newRow("firefox") << handler("org.mozilla.firefox", "http") << "firefox";
    QTest::newRow("chrome") << handler("com.google.chrome", "http") << "Google Chrome";
    QTest::newRow("role on the scheme line")
        << QStringList{"{ LSHandlerRoleAll = \"com.apple.safari\"; LSHandlerURLScheme = http; }"} << "safari";
    QTest::newRow("no role line before") << QStringList{"    {", "        LSHandlerURLScheme = http;"} << "";
    QTest::newRow("only mailto") << handler("com.apple.mail", "mailto") << "";
}

void TestProbeText::macBrowserName()
{
    QFETCH(QStringList, defaults);
    QFETCH(QString, browser);
    const QString line = MacProbe::FindHandlerLine(defaults);
    QCOMPARE(MacProbe::CleanBrowserName(MacProbe::BrowserFromHandlerLine(line)), browser);
}

void TestProbeText::macBrowserPath()
{
    const QStringList dump{"/Users/anna/.Trash/Firefox.app", "/Volumes/Old/Firefox.app",
                           "/Users/anna/Applications/Firefox.app", "/Applications/Firefox.app"};
    const QSet<QString> folders{"/Users/anna/.Trash/Firefox.app", "/Users/anna/Applications/Firefox.app",
                                "/Applications/Firefox.app"};
    const auto isDir = [&](const QString &p) { return folders.contains(p); };
    QCOMPARE(MacProbe::PickBrowserPath(dump, "firefox", isDir),
             QString("/Users/anna/Applications/Firefox.app"));
    QCOMPARE(MacProbe::PickBrowserPath(dump, "opera", isDir), QString());
}

void TestProbeText::execProgram_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("program");
    const QString head = "[Desktop Entry]\nType=Application\nName=Browser\n";
    QTest::newRow("field code") << head + "Exec=/usr/lib/firefox-esr/firefox-esr %u\n"
                                << "/usr/lib/firefox-esr/firefox-esr";
    QTest::newRow("env") << head + "Exec=env MOZ_ENABLE_WAYLAND=1 A=b firefox --new-window %u\n"
                         << "firefox";
    QTest::newRow("quoted with blank") << head + "Exec=\"/opt/My Browser/run\" %u\n"
                                       << "/opt/My Browser/run";
    QTest::newRow("action group ignored") << "[Desktop Action new]\nExec=/bin/wrong\n" + head +
                                                 "Exec=/bin/right\n[Desktop Action p]\nExec=/bin/no\n"
                                          << "/bin/right";
}

void TestProbeText::execProgram()
{
    QFETCH(QString, entry);
    QFETCH(QString, program);
    QCOMPARE(LinuxProbe::ExecProgram(entry), program);
}

void TestProbeText::previewProcessIds()
{
    const QStringList mac{
        "  312 ??         0:01.20 /Applications/X.app/Contents/Resources/Corvane.app/Contents/"
        "Resources/VideoFileUtil.app/Contents/MacOS/VideoFileUtil /var/tmp/ a.mov",
        "  401 ttys000    0:00.00 grep /VideoFileUtil.app/Contents/MacOS/VideoFileUtil",
        "  402 ttys000    0:00.00 /usr/bin/other",
        "  x17 odd line /VideoFileUtil.app/Contents/MacOS/VideoFileUtil"};
    QCOMPARE(ParsePreviewProcessIds(mac), (QList<unsigned int>{312, 401}));
    const QStringList linux{"   77 /b/VideoFileUtil.app/Contents/MacOS/VideoFileUtil /tmp/ c.mp4",
                            "   78 grep /VideoFileUtil.app/Contents/MacOS/VideoFileUtil",
                            "    0 /VideoFileUtil.app/Contents/MacOS/VideoFileUtil"};
    QCOMPARE(ParsePreviewProcessIds(linux), (QList<unsigned int>{77, 78}));
}

QTEST_APPLESS_MAIN(TestProbeText)
#include "tst_probetext.moc"
