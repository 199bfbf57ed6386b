// The built program on a virtual X server shows its main window (CORVANE_SCREENSHOT=FILE keeps it).
#include "Pages.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QtTest>

namespace
{

// "xwininfo" facts of the named top-level window: "Map State", "Absolute upper-left X", "Width"...
QMap<QString, QString> WindowInfo(const QString &title)
{
    QProcess info;
    info.start("xwininfo", {"-name", title});
    info.waitForFinished(5000);
    QMap<QString, QString> facts;
    for (const QString &line : QString::fromUtf8(info.readAllStandardOutput()).split('\n'))
        if (line.indexOf(':') > 0)
            facts.insert(line.section(':', 0, 0).trimmed(), line.section(':', 1).trimmed());
    return facts;
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mainWindowShows()
    {
        if (QGuiApplication::platformName() != "xcb")
            QSKIP("no virtual X server");
        if (QStandardPaths::findExecutable("xwininfo").isEmpty())
            QSKIP("xwininfo (x11-utils) is not installed");

        QTemporaryDir home; // the program's settings go here, not into the user's
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("XDG_RUNTIME_DIR", home.path());
        env.insert("QT_MESSAGE_PATTERN", "%{type} %{category}: %{message}");
        QProcess program;
        program.setProcessEnvironment(env);
        program.start(CORVANE_PROGRAM, QStringList());
        QVERIFY(program.waitForStarted());

        const QString title = "Corvane Aldrake Video Repair";
        QTRY_COMPARE_WITH_TIMEOUT(WindowInfo(title).value("Map State"), QString("IsViewable"), 20000);
        const auto facts = WindowInfo(title);
        const QRect frame(facts.value("Absolute upper-left X").toInt(),
                          facts.value("Absolute upper-left Y").toInt(), facts.value("Width").toInt(),
                          facts.value("Height").toInt());
        // Centred on the 1280 x 800 screen, 50 pixels up; no window manager, so no frame.
        QCOMPARE(frame, QRect(239, 87, 802, 525));

        QTest::qWait(1500); // the fade-in
        const QImage window = QGuiApplication::primaryScreen()->grabWindow(0).toImage().copy(frame);
        if (qEnvironmentVariableIsSet("CORVANE_SCREENSHOT"))
            window.save(qEnvironmentVariable("CORVANE_SCREENSHOT"));
        QCOMPARE(QColor(window.pixel(400, 515)), QColor(231, 231, 231)); // the page's own grey
        QVERIFY2(Pages::Colours(window) > 100, "the window shows its pictures");

        // A second start hands over to the running program and ends.
        QProcess second;
        second.setProcessEnvironment(env);
        second.start(CORVANE_PROGRAM, QStringList());
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(program.state(), QProcess::Running);

        program.terminate();
        if (!program.waitForFinished(5000))
            program.kill();
        const QString errors = QString::fromLocal8Bit(program.readAllStandardError());
        const QRegularExpression ours("^(warning|critical) default:", QRegularExpression::MultilineOption);
        QVERIFY2(!errors.contains(ours), qPrintable(errors)); // Qt's complaints about our use of it
    }
};

// xvfb-run gives the test an X server of its own (DISPLAY); the window program then runs on it too.
int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsSet("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    TestStartup test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_startup.moc"
