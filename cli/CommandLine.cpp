#include "cli/CommandLine.h"

#include "workers/ThreadVideoSaving.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <cmath>

namespace Cli {

namespace {

const char *const ResultFolder = "Repaired-Video-Files";

// Options that take a value, and where the value goes.
QString *ValueTarget(const QString &name, Options *o)
{
    if (name == "--output")
        return &o->outputDir;
    if (name == "--temp")
        return &o->tempDir;
    return nullptr;
}

bool *FlagTarget(const QString &name, Options *o)
{
    if (name == "--structural-only")
        return &o->structuralOnly;
    if (name == "--keep-codecs")
        return &o->keepCodecs;
    if (name == "--keep-temp")
        return &o->keepTemp;
    if (name == "--verbose")
        return &o->verbose;
    if (name == "--help" || name == "-h")
        return &o->help;
    return nullptr;
}

QString CheckFolder(const QString &what, const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return QString("%1 folder does not exist: %2").arg(what, path);
    if (!info.isDir())
        return QString("%1 folder is not a folder: %2").arg(what, path);
    if (!info.isWritable())
        return QString("%1 folder is not writable: %2").arg(what, path);
    return {};
}

} // namespace

bool ParseArguments(const QStringList &args, Options *options, QString *error)
{
    Options o;
    bool optionsEnded = false;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        // A lone "-" is a name, not an option.
        if (optionsEnded || !arg.startsWith('-') || arg == "-") {
            o.files << arg;
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }

        const int eq = arg.startsWith("--") ? arg.indexOf('=') : -1;
        const QString name = eq < 0 ? arg : arg.left(eq);
        // The value after '=' or in the next argument.
        // A missing value is an error even where the option has a default to fall back on.
        auto takeValue = [&](QString *value, const char *what) {
            QString given;
            if (eq >= 0)
                given = arg.mid(eq + 1);
            else if (i + 1 < args.size())
                given = args.at(++i);
            if (given.isEmpty()) {
                *error = QString("option %1 needs a %2").arg(name, what);
                return false;
            }
            *value = given;
            return true;
        };
        if (bool *flag = FlagTarget(name, &o)) {
            if (eq >= 0) {
                *error = QString("option %1 takes no value").arg(name);
                return false;
            }
            *flag = true;
        } else if (QString *value = ValueTarget(name, &o)) {
            if (!takeValue(value, "folder"))
                return false;
        } else if (name == "--reference") {
            QString reference;
            if (!takeValue(&reference, "file"))
                return false;
            o.references << reference;
        } else {
            *error = QString("unknown option %1").arg(name);
            return false;
        }
    }
    if (o.files.isEmpty() && !o.help) {
        *error = "no input files";
        return false;
    }
    *options = o;
    return true;
}

QString UsageText(const QString &program)
{
    return QString("Usage: %1 [--output DIR] [--temp DIR] [--reference FILE]... [--structural-only] "
                   "[--keep-codecs] [--keep-temp] [--verbose] [--] FILE...\n"
                   "Repairs damaged QuickTime / ISO-media videos (.mov .mp4 .m4v .m4a .f4v). The files "
                   "themselves\n"
                   "are never written: the results go to DIR/Repaired-Video-Files.\n"
                   "\n"
                   "  --output DIR       where Repaired-Video-Files is made (default: the current folder)\n"
                   "  --temp DIR         where the private working folder is made (default: /var/tmp)\n"
                   "  --reference FILE   a healthy recording from the same camera or phone, made with the\n"
                   "                     same settings, to rebuild a lost index with (may be repeated)\n"
                   "  --structural-only  fix box headers only, without re-encoding\n"
                   "  --keep-codecs      keep the original codecs when the file plays without re-encoding\n"
                   "  --keep-temp        keep the working folder and the engine log\n"
                   "  --verbose          show the engine's own diagnostics instead of logging them\n"
                   "  --                 end of options: the names that follow may begin with '-'\n"
                   "  -h, --help         show this text\n"
                   "\n"
                   "Exit status: 0 all files repaired, 1 some failed, 2 bad usage or a missing input,\n"
                   "130 stopped with Ctrl-C.\n")
        .arg(program);
}

QString CheckOptions(const Options &options)
{
    QHash<QString, QString> byName;
    for (const QString &file : options.files) {
        const QFileInfo info(file);
        if (!info.exists())
            return QString("no such file: %1").arg(file);
        if (!info.isFile())
            return QString("not a file: %1").arg(file);
        if (!info.isReadable())
            return QString("cannot read: %1").arg(file);
        const QString name = info.fileName();
        if (byName.contains(name))
            return QString("%1 and %2 have the same file name; repair them in separate runs")
                .arg(byName.value(name), file);
        byName.insert(name, file);
    }

    for (const QString &reference : options.references) {
        const QFileInfo info(reference);
        if (!info.isFile() || !info.isReadable())
            return QString("cannot read the reference: %1").arg(reference);
    }

    QString error = CheckFolder("output", options.outputDir);
    if (error.isEmpty())
        error = CheckFolder("temporary", options.tempDir);
    if (!error.isEmpty())
        return error;
    // Results are written nowhere but in the result folder: one that cannot be made or entered (a
    // file or a dangling link of its name, no permission) ends the run here.
    const QString results = QDir(options.outputDir).absoluteFilePath(ResultFolder);
    error = ThreadVideoSaving::FolderProblem(results);
    if (!error.isEmpty())
        return QString("the folder \"%1\" could not be created in %2: %3")
            .arg(ResultFolder, QDir(options.outputDir).absolutePath(), error);

    for (const QString &file : options.files) {
        const QFileInfo result(ResultPath(options.outputDir, file));
        if (result.exists() && result.canonicalFilePath() == QFileInfo(file).canonicalFilePath())
            return QString("the result would overwrite the input %1; choose another --output").arg(file);
    }
    return {};
}

QString ResultPath(const QString &outputDir, const QString &source)
{
    return QDir(outputDir).filePath(QString(ResultFolder) + "/" + QFileInfo(source).fileName());
}

QString ProgressLine(const QString &stage, int index, int count, double fraction, const QString &name,
                     int width)
{
    if (!(fraction >= 0)) // also NaN
        fraction = 0;
    fraction = std::min(fraction, 1.0);
    constexpr int BarWidth = 20;
    const int filled = int(std::floor(fraction * BarWidth));
    const QString head = QString("%1 %2/%3 [%4%5] %6% ")
                             .arg(stage, -11)
                             .arg(index + 1)
                             .arg(count)
                             .arg(QString(filled, '#'), QString(BarWidth - filled, '-'))
                             .arg(int(std::floor(fraction * 100)), 3);
    return (head + name).left(std::max(width, 0));
}

} // namespace Cli
