// The fixed names under /var/tmp are shared by the whole machine: a symbolic link planted under one
// of them must never lead the program to write where it points, and the program must still work.

#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "pages/repair/VideoRepairWindow.h"
#include "pages/save/SavingFinishDlg.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"

#include <QDir>
#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace
{

QByteArray ReadAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool Write(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

bool IsLink(const QString &path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 && S_ISLNK(st.st_mode);
}

int Mode(const QString &path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

enum Probe { FreeRepair, FreeSave, OsVersion, Browser };

QString RunProbe(int probe)
{
    switch (probe) {
    case FreeRepair:
        return QString::number(ProbeFreeBytesRepairPage("/") > 0);
    case FreeSave:
        return QString::number(ProbeFreeBytesSavePage("/") > 0);
    case OsVersion:
        return ProbeBootOSVersion(false);
    default:
        return ProbeDefaultBrowser();
    }
}

} // namespace

class TstVarLinks : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString Victim() const { return m_dir.filePath("victim"); }

    QString Clip()
    {
        const QString source = m_dir.filePath("clip.mp4");
        Fixtures::Clip clip;
        clip.seconds = 1;
        clip.size = "160x120";
        return QFileInfo::exists(source) || Fixtures::Make(source, clip) ? source : QString();
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Stand-ins: the reveal script's programs record their arguments, and rm can plant a link
        // again right after the page has removed its folder (the race an attacker would win).
        const QString bin = m_dir.filePath("bin");
        QDir().mkpath(bin);
        QVERIFY(Write(bin + "/xdg-open", QString("#!/bin/sh\nprintf '%s' \"$1\" > '%1'\n")
                                             .arg(m_dir.filePath("xdg-open.arg"))
                                             .toUtf8()));
        QVERIFY(Write(bin + "/dbus-send", "#!/bin/sh\nexit 1\n"));
        QVERIFY(Write(bin + "/rm", "#!/bin/sh\n/bin/rm \"$@\"; s=$?\n"
                                   "[ -n \"$REPLANT\" ] && [ \"$2\" = \"$REPLANT_AT\" ] && ln -s \"$REPLANT\" \"$2\"\n"
                                   "exit $s\n"));
        for (const char *name : {"xdg-open", "dbus-send", "rm"})
            QFile::setPermissions(bin + "/" + name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("PATH", bin.toUtf8() + ":" + qgetenv("PATH"));
    }

    void cleanup()
    {
        qunsetenv("REPLANT");
        for (const QString &path : {OwnFixedPath(ProbeFiles::TempFile), OwnFixedPath(ProbeFiles::Browser),
                                    OwnFixedPath(ProbeFiles::RevealScript), VideoRepairWindow::TempFolder()})
            if (IsLink(path))
                QFile::remove(path);
        QDir(VideoRepairWindow::TempFolder()).removeRecursively();
        QDir(Victim()).removeRecursively();
        QFile::remove(Victim());
    }

    void probes_data()
    {
        QTest::addColumn<int>("probe");
        QTest::addColumn<QString>("file");
        QTest::newRow("free space, repair page") << int(FreeRepair) << OwnFixedPath(ProbeFiles::TempFile);
        QTest::newRow("free space, save page") << int(FreeSave) << OwnFixedPath(ProbeFiles::TempFile);
        QTest::newRow("system version") << int(OsVersion) << OwnFixedPath(ProbeFiles::TempFile);
        QTest::newRow("default browser") << int(Browser) << OwnFixedPath(ProbeFiles::Browser);
    }

    void probes()
    {
        QFETCH(int, probe);
        QFETCH(QString, file);
        const QString expected = RunProbe(probe);
        QVERIFY(Write(Victim(), "not yours"));
        QFile::remove(file);
        QVERIFY(QFile::link(Victim(), file));
        QCOMPARE(RunProbe(probe), expected);
        QCOMPARE(ReadAll(Victim()), QByteArray("not yours"));
        QVERIFY(!IsLink(file));
    }

    void revealScript()
    {
        QVERIFY(Write(Victim(), "#!/bin/sh\nexit 0\n"));
        const QString script = OwnFixedPath(ProbeFiles::RevealScript);
        QFile::remove(script);
        QVERIFY(QFile::link(Victim(), script));
        const QString folder = m_dir.filePath("Repaired-Video-Files");
        SavingFinishDlg(nullptr, folder).ShowDestPath();
        QTRY_COMPARE(ReadAll(m_dir.filePath("xdg-open.arg")), QFile::encodeName(folder));
        QCOMPARE(ReadAll(Victim()), QByteArray("#!/bin/sh\nexit 0\n"));
        QVERIFY(!QFileInfo::exists(script) && !IsLink(script));
    }

    // A link to a folder of the test's stands under the working folder's name, before the run or
    // (planted again by the stand-in rm) right after the page removed it.
    void workingFolder_data()
    {
        QTest::addColumn<bool>("replant");
        QTest::newRow("planted before") << false;
        QTest::newRow("planted again after the removal") << true;
    }

    void workingFolder()
    {
        QFETCH(bool, replant);
        const QString source = Clip();
        QVERIFY(!source.isEmpty());

        const QString temp = VideoRepairWindow::TempFolder();
        QDir(temp).removeRecursively();
        QFile::remove(temp);
        QVERIFY(QDir().mkdir(Victim()));
        QVERIFY(::chmod(QFile::encodeName(Victim()).constData(), 0700) == 0);
        QVERIFY(QFile::link(Victim(), temp));
        if (replant) {
            qputenv("REPLANT", QFile::encodeName(Victim()));
            qputenv("REPLANT_AT", QFile::encodeName(temp));
        }

        bProcessRunning = false;
        bStopFlag = false;
        VideoRepairWindow page;
        page.OnInitialSettings();
        page.AddFiles({source});
        QSignalSpy finished(page.Worker(), &ThreadVideoRepair::RepairFinish);
        ModalAnswerer noBoxes(QMessageBox::Ok, 1000);
        page.OnRepairVideoFiles();
        QVERIFY(finished.wait(60000));
        QTRY_VERIFY(!bProcessRunning);
        qunsetenv("REPLANT");

        QCOMPARE(QDir(Victim()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
        QCOMPARE(Mode(Victim()), 0700);
        QVERIFY(!IsLink(temp));
        QCOMPARE(Mode(temp), 0700); // the user's results are the user's alone
        QVERIFY(QFileInfo(temp + "/clip.mp4").size() > 0);
    }

    // Names under /var/tmp held by something the program may not remove (a folder of another
    // account's that is mounted there cannot go): another account's names are none of this one's
    // business, and its own, when taken, are reported rather than met with silence.
    void takenNames_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("box"); // empty when the repair runs
        QTest::newRow("another account's probe file") << "/var/tmp/TempFile" << QString();
        QTest::newRow("another account's working folder") << "/var/tmp/.CorvaneVideoRepairTemp" << QString();
        QTest::newRow("our probe file")
            << OwnFixedPath(ProbeFiles::TempFile) << "The free space on the boot drive could not be checked.";
        QTest::newRow("our working folder")
            << VideoRepairWindow::TempFolder() << "The working folder for the repair could not be made.";
    }

    void takenNames()
    {
        QFETCH(QString, path);
        QFETCH(QString, box);
        const QString source = Clip();
        QVERIFY(!source.isEmpty());
        QVERIFY(QDir().mkpath(path));
        const auto unmount = qScopeGuard([&path] {
            QProcess::execute("umount", {path});
            QDir().rmdir(path);
        });
        if (QProcess::execute("mount",
                              {"-t", "tmpfs", "-o", "size=64k,uid=65534,mode=0755", "tmpfs", path}) != 0)
            QSKIP("mounting a tmpfs is not permitted here");

        VideoRepairWindow page;
        page.OnInitialSettings();
        page.AddFiles({source});
        QSignalSpy finished(page.Worker(), &ThreadVideoRepair::RepairFinish);
        ModalAnswerer answer(QMessageBox::Ok, 1000);
        page.OnRepairVideoFiles();
        QVERIFY(box.isEmpty() ? finished.wait(60000) : finished.isEmpty());
        QTRY_VERIFY(!bProcessRunning);
        QCOMPARE(answer.Text(), box);
    }
};

QTEST_MAIN(TstVarLinks)
#include "tst_varlinks.moc"
