// A destination that fills up while the save page saves: the run still ends, the page returns to
// browsing and nothing crashes. Needs a small tmpfs, so it runs only where mounting is allowed.

#include "ModalAnswerer.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/save/FolderDialog.h"
#include "pages/save/SavingFinishDlg.h"
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

        bool finished = false;
        QTimer answer;
        connect(&answer, &QTimer::timeout, [&finished] {
            auto *dlg = qobject_cast<SavingFinishDlg *>(QApplication::activeModalWidget());
            if (dlg && QThread::currentThread()->loopLevel() > 0) {
                finished = true;
                dlg->accept();
            }
        });
        answer.start(10);
        ModalAnswerer noBoxes(QMessageBox::Ok, 1000);
        page.findChild<QPushButton *>("SaveButton")->click();
        QVERIFY(QTest::qWaitFor([&finished] { return finished; }, 30000));
        QTRY_VERIFY(!bProcessRunning);
        QVERIFY(!noBoxes.Answered());

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
};

QTEST_MAIN(TstDiskFull)
#include "tst_diskfull.moc"
