// A scan period for the cyclic list. The driver serves its cyclic list back
// to back for as long as it is asked for frames: tens of thousands a second
// on a fast link, which a controller with other clients should not have to
// bear and a screen does not need.
#ifndef LOGOHOST_SCAN_PACER_H
#define LOGOHOST_SCAN_PACER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "host/binding/comm_loop.h"

namespace logohost {

class ScanPacer {
public:
    using Clock = std::chrono::steady_clock;
    // True while the host has writes or one-shot reads waiting: they go out
    // at once, whatever the cyclic list has used.
    using HostWaiting = std::function<bool()>;

    // A period of 0 never holds the loop.
    ScanPacer(std::chrono::milliseconds period, HostWaiting hostWaiting);

    // After each rebuild: the requests of the new cyclic list, the most it
    // may have answered in one period. A new period starts.
    void setListSize(int requests);
    // On the communication thread, for every result.
    void onResult(const RequestResult& result);
    // On the communication thread, before each frame: returns once a frame
    // may go out, or once release() was called.
    void pace();
    // The host queued something: look again at once.
    void wake();
    // For good: pace() holds nothing any more (the loop is stopping).
    void release();

    // Whether pace() would let a frame go now (it starts a new period when
    // the old one is over).
    bool mayGo();
    // The list has had its frames for this period and the loop holds the
    // next: the pass is over until the period ends.
    bool resting() const;

private:
    const std::chrono::milliseconds period_;
    const HostWaiting hostWaiting_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int budget_ = 0;
    int used_ = 0;
    bool released_ = false;
    bool woken_ = false;
    Clock::time_point periodEnd_;

    bool mayGoLocked(Clock::time_point now);  // under mutex_
};

}  // namespace logohost

#endif  // LOGOHOST_SCAN_PACER_H
