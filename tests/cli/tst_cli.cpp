// corvane-repair: its arguments and checks, then runs on ffmpeg-made files: exit codes, status
// lines, where results and diagnostics go, the working folder, and Ctrl-C.

#include "Bytes.h"
#include "Fixtures.h"
#include "cli/CommandLine.h"

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

} // namespace

class TstCli : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_in;                // the fixtures; the current folder of most runs
    QString m_out, m_tmp, m_cwd; // fresh for each test
    QHash<QString, QByteArray> m_sources;

    // Runs the program in `workDir` (the fixtures' folder by default); `during` may act on it.
    Result Run(const QStringList &args, const QString &workDir = {},
               std::function<void(QProcess &)> during = {})
    {
        QProcess p;
        // A sanitizer's own exit status (1 by default) would pass for "some files failed".
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString name : {"ASAN_OPTIONS", "UBSAN_OPTIONS"})
            env.insert(name, env.value(name) + ":exitcode=86:log_path=" + m_dir.filePath("reports/report"));
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(workDir.isEmpty() ? m_in : workDir);
        p.start(CORVANE_REPAIR_BIN, args);
        if (during)
            during(p);
        p.waitForFinished(-1); // CTest's time limit guards against a hang
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                QString::fromLocal8Bit(p.readAllStandardOutput()),
                QString::fromLocal8Bit(p.readAllStandardError())};
    }

    // "%c" in a row stands for the folder of the checks.
    QString At(QString path) const { return path.replace("%c", m_dir.filePath("checks")); }

private Q_SLOTS:
    void initTestCase()
    {
        for (const char *folder : {"in", "other", "out/Repaired-Video-Files", "taken", "dangling"})
            QVERIFY(QDir().mkpath(At("%c/") + folder));
        for (const char *file :
             {"in/a.mov", "other/a.mov", "out/Repaired-Video-Files/b.mp4", "taken/Repaired-Video-Files"})
            QVERIFY(Bytes::WriteFile(At("%c/") + file, "data"));
        QVERIFY(QFile::link(At("%c/nowhere"), At("%c/dangling/Repaired-Video-Files")));
        QVERIFY(QFile::link(At("%c/out/Repaired-Video-Files/b.mp4"), At("%c/other/b.mp4")));
        m_in = m_dir.filePath("in");
        QVERIFY(QDir().mkpath(m_in) && QDir().mkpath(m_dir.filePath("reports")));
        QVERIFY(Fixtures::Make(m_in + "/good1.mp4") &&
                Fixtures::Make(m_in + "/good2.mov", Fixtures::Clip::Of("mpeg4", "libmp3lame")));
        QVERIFY(Fixtures::Make(m_in + "/pcm.mov", Fixtures::Clip::Of("libx264", "pcm_s16le")));
        // Long enough to be stopped half-way.
        QVERIFY(Fixtures::Make(m_in + "/long.mp4", Fixtures::Clip::Of("libx264", "aac", 20, {}, "640x480")));
        QVERIFY(Bytes::WriteFile(m_in + "/junk.mov", QByteArray(4096, 'x')));
        for (const QString &name : Entries(m_in))
            m_sources.insert(name, Bytes::ReadFile(m_in + "/" + name));
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
        const QStringList reports = Entries(m_dir.filePath("reports"));
        for (const QString &name : reports)
            qWarning("%s", Bytes::ReadFile(m_dir.filePath("reports/") + name).constData());
        QVERIFY2(reports.isEmpty(), "a sanitizer reported an error in corvane-repair");
        // The sources are never written, whatever the run did.
        for (auto it = m_sources.cbegin(); it != m_sources.cend(); ++it)
            QVERIFY2(Bytes::ReadFile(m_in + "/" + it.key()) == it.value(), qPrintable(it.key()));
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
        // The working folder is gone; the engine's log stays (a file failed) with all the engine printed.
        const QStringList left = Entries(m_tmp);
        QVERIFY2(left.size() == 1 && left.first().startsWith("corvane-repair-") &&
                     left.first().endsWith(".log"),
                 qPrintable(left.join(' ')));
        QCOMPARE(Lines(r.err), QStringList{"Engine log: " + m_tmp + "/" + left.first()});
        const QString log = QString::fromLocal8Bit(Bytes::ReadFile(m_tmp + "/" + left.first()));
        // A clean file's re-encode holds all that was decoded from it.
        QVERIFY2(log.contains(QRegularExpression("/000good1.mp4: .* refused; whole\n")),
                 qPrintable(log.right(2000)));
        for (const char *engineText : {"audio_pts", "Input #0", "[libx264"})
            QVERIFY2(log.contains(engineText) && !r.out.contains(engineText) && !r.err.contains(engineText),
                     engineText);
    }

    // Results go into the current folder; "--" lets a name begin with '-', else an unknown option that
    // stops the run before anything is written; a clean run leaves no log.
    void defaultsAndDashNames()
    {
        QVERIFY(QFile::copy(m_in + "/good1.mp4", m_cwd + "/-dash.mp4"));
        const QString other = m_in + "/good1.mp4";
        Result r = Run({"--temp", m_tmp, "-dash.mp4", other}, m_cwd);
        QCOMPARE(r.code, 2);
        QVERIFY2(r.out.isEmpty() && r.err.startsWith("corvane-repair: unknown option -dash.mp4"),
                 qPrintable(r.err));
        QCOMPARE(Entries(m_cwd) + Entries(m_tmp), QStringList{"-dash.mp4"});
        r = Run({"--temp", m_tmp, "--", "-dash.mp4", other}, m_cwd);
        QCOMPARE(r.code, 0);
        QCOMPARE(Lines(r.out),
                 QStringList({"Successfully Repaired: -dash.mp4", "Successfully Repaired: " + other,
                              "2 of 2 files repaired; results in " + m_cwd + "/Repaired-Video-Files."}));
        QCOMPARE(r.err, QString()); // no progress bar when standard error is not a terminal
        QCOMPARE(Entries(m_cwd + "/Repaired-Video-Files"), QStringList({"-dash.mp4", "good1.mp4"}));
        QCOMPARE(Entries(m_tmp), QStringList());
    }

    // Header fixes alone: the results are the sources, and a file that plays nothing fails.
    // --keep-codecs: a file that plays as it is comes out as a stream copy, streams in their order.
    void structuralOnlyAndKeepCodecs()
    {
        Result r = Run(
            {"--structural-only", "--output", m_out, "--temp", m_tmp, "good1.mp4", "pcm.mov", "junk.mov"});
        QCOMPARE(r.code, 1);
        QCOMPARE(Lines(r.out).mid(2, 2),
                 QStringList({"Repair Failed: junk.mov", "  No playable video was found in the file."}));
        for (const char *name : {"good1.mp4", "pcm.mov"})
            QCOMPARE(Bytes::ReadFile(m_out + "/Repaired-Video-Files/" + name), m_sources.value(name));
        r = Run({"--keep-codecs", "--output", m_out, "--temp", m_tmp, "good2.mov"});
        const QString kept = m_out + "/Repaired-Video-Files/good2.mov";
        QCOMPARE(r.code, 0);
        QCOMPARE(Fixtures::StreamKinds(kept), QStringList({"video", "audio"}));
        QCOMPARE(Fixtures::CodecName(kept, "video") + Fixtures::CodecName(kept, "audio"),
                 QString("mpeg4mp3"));
    }

    // Ctrl-C once the first working copy is there: nothing is saved and nothing is left.
    void interrupted()
    {
        const Result r =
            Run({"--output", m_out, "--temp", m_tmp, "long.mp4", "good1.mp4"}, {}, [this](QProcess &p) {
                QTRY_VERIFY_WITH_TIMEOUT(
                    !Entries(m_tmp).isEmpty() &&
                        QFileInfo::exists(m_tmp + "/" + Entries(m_tmp).first() + "/long.mp4"),
                    30000);
                ::kill(pid_t(p.processId()), SIGINT);
            });
        QCOMPARE(r.code, 130);
        QVERIFY2(r.err.contains("Stopped: nothing was saved.\n") && r.out.isEmpty(), qPrintable(r.err));
        QCOMPARE(Entries(m_out) + Entries(m_tmp), QStringList());
    }

    // A result larger than a 2 MiB tmpfs: failed, exit 1, no cut-off file.
    void fullDisk()
    {
        if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=2m", "tmpfs", m_out}) != 0)
            QSKIP("mounting a small tmpfs is not permitted here");
        Fixtures::Clip big = Fixtures::Clip::Of("libx264", "aac", 3, {"-vf", "noise=alls=60:allf=t"});
        const QString clip = m_tmp + "/big.mp4", result = m_out + "/Repaired-Video-Files/big.mp4";
        const bool made = Fixtures::Make(clip, big);
        const Result r = Run({"--structural-only", "--output", m_out, "--temp", m_tmp, clip});
        const bool cutOff = QFileInfo::exists(result);
        QProcess::execute("umount", {m_out});
        QVERIFY(made);
        QCOMPARE(r.code, 1);
        QCOMPARE(Lines(r.out).value(0), "Repair Failed: " + clip + " (could not be saved to " + result +
                                            ": No space left on device)");
        QVERIFY(!cutOff);
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
        QTest::newRow("-h needs no files") << QStringList{"-h"} << ". /var/tmp H ";
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
        const QString flags = QString(o.structuralOnly ? "S" : "") + (o.keepCodecs ? "C" : "") +
                              (o.keepTemp ? "K" : "") + (o.verbose ? "V" : "") + (o.help ? "H" : "");
        QCOMPARE(QStringList({o.outputDir, o.tempDir, flags, o.files.join('|')}).join(' '), expected);
    }

    // Rows: files, output and temporary folders, and the start of the reason for a refusal.
    void check_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("temp");
        QTest::addColumn<QString>("error");
        auto row = [](const char *tag, const QStringList &files, const char *output, const char *temp,
                      const QString &error) {
            QTest::newRow(tag) << files << QString(output) << QString(temp) << error;
        };
        const char *out = "%c/out", *tmp = "%c/other";
        const QString folder = "the folder \"Repaired-Video-Files\" could not be created in %c/";
        const QStringList a{"%c/in/a.mov"};
        row("accepted", a, out, tmp, "");
        row("missing input", a + QStringList{"%c/in/c.mov"}, out, tmp, "no such file: %c/in/c.mov");
        row("one name in two folders", a + QStringList{"%c/other/a.mov"}, out, tmp,
            "%c/in/a.mov and %c/other/a.mov have the same file name");
        row("temporary folder is a file", a, out, "%c/in/a.mov", "temporary folder is not a folder");
        row("input is its own result, by another path", {"%c/out/Repaired-Video-Files/b.mp4"}, "%c/in/../out",
            tmp, "the result would overwrite the input %c/out/Repaired-Video-Files/b.mp4");
        row("a file named like the result folder", a, "%c/taken", tmp,
            folder + "taken: Something that is not a folder");
        row("a link to nothing named like it", a, "%c/dangling", tmp,
            folder + "dangling: A link of that name leads nowhere");
        row("input is a link to its result", {"%c/other/b.mp4"}, out, tmp,
            "the result would overwrite the input %c/other/b.mp4");
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
