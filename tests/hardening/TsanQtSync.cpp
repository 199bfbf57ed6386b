// ThreadSanitizer build only (linked with -Wl,--wrap): Qt 5's locks and QThread::wait() work in
// uninstrumented libQt5Core, so these wrappers tell the sanitizer what they order; nothing is suppressed.

#include <QDeadlineTimer>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <sanitizer/tsan_interface.h>

// Declare the real function and define its wrapper: `before` runs ahead of the real call, `after`
// once it has returned (a bool wrapper sees what it returned as `result`).
#define CORVANE_WRAP_VOID(symbol, params, args, before, after)                                               \
    void __real_##symbol params;                                                                             \
    void __wrap_##symbol params                                                                              \
    {                                                                                                        \
        before;                                                                                              \
        __real_##symbol args;                                                                                \
        after;                                                                                               \
    }
#define CORVANE_WRAP_BOOL(symbol, params, args, before, after)                                               \
    bool __real_##symbol params;                                                                             \
    bool __wrap_##symbol params                                                                              \
    {                                                                                                        \
        before;                                                                                              \
        const bool result = __real_##symbol args;                                                            \
        after;                                                                                               \
        return result;                                                                                       \
    }

extern "C" {
// Locks and the slow paths of QBasicMutex's inline lock() and unlock().
CORVANE_WRAP_VOID(_ZN6QMutex4lockEv, (QMutex * m), (m), , __tsan_acquire(m))
CORVANE_WRAP_VOID(_ZN6QMutex6unlockEv, (QMutex * m), (m), __tsan_release(m), )
CORVANE_WRAP_BOOL(_ZN6QMutex7tryLockEi, (QMutex * m, int t), (m, t), , if (result) __tsan_acquire(m))
CORVANE_WRAP_VOID(_ZN11QBasicMutex12lockInternalEv, (QBasicMutex * m), (m), , __tsan_acquire(m))
CORVANE_WRAP_VOID(_ZN11QBasicMutex14unlockInternalEv, (QBasicMutex * m), (m), __tsan_release(m), )
// A wait unlocks the mutex and locks it again before it returns.
CORVANE_WRAP_BOOL(_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer,
                  (QWaitCondition * c, QMutex *m, QDeadlineTimer t), (c, m, t), __tsan_release(m),
                  __tsan_acquire(m))
CORVANE_WRAP_BOOL(_ZN14QWaitCondition4waitEP6QMutexm, (QWaitCondition * c, QMutex *m, unsigned long t),
                  (c, m, t), __tsan_release(m), __tsan_acquire(m))
// A thread's end: finished() is emitted by the ending thread after run(), and a wait() that returns
// true, or isFinished() / !isRunning(), comes after it.
CORVANE_WRAP_VOID(_ZN7QThread5startENS_8PriorityE, (QThread * t, QThread::Priority p), (t, p),
                  QObject::connect(
                      t, &QThread::finished, t, [t] { __tsan_release(t); }, Qt::DirectConnection), )
CORVANE_WRAP_BOOL(_ZN7QThread4waitE14QDeadlineTimer, (QThread * t, QDeadlineTimer d), (t, d), ,
                  if (result) __tsan_acquire(t))
CORVANE_WRAP_BOOL(_ZN7QThread4waitEm, (QThread * t, unsigned long ms), (t, ms), ,
                  if (result) __tsan_acquire(t))
CORVANE_WRAP_BOOL(_ZNK7QThread10isFinishedEv, (const QThread *t), (t), ,
                  if (result) __tsan_acquire(const_cast<QThread *>(t)))
CORVANE_WRAP_BOOL(_ZNK7QThread9isRunningEv, (const QThread *t), (t), ,
                  if (!result) __tsan_acquire(const_cast<QThread *>(t)))
}
