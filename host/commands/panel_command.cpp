// `panel`: the model, the communication loop and the HTTP server, wired
// together, until Ctrl-C.
#include <cstdio>
#include <thread>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/panel/http_security.h"
#include "host/panel/panel_model.h"
#include "host/panel/panel_server.h"

namespace logohost {
namespace {

constexpr const char* kDefaultListenHost = "127.0.0.1";
constexpr size_t kBodyLimit = 4096;  // the largest request a panel sends is a read of 64 variables
constexpr std::chrono::milliseconds kWakeUp{200};

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

PanelSettings panelSettings(const CommandContext& context)
{
    const Options& options = context.options;
    PanelSettings settings;
    settings.multiStation = options.multiStation;
    settings.defaultStation = options.station;
    settings.localLinkId = context.info.localLinkId;
    settings.remoteMode = options.remoteMode;
    settings.readOnly = options.readOnly;
    settings.scanPeriod = milliseconds(options.scanPeriodSeconds);
    settings.resultDeadline = resultDeadline(options, 1);
    settings.demoteAfter = options.demoteAfter;
    settings.demoteFor = milliseconds(options.demoteForSeconds);
    settings.peer = context.peer;
    return settings;
}

ServerSettings serverSettings(const Options& options)
{
    ServerSettings settings;
    settings.host = options.listenHost.empty() ? kDefaultListenHost : options.listenHost;
    settings.port = options.listenPort;
    settings.bodyLimit = kBodyLimit;
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
        std::fprintf(stderr, "logohost: %s\n", error.c_str());
        return kExitUsage;
    }
    PanelModel model(context.api, std::move(screens), panelSettings(context));
    CommLoop loop(
        context.api, context.info, context.link, context.trace,
        [&model](const RequestResult& result) { model.onResult(result); }, [&model] { model.tick(); },
        [&model](int sourceType, int sourceId, int status) { model.onReadDone(sourceType, sourceId, status); });
    model.attachCounters(&loop.counters());
    model.start();

    const ServerSettings settings = serverSettings(options);
    PanelServer server(model, settings);
    if (!server.bind(&error)) {
        std::fprintf(stderr, "logohost: %s; choose another with --listen HOST:PORT\n", error.c_str());
        return kExitFailed;
    }
    loop.start();
    std::thread http([&server] { server.run(); });
    std::printf("logohost panel for the controller %s: open %s\n", context.peer.c_str(), server.url().c_str());
    if (!settings.token.empty())
        std::printf("Changes need the token in that address (or Authorization: Bearer TOKEN).\n");
    if (options.readOnly)
        std::printf("Read-only: no writes and no station switching.\n");
    std::printf("Ctrl-C to stop.\n");
    std::fflush(stdout);

    const bool forever = options.durationSeconds <= 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(options.durationSeconds);
    while (sleepUnlessInterrupted(kWakeUp) && (forever || std::chrono::steady_clock::now() < end)) {
    }
    model.shutdown();
    server.stop();
    http.join();
    loop.stop();
    return kExitOk;
}

}  // namespace logohost
