// The start page offscreen: closing, placing, fading, the hand-over to the repair page and back, and
// where each help and support entry sends its page.
#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "pages/repair/VideoRepairWindow.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"

#include "ModalAnswerer.h"

#include <QtTest>

Q_DECLARE_METATYPE(QMessageBox::StandardButton)

namespace
{
QSettings Store()
{
    return QSettings("Corvane", "CorvaneVideoGeometrySettings");
}
} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true); // the geometry store of the tests, not the user's
        strPlistPath = CORVANE_SOURCE_DIR "/resources/CorvaneAldrakeVideoRepair.plist";
        HelpFilePath = "/opt/Corvane Apps/Resources";
        SetBrowserLauncher([this](const BrowserLaunch &launch) { // browsers outside /usr do not start
            m_launches << launch;
            return launch.systemHandler || launch.browser.startsWith("/usr/");
        });
    }

    void init()
    {
        CloseSuccess = false;
        bProcessRunning = false;
        m_bMax = false;
        m_launches.clear();
        Store().clear();
    }

    void cleanup()
    {
        bProcessRunning = false;
        CloseSuccess = true; // windows the test leaves behind close without asking
    }

    void closeQuestion_data()
    {
        QTest::addColumn<bool>("running");
        QTest::addColumn<QMessageBox::StandardButton>("answer");
        QTest::addColumn<bool>("asked");
        QTest::addColumn<bool>("closed");
        QTest::newRow("yes closes") << false << QMessageBox::Yes << true << true;
        QTest::newRow("no refuses") << false << QMessageBox::No << true << false;
        QTest::newRow("enter takes no, the default") << false << ModalAnswerer::Enter << true << false;
        QTest::newRow("refused silently while running") << true << QMessageBox::Yes << false << false;
    }

    void closeQuestion()
    {
        QFETCH(bool, running);
        QFETCH(QMessageBox::StandardButton, answer);
        QFETCH(bool, asked);
        QFETCH(bool, closed);
        MainWindow w;
        w.show();
        bProcessRunning = running;
        {
            ModalAnswerer answerer(answer, asked ? 5000 : 300);
            QCOMPARE(w.close(), closed);
            QCOMPARE(answerer.Answered(), asked);
            if (asked)
                QCOMPARE(answerer.Text(), QString("Do you want to close Corvane Aldrake Video Repair? "));
        }
        QCOMPARE(CloseSuccess, asked);
        if (!closed) {
            // After a No the next close goes through without a question; while running it stays refused.
            ModalAnswerer answerer(QMessageBox::No, 300);
            QCOMPARE(w.close(), !running);
            QVERIFY(!answerer.Answered());
        }
    }

    void centring() // odd sizes round down, and a desktop smaller than the window goes negative
    {
        QCOMPARE(MainWindow::CentredPosition(QSize(1281, 801), QSize(802, 526)), QPoint(239, 87));
        QCOMPARE(MainWindow::CentredPosition(QSize(640, 480), QSize(803, 527)), QPoint(-81, -73));
    }

    void fadeIn()
    {
        MainWindow w;
        w.show();
        for (int round = 0; round < 2; ++round) { // also on a return from the repair page
            w.OnInitialize();
            QCOMPARE(w.windowOpacity(), 0.0);
            QTRY_COMPARE_WITH_TIMEOUT(w.windowOpacity(), 1.0, 3000);
            QVERIFY(!w.Fading());
        }
    }

    void geometrySharedWithRepairPage()
    {
        MainWindow w;
        w.show();
        const QRect first(40, 60, 1000, 700);
        w.setGeometry(first);

        w.OnRepairVideoFile();
        VideoRepairWindow *page = w.RepairPage();
        QVERIFY(!w.isVisible() && page->isVisible());
        QCOMPARE(page->geometry(), first); // opens where the start page was

        // The page is left somewhere else; the start page reopens there.
        const QRect second(90, 30, 1100, 720);
        page->setGeometry(second);
        Store().setValue("geometry", page->saveGeometry());
        page->hide();
        Q_EMIT page->OnBack(false);
        QVERIFY(w.isVisible());
        QCOMPARE(w.geometry(), second);
    }

    void browserRoutes_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QString>("browser");
        QTest::addColumn<bool>("systemHandler");
        QTest::addColumn<bool>("quoteBrowser");
        QTest::addColumn<QString>("url");
        const QString b = "/usr/bin/test-browser";
        const QString site = "https://www.corvane.example/video-repair/";
        QTest::newRow("help button: blanks escaped")
            << "OpenHelp" << b << false << true
            << "file:///opt/Corvane%20Apps/Resources/help/User_Interface.htm";
        QTest::newRow("support: browser unquoted")
            << "OnViewSupport" << b << false << false << "https://support.corvane.example/video-repair/";
        QTest::newRow("e-mail: always the system")
            << "OnEmailSupport" << b << true << true << "mailto:support@corvane.example";
        QTest::newRow("link label") << "link" << b << false << true << site;

        QTest::newRow("no browser: support")
            << "OnViewSupport" << "" << true << true << "https://support.corvane.example/video-repair/";
        QTest::newRow("no browser: link label, then the system") << "link" << "" << true << true << site;
        QTest::newRow("link label, a browser that is gone") << "link" << "/gone/web" << true << true << site;
    }

    void browserRoutes()
    {
        QFETCH(QString, entry);
        QFETCH(QString, browser);
        QFETCH(bool, systemHandler);
        QFETCH(bool, quoteBrowser);
        QFETCH(QString, url);
        MainWindow w;
        strDefaultBrowser = browser;
        if (entry == "link")
            Q_EMIT w.LinkLabel->linkActivated("https://www.corvane.example/video-repair/");
        else
            QVERIFY(QMetaObject::invokeMethod(&w, entry.toLatin1().constData()));
        const BrowserLaunch launch = m_launches.last();
        QCOMPARE(launch.systemHandler, systemHandler);
        QCOMPARE(launch.browser, systemHandler ? QString() : browser);
        if (!systemHandler)
            QCOMPARE(launch.quoteBrowser, quoteBrowser);
        QCOMPARE(launch.url, url);
    }

private:
    QList<BrowserLaunch> m_launches;
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
