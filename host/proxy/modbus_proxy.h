// Other Modbus clients through the host's one connection per controller:
// the server, its request handler and the session they ask, wired
// together. A LOGO! serves only a few Modbus connections; through the proxy
// every tool shares the host's and takes its place in the driver's queues.
#ifndef LOGOHOST_MODBUS_PROXY_H
#define LOGOHOST_MODBUS_PROXY_H

#include <string>

#include "host/proxy/modbus_server.h"
#include "host/proxy/proxy_backend.h"
#include "host/proxy/request_handler.h"

namespace logohost {

class ModbusProxy {
public:
    // Before session.start(): it adds its result observer to the session.
    ModbusProxy(Session& session, ProxyPolicy policy, ProxySettings settings,
                RequestHandler::Recorder recorder = RequestHandler::Recorder());

    bool bind(std::string* error) { return server_.bind(error); }
    std::string address() const { return server_.address(); }
    // After the session has started; stop before it stops.
    void start() { server_.start(); }
    void stop() { server_.stop(); }

private:
    SessionBackend backend_;
    RequestHandler handler_;
    ModbusServer server_;
};

}  // namespace logohost

#endif  // LOGOHOST_MODBUS_PROXY_H
