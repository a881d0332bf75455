#include "host/binding/link_health.h"

#include "host/notation/time_text.h"

namespace logohost {

const char* linkStateName(LinkState state)
{
    switch (state) {
    case LinkState::Connecting: return "connecting";
    case LinkState::Ok: return "ok";
    case LinkState::Down: return "not answering";
    }
    return "?";
}

std::string healthWords(const LinkHealth& health)
{
    if (health.state != LinkState::Down)
        return linkStateName(health.state);
    const std::string since = clockTextOf(health.sinceMs);
    return "not answering since " + since.substr(0, since.find('.')) + ": " + health.cause;
}

bool unreachable(const LinkHealth& health)
{
    return health.state == LinkState::Down &&
           (health.fault == LinkFault::CannotConnect || health.fault == LinkFault::ConnectTimeout ||
            health.fault == LinkFault::ReplyTimeout);
}

HealthTracker::HealthTracker(int64_t startMs) { health_.sinceMs = startMs; }

void HealthTracker::onExchange(LinkFault fault, const std::string& cause, int64_t nowMs)
{
    if (fault == LinkFault::None) {
        failing_ = false;
        if (health_.state != LinkState::Ok)
            health_ = LinkHealth{LinkState::Ok, nowMs, "", LinkFault::None};
        return;
    }
    noteFailure(fault, cause, nowMs);
}

void HealthTracker::cannotConnect(const std::string& cause, LinkFault fault, int64_t nowMs)
{
    noteFailure(fault, cause, nowMs);
    goDown();
}

void HealthTracker::onGiveUp()
{
    if (failing_)
        goDown();
}

void HealthTracker::noteFailure(LinkFault fault, const std::string& cause, int64_t nowMs)
{
    if (!failing_) {
        failing_ = true;
        streakStartMs_ = nowMs;
    }
    lastCause_ = cause;
    lastFault_ = fault;
    if (health_.state == LinkState::Down) {
        health_.cause = cause;  // the latest reason, from the same start
        health_.fault = fault;
    }
}

void HealthTracker::goDown()
{
    if (health_.state != LinkState::Down)
        health_ = LinkHealth{LinkState::Down, streakStartMs_, lastCause_, lastFault_};
}

HealthBoard::HealthBoard(std::function<int64_t()> wallMs, ControllerOf controllerOf, size_t controllers,
                         const std::vector<int>& stations)
    : wallMs_(std::move(wallMs)),
      controllerOf_(std::move(controllerOf)),
      shown_(controllers, LinkState::Connecting),
      losses_(controllers, 0)
{
    for (const int station : stations)
        trackerOf(station);
}

HealthTracker& HealthBoard::trackerOf(int station)
{
    auto found = stations_.find(station);
    if (found == stations_.end())
        found = stations_.emplace(station, HealthTracker(wallMs_())).first;
    return found->second;
}

std::vector<size_t> HealthBoard::onExchange(int station, LinkFault fault, const std::string& cause)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const int64_t now = wallMs_();
    // A connection that cannot be made at all needs no retries to be sure
    // of, and it is the same connection for every station behind it.
    if (fault == LinkFault::CannotConnect || fault == LinkFault::ConnectTimeout) {
        const size_t controller = controllerOf_(station);
        trackerOf(station);
        for (auto& entry : stations_)
            if (controllerOf_(entry.first) == controller)
                entry.second.cannotConnect(cause, fault, now);
    } else {
        trackerOf(station).onExchange(fault, cause, now);
    }
    return changedControllers(station);
}

std::vector<size_t> HealthBoard::onGiveUp(int station)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    trackerOf(station).onGiveUp();
    return changedControllers(station);
}

std::vector<size_t> HealthBoard::changedControllers(int station)
{
    const size_t controller = controllerOf_(station);
    const LinkState now = summed(controller).state;
    if (now == shown_[controller])
        return {};
    if (now == LinkState::Down)
        ++losses_[controller];
    shown_[controller] = now;
    return {controller};
}

// Up while any of its stations answers; down when none does and one has
// stopped; connecting before any answered.
LinkHealth HealthBoard::summed(size_t controller) const
{
    LinkHealth down;
    bool anyDown = false;
    for (const auto& entry : stations_) {
        if (controllerOf_(entry.first) != controller)
            continue;
        const LinkHealth& health = entry.second.health();
        if (health.state == LinkState::Ok)
            return health;
        if (health.state == LinkState::Down && (!anyDown || health.sinceMs < down.sinceMs)) {
            down = health;
            anyDown = true;
        }
    }
    return anyDown ? down : LinkHealth{LinkState::Connecting, 0, "", LinkFault::None};
}

LinkHealth HealthBoard::station(int station) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = stations_.find(station);
    return found == stations_.end() ? LinkHealth() : found->second.health();
}

LinkHealth HealthBoard::controller(size_t controller) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return summed(controller);
}

uint64_t HealthBoard::losses(size_t controller) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return losses_.at(controller);
}

}  // namespace logohost
