#pragma once

#include <QString>
#include <QStringList>

// The pure parts of corvane-repair: its arguments, the checks made before anything is written, and
// the progress line.
namespace Cli {

enum ExitCode {
    ExitAllRepaired = 0,
    ExitSomeFailed = 1,
    ExitUsage = 2,
    ExitInterrupted = 130, // 128 + SIGINT, as shells report a program ended by Ctrl-C
};

struct Options
{
    QString outputDir = ".";
    QString tempDir = "/var/tmp";
    bool structuralOnly = false;
    bool keepCodecs = false;
    bool keepTemp = false;
    bool verbose = false;
    bool help = false;
    QStringList files;
    QStringList references; // --reference, in the order given
};

// Parses the arguments that follow the program name. Options may come before or after the files;
// "--" ends them, so that later names may begin with '-'. A value goes in the next argument or after
// '=' ("--output DIR", "--output=DIR"). Returns false with a one-line reason in *error.
bool ParseArguments(const QStringList &args, Options *options, QString *error);

QString UsageText(const QString &program);

// Checks the options against the file system before the run: every input is an existing, readable
// file; no two inputs share a file name (their working copies and results would be one file); the
// output and temporary folders exist and are writable, and "Repaired-Video-Files" in the output
// folder can be made or entered; no input would be overwritten by a result.
// Returns the reason for refusing, or an empty text.
QString CheckOptions(const Options &options);

// Where the result of `source` is saved under the output folder.
QString ResultPath(const QString &outputDir, const QString &source);

// One line of the progress bar, at most `width` characters:
// "Re-encoding  2/3 [#######-------------]  35% clip.mov". `fraction` is clamped to [0, 1].
QString ProgressLine(const QString &stage, int index, int count, double fraction, const QString &name,
                     int width);

} // namespace Cli
