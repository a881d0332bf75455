// How long one full scan of each controller's variables takes, and how often
// it took longer than the scan period allows: the diagnosis for a scan list
// too long for its controller, or a controller that has become slow.
//
// A pass of a controller is every request of its cyclic list answered once:
// it begins with a result and ends when a request already answered in it
// comes again, which begins the next. The cycle runs from one pass's first
// result to the next one's. The pass time is the link's work in it: for each
// request, from its frame going out to its result, repeats included; the
// pacer's wait is not in it.
//
// Neither is tied to one request of the list: the pacer counts results per
// period, so after a pass that outran its period (a time-out, a
// reconnection) periods begin at another point of the list, and a pass
// timed from its first result to its last would count the wait as work.
#ifndef LOGOHOST_PASS_METER_H
#define LOGOHOST_PASS_METER_H

#include <chrono>
#include <mutex>
#include <tuple>
#include <vector>

#include "host/binding/comm_loop.h"

namespace logohost {

struct PassFigures {
    double passSeconds = 0;   // the last full pass, busy time
    double cycleSeconds = 0;  // the last pass and the wait after it
    uint64_t passes = 0;
    uint64_t overruns = 0;    // passes whose cycle overran the scan period
};

class PassMeter {
public:
    using Clock = std::chrono::steady_clock;

    PassMeter(size_t controllers, std::chrono::milliseconds period);
    // The cyclic list changed: passes start afresh.
    void restart();
    // On the communication thread: a frame may go out now.
    void onFrame(Clock::time_point now);
    // Every result, repeats included, on the communication thread.
    void onResult(const RequestResult& result, Clock::time_point now);
    PassFigures figures(size_t controller) const;

private:
    using Key = std::tuple<int, int, int>;  // station, area, address
    struct Controller {
        // In the pass under way. A vector, searched: a pass is a few dozen
        // requests, and cleared it keeps its memory, so a result allocates nothing.
        std::vector<Key> answered;
        Clock::time_point passStart{};
        Clock::duration work{};  // in the pass under way
        PassFigures figures;
    };

    const std::chrono::milliseconds period_;
    mutable std::mutex mutex_;
    std::vector<Controller> controllers_;
    bool frameOpen_ = false;  // a frame went out and has no result yet
    Clock::time_point frameStart_{};
    Clock::duration requestWork_{};  // the request's repeats so far
};

}  // namespace logohost

#endif  // LOGOHOST_PASS_METER_H
