// The About dialog and the preferences page.
#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "dialogs/AboutDialog.h"
#include "dialogs/GeneralPreference.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"

#include <QLabel>
#include <QPushButton>
#include <QSysInfo>
#include <QtTest>

class TestDialogs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void aboutFacts();

    void resetGeometry();
    void freeRepairService();
    void removeTemporaryFiles();

private:
    QList<BrowserLaunch> m_launches;
};

namespace
{
// With CORVANE_SCREENSHOT_DIR set, the dialogs are kept as pictures there (the README's).
void KeepPicture(QWidget &w, const QString &name)
{
    const QString folder = qEnvironmentVariable("CORVANE_SCREENSHOT_DIR");
    if (!folder.isEmpty())
        QVERIFY(w.grab().save(folder + "/" + name));
}

QStringList LabelTexts(const QWidget &w)
{
    QStringList texts;
    for (const QLabel *label : w.findChildren<QLabel *>())
        texts << label->text();
    return texts;
}
} // namespace

void TestDialogs::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    strPlistPath = CORVANE_SOURCE_DIR "/resources/CorvaneAldrakeVideoRepair.plist";
    HelpFilePath = "/opt/corvane/Resources";
    SetBrowserLauncher([this](const BrowserLaunch &launch) { m_launches << launch; });
}

void TestDialogs::init()
{
    m_launches.clear();
    bProcessRunning = false;
    strDefaultBrowser = "/usr/lib/firefox-esr/firefox-esr";
}

void TestDialogs::cleanupTestCase()
{
    CloseSuccess = true;
}

void TestDialogs::aboutFacts()
{
    AboutDialog about;
    about.show();
    KeepPicture(about, "about.png");
    const QStringList texts = LabelTexts(about);
    QVERIFY(texts.contains("Corvane Aldrake Video Repair"));
    QVERIFY(texts.contains("Version " + ProductVersion()));
    QVERIFY(ProductVersion().contains(QRegularExpression("^\\d+\\.\\d+\\.\\d+$")));
    const QString version = ProbeBootOSVersion(false);
    QVERIFY(!version.isEmpty());
    QVERIFY(about.SystemLine().endsWith(version));
    QVERIFY(about.SystemLine().startsWith(QSysInfo::prettyProductName()));
    QCOMPARE(about.ProcessorLine(), QSysInfo::currentCpuArchitecture());
    for (const char *address : {"https://www.corvane.example/video-repair/", "mailto:support@corvane.example",
                                "https://support.corvane.example/video-repair/",
                                "https://support.corvane.example/kb/video-repair/"})
        QVERIFY2(about.LinksLabel()->text().contains(address), address);
}

void TestDialogs::resetGeometry()
{
    MainWindow w;
    w.show();
    w.setGeometry(QRect(5, 5, 1100, 760));
    QSettings store("Corvane", "CorvaneVideoGeometrySettings");
    QVERIFY(store.contains("geometry"));
    m_bMax = true;
    QTest::mouseClick(w.PreferencePage()->ResetGeometryButton(), Qt::LeftButton);
    store.sync();
    QVERIFY(!store.contains("geometry"));
    QVERIFY(!m_bMax);
    QCOMPARE(w.size(), w.minimumSize());
    QVERIFY(!w.PreferencePage()->StatusText().isEmpty());
}

void TestDialogs::freeRepairService()
{
    GeneralPreference page;
    page.show();
    KeepPicture(page, "preferences.png");
    QTest::mouseClick(page.FreeRepairButton(), Qt::LeftButton);
    QCOMPARE(m_launches.size(), 1);
    QCOMPARE(m_launches.first().url,
             QString("https://support.corvane.example/enquiry/?product=video-repair"));
    QCOMPARE(m_launches.first().browser, QString("/usr/lib/firefox-esr/firefox-esr"));
}

void TestDialogs::removeTemporaryFiles()
{
    const QString folder = GeneralPreference::TempFolder();
    QVERIFY(QDir().mkpath(folder + "/sub"));
    QFile leftover(folder + "/sub/it's a copy.mov");
    QVERIFY(leftover.open(QIODevice::WriteOnly));
    leftover.write(QByteArray(2048, 'x'));
    leftover.close();

    GeneralPreference page;
    page.show();
    QVERIFY(page.RemoveTempButton()->isEnabled());

    bProcessRunning = true; // a run owns its working copies
    QTest::mouseClick(page.RemoveTempButton(), Qt::LeftButton);
    QVERIFY(QFile::exists(leftover.fileName()));

    bProcessRunning = false;
    QTest::mouseClick(page.RemoveTempButton(), Qt::LeftButton);
    QVERIFY(!QFileInfo::exists(folder));
    QVERIFY(!page.RemoveTempButton()->isEnabled());
}

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
