#include "host/binding/station_demotion.h"

#include "host/notation/return_codes.h"

namespace logohost {

StationDemotion::StationDemotion(const DriverApi& api, int after, std::chrono::milliseconds offFor, Report report,
                                 Now now, StationProbe* probe)
    : api_(api), after_(after), offFor_(offFor), report_(std::move(report)), now_(std::move(now)), probe_(probe)
{
}

void StationDemotion::onResult(const RequestResult& result, const LinkHealth& health)
{
    if (isSuccessCode(result.returnCode)) {
        givenUpInRow_.erase(result.station);
        return;
    }
    if (!isFinalFailure(result.returnCode) || offUntil_.count(result.station))
        return;
    const int inRow = ++givenUpInRow_[result.station];
    const bool silent = unreachable(health);
    if (inRow < after_ && !silent)
        return;
    api_.enableStation(result.station, STATION_OFF);
    offUntil_[result.station] = probe_ ? Clock::time_point::max() : now_() + offFor_;
    givenUpInRow_.erase(result.station);
    const std::string why = silent ? "it is not answering (" + health.cause + ")"
                                   : "after " + std::to_string(inRow) + " given-up request" +
                                              (inRow == 1 ? "" : "s") + " in a row";
    const std::string until = probe_ ? " until it answers again" : " for " + secondsText(offFor_);
    report_(result.station, true, "station " + std::to_string(result.station) + " switched off" + until + ": " + why);
    if (probe_)
        probe_->watch(result.station);
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

void StationDemotion::answered(int station)
{
    if (!offUntil_.erase(station))
        return;
    if (probe_)
        probe_->forget(station);
    api_.enableStation(station, STATION_ON);
    report_(station, false, "station " + std::to_string(station) + " switched on again: it answered a probe");
}

void StationDemotion::forget(int station)
{
    givenUpInRow_.erase(station);
    offUntil_.erase(station);
    if (probe_)
        probe_->forget(station);
}

}  // namespace logohost
