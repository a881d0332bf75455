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
    session.start();
    std::thread http([&server] { server.run(); });
    announce(server, settings, options, context.links);

    const bool forever = options.durationSeconds <= 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(options.durationSeconds);
    while (sleepUnlessInterrupted(kWakeUp) && (forever || std::chrono::steady_clock::now() < end))
        model.refreshLeases();
    server.stop();
    http.join();
    session.stop();
    return kExitOk;
}

}  // namespace logohost
