// The About dialog and the preferences page.
#include "Bytes.h"
#include "app/AppGlobals.h"
#include "app/BrowserRoutes.h"
#include "app/MainWindow.h"
#include "dialogs/AboutDialog.h"
#include "dialogs/GeneralPreference.h"
#include "probes/ShellProbes.h"
#include "repair/ProcessFlags.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QSysInfo>
#include <QtTest>

namespace
{
QStringList LabelTexts(const QWidget &w)
{
    QStringList texts;
    for (const QLabel *label : w.findChildren<QLabel *>())
        texts << label->text();
    return texts;
}
} // namespace

class TestDialogs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        strPlistPath = CORVANE_SOURCE_DIR "/resources/CorvaneAldrakeVideoRepair.plist";
        HelpFilePath = "/opt/corvane/Resources";
        SetBrowserLauncher([this](const BrowserLaunch &launch) { m_launches << launch; return true; });
    }

    void init()
    {
        m_launches.clear();
        bProcessRunning = false;
        strDefaultBrowser = "/usr/lib/firefox-esr/firefox-esr";
    }

    void cleanupTestCase() { CloseSuccess = true; }

    void aboutFacts()
    {
        AboutDialog about;
        about.show();
        const QStringList texts = LabelTexts(about);
        QVERIFY(texts.contains("Corvane Aldrake Video Repair"));
        QVERIFY(texts.contains("Version " + ProductVersion()));
        QVERIFY(about.SystemLine().startsWith(QSysInfo::prettyProductName()));
        QVERIFY(!ProbeBootOSVersion(false).isEmpty() &&
                about.SystemLine().endsWith(ProbeBootOSVersion(false)));
        QCOMPARE(about.ProcessorLine(), QSysInfo::currentCpuArchitecture());
        for (const char *address :
             {"https://www.corvane.example/video-repair/", "mailto:support@corvane.example"})
            QVERIFY2(about.LinksLabel()->text().contains(address), address);
    }

    void resetGeometry()
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
        QSettings store("Corvane", "CorvaneVideoGeometrySettings");
        QVERIFY(store.contains("geometry"));
        m_bMax = true;
        QTest::mouseClick(w.PreferencePage()->ResetGeometryButton(), Qt::LeftButton);
        store.sync();
        QVERIFY(!store.contains("geometry") && !m_bMax);
        QCOMPARE(w.size(), w.minimumSize());
    }

    void freeRepairService()
    {
        GeneralPreference page;
        page.show();
        QTest::mouseClick(page.FreeRepairButton(), Qt::LeftButton);
        QCOMPARE(m_launches.size(), 1);
        QCOMPARE(m_launches.first().url,
                 QString("https://support.corvane.example/enquiry/?product=video-repair"));
        QCOMPARE(m_launches.first().browser, QString("/usr/lib/firefox-esr/firefox-esr"));
    }

    void removeTemporaryFiles()
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
    void keepOriginalCodecs()
    {
        QSettings("Corvane", "CorvaneVideoRepairPreferences").clear();
        QVERIFY(!GeneralPreference::KeepOriginalCodecs());
        GeneralPreference page;
        QVERIFY(!page.KeepCodecsBox()->isChecked());
        page.KeepCodecsBox()->click();
        QVERIFY(GeneralPreference::KeepOriginalCodecs());
        QVERIFY(GeneralPreference().KeepCodecsBox()->isChecked());
    }

private:
    QList<BrowserLaunch> m_launches;
};

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
