// Ctrl-C and SIGTERM end watch (and any wait) cleanly instead of killing
// the process mid-frame.
#ifndef LOGOHOST_INTERRUPT_H
#define LOGOHOST_INTERRUPT_H

#include <chrono>

namespace logohost {

// Holds SIGINT and SIGTERM back from this thread and every thread it
// starts afterwards; call it before any thread starts. The signals then
// wait for the process to take them: interrupted() and
// sleepUnlessInterrupted() do.
void holdStopSignals();
bool interrupted();
// Sleeps for the duration; returns false early when interrupted.
bool sleepUnlessInterrupted(std::chrono::milliseconds duration);

}  // namespace logohost

#endif  // LOGOHOST_INTERRUPT_H
