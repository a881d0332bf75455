#include "host/binding/pass_meter.h"

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
        controller.anchored = false;
}

void PassMeter::onResult(const RequestResult& result, Clock::time_point now)
{
    if (result.rwType != RW_READ || result.sourceType != SOURCE_TYPE_CYCLIC || result.sourceId != SOURCE_ID_CYCLIC)
        return;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (result.controller >= controllers_.size())
        return;
    Controller& c = controllers_[result.controller];
    const Key key{result.station, result.area, result.address};
    if (!c.anchored) {
        c = Controller{true, key, now, now, c.figures};
        return;
    }
    if (key != c.anchor) {
        c.lastResult = now;
        return;
    }
    const Clock::duration cycle = now - c.passStart;
    c.figures.passSeconds = seconds(c.lastResult - c.passStart);
    c.figures.cycleSeconds = seconds(cycle);
    ++c.figures.passes;
    if (period_.count() > 0 && seconds(cycle) > kOverrunMargin * seconds(period_))
        ++c.figures.overruns;
    c.passStart = now;
    c.lastResult = now;
}

PassFigures PassMeter::figures(size_t controller) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return controller < controllers_.size() ? controllers_[controller].figures : PassFigures();
}

}  // namespace logohost
