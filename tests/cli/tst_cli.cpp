// corvane-repair's parts below the run: its arguments and the checks before a run.
// tst_clirun runs the program itself.

#include "Bytes.h"
#include "cli/CommandLine.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

using namespace Cli;

class TstCli : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // "%d" in a row stands for the test's folder.
    QString At(QString path) const { return path.replace("%d", m_dir.path()); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        for (const char *folder : {"in", "other", "out/Repaired-Video-Files", "tmp", "taken", "dangling"})
            QVERIFY(QDir().mkpath(m_dir.filePath(folder)));
        for (const char *file :
             {"in/a.mov", "other/a.mov", "out/Repaired-Video-Files/b.mp4", "taken/Repaired-Video-Files"})
            QVERIFY(Bytes::WriteFile(m_dir.filePath(file), "data"));
        QVERIFY(QFile::link(m_dir.filePath("nowhere"), m_dir.filePath("dangling/Repaired-Video-Files")));
        QVERIFY(QFile::link(m_dir.filePath("out/Repaired-Video-Files/b.mp4"), m_dir.filePath("other/b.mp4")));
    }

    void parse_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("expected"); // the options as "output temp flags files", or "error: ..."

        QTest::newRow("defaults") << QStringList{"a.mov"} << ". /var/tmp  a.mov";
        QTest::newRow("every option, values after =, options between files")
            << QStringList{"--output=o",        "a",           "--temp",    "/x=y",
                           "--structural-only", "--keep-temp", "--verbose", "b", "--keep-codecs"}
            << "o /x=y SCKV a|b";
        QTest::newRow("-- ends the options") << QStringList{"--keep-temp", "--", "-x.mov", "--verbose", "--"}
                                             << ". /var/tmp K -x.mov|--verbose|--";
        QTest::newRow("the last value counts") << QStringList{"--temp", "x", "a", "--temp=y"} << ". y  a";
        QTest::newRow("only --") << QStringList{"--verbose", "--"} << "error: no input files";

        QTest::newRow("unknown option") << QStringList{"--out=o", "a"} << "error: unknown option --out";
        QTest::newRow("value missing")
            << QStringList{"a", "--output"} << "error: option --output needs a folder";
        QTest::newRow("flag given a value")
            << QStringList{"--verbose=1", "a"} << "error: option --verbose takes no value";
    }

    void parse()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, expected);
        Options o;
        QString error;
        if (!ParseArguments(args, &o, &error)) {
            QCOMPARE("error: " + error, expected);
            return;
        }
        QString flags;
        for (auto [set, letter] :
             {std::pair{o.structuralOnly, 'S'}, {o.keepCodecs, 'C'}, {o.keepTemp, 'K'}, {o.verbose, 'V'},
              {o.help, 'H'}})
            flags += set ? QString(letter) : QString();
        QCOMPARE(QStringList({o.outputDir, o.tempDir, flags, o.files.join('|')}).join(' '), expected);
    }

    void check_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("temp");
        QTest::addColumn<QString>("error"); // the start of the reason; empty when accepted

        const QString out = "%d/out", tmp = "%d/tmp";
        QTest::newRow("accepted") << QStringList{"%d/in/a.mov"} << out << tmp << "";
        QTest::newRow("missing input")
            << QStringList{"%d/in/a.mov", "%d/in/c.mov"} << out << tmp << "no such file: %d/in/c.mov";
        QTest::newRow("one name in two folders") << QStringList{"%d/in/a.mov", "%d/other/a.mov"} << out << tmp
                                                 << "%d/in/a.mov and %d/other/a.mov have the same file name";
        QTest::newRow("temporary folder is a file") << QStringList{"%d/in/a.mov"} << out << "%d/in/a.mov"
                                                    << "temporary folder is not a folder";
        QTest::newRow("input is its own result, by another path")
            << QStringList{"%d/out/Repaired-Video-Files/b.mp4"} << "%d/in/../out" << tmp
            << "the result would overwrite the input %d/out/Repaired-Video-Files/b.mp4";
        QTest::newRow("a file named like the result folder")
            << QStringList{"%d/in/a.mov"} << "%d/taken" << tmp
            << "the folder \"Repaired-Video-Files\" could not be created in %d/taken: Something that is not "
               "a folder";
        QTest::newRow("a link to nothing named like it")
            << QStringList{"%d/in/a.mov"} << "%d/dangling" << tmp
            << "the folder \"Repaired-Video-Files\" could not be "
               "created in %d/dangling: A link of that name leads nowhere";
        QTest::newRow("input is a link to its result")
            << QStringList{"%d/other/b.mp4"} << out << tmp
            << "the result would overwrite the input %d/other/b.mp4";
    }

    void check()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, output);
        QFETCH(QString, temp);
        QFETCH(QString, error);
        Options options;
        for (const QString &f : files)
            options.files << At(f);
        options.outputDir = At(output);
        options.tempDir = At(temp);
        const QString reason = CheckOptions(options);
        QVERIFY2(error.isEmpty() ? reason.isEmpty() : reason.startsWith(At(error)), qPrintable(reason));
    }
};

QTEST_GUILESS_MAIN(TstCli)
#include "tst_cli.moc"
