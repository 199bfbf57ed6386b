// corvane-repair: the repair engine from the command line. See UsageText() or README.md.

#include "cli/CommandLine.h"
#include "cli/Console.h"
#include "cli/RepairRun.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

int main(int argc, char *argv[])
{
    // Line by line, so that the engine's printf lines keep their place among its stderr lines in the
    // log. Set before anything is written, as setvbuf requires.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("corvane-repair");
    const QString program = "corvane-repair";

    // Straight from argv: names are decoded as the file system encodes them.
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args << QFile::decodeName(argv[i]);

    Console console;
    Cli::Options options;
    QString error;
    if (!Cli::ParseArguments(args, &options, &error)) {
        console.Err(program + ": " + error);
        console.Err("Try '" + program + " --help'.");
        return Cli::ExitUsage;
    }
    if (options.help) {
        console.Out(Cli::UsageText(program).trimmed());
        return Cli::ExitAllRepaired;
    }
    error = Cli::CheckOptions(options);
    if (!error.isEmpty()) {
        console.Err(program + ": " + error);
        return Cli::ExitUsage;
    }

    RepairRun run(options, console);
    return run.Exec();
}
