// ThreadSanitizer build only (scripts/tsan.sh links this in with -Wl,--wrap): Qt 5's QMutex and
// QWaitCondition lock and unlock inside libQt5Core, which is not instrumented, so ThreadSanitizer
// would see no ordering between a mutex's holders and report every access they guard as a race.
// Likewise QThread::wait() learns of a thread's end through that library's own mutex. These
// wrappers tell it what the calls from our own code mean; nothing is suppressed.

#include <QDeadlineTimer>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <sanitizer/tsan_interface.h>

extern "C" {
void __real__ZN6QMutex4lockEv(QMutex *m);
void __real__ZN6QMutex6unlockEv(QMutex *m);
bool __real__ZN6QMutex7tryLockEi(QMutex *m, int timeout);
void __real__ZN11QBasicMutex12lockInternalEv(QBasicMutex *m);
void __real__ZN11QBasicMutex14unlockInternalEv(QBasicMutex *m);
bool __real__ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer(QWaitCondition *c, QMutex *m, QDeadlineTimer t);
bool __real__ZN14QWaitCondition4waitEP6QMutexm(QWaitCondition *c, QMutex *m, unsigned long t);
void __real__ZN7QThread5startENS_8PriorityE(QThread *t, QThread::Priority p);
bool __real__ZN7QThread4waitE14QDeadlineTimer(QThread *t, QDeadlineTimer d);
bool __real__ZN7QThread4waitEm(QThread *t, unsigned long ms);
bool __real__ZNK7QThread10isFinishedEv(const QThread *t);
bool __real__ZNK7QThread9isRunningEv(const QThread *t);

void __wrap__ZN6QMutex4lockEv(QMutex *m)
{
    __real__ZN6QMutex4lockEv(m);
    __tsan_acquire(m);
}

void __wrap__ZN6QMutex6unlockEv(QMutex *m)
{
    __tsan_release(m);
    __real__ZN6QMutex6unlockEv(m);
}

bool __wrap__ZN6QMutex7tryLockEi(QMutex *m, int timeout)
{
    const bool locked = __real__ZN6QMutex7tryLockEi(m, timeout);
    if (locked)
        __tsan_acquire(m);
    return locked;
}

// The slow paths of QBasicMutex's inline lock() and unlock().
void __wrap__ZN11QBasicMutex12lockInternalEv(QBasicMutex *m)
{
    __real__ZN11QBasicMutex12lockInternalEv(m);
    __tsan_acquire(m);
}

void __wrap__ZN11QBasicMutex14unlockInternalEv(QBasicMutex *m)
{
    __tsan_release(m);
    __real__ZN11QBasicMutex14unlockInternalEv(m);
}

// A wait unlocks the mutex and locks it again before it returns.
bool __wrap__ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer(QWaitCondition *c, QMutex *m, QDeadlineTimer t)
{
    __tsan_release(m);
    const bool woken = __real__ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer(c, m, t);
    __tsan_acquire(m);
    return woken;
}

bool __wrap__ZN14QWaitCondition4waitEP6QMutexm(QWaitCondition *c, QMutex *m, unsigned long t)
{
    __tsan_release(m);
    const bool woken = __real__ZN14QWaitCondition4waitEP6QMutexm(c, m, t);
    __tsan_acquire(m);
    return woken;
}

// A thread's end: finished() is emitted by the ending thread after run(), and a wait() that
// returns true, or isFinished() / !isRunning(), comes after it.
void __wrap__ZN7QThread5startENS_8PriorityE(QThread *t, QThread::Priority p)
{
    QObject::connect(t, &QThread::finished, t, [t] { __tsan_release(t); }, Qt::DirectConnection);
    __real__ZN7QThread5startENS_8PriorityE(t, p);
}

bool __wrap__ZN7QThread4waitE14QDeadlineTimer(QThread *t, QDeadlineTimer d)
{
    const bool ended = __real__ZN7QThread4waitE14QDeadlineTimer(t, d);
    if (ended)
        __tsan_acquire(t);
    return ended;
}

bool __wrap__ZN7QThread4waitEm(QThread *t, unsigned long ms)
{
    const bool ended = __real__ZN7QThread4waitEm(t, ms);
    if (ended)
        __tsan_acquire(t);
    return ended;
}

bool __wrap__ZNK7QThread10isFinishedEv(const QThread *t)
{
    const bool finished = __real__ZNK7QThread10isFinishedEv(t);
    if (finished)
        __tsan_acquire(const_cast<QThread *>(t));
    return finished;
}

bool __wrap__ZNK7QThread9isRunningEv(const QThread *t)
{
    const bool running = __real__ZNK7QThread9isRunningEv(t);
    if (!running)
        __tsan_acquire(const_cast<QThread *>(t));
    return running;
}
}
