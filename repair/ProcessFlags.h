#pragma once

#include <atomic>

class QThread;
class QWaitCondition;

// Flags shared by the user interface and the worker threads. The interface raises bStopFlag to ask a
// running worker to stop; a worker clears it when its run ends. bProcessRunning is true while a
// worker's run executes. Both are atomics because they are read and written from several threads.
extern std::atomic<bool> bStopFlag;
extern std::atomic<bool> bProcessRunning;

// The runs of one worker thread, as stop requests see them. A run is going from the moment it is
// started (before its thread has begun) until it ends; a stop request is accepted only then, and the
// run's end withdraws it. So a request that comes too late, however late, never stops the next run.
class WorkerRun
{
public:
    // The worker's SetInitialSettings, under the mutex that its run holds throughout: asks the run
    // that is going to stop, or else starts a new run of thread.
    void StartOrStop(QThread &thread, QWaitCondition &condition);
    // The worker's destructor: stops the run that is going and waits for the thread to end.
    void StopAndWait(QThread &thread, QWaitCondition &condition);
    // Raises bStopFlag for the run that is going. False, and the flag left as it was, when no run is
    // going (it may have ended while the user was being asked).
    bool RequestStop();
    // The run's last step.
    void End();

private:
    std::atomic<bool> m_going{false};
};
