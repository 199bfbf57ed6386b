// The preview panel behind CallSelectedItems and SetWindowLevel: it shows the file, removes it once
// the player holds it (even one it cannot play), closes on a second call, and SetWindowLevel returns
// only once it is closed.

#include "Bytes.h"
#include "Fixtures.h"
#include "previewer/NativeBridge.h"
#include "previewer/PlayerWidget.h"
#include "previewer/PreviewPanel.h"
#include "workers/PreviewState.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

namespace
{

PreviewPanel *ShowingPanel()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *panel = qobject_cast<PreviewPanel *>(w); panel && panel->isVisible())
            return panel;
    return nullptr;
}

} // namespace

class TstPreviewPanel : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_clip;
    int m_copies = 0;

    // A preview copy of `source`, named as the pages name them: with one leading blank.
    QString Copy(const QString &source)
    {
        const QString copy = m_dir.filePath(QString(" copy%1.mp4").arg(++m_copies));
        return QFile::copy(source, copy) ? copy : QString();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_clip = m_dir.filePath("clip.mp4");
        Fixtures::Clip clip;
        clip.seconds = 3.0;
        QVERIFY(Fixtures::Make(m_clip, clip));
        Bytes::WriteFile(m_dir.filePath("garbage.mp4"), QByteArray(5000, 'x'));
    }

    void cleanup()
    {
        for (QWidget *w : QApplication::topLevelWidgets())
            if (qobject_cast<PreviewPanel *>(w))
                w->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!ShowingPanel());
    }

    void showsThenClosesOnTheNextCall()
    {
        const QString first = Copy(m_clip);
        CallSelectedItems(first);
        QPointer<PreviewPanel> panel = ShowingPanel();
        QVERIFY(panel);
        QCOMPARE(panel->windowTitle(), QString(" copy1.mp4"));
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(first), 10000);
        // The removed file goes on playing.
        QTRY_VERIFY_WITH_TIMEOUT(panel->Player()->Position() > 500, 5000);

        // A call while the panel shows closes it and leaves the file it was given alone.
        const QString second = Copy(m_clip);
        CallSelectedItems(second);
        QVERIFY(!ShowingPanel() && QFile::exists(second));
        QTRY_VERIFY(!panel);

        // The call after that shows the new file.
        CallSelectedItems(second);
        QVERIFY(ShowingPanel());
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(second), 10000);
    }

    void setWindowLevelReturnsOnceClosed_data()
    {
        QTest::addColumn<QString>("source"); // empty: no file at all

        QTest::newRow("a clip") << "clip.mp4";
        QTest::newRow("a file it cannot play") << "garbage.mp4";
        QTest::newRow("no file") << "";
    }

    void setWindowLevelReturnsOnceClosed()
    {
        QFETCH(QString, source);
        strFileForPreview = source.isEmpty() ? m_dir.filePath(" gone.mp4") : Copy(m_dir.filePath(source));
        bQuickLookClose = false;

        // Closes the panel once it shows the file and the file is gone, as a user would.
        bool sawItShowing = false;
        QTimer user;
        connect(&user, &QTimer::timeout, this, [&] {
            PreviewPanel *panel = ShowingPanel();
            if (panel && (panel->Player()->IsOpen() || !panel->Player()->Message().isEmpty()) &&
                !QFile::exists(strFileForPreview)) {
                sawItShowing = true;
                panel->close();
            }
        });
        user.start(20);
        // Never hang the suite: a panel that never reaches that state is closed anyway.
        QObject guard; // ends the timer with this row
        QTimer::singleShot(20000, &guard, [] {
            if (PreviewPanel *panel = ShowingPanel())
                panel->close();
        });

        QElapsedTimer timer;
        timer.start();
        QCOMPARE(SetWindowLevel(0, 0, nullptr), 0);
        QVERIFY(timer.elapsed() < 20000 && sawItShowing && bQuickLookClose);
        QVERIFY(!QFile::exists(strFileForPreview) && !ShowingPanel());
    }
};

QTEST_MAIN(TstPreviewPanel)
#include "tst_previewpanel.moc"
