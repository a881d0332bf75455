// `panel`: the plant's runtime and the HTTP server over it, until Ctrl-C.
#include <cstdio>
#include <thread>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/commands/plant_runtime.h"
#include "host/panel/http_security.h"
#include "host/panel/panel_server.h"
#include "host/proxy/modbus_proxy.h"

namespace logohost {
namespace {

constexpr const char* kDefaultListenHost = "127.0.0.1";
constexpr size_t kBodyLimit = 4096;  // the largest request a panel sends is a read of 64 variables
constexpr std::chrono::milliseconds kWakeUp{200};  // leases and alarms look at the clock this often

ServerSettings serverSettings(const Options& options, const std::string& dataDirectory)
{
    ServerSettings settings;
    settings.historyDirectory = dataDirectory;
    settings.host = options.listenHost.empty() ? kDefaultListenHost : options.listenHost;
    settings.port = options.listenPort;
    settings.bodyLimit = kBodyLimit;
    settings.streamLimit = static_cast<size_t>(options.maxViewers);
    // Off loopback anyone on the network reaches the panel: changes then
    // need a token, the operator's or one made up now.
    settings.token = !options.token.empty() || isLoopbackAddress(settings.host) ? options.token : generateToken();
    return settings;
}

void announce(const PanelServer& server, const ServerSettings& settings, const Options& options,
              const LinkSet& links)
{
    std::printf("logohost panel for the controller %s: open %s\n", links.describe().c_str(), server.url().c_str());
    if (!settings.token.empty())
        std::printf("Changes need the token in that address (or Authorization: Bearer TOKEN).\n");
    if (options.readOnly)
        std::printf("Read-only: no writes, no station switching, no acknowledging.\n");
    std::printf("History in %s. Ctrl-C to stop.\n", settings.historyDirectory.c_str());
    std::fflush(stdout);
}

// ---- the Modbus proxy ----

std::unique_ptr<ModbusProxy> modbusProxy(const Options& options, PlantRuntime& plant)
{
    if (!options.modbusListen)
        return nullptr;
    const SessionSettings& sessionSettings = plant.session().settings();
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
    return std::unique_ptr<ModbusProxy>(new ModbusProxy(plant.session(), policy, settings,
                                                        [&plant](const ActionRecord& action) { plant.record(action); }));
}

}  // namespace

bool preparePanel(Options* options, std::string* error)
{
    ScreenSet screens;
    if (!plantScreens(*options, &screens, error))
        return false;
    if (screens.controllers.empty())
        return true;
    if (!options->plcs.empty()) {
        *error = options->screensPath + " names its controllers: give them there or with --plc, not both";
        return false;
    }
    for (const ControllerEntry& controller : screens.controllers)
        options->plcs.push_back(PlcOption{controller.station, controller.host, controller.port, controller.name});
    options->multiStation = true;
    return true;
}

int runPanel(CommandContext& context)
{
    const Options& options = context.options;
    ScreenSet screens;
    std::string error;
    if (!plantScreens(options, &screens, &error)) {
        complain(error);
        return kExitUsage;
    }
    PlantRuntime plant(context, std::move(screens));
    const ServerSettings settings = serverSettings(options, plant.dataDirectory());
    PanelServer server(plant.model(), plant.actions(), plant.alarms(), plant.history(), settings);
    if (!server.bind(&error)) {
        complain(error + "; choose another with --listen HOST:PORT");
        return kExitFailed;
    }
    const std::unique_ptr<ModbusProxy> proxy = modbusProxy(options, plant);
    if (proxy && !proxy->bind(&error)) {
        complain(error + "; choose another with --modbus-listen HOST:PORT");
        return kExitFailed;
    }
    plant.start();
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
        plant.tick();
    server.stop();
    http.join();
    if (proxy)
        proxy->stop();
    plant.stop();
    return kExitOk;
}

}  // namespace logohost
