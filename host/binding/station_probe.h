// While a station is switched off for failing, its controller is asked now
// and then whether it answers again: on a connection of its own, from a
// thread of its own, so that the scan of the others never waits for it. A
// controller that refuses connections costs them nothing, a silent one no
// more than the probe's own time-out, off their thread.
#ifndef LOGOHOST_STATION_PROBE_H
#define LOGOHOST_STATION_PROBE_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

#include "host/link/link_set.h"

namespace logohost {

class StationProbe {
public:
    // Called on the probe's thread when a watched station answered.
    using Answered = std::function<void(int station)>;

    StationProbe(const LinkSet& links, std::chrono::milliseconds timeout, std::chrono::milliseconds interval,
                 Answered answered);
    ~StationProbe();
    StationProbe(const StationProbe&) = delete;
    StationProbe& operator=(const StationProbe&) = delete;

    void watch(int station);
    void forget(int station);
    // For good: no station is asked any more, and no answer is told.
    void stop();

private:
    const LinkSet& links_;
    const std::chrono::milliseconds timeout_;
    const std::chrono::milliseconds interval_;
    const Answered answered_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<int> watched_;
    std::atomic<bool> stop_{false};
    std::thread thread_;

    void run();
    bool answers(int station);
};

}  // namespace logohost

#endif  // LOGOHOST_STATION_PROBE_H
