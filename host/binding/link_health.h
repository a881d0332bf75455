// The state of the link to each controller, as an operator reads it:
// "connecting" until the first reply, "ok" while replies come, and "not
// answering since 12:03:07: connection refused" from the moment the
// controller cannot be reached until a reply comes again. It changes only
// on what the link sees, never on a quiet moment, so it does not flap.
//
// It is kept per station and summed up per controller: behind a Modbus
// gateway one station that does not answer leaves the others, and the
// link, up.
#ifndef LOGOHOST_LINK_HEALTH_H
#define LOGOHOST_LINK_HEALTH_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/link/tcp_link.h"

namespace logohost {

enum class LinkState { Connecting, Ok, Down };

struct LinkHealth {
    LinkState state = LinkState::Connecting;
    int64_t sinceMs = 0;  // wall clock: when the state began; for Down, the first failure of the streak
    std::string cause;    // Down: the latest failure in words
    LinkFault fault = LinkFault::None;  // Down: the latest failure
};

// "connecting", "ok", "not answering"
const char* linkStateName(LinkState state);
// "ok", "connecting", "not answering since 12:03:07: connection refused"
std::string healthWords(const LinkHealth& health);
// Down for want of an answer at all (refused, unreachable, silent), as
// opposed to a controller that answers but drops or spoils its replies:
// waiting longer for the first is waiting for nothing.
bool unreachable(const LinkHealth& health);

// One station's state machine. Not thread-safe: the board locks.
class HealthTracker {
public:
    explicit HealthTracker(int64_t startMs);
    // Every exchange. An exception reply is a reply: the station is there
    // and answering.
    void onExchange(LinkFault fault, const std::string& cause, int64_t nowMs);
    // A request given up after its retries: when none of its attempts got a
    // reply, the station is not answering.
    void onGiveUp();
    // Its controller's connection cannot be made: down at once.
    void cannotConnect(const std::string& cause, LinkFault fault, int64_t nowMs);
    const LinkHealth& health() const { return health_; }

private:
    LinkHealth health_;
    bool failing_ = false;  // no reply since the streak began
    int64_t streakStartMs_ = 0;
    std::string lastCause_;
    LinkFault lastFault_ = LinkFault::None;

    void noteFailure(LinkFault fault, const std::string& cause, int64_t nowMs);
    void goDown();
};

// Every station's tracker, and each controller's state made of them.
// Thread-safe: events come on the communication thread, questions from any.
class HealthBoard {
public:
    using ControllerOf = std::function<size_t(int station)>;

    HealthBoard(std::function<int64_t()> wallMs, ControllerOf controllerOf, size_t controllers,
                const std::vector<int>& stations);

    // Both return the controllers whose state changed.
    std::vector<size_t> onExchange(int station, LinkFault fault, const std::string& cause);
    std::vector<size_t> onGiveUp(int station);

    LinkHealth station(int station) const;
    LinkHealth controller(size_t controller) const;
    // Times the controller was lost, for the status page.
    uint64_t losses(size_t controller) const;

private:
    const std::function<int64_t()> wallMs_;
    const ControllerOf controllerOf_;
    mutable std::mutex mutex_;
    std::map<int, HealthTracker> stations_;
    std::vector<LinkState> shown_;  // each controller's state as last summed up
    std::vector<uint64_t> losses_;

    HealthTracker& trackerOf(int station);                  // under mutex_
    LinkHealth summed(size_t controller) const;              // under mutex_
    std::vector<size_t> changedControllers(int station);     // under mutex_
};

}  // namespace logohost

#endif  // LOGOHOST_LINK_HEALTH_H
