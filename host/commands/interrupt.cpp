#include "host/commands/interrupt.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>

namespace logohost {
namespace {

constexpr std::chrono::milliseconds kSlice{20};
std::atomic<bool> g_interrupted{false};

void onSignal(int) { g_interrupted.store(true); }

}  // namespace

void installInterruptHandlers()
{
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interrupted() { return g_interrupted.load(); }

bool sleepUnlessInterrupted(std::chrono::milliseconds duration)
{
    const auto end = std::chrono::steady_clock::now() + duration;
    while (!interrupted()) {
        const auto left = end - std::chrono::steady_clock::now();
        if (left <= std::chrono::steady_clock::duration::zero())
            return true;
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(left, kSlice));
    }
    return false;
}

}  // namespace logohost
