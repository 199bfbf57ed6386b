// The start page: closing, the hand-over between pages, where every link sends its page, the
// preferences page, where the program finds its files and how it reads its property list.
#include "Bytes.h"
#include "ModalAnswerer.h"
#include "Pages.h"
#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/BundlePaths.h"
#include "app/MainWindow.h"
#include "app/PlistFormat.h"
#include "dialogs/AboutDialog.h"
#include "dialogs/GeneralPreference.h"
#include "pages/repair/MyRightTreeWidgetItem.h"
#include "pages/repair/MyTreeWidget.h"
#include "pages/repair/VideoRepairWindow.h"
#include "pages/save/VideoSavingWindow.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"

#include <QCheckBox>
#include <QLabel>
#include <QtTest>

Q_DECLARE_METATYPE(QMessageBox::StandardButton)

namespace
{

QSettings Store()
{
    return QSettings("Corvane", "CorvaneVideoGeometrySettings");
}

const QString Site = "https://www.corvane.example/video-repair/";

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

    QList<BrowserLaunch> m_launches;

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true); // the settings of the tests, not the user's
        strPlistPath = CORVANE_SOURCE_DIR "/resources/CorvaneAldrakeVideoRepair.plist";
        HelpFilePath = "/opt/Corvane Apps/Resources";
        SetBrowserLauncher([this](const BrowserLaunch &launch) { // browsers outside /usr do not start
            m_launches << launch;
            return launch.systemHandler || launch.browser.startsWith("/usr/");
        });
    }

    void init()
    {
        CloseSuccess = bProcessRunning = m_bMax = false;
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
            QCOMPARE(answerer.Texts(),
                     asked ? QStringList{"Do you want to close Corvane Aldrake Video Repair? "}
                           : QStringList());
        }
        QCOMPARE(CloseSuccess, asked);
        if (!closed) {
            // After a No the next close goes through without a question; while running it stays refused.
            ModalAnswerer answerer(QMessageBox::No, 300);
            QCOMPARE(w.close(), !running);
            QVERIFY(!answerer.Answered());
        }
    }

    // Each page opens maximised when the one before was, otherwise where the last was left.
    void handOver_data()
    {
        QTest::addColumn<bool>("maximised");
        QTest::newRow("placed") << false;
        QTest::newRow("maximised") << true;
    }

    void handOver()
    {
        QFETCH(bool, maximised);
        QTemporaryDir dir;
        const QString file = dir.filePath("a.mov");
        QVERIFY(Bytes::WriteFile(file, "x"));
        // Maximised as the start page was, or else placed at `where`.
        auto placed = [maximised](QWidget *page, const QRect &where) {
            return maximised ? page->isMaximized() : !page->isMaximized() && page->geometry() == where;
        };
        MainWindow w;
        const QRect first(40, 60, 1000, 700);
        w.setGeometry(first);
        maximised ? w.showMaximized() : w.show();

        w.OnRepairVideoFile();
        VideoRepairWindow *page = w.RepairPage();
        QVERIFY(!w.isVisible() && page->isVisible());
        QVERIFY(placed(page, first)); // opens where the start page was

        page->AddFiles({file});
        page->OnRepairFinish(); // the hand-over at the end of a run
        VideoSavingWindow *save = page->SavingWindow();
        QVERIFY(save && save->isVisible() && page->isHidden());
        QVERIFY(placed(save, first));

        const QRect second(90, 30, 1100, 720);
        if (!maximised)
            save->setGeometry(second); // left somewhere else; the next page opens there
        {
            ModalAnswerer yes(QMessageBox::Yes);
            Pages::Button(save, "BackButton")->click();
        }
        QTRY_VERIFY(page->isVisible());
        QVERIFY(placed(page, second));

        Pages::Button(page, "BackButton")->click();
        QVERIFY(w.isVisible() && page->isHidden() && placed(&w, second));
    }

    // Rows: entry, default browser, then the system's handler or the browser, quoted or not, and URL.
    void browserRoutes_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QString>("browser");
        QTest::addColumn<bool>("systemHandler");
        QTest::addColumn<bool>("quoteBrowser");
        QTest::addColumn<QString>("url");
        const QString b = "/usr/bin/test-browser", help = "file:///opt/Corvane Apps/Resources/";
        const QString escaped = "file:///opt/Corvane%20Apps/Resources/help/",
                      mail = "mailto:support@corvane.example";
        const QString support = "https://support.corvane.example/",
                      enquiry = support + "enquiry/?product=video-repair";
        auto row = [](const char *tag, const QString &entry, const QString &browser, bool system, bool quote,
                      const QString &url) {
            QTest::newRow(tag) << entry << browser << system << quote << url;
        };
        row("help topics: blanks as they are", "OpenMainHelp", b, false, true,
            help + "help/Corvane_Aldrake_Video_Repair.htm");
        row("help button: blanks escaped", "OpenHelp", b, false, true, escaped + "User_Interface.htm");
        row("repair page's help", "repair help", b, false, true,
            escaped + "Preview_and_Repair_Video_Files.htm");
        row("save page's help", "save help", b, false, true, escaped + "Save_Video_Files.htm");
        row("licence", "OnLicenseAgreement", b, false, true, help + "Eula.pdf");
        row("about: licence", "about licence", b, false, true, help + "Eula.pdf");
        row("enquiry", "OnGenerateTicket", b, false, true, enquiry);
        row("preferences: free repair service", "free repair", b, false, true, enquiry);
        row("knowledge base", "OnKnowledgeBase", b, false, true, support + "kb/video-repair/");
        row("support: browser unquoted", "OnViewSupport", b, false, false, support + "video-repair/");
        row("e-mail: always the system", "OnEmailSupport", b, true, true, mail);
        row("about: e-mail", "about " + mail, b, true, true, mail);
        row("about: web site", "about " + Site, b, false, true, Site);
        row("link label", "link", b, false, true, Site);
        row("no browser: support", "OnViewSupport", "", true, true, support + "video-repair/");
        row("no browser: knowledge base", "OnKnowledgeBase", "", true, true, support + "kb/video-repair/");
        row("no browser: link label, then the system", "link", "", true, true, Site);
        row("link label, a browser that is gone", "link", "/gone/web", true, true, Site);
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
        if (entry == "link") {
            Q_EMIT w.LinkLabel->linkActivated(Site);
        } else if (entry == "repair help") {
            Pages::Button(w.RepairPage(), "HelpButton")->click();
        } else if (entry == "save help") {
            VideoSavingWindow save(nullptr, new MyRightTreeWidgetItem(static_cast<QTreeWidget *>(nullptr)));
            Pages::Button(&save, "HelpButton")->click();
        } else if (entry == "about licence") {
            AboutDialog().OnLicenseAgreement();
        } else if (entry.startsWith("about ")) {
            AboutDialog about;
            QVERIFY(about.LinksLabel()->text().contains("href=\"" + entry.mid(6) + "\""));
            Q_EMIT about.LinksLabel()->linkActivated(entry.mid(6));
        } else if (entry == "free repair") {
            GeneralPreference().FreeRepairButton()->click();
        } else {
            QVERIFY(QMetaObject::invokeMethod(&w, entry.toLatin1().constData()));
        }
        QVERIFY(!m_launches.isEmpty());
        const BrowserLaunch launch = m_launches.last();
        QCOMPARE(launch.systemHandler, systemHandler);
        QCOMPARE(launch.browser, systemHandler ? QString() : browser);
        if (!systemHandler)
            QCOMPARE(launch.quoteBrowser, quoteBrowser);
        QCOMPARE(launch.url, url);
    }

    void preferencesResetGeometry()
    {
        MainWindow w;
        w.show();
        bProcessRunning = true; // the page is refused while a process runs
        w.OnPreferences();
        QVERIFY(!w.PreferencePage()->isVisible());
        bProcessRunning = false;
        w.OnPreferences();
        QVERIFY(w.PreferencePage()->isVisible());
        w.setGeometry(QRect(5, 5, 1100, 760));
        QVERIFY(Store().contains("geometry"));
        m_bMax = true;
        QTest::mouseClick(w.PreferencePage()->ResetGeometryButton(), Qt::LeftButton);
        QVERIFY(!Store().contains("geometry") && !m_bMax);
        QCOMPARE(w.size(), w.minimumSize());
    }

    void preferencesRemoveTemporaryFiles()
    {
        const QString folder = GeneralPreference::TempFolder();
        QVERIFY(QDir().mkpath(folder + "/sub"));
        const QString leftover = folder + "/sub/it's a copy.mov";
        QVERIFY(Bytes::WriteFile(leftover, "x"));
        GeneralPreference page;
        page.show();
        QVERIFY(page.RemoveTempButton()->isEnabled());
        bProcessRunning = true; // a run owns its working copies
        QTest::mouseClick(page.RemoveTempButton(), Qt::LeftButton);
        QVERIFY(QFile::exists(leftover));
        bProcessRunning = false;
        QTest::mouseClick(page.RemoveTempButton(), Qt::LeftButton);
        QVERIFY(!QFileInfo::exists(folder) && !page.RemoveTempButton()->isEnabled());
    }

    // Off until ticked, and kept for the next page.
    void preferencesKeepOriginalCodecs()
    {
        QSettings("Corvane", "CorvaneVideoRepairPreferences").clear();
        QVERIFY(!GeneralPreference::KeepOriginalCodecs());
        GeneralPreference page;
        QVERIFY(!page.KeepCodecsBox()->isChecked());
        page.KeepCodecsBox()->click();
        QVERIFY(GeneralPreference::KeepOriginalCodecs());
        QVERIFY(GeneralPreference().KeepCodecsBox()->isChecked());
    }

    // Where the program finds its files from its own folder, also where the build put it.
    void bundlePaths_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QStringList>("paths"); // property list, help folder, preview program
        QTest::newRow("nested bundle, blanks and a trailing slash")
            << "/home/a b/X.app/Contents/Resources/In.app/Contents/MacOS/"
            << QStringList{
                   "/home/a b/X.app/Contents/Resources/CorvaneAldrakeVideoRepair.plist",
                   "/home/a b/X.app/Contents/Resources",
                   "/home/a b/X.app/Contents/Resources/In.app/Contents/Resources/VideoFileUtil.app/Contents/"
                   "MacOS/VideoFileUtil"};
        // Fewer than four levels: the path stops at the root rather than failing.
        QTest::newRow("shallow") << "/opt/bin"
                                 << QStringList{
                                        "/Resources/CorvaneAldrakeVideoRepair.plist", "/Resources",
                                        "/opt/Resources/VideoFileUtil.app/Contents/MacOS/VideoFileUtil"};
    }

    void bundlePaths()
    {
        QFETCH(QString, folder);
        QFETCH(QStringList, paths);
        const BundlePaths got = BundlePathsFrom(folder);
        QCOMPARE((QStringList{got.plist, got.help, got.previewer}), paths);
        const BundlePaths built = BundlePathsFrom(CORVANE_PROGRAM_DIR);
        QVERIFY2(QFile::exists(built.plist), qPrintable(built.plist));
        for (const char *page : {"Corvane_Aldrake_Video_Repair.htm", "User_Interface.htm",
                                 "Preview_and_Repair_Video_Files.htm", "Save_Video_Files.htm"})
            QVERIFY2(QFile::exists(built.help + "/help/" + page), page);
        QVERIFY2(!CORVANE_HAS_PREVIEWER || QFileInfo(built.previewer).isExecutable(),
                 qPrintable(built.previewer));
    }

    void propertyList_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        const QByteArray head = "<?xml version=\"1.0\"?>\n<plist version=\"1.0\">\n<dict>\n";
        QTest::newRow("entity") << head + "<key>WebsiteName</key><string>A &amp; B</string></dict></plist>"
                                << "WebsiteName" << QVariant("A & B");
        QTest::newRow("after a nested dict")
            << head + "<key>Nested</key><dict><key>KBLink</key><string>inner</string></dict>"
                      "<key>KBLink</key><string>outer</string></dict></plist>"
            << "KBLink" << QVariant("outer");
        QTest::newRow("not a property list") << QByteArray("<html></html>") << "WebsiteName" << QVariant();
    }

    void propertyList()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QTemporaryFile f;
        QVERIFY(f.open() && f.write(xml) == xml.size() && f.flush());
        QCOMPARE(QSettings(f.fileName(), PlistFormat()).value(key), value);
    }

    // The macOS command quotes the browser, or leaves it bare when asked unless a shell would split it.
    void macOpenCommand()
    {
        QCOMPARE(MacOpenCommand("/Applications/Google Chrome.app", "https://a.example/a b", false),
                 QString("open -a '/Applications/Google Chrome.app' 'https://a.example/a b'"));
        QCOMPARE(MacOpenCommand("Safari", "https://a.example/", false),
                 QString("open -a Safari 'https://a.example/'"));
        QCOMPARE(MacOpenCommand("Safari", "https://a.example/", true),
                 QString("open -a 'Safari' 'https://a.example/'"));
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
