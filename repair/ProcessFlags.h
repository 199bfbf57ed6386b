#pragma once

#include <atomic>

// Flags shared by the user interface and the worker threads. The interface raises bStopFlag to ask a
// running worker to stop; a worker clears it when its run ends. bProcessRunning is true while a
// worker's run executes. Both are atomics because they are read and written from several threads.
extern std::atomic<bool> bStopFlag;
extern std::atomic<bool> bProcessRunning;
