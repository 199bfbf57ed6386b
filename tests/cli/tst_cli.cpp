// corvane-repair: its arguments and the checks before a run, then the program run as a user runs
// it, on files made with ffmpeg: exit codes and status lines, where results and the engine's
// diagnostics go, the life of the working folder, and Ctrl-C.

#include "Bytes.h"
#include "Fixtures.h"
#include "cli/CommandLine.h"

#include <QCryptographicHash>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

using namespace Cli;

namespace
{

struct Result {
    int code = -1;
    QString out, err;
};

QStringList Entries(const QString &dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
}

QStringList Lines(const QString &text)
{
    return text.split('\n', Qt::SkipEmptyParts);
}

QByteArray Digest(const QString &path)
{
    return QCryptographicHash::hash(Bytes::ReadFile(path), QCryptographicHash::Sha1);
}

} // namespace

class TstCli : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_in;                // the fixtures; the current folder of most runs
    QString m_reports;           // sanitizer reports, when built with the sanitizers
    QString m_out, m_tmp, m_cwd; // fresh for each test
    QHash<QString, QByteArray> m_digests;

    void Start(QProcess &p, const QStringList &args, const QString &workDir)
    {
        // A sanitizer's own exit status (1 by default) would pass for "some files failed".
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString name : {"ASAN_OPTIONS", "UBSAN_OPTIONS"})
            env.insert(name, env.value(name) + ":exitcode=86:log_path=" + m_reports + "/report");
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(workDir);
        p.start(CORVANE_REPAIR_BIN, args);
    }

    static Result Finish(QProcess &p)
    {
        p.waitForFinished(-1); // CTest's time limit guards against a hang
        const int code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        return {code, QString::fromLocal8Bit(p.readAllStandardOutput()),
                QString::fromLocal8Bit(p.readAllStandardError())};
    }

    Result Run(const QStringList &args, const QString &workDir = {})
    {
        QProcess p;
        Start(p, args, workDir.isEmpty() ? m_in : workDir);
        return Finish(p);
    }

    // "%c" in a row stands for the folder of the checks.
    QString At(QString path) const { return path.replace("%c", m_dir.filePath("checks")); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        for (const char *folder : {"in", "other", "out/Repaired-Video-Files", "tmp"})
            QVERIFY(QDir().mkpath(m_dir.filePath(QString("checks/") + folder)));
        for (const char *file : {"in/a.mov", "other/a.mov", "out/Repaired-Video-Files/b.mp4"})
            QVERIFY(Bytes::WriteFile(m_dir.filePath(QString("checks/") + file), "data"));
        QVERIFY(QFile::link(m_dir.filePath("checks/out/Repaired-Video-Files/b.mp4"),
                            m_dir.filePath("checks/other/b.mp4")));
        m_in = m_dir.filePath("in");
        m_reports = m_dir.filePath("reports");
        QVERIFY(QDir().mkpath(m_in) && QDir().mkpath(m_reports));
        Fixtures::Clip pcm;
        pcm.audioCodec = "pcm_s16le";
        Fixtures::Clip longer; // long enough to be stopped half-way
        longer.size = "640x480";
        longer.seconds = 20;
        QVERIFY(Fixtures::Make(m_in + "/good1.mp4") && Fixtures::Make(m_in + "/good2.mov"));
        QVERIFY(Fixtures::Make(m_in + "/pcm.mov", pcm) && Fixtures::Make(m_in + "/long.mp4", longer));
        QVERIFY(Bytes::WriteFile(m_in + "/junk.mov", QByteArray(4096, 'x')));
        for (const QString &name : Entries(m_in))
            m_digests.insert(name, Digest(m_in + "/" + name));
    }

    void init()
    {
        static int n = 0;
        const QString dir = m_dir.filePath(QString("case%1/").arg(++n));
        m_out = dir + "out", m_tmp = dir + "tmp", m_cwd = dir + "cwd";
        QVERIFY(QDir().mkpath(m_out) && QDir().mkpath(m_tmp) && QDir().mkpath(m_cwd));
    }

    void cleanup()
    {
        for (const QString &name : Entries(m_reports)) {
            qWarning("%s", Bytes::ReadFile(m_reports + "/" + name).constData());
            QFile::remove(m_reports + "/" + name);
            QFAIL("a sanitizer reported an error in corvane-repair");
        }
        // The sources are never written, whatever the run did.
        for (auto it = m_digests.cbegin(); it != m_digests.cend(); ++it)
            QVERIFY2(Digest(m_in + "/" + it.key()) == it.value(), qPrintable(it.key()));
    }

    // Needs the re-encoding pass: it is what refuses the PCM file.
    void goodAndUnsupportedFiles()
    {
        const Result r = Run({"--output", m_out, "--temp", m_tmp, "good1.mp4", "good2.mov", "pcm.mov"});
        QCOMPARE(r.code, 1);
        const QString results = m_out + "/Repaired-Video-Files";
        QCOMPARE(Lines(r.out),
                 QStringList({"Successfully Repaired: good1.mp4", "Successfully Repaired: good2.mov",
                              "Repair Failed: pcm.mov", "  Failed due to unsupported Audio or Video codecs.",
                              "2 of 3 files repaired; results in " + results + "."}));
        QCOMPARE(Entries(results), QStringList({"good1.mp4", "good2.mov"}));

        // The working folder is gone; the engine's log stays beside it because a file failed.
        const QStringList left = Entries(m_tmp);
        QCOMPARE(left.size(), 1);
        QVERIFY2(left.first().startsWith("corvane-repair-") && left.first().endsWith(".log"),
                 qPrintable(left.first()));
        QCOMPARE(Lines(r.err), QStringList{"Engine log: " + m_tmp + "/" + left.first()});

        // The engine's printf and av_log lines went there, and none to the terminal.
        const QString log = QString::fromLocal8Bit(Bytes::ReadFile(m_tmp + "/" + left.first()));
        for (const char *engineText : {"audio_pts", "Input #0", "[libx264"}) {
            QVERIFY2(log.contains(engineText), engineText);
            QVERIFY2(!r.out.contains(engineText) && !r.err.contains(engineText), engineText);
        }
    }

    // Results go into the current folder; "--" lets a name begin with '-'; a clean run leaves no log.
    void defaultsAndDashNames()
    {
        QVERIFY(QFile::copy(m_in + "/good1.mp4", m_cwd + "/-dash.mp4"));
        const QString other = m_in + "/good2.mov";
        const Result r = Run({"--temp", m_tmp, "--", "-dash.mp4", other}, m_cwd);
        QCOMPARE(r.code, 0);
        QCOMPARE(Lines(r.out),
                 QStringList({"Successfully Repaired: -dash.mp4", "Successfully Repaired: " + other,
                              "2 of 2 files repaired; results in " + m_cwd + "/Repaired-Video-Files."}));
        QCOMPARE(r.err, QString()); // no progress bar when standard error is not a terminal
        QCOMPARE(Entries(m_cwd + "/Repaired-Video-Files"), QStringList({"-dash.mp4", "good2.mov"}));
        QCOMPARE(Entries(m_tmp), QStringList());
    }

    // Header fixes alone: the results are the sources, PCM and all, and a file that plays nothing
    // fails, with the reason.
    void structuralOnly()
    {
        const Result r = Run(
            {"--structural-only", "--output", m_out, "--temp", m_tmp, "good1.mp4", "pcm.mov", "junk.mov"});
        QCOMPARE(r.code, 1);
        QCOMPARE(Lines(r.out).mid(2, 2),
                 QStringList({"Repair Failed: junk.mov", "  No playable video was found in the file."}));
        for (const char *name : {"good1.mp4", "pcm.mov"})
            QCOMPARE(Digest(m_out + "/Repaired-Video-Files/" + name), m_digests.value(name));
    }

    // --keep-codecs reaches the engine: a file that plays as it is comes out as a stream copy, its
    // streams in their own order (a re-encode writes the sound first).
    void keepCodecs()
    {
        const Result r = Run({"--keep-codecs", "--output", m_out, "--temp", m_tmp, "good2.mov"});
        QCOMPARE(r.code, 0);
        QCOMPARE(Fixtures::StreamKinds(m_out + "/Repaired-Video-Files/good2.mov"),
                 QStringList({"video", "audio"}));
    }

    void refused_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("message");

        QTest::newRow("missing input") << QStringList{"good1.mp4", "gone.mov"} << "no such file: gone.mov";
        QTest::newRow("dash name without --") << QStringList{"-dash.mp4"} << "unknown option -dash.mp4";
    }

    void refused()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, message);
        const Result r = Run(QStringList{"--output", m_out, "--temp", m_tmp} + args);
        QCOMPARE(r.code, 2);
        QCOMPARE(r.out, QString());
        QVERIFY2(r.err.startsWith("corvane-repair: " + message), qPrintable(r.err));
        QCOMPARE(Entries(m_out) + Entries(m_tmp), QStringList());
    }

    // Needs the re-encoding pass: it is the part of the run long enough to be interrupted.
    void interrupted()
    {
        const QStringList args{"--output", m_out, "--temp", m_tmp, "long.mp4", "good1.mp4"};
        QProcess p;
        Start(p, args, m_in);
        // Ctrl-C once the first working copy is there.
        QTRY_VERIFY_WITH_TIMEOUT(!Entries(m_tmp).isEmpty() &&
                                     QFileInfo::exists(m_tmp + "/" + Entries(m_tmp).first() + "/long.mp4"),
                                 30000);
        QCOMPARE(::kill(pid_t(p.processId()), SIGINT), 0);
        const Result r = Finish(p);
        QCOMPARE(r.code, 130);
        QVERIFY2(r.err.contains("Stopped: nothing was saved.\n"), qPrintable(r.err));
        QCOMPARE(r.out, QString());
        QCOMPARE(Entries(m_out) + Entries(m_tmp), QStringList());
    }

    void parse_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("expected"); // the options as "output temp flags files", or "error: ..."

        QTest::newRow("defaults") << QStringList{"a.mov"} << ". /var/tmp  a.mov";
        QTest::newRow("every option, values after =, options between files")
            << QStringList{"--output=o",  "a",         "--temp", "/x=y",         "--structural-only",
                           "--keep-temp", "--verbose", "b",      "--keep-codecs"}
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
        for (auto [set, letter] : {std::pair{o.structuralOnly, 'S'},
                                   {o.keepCodecs, 'C'},
                                   {o.keepTemp, 'K'},
                                   {o.verbose, 'V'},
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

        const QString out = "%c/out", tmp = "%c/tmp";
        QTest::newRow("accepted") << QStringList{"%c/in/a.mov"} << out << tmp << "";
        QTest::newRow("missing input")
            << QStringList{"%c/in/a.mov", "%c/in/c.mov"} << out << tmp << "no such file: %c/in/c.mov";
        QTest::newRow("one name in two folders") << QStringList{"%c/in/a.mov", "%c/other/a.mov"} << out << tmp
                                                 << "%c/in/a.mov and %c/other/a.mov have the same file name";
        QTest::newRow("temporary folder is a file") << QStringList{"%c/in/a.mov"} << out << "%c/in/a.mov"
                                                    << "temporary folder is not a folder";
        QTest::newRow("input is its own result, by another path")
            << QStringList{"%c/out/Repaired-Video-Files/b.mp4"} << "%c/in/../out" << tmp
            << "the result would overwrite the input %c/out/Repaired-Video-Files/b.mp4";
        QTest::newRow("input is a link to its result")
            << QStringList{"%c/other/b.mp4"} << out << tmp
            << "the result would overwrite the input %c/other/b.mp4";
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
