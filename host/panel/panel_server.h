// The panel's HTTP side: the pages, the event streams and the JSON API,
// each handler a thin layer over the model and the operator's actions.
//
// Limits, each for a reason: an open event stream holds one of the server's
// threads for as long as it is open, so at most kStreamLimit screens are
// open at once (a page past it says so and tries again by itself); requests
// besides the streams share the remaining threads, and a client that
// trickles its request in holds one of them until it is whole.
#ifndef LOGOHOST_PANEL_SERVER_H
#define LOGOHOST_PANEL_SERVER_H

#include <atomic>
#include <memory>
#include <string>

#include "host/alarms/alarm_board.h"
#include "host/history/history_store.h"
#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"

namespace httplib {
class Server;
}

namespace logohost {

struct ServerSettings {
    std::string historyDirectory;  // for the status page
    std::string host = "127.0.0.1";
    int port = 8502;       // 0: any free port
    std::string token;     // empty: changes need no token
    size_t bodyLimit = 4096;
    size_t streamLimit = 150;    // event streams open at once
    size_t requestThreads = 64;  // threads for everything else
};

class PanelServer {
public:
    PanelServer(PlantModel& model, OperatorActions& actions, AlarmBoard& alarms, HistoryStore& history,
                ServerSettings settings);
    ~PanelServer();
    PanelServer(const PanelServer&) = delete;
    PanelServer& operator=(const PanelServer&) = delete;

    // False with the reason: "127.0.0.1:8502 is in use", or why it cannot
    // listen there. Never shares a port with another server.
    bool bind(std::string* error);
    int port() const { return port_; }
    // The address to open, with the token when changes need one.
    std::string url() const;
    // Serves until stop(), on the calling thread.
    void run();
    void stop();

    struct Context;

private:
    std::unique_ptr<Context> context_;
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;

    void route();
};

}  // namespace logohost

#endif  // LOGOHOST_PANEL_SERVER_H
