// The probes running for real on this machine, and shell quoting through a real shell.
#include "probes/ShellProbes.h"
#include "probes/ShellQuote.h"

#include <QtTest>

#include <sys/statvfs.h>
#include <unistd.h>

class TestShellProbes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void quotedPathSurvivesShell_data();
    void quotedPathSurvivesShell();
    void freeSpace();
    void osVersion();
    void defaultBrowserFromDesktopEntry();
    void previewProcessLookup();
};

namespace
{

const QString Hostile = QString::fromUtf8("a b 'c' \"d\" ;e $(touch ran1) `touch ran2`\nf Ünï ビデオ");

QByteArray ReadAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

void TestShellProbes::quotedPathSurvivesShell_data()
{
    QTest::addColumn<bool>("onlyIfNeeded");
    QTest::newRow("ShellQuote") << false;
    QTest::newRow("ShellQuoteIfNeeded") << true;
}

void TestShellProbes::quotedPathSurvivesShell()
{
    QFETCH(bool, onlyIfNeeded);
    const auto quote = onlyIfNeeded ? ShellQuoteIfNeeded : ShellQuote;
    QTemporaryDir dir;
    const QString source = dir.filePath(Hostile + ".mov");
    const QString copy = dir.filePath(Hostile + " copy.mov");
    {
        QFile f(source);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("payload");
    }
    // Run from inside the folder, where an unquoted touch would leave its marker.
    const QString cd = "cd " + quote(dir.path()) + " && ";
    QCOMPARE(RunShell(cd + "cp " + quote(source) + " " + quote(copy)), 0);
    QCOMPARE(ReadAll(copy), QByteArray("payload"));
    QCOMPARE(RunShell(cd + "printf '%s' " + quote(Hostile) + " > out"), 0);
    QCOMPARE(QString::fromUtf8(ReadAll(dir.filePath("out"))), Hostile);
    QVERIFY(!QFile::exists(dir.filePath("ran1")));
    QVERIFY(!QFile::exists(dir.filePath("ran2")));
    QCOMPARE(RunShell("rm " + quote(copy)), 0);
    QVERIFY(!QFile::exists(copy));
}

void TestShellProbes::freeSpace()
{
    struct statvfs fs = {};
    QCOMPARE(statvfs("/", &fs), 0);
    const double expected = double(fs.f_bavail) * double(fs.f_frsize);
    const qint64 repairPage = ProbeFreeBytesRepairPage("/");
    QVERIFY(repairPage > 0);
    QVERIFY2(qAbs(repairPage - expected) <= expected / 100, qPrintable(QString::number(repairPage)));
    QVERIFY(!QFile::exists("/var/tmp/TempFile"));

    // A folder with blanks and quotes in its name: both forms quote it and measure its file system.
    QTemporaryDir dir;
    const QString odd = dir.filePath("it's a \"folder\"");
    QVERIFY(QDir().mkpath(odd));
    QVERIFY(qAbs(ProbeFreeBytesSavePage(odd) - expected) <= expected / 100 + 1e9); // /tmp may be another fs
    QVERIFY(ProbeFreeBytesRepairPage(odd) > 0);
    QCOMPARE(ProbeFreeBytesSavePage(dir.filePath("missing")), qint64(0));
}

void TestShellProbes::osVersion()
{
    QFile release("/etc/os-release");
    QVERIFY(release.open(QIODevice::ReadOnly | QIODevice::Text));
    QString expected;
    for (const QByteArray &line : release.readAll().split('\n'))
        if (line.startsWith("VERSION_ID="))
            expected = QString::fromUtf8(line.mid(11)).remove('"');
    QVERIFY(!expected.isEmpty());
    QCOMPARE(ProbeBootOSVersion(false), expected);
}

void TestShellProbes::defaultBrowserFromDesktopEntry()
{
    if (QStandardPaths::findExecutable("xdg-settings").isEmpty())
        QSKIP("xdg-settings (xdg-utils) is not installed");
    QTemporaryDir xdg;
    const QString program = xdg.filePath("bin dir/fake-browser");
    QVERIFY(QDir().mkpath(xdg.filePath("bin dir")));
    QVERIFY(QDir().mkpath(xdg.filePath("data/applications")));
    QVERIFY(QDir().mkpath(xdg.filePath("config")));
    {
        QFile p(program);
        QVERIFY(p.open(QIODevice::WriteOnly));
        p.write("#!/bin/sh\n");
        p.setPermissions(p.permissions() | QFile::ExeOwner);
        QFile entry(xdg.filePath("data/applications/corvane-test-browser.desktop"));
        QVERIFY(entry.open(QIODevice::WriteOnly));
        entry.write("[Desktop Entry]\nType=Application\nName=Test Browser\nExec=env A=1 \"" +
                    program.toUtf8() + "\" %u\n");
        QFile mime(xdg.filePath("config/mimeapps.list"));
        QVERIFY(mime.open(QIODevice::WriteOnly));
        mime.write("[Default Applications]\nx-scheme-handler/http=corvane-test-browser.desktop\n"
                   "x-scheme-handler/https=corvane-test-browser.desktop\n");
    }
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(xdg.filePath("config")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(xdg.filePath("data")));
    qputenv("XDG_DATA_DIRS", QFile::encodeName(xdg.filePath("none")));
    qunsetenv("XDG_CURRENT_DESKTOP");
    qunsetenv("BROWSER");

    QCOMPARE(ProbeDefaultBrowser(), program);
    QCOMPARE(StrUserPath, getuid() == 0 ? QString("/root/") : QString("/home/"));
    QVERIFY(!StrUserName.isEmpty());
    QVERIFY(!QFile::exists("/var/tmp/browser"));
}

void TestShellProbes::previewProcessLookup()
{
    QTemporaryDir dir;
    const QString folder = dir.filePath("Bundle/VideoFileUtil.app/Contents/MacOS");
    QVERIFY(QDir().mkpath(folder));
    const QString fake = folder + "/VideoFileUtil";
    QVERIFY(QFile::copy(QStandardPaths::findExecutable("sleep"), fake));

    QProcess previewer;
    previewer.start(fake, {"60"});
    QVERIFY(previewer.waitForStarted());
    const unsigned int id = unsigned(previewer.processId());

    const QList<unsigned int> running = ProbePreviewProcessIds();
    QVERIFY(running.contains(id));
    QVERIFY2(running.size() >= 2, "the lookup's own grep line is collected too");
    QVERIFY(!QFile::exists("/var/tmp/TempFile"));
    QVERIFY(IsPreviewProcess(id));
    QVERIFY(!IsPreviewProcess(unsigned(getpid())));

    KillPreviewProcess(unsigned(getpid())); // not a previewer: nothing is sent
    KillPreviewProcess(id);
    QVERIFY(previewer.waitForFinished(5000));
    QCOMPARE(previewer.exitStatus(), QProcess::CrashExit);
    QVERIFY(!ProbePreviewProcessIds().contains(id));
}

QTEST_GUILESS_MAIN(TestShellProbes)
#include "tst_shellprobes.moc"
