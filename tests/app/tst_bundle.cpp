// Where the program finds its files, the tree the build lays out for it, its property list, and the
// macOS browser command.
#include "app/BrowserRoutes.h"
#include "app/BundlePaths.h"
#include "app/PlistFormat.h"

#include <QtTest>

class TestBundle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pathRules_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("plist");
        QTest::addColumn<QString>("help");
        QTest::addColumn<QString>("previewer");
        QTest::newRow("nested bundle, blanks and a trailing slash")
            << "/home/a b/X.app/Contents/Resources/In.app/Contents/MacOS/"
            << "/home/a b/X.app/Contents/Resources/CorvaneAldrakeVideoRepair.plist"
            << "/home/a b/X.app/Contents/Resources"
            << "/home/a "
               "b/X.app/Contents/Resources/In.app/Contents/Resources/VideoFileUtil.app/Contents/MacOS/"
               "VideoFileUtil";
        // Fewer than four levels: the path stops at the root rather than failing.
        QTest::newRow("shallow") << "/opt/bin" << "/Resources/CorvaneAldrakeVideoRepair.plist" << "/Resources"
                                 << "/opt/Resources/VideoFileUtil.app/Contents/MacOS/VideoFileUtil";
    }

    void pathRules()
    {
        QFETCH(QString, folder);
        QFETCH(QString, plist);
        QFETCH(QString, help);
        QFETCH(QString, previewer);
        const BundlePaths paths = BundlePathsFrom(folder);
        QCOMPARE(paths.plist, plist);
        QCOMPARE(paths.help, help);
        QCOMPARE(paths.previewer, previewer);
    }

    void buildTree()
    {
        // The rules applied to where the build put the program find everything it needs.
        const BundlePaths paths = BundlePathsFrom(CORVANE_PROGRAM_DIR);
        QVERIFY2(QFile::exists(paths.plist), qPrintable(paths.plist));
        for (const char *page : {"Corvane_Aldrake_Video_Repair.htm", "User_Interface.htm",
                                 "Preview_and_Repair_Video_Files.htm", "Save_Video_Files.htm"})
            QVERIFY2(QFile::exists(paths.help + "/help/" + page), page);
        if (CORVANE_HAS_PREVIEWER)
            QVERIFY2(QFileInfo(paths.previewer).isExecutable(), qPrintable(paths.previewer));
    }

    void productInfo()
    {
        QSettings plist(QStringLiteral(CORVANE_SOURCE_DIR "/resources/CorvaneAldrakeVideoRepair.plist"),
                        PlistFormat());
        QCOMPARE(plist.status(), QSettings::NoError);
        QVERIFY(!plist.value("WebsiteName").toString().isEmpty());
        for (const char *key : {"WebsiteLink", "ViewSupportLink", "SubmitEnquiryLink", "KBLink"}) {
            const QUrl url(plist.value(key).toString());
            QVERIFY2(url.scheme() == "https" && url.host().endsWith("corvane.example"), key);
        }
        QCOMPARE(plist.value("EmailToSupport").toString(), QString("support@corvane.example"));
    }

    void cannedPlist_data()
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

    void cannedPlist()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QTemporaryFile f;
        QVERIFY(f.open() && f.write(xml) == xml.size() && f.flush());
        QCOMPARE(QSettings(f.fileName(), PlistFormat()).value(key), value);
    }

    void macOpenCommand()
    {
        QCOMPARE(
            MacOpenCommand("/Applications/Google Chrome.app", "https://support.corvane.example/a b", false),
            QString("open -a '/Applications/Google Chrome.app' 'https://support.corvane.example/a b'"));
    }

};

QTEST_GUILESS_MAIN(TestBundle)
#include "tst_bundle.moc"
