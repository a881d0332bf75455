// Multi-station mode: a station that keeps failing is switched off for a
// while, so that its time-outs do not slow the scan of the others.
#ifndef LOGOHOST_STATION_DEMOTION_H
#define LOGOHOST_STATION_DEMOTION_H

#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "host/binding/comm_loop.h"
#include "host/binding/driver_api.h"
#include "host/notation/time_text.h"

namespace logohost {

class StationDemotion {
public:
    // Called on the communication thread when a station goes off or on.
    using Report = std::function<void(int station, bool off, const std::string& message)>;

    using Now = std::function<std::chrono::steady_clock::time_point()>;

    StationDemotion(const DriverApi& api, int after, std::chrono::milliseconds offFor, Report report, Now now);

    // Both on the communication thread.
    void onResult(const RequestResult& result);
    void tick();
    // The operator switched the station by hand: no count or timer of the
    // demotion may switch it back.
    void forget(int station);

private:
    using Clock = std::chrono::steady_clock;
    const DriverApi& api_;
    const int after_;
    const std::chrono::milliseconds offFor_;
    const Report report_;
    const Now now_;
    std::map<int, int> givenUpInRow_;
    std::map<int, Clock::time_point> offUntil_;
};


}  // namespace logohost

#endif  // LOGOHOST_STATION_DEMOTION_H
