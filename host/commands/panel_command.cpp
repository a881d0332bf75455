// `panel`: the plant's runtime and the HTTP server over it, until Ctrl-C.
#include <cstdio>
#include <thread>

#include "host/commands/commands.h"
#include "host/commands/gateway.h"
#include "host/panel/http_security.h"
#include "host/panel/panel_server.h"

namespace logohost {
namespace {

constexpr const char* kDefaultListenHost = "127.0.0.1";
constexpr size_t kBodyLimit = 4096;  // the largest request a panel sends is a read of 64 variables

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
    const std::unique_ptr<PlantRuntime> opened = openPlant(context);
    if (!opened)
        return kExitUsage;
    PlantRuntime& plant = *opened;
    std::string error;
    const ServerSettings settings = serverSettings(options, plant.dataDirectory());
    PanelServer server(plant.model(), plant.actions(), plant.alarms(), plant.history(), settings);
    Gateway gateway(options, plant);
    if (!server.bind(&error)) {
        complain(error + "; choose another with --listen HOST:PORT");
        return kExitFailed;
    }
    if (!gateway.bind(&error)) {
        complain(error);
        return kExitFailed;
    }
    plant.start();
    std::thread http([&server] { server.run(); });
    announce(server, settings, options, context.links);
    gateway.start();  // a broker that cannot be used is said, and the pages go on
    gateway.announce();
    plant.run(options.durationSeconds);
    server.stop();
    http.join();
    gateway.stop();
    plant.stop();
    return kExitOk;
}

}  // namespace logohost
