#pragma once

#include "cli/CommandLine.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>

class Console;
class QThread;

// One run of corvane-repair over checked options: repair in a private working folder, save the
// repaired files, report a status per file and a summary. Exec() returns the exit status.
class RepairRun : public QObject
{
    Q_OBJECT

public:
    RepairRun(const Cli::Options &options, Console &console);
    int Exec();

private:
    // Runs the event loop until `worker` has ended.
    void WaitFor(QThread *worker);

    // The progress bar on standard error; drawn only when it is a terminal and the engine is quiet.
    void Stage(const QString &stage, const QStringList &names);
    void FileStarted(unsigned long index);
    void FileMax(unsigned long max);
    void FileValue(unsigned long value);
    void Draw();
    void ClearBar();

    Cli::Options m_options;
    Console &m_console;
    bool m_barEnabled = false;
    QString m_stage;
    QStringList m_names;
    int m_index = 0;
    unsigned long m_max = 0;
    unsigned long m_value = 0;
    int m_passes = 0;
    QString m_drawn;
    QElapsedTimer m_sinceDraw;
};
