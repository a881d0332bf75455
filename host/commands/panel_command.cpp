// `panel`: the session, the plant model, its history, alarms and journal,
// the operator's actions and the HTTP server, wired together, until Ctrl-C.
#include <cstdio>
#include <thread>

#include "host/alarms/alarm_board.h"
#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/model/journal.h"
#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"
#include "host/panel/http_security.h"
#include "host/panel/panel_server.h"

namespace logohost {
namespace {

constexpr const char* kDefaultListenHost = "127.0.0.1";
constexpr size_t kBodyLimit = 4096;  // the largest request a panel sends is a read of 64 variables
constexpr std::chrono::milliseconds kWakeUp{200};  // leases and alarms look at the clock this often
constexpr size_t kRestoredAlarmEvents = 100000;

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

bool panelScreens(const Options& options, ScreenSet* out, std::string* error)
{
    const StationContext stations{options.multiStation, options.station};
    if (options.screensPath.empty()) {
        *out = builtInScreens(stations);
        return true;
    }
    return loadScreensFile(options.screensPath, stations, out, error);
}

// The history works in memory when its folder cannot be used: the panel
// runs on, and its status page says why.
void openHistory(HistoryStore& history)
{
    std::string error;
    if (!history.open(&error))
        complain("the history is kept in memory only: " + error);
}

std::vector<std::string> controllerNames(const LinkSet& links)
{
    std::vector<std::string> names;
    for (size_t c = 0; c < links.size(); ++c)
        names.push_back(links.address(c).name);
    return names;
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
    if (!panelScreens(*options, &screens, error))
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
    if (!panelScreens(options, &screens, &error)) {
        complain(error);
        return kExitUsage;
    }
    const std::string dataDirectory = options.dataDirectory.empty() ? defaultHistoryDirectory() : options.dataDirectory;
    HistoryStore history(HistorySettings{dataDirectory, std::chrono::hours(options.keepHours), {}, 200000});
    openHistory(history);

    PlantModel model(std::move(screens), PlantSettings{options.multiStation, options.station});
    Session session(context.api, context.info, context.links, context.trace,
                    sessionSettings(options, context.info, true), model.variables());
    model.attach(session, &history);
    AlarmBoard alarms(model, [&history](const AlarmEvent& event) { history.addAlarmEvent(event); });
    alarms.restore(history.alarmEvents(0, kRestoredAlarmEvents));
    session.addResultObserver([&alarms](const RequestResult&) { alarms.evaluate(); });
    LinkJournal linkJournal(history, controllerNames(context.links));
    session.addHealthObserver([&linkJournal, &session](size_t controller, const LinkHealth& health) {
        linkJournal.onHealth(controller, health, session.clock().wallMs());
    });
    OperatorActions actions(
        model, ActionSettings{options.readOnly, session.requestDeadline(1)},
        [&history, &session](const ActionRecord& action) {
            history.addJournal(journalEntry(action, session.clock().wallMs()));
        },
        [&alarms](const std::string& id, const std::string& who) { return alarms.acknowledge(id, who); });

    const ServerSettings settings = serverSettings(options, dataDirectory);
    PanelServer server(model, actions, alarms, history, settings);
    if (!server.bind(&error)) {
        complain(error + "; choose another with --listen HOST:PORT");
        return kExitFailed;
    }
    session.start();
    std::thread http([&server] { server.run(); });
    announce(server, settings, options, context.links);

    const bool forever = options.durationSeconds <= 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(options.durationSeconds);
    while (sleepUnlessInterrupted(kWakeUp) && (forever || std::chrono::steady_clock::now() < end)) {
        model.refreshLeases();
        alarms.evaluate();
    }
    server.stop();
    http.join();
    session.stop();
    return kExitOk;
}

}  // namespace logohost
