// VideoFileUtil run as a program: it plays the file it is given, says so plainly when it cannot,
// and Escape closes it. Its test hook prints its state after a while, grabs the window and then
// presses Escape.

#include "Bytes.h"
#include "Fixtures.h"
#include "Pages.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

class TstVideoFileUtil : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // Runs the program with `args`; its state as printed by the hook, or empty when it did not end
    // by Escape closing its window. It runs through a link of another name: the pages, tested at the
    // same time by other suites, end every process started under the bundle's previewer path.
    QMap<QString, QString> Run(const QStringList &args, const QString &grab)
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.insert("CORVANE_PREVIEWER_TEST_QUIT_MS", "1500");
        env.insert("CORVANE_PREVIEWER_TEST_GRAB", grab);
        process.setProcessEnvironment(env);
        process.start(m_dir.filePath("player"), args);
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return {};
        }
        if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
            qWarning("exit %d: %s", process.exitCode(), process.readAllStandardError().constData());
            return {};
        }
        QMap<QString, QString> state;
        for (const QString &line : QString::fromUtf8(process.readAllStandardOutput()).split('\n'))
            if (line.contains('='))
                state.insert(line.section('=', 0, 0), line.section('=', 1));
        return state;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY(QFile::link(VIDEOFILEUTIL, m_dir.filePath("player")));
        QVERIFY(Fixtures::Make(m_dir.filePath("clip one.mov")));
        Bytes::WriteFile(m_dir.filePath("broken.mp4"),
                         Bytes::Builder().Box(32, "ftyp").Zeros(24).Box(8, "mdat"));
    }

    void runs_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("playing");
        QTest::newRow("a clip") << QStringList{"clip one.mov"} << "clip one.mov"
                                << "" << true;
        QTest::newRow("a broken file")
            << QStringList{"broken.mp4"} << "broken.mp4"
            << "This file cannot be played. | Invalid data found when processing input" << false;
        QTest::newRow("no argument")
            << QStringList{} << "VideoFileUtil"
            << "No file to play. | Start VideoFileUtil with the path of a video file." << false;
    }

    void runs()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, title);
        QFETCH(QString, message);
        QFETCH(bool, playing);
        for (QString &arg : args)
            arg = m_dir.filePath(arg);
        const QString grab = m_dir.filePath(QString("%1.png").arg(QTest::currentDataTag()));

        const QMap<QString, QString> state = Run(args, grab);
        QVERIFY2(!state.isEmpty(), "the program did not close on Escape");
        QCOMPARE(state.value("title"), title);
        QCOMPARE(state.value("message"), message);
        QCOMPARE(state.value("playing"), QString::number(playing));
        const QImage window(grab);
        QVERIFY(!window.isNull());
        if (playing) {
            QCOMPARE(state.value("duration"), QString("2000"));
            QVERIFY(state.value("position").toInt() > 500);
            QVERIFY2(Pages::Colours(window, 4) > 16, "a real picture, not a uniform colour");
        }
    }
};

QTEST_MAIN(TstVideoFileUtil)
#include "tst_videofileutil.moc"
