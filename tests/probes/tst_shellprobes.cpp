// The probes running for real on this machine, and shell quoting through a real shell.
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

class TestShellProbes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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

    void freeSpace()
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

    void osVersion()
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

    void defaultBrowserFromDesktopEntry()
    {
        if (QStandardPaths::findExecutable("xdg-settings").isEmpty())
            QSKIP("xdg-settings (xdg-utils) is not installed");
        QTemporaryDir xdg;
        const QString program = xdg.filePath("bin dir/fake-browser");
        for (const char *sub : {"bin dir", "data/applications", "config"})
            QVERIFY(QDir().mkpath(xdg.filePath(sub)));
        QVERIFY(Bytes::WriteFile(program, "#!/bin/sh\n"));
        QVERIFY(QFile::setPermissions(program, QFile::permissions(program) | QFile::ExeOwner));
        QVERIFY(Bytes::WriteFile(xdg.filePath("data/applications/corvane-test-browser.desktop"),
                                 "[Desktop Entry]\nType=Application\nName=Test Browser\nExec=env A=1 \"" +
                                     program.toUtf8() + "\" %u\n"));
        QVERIFY(Bytes::WriteFile(xdg.filePath("config/mimeapps.list"),
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
};

QTEST_GUILESS_MAIN(TestShellProbes)
#include "tst_shellprobes.moc"
