// Which screens someone is looking at: a browser's open event stream for a
// screen holds it for as long as the stream is open; a script that polls a
// screen's values holds it for a lease after each poll.
#ifndef LOGOHOST_SUBSCRIPTIONS_H
#define LOGOHOST_SUBSCRIPTIONS_H

#include <chrono>
#include <map>
#include <vector>

namespace logohost {

class Subscriptions {
public:
    using Clock = std::chrono::steady_clock;

    Subscriptions(size_t screens, std::chrono::milliseconds lease);

    // Returns the stream's id, for close().
    int open(size_t screen);
    void close(int stream);
    void poll(size_t screen, Clock::time_point now);

    // One flag per screen: open stream or lease not yet run out.
    std::vector<bool> wanted(Clock::time_point now) const;
    size_t openStreams() const { return streams_.size(); }

private:
    const std::chrono::milliseconds lease_;
    std::map<int, size_t> streams_;  // stream id -> screen
    std::vector<Clock::time_point> leaseEnds_;
    int nextStream_ = 1;
};

}  // namespace logohost

#endif  // LOGOHOST_SUBSCRIPTIONS_H
