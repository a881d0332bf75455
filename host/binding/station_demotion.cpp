#include "host/binding/station_demotion.h"

#include <cstdio>

#include "host/notation/return_codes.h"

namespace logohost {

StationDemotion::StationDemotion(const DriverApi& api, int after, std::chrono::milliseconds offFor, Report report,
                                 Now now)
    : api_(api), after_(after), offFor_(offFor), report_(std::move(report)), now_(std::move(now))
{
}

void StationDemotion::onResult(const RequestResult& result)
{
    if (isSuccessCode(result.returnCode)) {
        givenUpInRow_.erase(result.station);
        return;
    }
    if (!isFinalFailure(result.returnCode) || offUntil_.count(result.station))
        return;
    const int inRow = ++givenUpInRow_[result.station];
    if (inRow < after_)
        return;
    api_.enableStation(result.station, STATION_OFF);
    offUntil_[result.station] = now_() + offFor_;
    givenUpInRow_.erase(result.station);
    report_(result.station, true,
            "station " + std::to_string(result.station) + " switched off for " +
                secondsText(offFor_) + " after " + std::to_string(inRow) +
                " given-up request" + (inRow == 1 ? "" : "s") + " in a row");
}

void StationDemotion::tick()
{
    const Clock::time_point now = now_();
    for (auto it = offUntil_.begin(); it != offUntil_.end();) {
        if (now < it->second) {
            ++it;
            continue;
        }
        const int station = it->first;
        it = offUntil_.erase(it);
        api_.enableStation(station, STATION_ON);
        report_(station, false, "station " + std::to_string(station) + " switched on again");
    }
}

void StationDemotion::forget(int station)
{
    givenUpInRow_.erase(station);
    offUntil_.erase(station);
}

}  // namespace logohost
