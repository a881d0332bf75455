// The panel's HTTP side: the pages, the event streams and the JSON API,
// each handler a thin layer over the model.
#ifndef LOGOHOST_PANEL_SERVER_H
#define LOGOHOST_PANEL_SERVER_H

#include <memory>
#include <string>

#include "host/panel/panel_model.h"

namespace httplib {
class Server;
}

namespace logohost {

struct ServerSettings {
    std::string host = "127.0.0.1";
    int port = 8080;       // 0: any free port
    std::string token;     // empty: changes need no token
    size_t bodyLimit = 4096;
};

class PanelServer {
public:
    PanelServer(PanelModel& model, ServerSettings settings);
    ~PanelServer();
    PanelServer(const PanelServer&) = delete;
    PanelServer& operator=(const PanelServer&) = delete;

    bool bind(std::string* error);
    int port() const { return port_; }
    // The address to open, with the token when changes need one.
    std::string url() const;
    // Serves until stop(), on the calling thread.
    void run();
    void stop();

private:
    PanelModel& model_;
    const ServerSettings settings_;
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;

    void route();
};

}  // namespace logohost

#endif  // LOGOHOST_PANEL_SERVER_H
