// `panel`: the session, the plant model, the operator's actions and the
// HTTP server, wired together, until Ctrl-C.
#include <cstdio>
#include <thread>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"
#include "host/panel/http_security.h"
#include "host/panel/panel_server.h"
#include "host/proxy/modbus_proxy.h"

namespace logohost {
namespace {

constexpr const char* kDefaultListenHost = "127.0.0.1";
constexpr size_t kBodyLimit = 4096;  // the largest request a panel sends is a read of 64 variables
constexpr std::chrono::milliseconds kWakeUp{200};

ServerSettings serverSettings(const Options& options)
{
    ServerSettings settings;
    settings.host = options.listenHost.empty() ? kDefaultListenHost : options.listenHost;
    settings.port = options.listenPort;
    settings.bodyLimit = kBodyLimit;
    settings.streamLimit = static_cast<size_t>(options.maxViewers);
    // Off loopback anyone on the network reaches the panel: changes then
    // need a token, the operator's or one made up now.
    settings.token = !options.token.empty() || isLoopbackAddress(settings.host) ? options.token : generateToken();
    return settings;
}

bool panelScreens(const Options& options, ScreenSet* out, std::string* error)
{
    const StationContext stations{options.multiStation, options.station};
    if (options.screensPath.empty()) {
        *out = builtInScreens(stations);
        return true;
    }
    return loadScreensFile(options.screensPath, stations, out, error);
}

void announce(const PanelServer& server, const ServerSettings& settings, const Options& options,
              const LinkSet& links)
{
    std::printf("logohost panel for the controller %s: open %s\n", links.describe().c_str(), server.url().c_str());
    if (!settings.token.empty())
        std::printf("Changes need the token in that address (or Authorization: Bearer TOKEN).\n");
    if (options.readOnly)
        std::printf("Read-only: no writes and no station switching.\n");
    std::printf("Ctrl-C to stop.\n");
    std::fflush(stdout);
}

// ---- the Modbus proxy ----

std::unique_ptr<ModbusProxy> modbusProxy(const Options& options, Session& session)
{
    if (!options.modbusListen)
        return nullptr;
    const SessionSettings& sessionSettings = session.settings();
    ProxyPolicy policy;
    policy.readOnly = options.readOnly;
    policy.multiStation = sessionSettings.multiStation;
    policy.defaultStation = sessionSettings.defaultStation;
    for (const PlcOption& plc : options.plcs)
        if (plc.station >= 0)
            policy.stations.push_back(plc.station);
    policy.maxBlock = options.maxBlock;
    // By default what the scan brought in within its own period needs no
    // frame: a client sees values as fresh as the panel's screens show.
    policy.maxAge = options.modbusMaxAgeSeconds < 0 ? sessionSettings.scanPeriod
                                                    : milliseconds(options.modbusMaxAgeSeconds);
    ProxySettings settings;
    settings.host = options.modbusHost;
    settings.port = options.modbusPort;
    settings.maxClients = options.modbusMaxClients;
    for (const std::string& text : options.modbusAllow) {
        Network network;
        std::string why;
        if (parseNetwork(text, &network, &why))  // checked with the command line
            settings.allowed.push_back(network);
    }
    settings.log = complain;
    return std::unique_ptr<ModbusProxy>(new ModbusProxy(session, policy, settings));
}

}  // namespace

bool checkPanelArguments(const Options& options, std::string* error)
{
    ScreenSet screens;
    return panelScreens(options, &screens, error);
}

int runPanel(CommandContext& context)
{
    const Options& options = context.options;
    ScreenSet screens;
    std::string error;
    if (!panelScreens(options, &screens, &error)) {
        complain(error);
        return kExitUsage;
    }
    PlantModel model(std::move(screens), PlantSettings{options.multiStation, options.station});
    Session session(context.api, context.info, context.links, context.trace,
                    sessionSettings(options, context.info, true), model.variables());
    model.attach(session);
    OperatorActions actions(model, ActionSettings{options.readOnly, session.requestDeadline(1)});

    const ServerSettings settings = serverSettings(options);
    PanelServer server(model, actions, settings);
    if (!server.bind(&error)) {
        complain(error + "; choose another with --listen HOST:PORT");
        return kExitFailed;
    }
    const std::unique_ptr<ModbusProxy> proxy = modbusProxy(options, session);
    if (proxy && !proxy->bind(&error)) {
        complain(error + "; choose another with --modbus-listen HOST:PORT");
        return kExitFailed;
    }
    session.start();
    if (proxy)
        proxy->start();
    std::thread http([&server] { server.run(); });
    announce(server, settings, options, context.links);
    if (proxy) {
        std::printf("Modbus clients: %s\n", proxy->address().c_str());
        std::fflush(stdout);
    }

    const bool forever = options.durationSeconds <= 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(options.durationSeconds);
    while (sleepUnlessInterrupted(kWakeUp) && (forever || std::chrono::steady_clock::now() < end))
        model.refreshLeases();
    server.stop();
    http.join();
    if (proxy)
        proxy->stop();
    session.stop();
    return kExitOk;
}

}  // namespace logohost
