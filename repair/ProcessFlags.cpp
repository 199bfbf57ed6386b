#include "repair/ProcessFlags.h"

std::atomic<bool> bStopFlag{false};
std::atomic<bool> bProcessRunning{false};
