#include "workers/ThreadPreview.h"

#include "probes/ShellQuote.h"
#include "repair/ProcessFlags.h"

#include <QFile>
#include <QMutexLocker>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

namespace
{

// The process groups of the running preview programs. A group is listed from its start until its
// leader has ended and before the leader is reaped, so its id cannot have been reused by then: a
// kill sent under the lock reaches only a preview program of ours.
QMutex &GroupsLock()
{
    static QMutex lock;
    return lock;
}

QList<unsigned int> &Groups()
{
    static QList<unsigned int> groups;
    return groups;
}

} // namespace

ThreadPreview::ThreadPreview(QObject *parent) : QThread(parent)
{
    bStopFlag = false;
}

ThreadPreview::~ThreadPreview()
{
    if (isRunning()) {
        // The thread waits for the preview program: end it first, or closing a page would wait
        // until the user closes the player.
        bStopFlag = true;
        StopPreviewer();
        m_condition.wakeAll();
        wait();
        bStopFlag = false;
    }
}

void ThreadPreview::SetInitialSettings(QString program, QString file)
{
    QMutexLocker locker(&m_mutex);
    m_program = program;
    m_file = file;
}

QString ThreadPreview::Command(const QString &program, const QString &file)
{
    return ShellQuoteIfNeeded(program) + " " + ShellQuote(file);
}

void ThreadPreview::StopPreviewer()
{
    m_cancel = true;
    EndPreview(unsigned(m_child.load()));
    wait();
    m_cancel = false;
}

QList<unsigned int> ThreadPreview::RunningPreviews()
{
    QMutexLocker locker(&GroupsLock());
    return Groups();
}

bool ThreadPreview::EndPreview(unsigned int group)
{
    QMutexLocker locker(&GroupsLock());
    // The shell and the program it started share the group.
    return group != 0 && Groups().contains(group) && kill(-pid_t(group), SIGKILL) == 0;
}

void ThreadPreview::run()
{
    QString command;
    {
        QMutexLocker locker(&m_mutex);
        command = Command(m_program, m_file);
    }
    printf("%s\n", command.toLocal8Bit().constData());
    fflush(stdout);

    // The shell runs in a process group of its own, so that StopPreviewer can end the program the
    // shell started along with it.
    const QByteArray text = command.toUtf8();
    char sh[] = "/bin/sh";
    char dashC[] = "-c";
    char *argv[] = {sh, dashC, const_cast<char *>(text.constData()), nullptr};
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attr, 0);
    pid_t pid = 0;
    if (!m_cancel && posix_spawn(&pid, sh, nullptr, &attr, argv, environ) == 0) {
        {
            QMutexLocker locker(&GroupsLock());
            Groups() << unsigned(pid);
            m_child = pid;
        }
        if (m_cancel) // a stop that came while the program was being started
            EndPreview(unsigned(pid));
        siginfo_t info;
        while (waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
        }
        {
            QMutexLocker locker(&GroupsLock());
            Groups().removeAll(unsigned(pid));
            m_child = 0;
        }
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    posix_spawnattr_destroy(&attr);
}
