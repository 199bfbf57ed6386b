#pragma once

// Ctrl-C (SIGINT) and SIGTERM while a run is going: the first one raises bStopFlag, so the workers end
// their run as aborted at their next poll; a second one ends the process at once with the default
// action. Installed for the life of the object, then the previous handlers come back.
class StopSignal
{
public:
    // `messageFd`: where to say that a stop is on its way (-1 for nowhere).
    explicit StopSignal(int messageFd);
    ~StopSignal();
    StopSignal(const StopSignal &) = delete;
    StopSignal &operator=(const StopSignal &) = delete;

    // True once a stop signal came, even after a worker has cleared bStopFlag at the end of its run.
    static bool Requested();
};
