#include "cli/StopSignal.h"

#include "repair/ProcessFlags.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <unistd.h>

// Only lock-free atomics may be touched from a signal handler.
static_assert(std::atomic<bool>::is_always_lock_free,
              "bStopFlag must be lock-free to be set from a signal handler");
static_assert(std::atomic<int>::is_always_lock_free, "the message descriptor must be lock-free");

namespace {

std::atomic<bool> g_requested{false};
std::atomic<int> g_messageFd{-1};
struct sigaction g_oldInt;
struct sigaction g_oldTerm;

extern "C" void OnStopSignal(int sig)
{
    if (g_requested.exchange(true)) {
        // The second request: the default action ends the process as soon as this handler returns.
        std::signal(sig, SIG_DFL);
        raise(sig);
        return;
    }
    bStopFlag.store(true);
    const int fd = g_messageFd.load();
    if (fd >= 0) {
        const int savedErrno = errno; // the interrupted code may be about to read it
        static const char text[] = "\nStopping... (press Ctrl-C again to quit at once)\n";
        const ssize_t written = write(fd, text, sizeof text - 1);
        (void)written;
        errno = savedErrno;
    }
}

} // namespace

StopSignal::StopSignal(int messageFd)
{
    g_requested = false;
    g_messageFd = messageFd;
    struct sigaction action = {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &g_oldInt);
    sigaction(SIGTERM, &action, &g_oldTerm);
}

StopSignal::~StopSignal()
{
    sigaction(SIGINT, &g_oldInt, nullptr);
    sigaction(SIGTERM, &g_oldTerm, nullptr);
    g_messageFd = -1;
}

bool StopSignal::Requested()
{
    return g_requested.load();
}
