// Drives the rebuild stage alone, without the copy into a working folder or the re-encode:
//   corvane-rebuild-index REFERENCE DAMAGED OUTPUT
// REFERENCE "-" learns the tracks from the damaged file itself. Prints what was recovered and how
// long it took.
#include "rebuild/OwnDescription.h"
#include "rebuild/Rebuild.h"

#include <QCoreApplication>
#include <QElapsedTimer>

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    av_log_set_level(AV_LOG_QUIET);
    const QStringList args = app.arguments().mid(1);
    if (args.size() != 3) {
        fprintf(stderr, "usage: corvane-rebuild-index REFERENCE DAMAGED OUTPUT\n");
        return 2;
    }
    QString why;
    const Description description =
        args.at(0) == "-" ? LearnFromDamagedFile(args.at(1)) : LearnFromReference(args.at(0), &why);
    for (const QString &assumption : description.assumptions)
        printf("%s\n", qPrintable(assumption));
    if (!description.Usable()) {
        fprintf(stderr, "reference not usable: %s\n", qPrintable(why));
        return 2;
    }
    QElapsedTimer timer;
    timer.start();
    const RebuildResult r = RebuildIndex(args.at(1), args.at(2), description);
    printf("written=%d video=%lld audio=%lld seconds=%.3f skipped=%lld in %d stretches; %.3f s\n", r.written,
           (long long)r.videoSamples, (long long)r.audioSamples, r.seconds, (long long)r.skippedBytes, r.skips,
           timer.nsecsElapsed() / 1e9);
    return r.Recovered() ? 0 : 1;
}
