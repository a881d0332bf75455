#include "host/model/subscriptions.h"

namespace logohost {

Subscriptions::Subscriptions(size_t screens, std::chrono::milliseconds lease)
    : lease_(lease), leaseEnds_(screens, Clock::time_point::min())
{
}

int Subscriptions::open(size_t screen)
{
    const int id = nextStream_++;
    streams_[id] = screen;
    return id;
}

void Subscriptions::close(int stream) { streams_.erase(stream); }

void Subscriptions::poll(size_t screen, Clock::time_point now)
{
    if (screen < leaseEnds_.size())
        leaseEnds_[screen] = now + lease_;
}

std::vector<bool> Subscriptions::wanted(Clock::time_point now) const
{
    std::vector<bool> wanted(leaseEnds_.size(), false);
    for (size_t screen = 0; screen < leaseEnds_.size(); ++screen)
        wanted[screen] = now < leaseEnds_[screen];
    for (const auto& stream : streams_)
        if (stream.second < wanted.size())
            wanted[stream.second] = true;
    return wanted;
}

}  // namespace logohost
