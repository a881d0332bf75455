// The proxy's Modbus TCP server: one thread accepts, one thread per client
// reads its requests one at a time and writes each reply before the next
// request is read. Clients from outside the allowed networks are closed at
// once; past the client limit a client's first request is answered with
// exception 0A (the gateway has no path free) and it is closed. Nothing a
// client sends reaches the controller's connection but through the
// request handler.
#ifndef LOGOHOST_MODBUS_SERVER_H
#define LOGOHOST_MODBUS_SERVER_H

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/proxy/client_access.h"
#include "host/proxy/request_handler.h"

namespace logohost {

struct ProxySettings {
    std::string host = "127.0.0.1";
    int port = 5502;  // 0: any free port
    std::vector<Network> allowed;  // empty: loopback clients only
    int maxClients = 32;
    std::function<void(const std::string&)> log;  // refusals and closed clients, in words
};

class ModbusServer {
public:
    ModbusServer(RequestHandler& handler, ProxySettings settings);
    ~ModbusServer();
    ModbusServer(const ModbusServer&) = delete;
    ModbusServer& operator=(const ModbusServer&) = delete;

    bool bind(std::string* error);
    // "127.0.0.1:5502", the port as bound.
    std::string address() const;
    int port() const { return port_; }
    void start();
    // Ends the requests still waiting, closes every client and joins.
    void stop();

private:
    struct Client {
        int fd = -1;
        std::string who;  // "modbus 127.0.0.1:40122"
        bool refused = false;
        std::atomic<bool> done{false};
        std::thread thread;
    };

    RequestHandler& handler_;
    const ProxySettings settings_;
    const ClientAccess access_;
    int listenFd_ = -1;
    int wakeFds_[2] = {-1, -1};
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::thread acceptThread_;
    std::mutex clientsMutex_;
    std::list<std::unique_ptr<Client>> clients_;  // under clientsMutex_

    void acceptLoop();
    void admit(int fd, const sockaddr_storage& peer);
    void serve(Client* client);
    // Joins the clients that have ended; returns how many are still served
    // and how many are being refused. Under clientsMutex_.
    void reap(int* served, int* refusing);
    void say(const std::string& line) const;
};

}  // namespace logohost

#endif  // LOGOHOST_MODBUS_SERVER_H
