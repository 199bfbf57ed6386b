// The fixed names under /var/tmp are shared by the whole machine: a symbolic link planted under one
// of them must never lead the program to write where it points, and the program must still work.

#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "pages/repair/VideoRepairWindow.h"
#include "pages/save/SaveShell.h"
#include "pages/save/SavingFinishDlg.h"
#include "probes/ProbeText.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"
#include "workers/PreviewCopy.h"

#include <QDir>
#include <QSignalSpy>
#include <QStandardPaths>
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

enum Probe { FreeRepair, FreeSave, OsVersion, PreviewIds, Browser };

QString RunProbe(int probe)
{
    switch (probe) {
    case FreeRepair:
        return QString::number(ProbeFreeBytesRepairPage("/") > 0);
    case FreeSave:
        return QString::number(ProbeFreeBytesSavePage("/") > 0);
    case OsVersion:
        return ProbeBootOSVersion(false);
    case PreviewIds:
        return QString::number(!ProbePreviewProcessIds().isEmpty());
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
        for (const QString &path : {QString(ProbeFiles::TempFile), QString(ProbeFiles::Browser),
                                    QString(RevealScriptPath), VideoRepairWindow::TempFolder()})
            if (IsLink(path))
                QFile::remove(path);
        QDir(VideoRepairWindow::TempFolder()).removeRecursively();
        QDir(ProbeFiles::TempFile).removeRecursively(); // left by probeBlockedByFolder
        QDir(Victim()).removeRecursively();
        QFile::remove(Victim());
    }

    void probes_data()
    {
        QTest::addColumn<int>("probe");
        QTest::addColumn<QString>("file");
        QTest::newRow("free space, repair page") << int(FreeRepair) << ProbeFiles::TempFile;
        QTest::newRow("free space, save page") << int(FreeSave) << ProbeFiles::TempFile;
        QTest::newRow("system version") << int(OsVersion) << ProbeFiles::TempFile;
        QTest::newRow("preview processes") << int(PreviewIds) << ProbeFiles::TempFile;
        QTest::newRow("default browser") << int(Browser) << ProbeFiles::Browser;
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

    // Something that cannot be removed stands under the name: the probe gives nothing and leaves
    // it alone.
    void probeBlockedByFolder()
    {
        QFile::remove(ProbeFiles::TempFile);
        QVERIFY(QDir().mkdir(ProbeFiles::TempFile));
        QVERIFY(Write(QString(ProbeFiles::TempFile) + "/inside", "x"));
        QCOMPARE(ProbeFreeBytesRepairPage("/"), 0);
        QCOMPARE(ProbeBootOSVersion(false), QString());
        QCOMPARE(ReadAll(QString(ProbeFiles::TempFile) + "/inside"), QByteArray("x"));
    }

    void revealScript()
    {
        QVERIFY(Write(Victim(), "#!/bin/sh\nexit 0\n"));
        QFile::remove(RevealScriptPath);
        QVERIFY(QFile::link(Victim(), RevealScriptPath));
        const QString folder = m_dir.filePath("Repaired-Video-Files");
        SavingFinishDlg(nullptr, folder).ShowDestPath();
        QTRY_COMPARE(ReadAll(m_dir.filePath("xdg-open.arg")), QFile::encodeName(folder));
        QCOMPARE(ReadAll(Victim()), QByteArray("#!/bin/sh\nexit 0\n"));
        QVERIFY(!QFileInfo::exists(RevealScriptPath) && !IsLink(RevealScriptPath));
    }

    // The user's own file has the preview copy's name, so the copy goes to the private folder,
    // whose name in the shared temporary folder can be guessed.
    void previewFolder()
    {
        const QString source = m_dir.filePath("mine.mov");
        QVERIFY(Write(source, "video") && Write(PreviewCopyName(source), "my own"));
        const QString guessed = QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
                                "/CorvaneVideoPreview-" + QString::number(QCoreApplication::applicationPid());
        QDir(guessed).removeRecursively();
        QVERIFY(QDir().mkdir(Victim()));
        QVERIFY(QFile::link(Victim(), guessed));
        const QString copy = MakePreviewCopy(source);
        QCOMPARE(copy, guessed + "/ mine.mov");
        QCOMPARE(ReadAll(copy), QByteArray("video"));
        QVERIFY(!IsLink(guessed));
        QCOMPARE(QDir(Victim()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
        QDir(guessed).removeRecursively();
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
        const QString source = m_dir.filePath("clip.mp4");
        Fixtures::Clip clip;
        clip.seconds = 1;
        clip.size = "160x120";
        QVERIFY(QFileInfo::exists(source) || Fixtures::Make(source, clip));

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
        QVERIFY(QFileInfo(temp + "/clip.mp4").size() > 0);
    }
};

QTEST_MAIN(TstVarLinks)
#include "tst_varlinks.moc"
