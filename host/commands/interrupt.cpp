// Stop signals are taken, not handled. A handler runs in whichever thread
// the kernel picks: there it makes a system call of some library (the
// broker's select, a database write) fail with EINTR, and ThreadSanitizer
// defers it to that thread's next intercepted call. Held back from every
// thread, a signal instead waits until the main thread takes it, and
// nothing else sees it.
#include "host/commands/interrupt.h"

#include <atomic>
#include <csignal>
#include <ctime>

namespace logohost {
namespace {

std::atomic<bool> g_interrupted{false};

sigset_t stopSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

// Takes a stop signal that is or becomes pending within `timeout`.
void takeStopSignal(std::chrono::milliseconds timeout)
{
    const sigset_t set = stopSignals();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    const timespec wait{static_cast<time_t>(seconds.count()),
                        static_cast<long>(std::chrono::nanoseconds(timeout - seconds).count())};
    // Any other signal ends the wait early (EINTR); the caller asks again.
    if (sigtimedwait(&set, nullptr, &wait) > 0)
        g_interrupted.store(true);
}

}  // namespace

void holdStopSignals()
{
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool interrupted()
{
    if (!g_interrupted.load())
        takeStopSignal(std::chrono::milliseconds(0));
    return g_interrupted.load();
}

bool sleepUnlessInterrupted(std::chrono::milliseconds duration)
{
    const auto end = std::chrono::steady_clock::now() + duration;
    while (!g_interrupted.load()) {
        const auto left = end - std::chrono::steady_clock::now();
        if (left <= std::chrono::steady_clock::duration::zero())
            return true;
        takeStopSignal(std::chrono::ceil<std::chrono::milliseconds>(left));
    }
    return false;
}

}  // namespace logohost
