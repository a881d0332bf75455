#include "host/link/link_set.h"

#include "common/endpoint.h"

namespace logohost {

LinkSet::LinkSet(std::vector<ControllerAddress> controllers, std::chrono::milliseconds timeout, Trace& trace)
    : addresses_(std::move(controllers))
{
    const BackoffWait wait = addresses_.size() > 1 ? BackoffWait::FailFast : BackoffWait::Sleep;
    for (const ControllerAddress& address : addresses_)
        links_.emplace_back(new TcpLink(address.host, address.port, timeout, trace, wait));
}

size_t LinkSet::controllerOf(int station) const
{
    for (size_t c = 0; c < addresses_.size(); ++c)
        if (addresses_[c].station == station)
            return c;
    return 0;
}

std::string LinkSet::describe() const
{
    if (addresses_.size() == 1)
        return common::endpointText(addresses_[0].host, addresses_[0].port);
    std::string text;
    for (const ControllerAddress& address : addresses_)
        text += (text.empty() ? "" : ", ") + address.name + " " + common::endpointText(address.host, address.port);
    return text;
}

}  // namespace logohost
