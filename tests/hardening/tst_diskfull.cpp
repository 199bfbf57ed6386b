// A destination that fills up while saving: the page says which files failed and why, no cut-off file
// stays, the command line calls such a file failed. Needs a small tmpfs, where mounting is allowed.

#include "Fixtures.h"
#include "ModalAnswerer.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/VideoSavingWindow.h"
#include "repair/ProcessFlags.h"

#include <QApplication>
#include <QDir>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include <climits>

namespace
{

using Col = MyRightTreeWidgetItem::Column;

// The free-space check passes: the disk fills up only during the save.
class Page : public VideoSavingWindow
{
public:
    using VideoSavingWindow::VideoSavingWindow;
    qint64 GetFree(const QString &) override { return LLONG_MAX; }
};

} // namespace

class TstDiskFull : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_mount;

private Q_SLOTS:
    void initTestCase()
    {
        m_mount = m_dir.filePath("small");
        QDir().mkpath(m_mount);
        if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=2m", "tmpfs", m_mount}) != 0) {
            m_mount.clear();
            QSKIP("mounting a small tmpfs is not permitted here");
        }
    }

    void cleanupTestCase()
    {
        if (!m_mount.isEmpty())
            QProcess::execute("umount", {m_mount});
    }

    void fullDestination()
    {
        // Three working copies of 1.5 MB: the second one no longer fits.
        auto *root = new MyRightTreeWidgetItem(static_cast<QTreeWidget *>(nullptr));
        root->setText(Col::FileId, "1");
        root->setCheckState(0, Qt::Checked);
        for (int i = 0; i < 3; ++i) {
            QFile f(m_dir.filePath(QString("clip%1.mov").arg(i)));
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(QByteArray(1536 * 1024, char('a' + i)));
            auto *row = new MyRightTreeWidgetItem(root);
            row->setText(Col::Path, f.fileName());
            row->setText(Col::TemporaryPath, f.fileName());
            row->setText(Col::FileId, QString::number(i + 2));
            row->setCheckState(0, Qt::Checked);
        }
        Page page(nullptr, root);
        page.show();
        ChooseFolder = [this] { return m_mount; };

        ModalAnswerer failures(QMessageBox::Ok, 30000);
        page.findChild<QPushButton *>("SaveButton")->click();
        QTRY_VERIFY_WITH_TIMEOUT(failures.Answered(), 30000);
        QTRY_VERIFY(!bProcessRunning);
        const QString folder = m_mount + "/Repaired-Video-Files";
        QCOMPARE(failures.Text(), "2 file(s) could not be saved in " + folder + ".");
        QCOMPARE(failures.InformativeText(),
                 QString("clip1.mov: No space left on device\nclip2.mov: No space left on device"));
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{"clip0.mov"});
        QVERIFY(!QApplication::activeModalWidget()); // no "File saved successfully."

        // Browsing again, as after any save: nothing ticked, Back usable, no progress shown.
        QVERIFY(page.Tree()->isEnabled());
        QVERIFY(page.findChild<QPushButton *>("BackButton")->isEnabled());
        QVERIFY(!page.findChild<QPushButton *>("SaveButton")->isEnabled());
        QVERIFY(page.findChild<QPushButton *>("StopButton")->isHidden());
        for (QTreeWidgetItemIterator it(page.Tree()); *it; ++it)
            QCOMPARE((*it)->checkState(0), Qt::Unchecked);
        // The first file fitted and is whole.
        QFile first(m_mount + "/Repaired-Video-Files/clip0.mov");
        QVERIFY(first.open(QIODevice::ReadOnly));
        QCOMPARE(first.readAll(), QByteArray(1536 * 1024, 'a'));
    }

    // A result larger than the disk (about 2.8 MB): failed, exit 1, and no cut-off file.
    void commandLine()
    {
        Fixtures::Clip big;
        big.seconds = 3;
        big.extra = QStringList{"-vf", "noise=alls=60:allf=t"}; // noise does not compress
        const QString clip = m_dir.filePath("big.mp4");
        QVERIFY(Fixtures::Make(clip, big));
        QProcess run;
        run.start(CORVANE_REPAIR_BIN,
                  {"--structural-only", "--output", m_mount, "--temp", m_dir.path(), clip});
        QVERIFY(run.waitForFinished(60000));
        QCOMPARE(run.exitCode(), 1);
        const QString result = m_mount + "/Repaired-Video-Files/big.mp4";
        QCOMPARE(QString::fromLocal8Bit(run.readAllStandardOutput()).section('\n', 0, 0),
                 "Repair Failed: " + clip + " (could not be saved to " + result +
                     ": No space left on device)");
        QVERIFY(!QFileInfo::exists(result));
    }
};

QTEST_MAIN(TstDiskFull)
#include "tst_diskfull.moc"
