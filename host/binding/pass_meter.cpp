#include "host/binding/pass_meter.h"

#include <algorithm>

namespace logohost {
namespace {

// A cycle this much over the period is an overrun; below it, the pacer's
// own wake-up and one frame's time.
constexpr double kOverrunMargin = 1.2;

double seconds(PassMeter::Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

}  // namespace

PassMeter::PassMeter(size_t controllers, std::chrono::milliseconds period)
    : period_(period), controllers_(controllers)
{
}

void PassMeter::restart()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Controller& controller : controllers_)
        controller.answered.clear();
}

void PassMeter::onFrame(Clock::time_point now)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    frameOpen_ = true;
    frameStart_ = now;
}

void PassMeter::onResult(const RequestResult& result, Clock::time_point now)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    // A result without a frame (a station switched off) took no link time.
    if (frameOpen_)
        requestWork_ += now - frameStart_;
    frameOpen_ = false;
    if (result.returnCode == RC_RETRYING)
        return;
    const Clock::duration work = requestWork_;
    requestWork_ = Clock::duration::zero();
    if (result.rwType != RW_READ || result.sourceType != SOURCE_TYPE_CYCLIC || result.sourceId != SOURCE_ID_CYCLIC ||
        result.controller >= controllers_.size())
        return;
    Controller& c = controllers_[result.controller];
    const Key key{result.station, result.area, result.address};
    if (std::find(c.answered.begin(), c.answered.end(), key) != c.answered.end()) {
        const Clock::duration cycle = now - c.passStart;
        c.figures.passSeconds = seconds(c.work);
        c.figures.cycleSeconds = seconds(cycle);
        ++c.figures.passes;
        if (period_.count() > 0 && seconds(cycle) > kOverrunMargin * seconds(period_))
            ++c.figures.overruns;
        c.answered.clear();
    }
    if (c.answered.empty()) {
        c.passStart = now;
        c.work = Clock::duration::zero();
    }
    c.answered.push_back(key);
    c.work += work;
}

PassFigures PassMeter::figures(size_t controller) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return controller < controllers_.size() ? controllers_[controller].figures : PassFigures();
}

}  // namespace logohost
