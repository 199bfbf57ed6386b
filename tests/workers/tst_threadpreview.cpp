// The preview worker: the command it runs, and that it never keeps a page waiting on a preview
// program that is still open.

#include "repair/ProcessFlags.h"
#include "workers/ThreadPreview.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class TstThreadPreview : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // A stand-in preview program that writes its argument and then stays open.
    QString Program(const QString &folderName)
    {
        const QString folder = m_dir.filePath(folderName);
        QDir().mkpath(folder);
        const QString path = folder + "/VideoFileUtil";
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(QString("#!/bin/sh\nprintf '%s' \"$1\" > '%1'\nexec sleep 60\n")
                    .arg(m_dir.filePath("argument"))
                    .toUtf8());
        f.close();
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

    QString Argument()
    {
        QFile f(m_dir.filePath("argument"));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }

private Q_SLOTS:
    void command_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("command");
        QTest::newRow("plain") << "/a/VideoFileUtil" << "/t/ x.mov" << "/a/VideoFileUtil '/t/ x.mov'";
        QTest::newRow("quote in the file") << "/a/VideoFileUtil" << "/t/ it's.mov"
                                           << "/a/VideoFileUtil '/t/ it'\\''s.mov'";
        QTest::newRow("blank in the program") << "/my apps/VideoFileUtil" << "/t/ x.mov"
                                              << "'/my apps/VideoFileUtil' '/t/ x.mov'";
    }

    void command()
    {
        QFETCH(QString, program);
        QFETCH(QString, file);
        QFETCH(QString, command);
        QCOMPARE(ThreadPreview::Command(program, file), command);
    }

    // Names that the shell would act on arrive as they are, and run nothing.
    void hostileNamesArriveIntact()
    {
        const QString program = Program("bin dir $(x)");
        const QString file = m_dir.filePath(" a'b\"c $(touch marker) `touch marker2`;.mov");
        ThreadPreview preview;
        preview.SetInitialSettings(program, file);
        preview.start();
        QTRY_COMPARE(Argument(), file);
        preview.StopPreviewer();
        QVERIFY(!preview.isRunning());
        QVERIFY(!QFile::exists("marker") && !QFile::exists("marker2"));
    }

    void destroyingARunningPreviewDoesNotWait()
    {
        QElapsedTimer clock;
        clock.start();
        {
            ThreadPreview preview;
            preview.SetInitialSettings(Program("bin"), m_dir.filePath(" clip.mov"));
            preview.start();
            QTRY_VERIFY(!Argument().isEmpty());
        }
        QVERIFY(clock.elapsed() < 10000);
        QVERIFY(!bStopFlag);
    }
};

QTEST_GUILESS_MAIN(TstThreadPreview)
#include "tst_threadpreview.moc"
