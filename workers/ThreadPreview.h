#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <sys/types.h>

// Runs the preview program on a copy of a file, through the shell, on its own thread, and waits
// for it to end. The pages never wait on it: a later preview kills the earlier preview program.
class ThreadPreview : public QThread
{
    Q_OBJECT

public:
    explicit ThreadPreview(QObject *parent = nullptr);
    ~ThreadPreview() override;

    void SetInitialSettings(QString program, QString file);

    // The shell command for program and file: the file is always quoted, the program only when
    // its path holds something the shell would split or interpret.
    static QString Command(const QString &program, const QString &file);

    // Ends the preview program this thread started, if it still runs, and waits for the thread.
    void StopPreviewer();

    // The preview programs that the preview workers of this process started and that still run, by
    // the process group each was started in; never another process's.
    static QList<unsigned int> RunningPreviews();
    // Ends the preview program of that group when it is one of them; false otherwise.
    static bool EndPreview(unsigned int group);

protected:
    void run() override;

private:
    QMutex m_mutex;
    QWaitCondition m_condition;
    QString m_program;
    QString m_file;
    std::atomic<pid_t> m_child{0};
    std::atomic<bool> m_cancel{false};
};
