// bench_save SOURCE DESTINATION: saves SOURCE into DESTINATION/Repaired-Video-Files through the saving
// worker, with a progress bar on the window's thread as the save page has, and prints
//   seconds S signals N longest_gap_ms G idle_gap_ms I
// S the time the save took, N the progress signals that reached the window's thread, G the longest
// gap between two ticks of a 10 ms timer on that thread while it saved, and I the longest gap over
// as long a time after the save, with nothing to do: what the machine itself gives (on a shared
// machine, that is not nothing).

#include "workers/ThreadVideoSaving.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProgressBar>
#include <QTimer>

#include <cstdio>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    if (argc != 3) {
        fprintf(stderr, "usage: bench_save SOURCE DESTINATION\n");
        return 2;
    }
    QProgressBar bar;
    bar.show();
    ThreadVideoSaving saver;
    int received = 0;
    QObject::connect(&saver, &ThreadVideoSaving::MaxProgress, &bar,
                     [&bar](unsigned long size) { bar.setMaximum(int(size >> 10)); });
    QObject::connect(&saver, &ThreadVideoSaving::ProgressValue, &bar, [&](unsigned long done) {
        ++received;
        bar.setValue(int(done >> 10));
    });
    bool failed = false;
    QObject::connect(&saver, &ThreadVideoSaving::SaveFailed, &bar,
                     [&failed](const QString &, const QString &reason) {
                         fprintf(stderr, "bench_save: %s\n", qPrintable(reason));
                         failed = true;
                     });

    QElapsedTimer clock, sinceTick;
    qint64 longestGap = 0;
    QTimer tick;
    tick.setInterval(10);
    QObject::connect(&tick, &QTimer::timeout, [&] { longestGap = qMax(longestGap, sinceTick.restart()); });
    sinceTick.start();
    tick.start();
    // The save starts once the window is up and the loop runs: only the save's own gaps count.
    QTimer::singleShot(500, [&] {
        longestGap = 0;
        sinceTick.start();
        clock.start();
        saver.SetInitialSettings({QString::fromLocal8Bit(argv[1])}, QString::fromLocal8Bit(argv[2]));
    });
    qint64 saveMs = 0, saveGap = 0;
    QObject::connect(&saver, &ThreadVideoSaving::SavingFinish, [&] {
        saveMs = clock.elapsed();
        saveGap = longestGap;
        longestGap = 0;
        QTimer::singleShot(int(saveMs), &app, &QCoreApplication::quit);
    });
    app.exec();
    saver.wait();
    printf("seconds %.3f signals %d longest_gap_ms %lld idle_gap_ms %lld\n", saveMs / 1000.0, received,
           static_cast<long long>(saveGap), static_cast<long long>(longestGap));
    return failed ? 1 : 0;
}
