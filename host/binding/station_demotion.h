// Multi-station mode: a station that keeps failing is switched off, so that
// its time-outs do not slow the scan of the others. One that cannot be
// reached at all goes off at its first given-up request. It comes back on
// when a probe finds it answering again, or, without a probe, after a while.
#ifndef LOGOHOST_STATION_DEMOTION_H
#define LOGOHOST_STATION_DEMOTION_H

#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "host/binding/comm_loop.h"
#include "host/binding/driver_api.h"
#include "host/binding/link_health.h"
#include "host/binding/station_probe.h"
#include "host/notation/time_text.h"

namespace logohost {

class StationDemotion {
public:
    // Called on the communication thread when a station goes off or on.
    using Report = std::function<void(int station, bool off, const std::string& message)>;

    using Now = std::function<std::chrono::steady_clock::time_point()>;

    // With a probe, a station switched off stays off until the probe hears it.
    StationDemotion(const DriverApi& api, int after, std::chrono::milliseconds offFor, Report report, Now now,
                    StationProbe* probe = nullptr);

    // On the communication thread, with the station's link state: one that
    // cannot be reached or does not answer at all goes off at once.
    void onResult(const RequestResult& result, const LinkHealth& health);
    void tick();
    // The probe heard the station: on again.
    void answered(int station);
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
    StationProbe* const probe_;
    std::map<int, int> givenUpInRow_;
    std::map<int, Clock::time_point> offUntil_;  // every station the demotion switched off
};


}  // namespace logohost

#endif  // LOGOHOST_STATION_DEMOTION_H
