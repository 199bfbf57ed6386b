// File names that a shell would split, expand or run, non-ASCII letters, a leading '-' and names
// close to the length limit, through the whole road: adding, repairing, previewing, saving and
// revealing the saved folder. Every file arrives, and nothing in a name ever runs.

#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "app/AppGlobals.h"
#include "pages/repair/FileDialog.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/RepairResults.h"
#include "pages/repair/VideoRepairWindow.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/SavingFinishDlg.h"
#include "pages/save/VideoSavingWindow.h"
#include "repair/ProcessFlags.h"
#include "workers/PreviewCopy.h"
#include "workers/PreviewState.h"

#include <QApplication>
#include <QDir>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace
{

using Col = MyRightTreeWidgetItem::Column;
const char *const Marker = "CORVANE_MARKER";

// The page with its file dialog answered by the test.
class Page : public VideoRepairWindow
{
public:
    QStringList answer;

    Page()
    {
        ChooseVideoFiles = [this](QWidget *) { return answer; };
    }
};

QByteArray ReadAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool WriteScript(const QString &path, const QString &text)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text.toUtf8()) < 0)
        return false;
    return f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// 200 letters, 52 of them two bytes long: 252 bytes, so that the longest prefix the program adds
// ("000") brings it exactly to the 255-byte limit of a name.
QString LongName()
{
    return QString(52, QChar(0xe9)) + QString(144, 'a') + ".mov";
}

QStringList HostileNames()
{
    const QString touch = QString("touch ") + Marker;
    return {
        "two  blanks here.mov",
        "it's.mp4",
        "say \"hi\".mov",
        "$HOME $(" + touch + ").mov",
        "`" + touch + "`.mp4",
        "'; " + touch + "; '.mov",
        "semi;colon & pipe | < > * ?.mp4",
        "line\nbreak.mov",
        QString::fromUtf8("Vidéo ünïcödé 日本語.mp4"),
        "-leading dash.mov",
        LongName(),
        "-x 'a' \"b\" $(" + touch + "); `" + touch + "` \\ é\n" + touch + ".mov",
    };
}

} // namespace

class TstHostileNames : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_source;
    QString m_dest;
    QString m_previewLog;
    QStringList m_names;
    Page m_page;

    QTreeWidgetItem *SaveRow(const QString &name)
    {
        return m_page.SavingWindow()->Tree()->findItems(name, Qt::MatchExactly | Qt::MatchRecursive).value(0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        // The shell's current folder is where a command in a name would leave its marker.
        QVERIFY(QDir().mkpath(m_dir.filePath("cwd")));
        QDir::setCurrent(m_dir.filePath("cwd"));
        m_source = m_dir.filePath(QString::fromUtf8("src $(touch %1) 'q' \"d\" ; é").arg(Marker));
        m_dest = m_dir.filePath(QString::fromUtf8("-dest `touch %1` it's ü").arg(Marker));
        QVERIFY(QDir().mkpath(m_source) && QDir().mkpath(m_dest));
        QCOMPARE(QFile::encodeName(LongName()).size(), 252);

        Fixtures::Clip clip;
        clip.seconds = 1;
        clip.size = "160x120";
        const QString mov = m_dir.filePath("clip.mov"), mp4 = m_dir.filePath("clip.mp4");
        QVERIFY(Fixtures::Make(mov, clip) && Fixtures::Make(mp4, clip));
        m_names = HostileNames();
        for (const QString &name : qAsConst(m_names))
            QVERIFY2(QFile::copy(name.endsWith(".mov") ? mov : mp4, m_source + "/" + name), qPrintable(name));

        // Stand-ins: a preview program that records its argument, in a folder whose name has a blank,
        // and the reveal script's programs, dbus-send failing so that xdg-open follows.
        const QString bin = m_dir.filePath("bin dir");
        QDir().mkpath(bin);
        m_previewLog = m_dir.filePath("preview.arg");
        strPreviewerPath = bin + "/VideoFileUtil";
        QVERIFY(WriteScript(strPreviewerPath, QString("#!/bin/sh\nprintf '%s' \"$1\" > '%1'\n").arg(m_previewLog)));
        QVERIFY(WriteScript(bin + "/xdg-open",
                            QString("#!/bin/sh\nprintf '%s' \"$1\" > '%1'\n").arg(m_dir.filePath("xdg-open.arg"))));
        QVERIFY(WriteScript(bin + "/dbus-send", "#!/bin/sh\nexit 1\n"));
        qputenv("PATH", QFile::encodeName(bin) + ":" + qgetenv("PATH"));

        bProcessRunning = false;
        bStopFlag = false;
        mY_unsupportedList.clear();
        AllFiles.clear();
    }

    void cleanupTestCase()
    {
        // Whatever happened on the way, no name may have run as a command.
        for (const QString &folder : {m_dir.filePath("cwd"), m_source, m_dest, m_dest + "/Repaired-Video-Files",
                                      VideoRepairWindow::TempFolder(), QString("/var/tmp"), QString("/tmp")})
            QVERIFY2(!QFileInfo::exists(folder + "/" + Marker), qPrintable(folder));
        QDir(VideoRepairWindow::TempFolder()).removeRecursively();
    }

    void addAndRepair()
    {
        for (const QString &name : qAsConst(m_names))
            m_page.answer << m_source + "/" + name;
        m_page.OnInitialSettings();
        ModalAnswerer noBoxes(QMessageBox::Ok, 1000);
        m_page.OnAddVideoFile();
        QTreeWidgetItem *root = m_page.Tree()->topLevelItem(0);
        QVERIFY(root);
        QCOMPARE(root->childCount(), m_names.size());

        QSignalSpy finished(m_page.Worker(), &ThreadVideoRepair::RepairFinish);
        m_page.findChild<QPushButton *>("RepairButton")->click();
        QVERIFY(finished.wait(120000));
        QTRY_VERIFY(!bProcessRunning);
        QCoreApplication::processEvents();
        QVERIFY2(!noBoxes.Answered(), qPrintable(noBoxes.Text()));

        QCOMPARE(mY_unsupportedList, QStringList());
        QStringList repaired = AllFiles, expected = m_names;
        repaired.sort();
        expected.sort();
        QCOMPARE(repaired, expected);
        QVERIFY(m_page.SavingWindow());
        for (const QString &name : qAsConst(m_names)) {
            QTreeWidgetItem *row = SaveRow(name);
            QVERIFY2(row, qPrintable(name));
            QCOMPARE(row->text(7), QString("Successfully Repaired"));
            const QString copy = VideoRepairWindow::TempFolder() + "/" + name;
            QCOMPARE(row->text(Col::TemporaryPath), copy);
            QVERIFY2(Fixtures::Duration(copy) > 0.5, qPrintable(name));
            // Re-encoded, not merely the copy the structural pass left: its prefixed names fitted,
            // and its own files are gone.
            QVERIFY2(ReadAll(copy) != ReadAll(m_source + "/" + name), qPrintable(name));
            QVERIFY(!QFileInfo::exists(VideoRepairWindow::TempFolder() + "/000" + name));
            QVERIFY(!QFileInfo::exists(VideoRepairWindow::TempFolder() + "/00" + name));
        }
    }

    void preview_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("combined") << HostileNames().last();
        QTest::newRow("long") << LongName();
        QTest::newRow("leading dash") << QString("-leading dash.mov");
    }

    // The previewer gets exactly the copy's path, as one argument; the earlier copy is removed.
    void preview()
    {
        QFETCH(QString, name);
        QVERIFY(m_page.SavingWindow());
        const QStringList earlier = lstRunningFilePath;
        QFile::remove(m_previewLog);
        m_page.SavingWindow()->OnDoubleClicked(SaveRow(name), 0);
        const QString copy = PreviewCopyName(VideoRepairWindow::TempFolder() + "/" + name);
        QCOMPARE(lstRunningFilePath, QStringList{copy});
        QTRY_COMPARE(ReadAll(m_previewLog), QFile::encodeName(copy));
        QCOMPARE(ReadAll(copy), ReadAll(VideoRepairWindow::TempFolder() + "/" + name));
        for (const QString &old : earlier)
            QVERIFY(!QFileInfo::exists(old));
    }

    // Saved into a destination with a hostile name, then revealed through the real script.
    void saveAndReveal()
    {
        VideoSavingWindow *save = m_page.SavingWindow();
        QVERIFY(save);
        ChooseFolder = [this] { return m_dest; };
        bool revealed = false;
        QTimer answer;
        connect(&answer, &QTimer::timeout, [&revealed] {
            auto *dlg = qobject_cast<SavingFinishDlg *>(QApplication::activeModalWidget());
            if (dlg && QThread::currentThread()->loopLevel() > 0 && !revealed) {
                revealed = true;
                dlg->ShowDestPath();
                dlg->accept();
            }
        });
        answer.start(10);
        ModalAnswerer noBoxes(QMessageBox::Ok, 1000);
        save->findChild<QPushButton *>("SaveButton")->click();
        QVERIFY(QTest::qWaitFor([&revealed] { return revealed; }, 60000));
        QTRY_VERIFY(!bProcessRunning);
        QVERIFY2(!noBoxes.Answered(), qPrintable(noBoxes.Text()));

        const QString saved = m_dest + "/Repaired-Video-Files";
        QTRY_COMPARE(ReadAll(m_dir.filePath("xdg-open.arg")), QFile::encodeName(saved));
        QCOMPARE(QDir(saved).entryList(QDir::Files).size(), m_names.size());
        for (const QString &name : qAsConst(m_names)) {
            const QByteArray copy = ReadAll(VideoRepairWindow::TempFolder() + "/" + name);
            QVERIFY(!copy.isEmpty());
            QVERIFY2(ReadAll(saved + "/" + name) == copy, qPrintable(name));
        }
    }
};

QTEST_MAIN(TstHostileNames)
#include "tst_hostilenames.moc"
