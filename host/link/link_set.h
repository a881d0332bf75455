// The connections to the controllers. One controller (or a Modbus gateway
// with several stations behind one address) takes every frame; with several
// controllers each station's frames go to the controller at its own address,
// over a connection of its own with its own back-off, so that one that does
// not answer costs the others as little as can be.
#ifndef LOGOHOST_LINK_SET_H
#define LOGOHOST_LINK_SET_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "host/link/tcp_link.h"

namespace logohost {

struct ControllerAddress {
    std::string name;  // as the operator calls it; the address when none was given
    std::string host;
    int port = 502;
    int station = -1;  // the station it serves; -1: every station
};

class LinkSet {
public:
    LinkSet(std::vector<ControllerAddress> controllers, std::chrono::milliseconds timeout, Trace& trace);
    LinkSet(const LinkSet&) = delete;
    LinkSet& operator=(const LinkSet&) = delete;

    size_t size() const { return links_.size(); }
    // The controller a station's frames go to: the one serving it, else the
    // first (a station of no controller cannot be named by the host).
    size_t controllerOf(int station) const;
    TcpLink& link(size_t controller) { return *links_.at(controller); }
    const TcpLink& link(size_t controller) const { return *links_.at(controller); }
    const ControllerAddress& address(size_t controller) const { return addresses_.at(controller); }
    // "127.0.0.1:502", or "tank 127.0.0.1:5021, mill 127.0.0.1:5022"
    std::string describe() const;

private:
    const std::vector<ControllerAddress> addresses_;
    std::vector<std::unique_ptr<TcpLink>> links_;
};

}  // namespace logohost

#endif  // LOGOHOST_LINK_SET_H
