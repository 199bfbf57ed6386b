#include "repair/ProcessFlags.h"

#include <QThread>
#include <QWaitCondition>

std::atomic<bool> bStopFlag{false};
std::atomic<bool> bProcessRunning{false};

void WorkerRun::StartOrStop(QThread &thread, QWaitCondition &condition)
{
    if (RequestStop()) {
        condition.wakeOne();
        return;
    }
    // No run is going, but the thread may still be on its way out of the last one, and start() would
    // then do nothing. Its run is over (the caller holds the run's mutex), so it ends at once.
    thread.wait();
    m_going = true;
    thread.start(QThread::LowPriority);
}

void WorkerRun::StopAndWait(QThread &thread, QWaitCondition &condition)
{
    if (RequestStop())
        condition.wakeAll();
    thread.wait();
}

bool WorkerRun::RequestStop()
{
    if (!m_going)
        return false;
    bStopFlag = true;
    if (m_going)
        return true;
    // The run ended between the test and the store, perhaps after clearing the flag: nothing is
    // going that this request could stop, so it must not stay for the next run.
    bStopFlag = false;
    return false;
}

void WorkerRun::End()
{
    // In this order: a request that saw the run still going either raised the flag before it is
    // cleared here, or sees the run over afterwards and takes itself back.
    m_going = false;
    bStopFlag = false;
}
