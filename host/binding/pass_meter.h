// How long one full scan of each controller's variables takes, and how often
// it took longer than the scan period allows: the diagnosis for a scan list
// too long for its controller, or a controller that has become slow.
//
// A pass of a controller is measured from one cyclic result of its first
// request to the next result of that same request: the cycle. Within it,
// the pass time runs to the last result before the cycle closes; the rest
// is the pacer's wait.
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
    // Every final cyclic result, on the communication thread.
    void onResult(const RequestResult& result, Clock::time_point now);
    PassFigures figures(size_t controller) const;

private:
    using Key = std::tuple<int, int, int>;  // station, area, address
    struct Controller {
        bool anchored = false;
        Key anchor{};
        Clock::time_point passStart{}, lastResult{};
        PassFigures figures;
    };

    const std::chrono::milliseconds period_;
    mutable std::mutex mutex_;
    std::vector<Controller> controllers_;
};

}  // namespace logohost

#endif  // LOGOHOST_PASS_METER_H
