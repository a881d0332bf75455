#include "host/commands/commands.h"

#include <cstdio>

#include "host/notation/value_codec.h"

namespace logohost {

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

void complain(const std::string& message) { std::fprintf(stderr, "logohost: %s\n", message.c_str()); }

bool parseVariables(const Options& options, std::vector<Variable>* out, std::string* error)
{
    std::vector<Variable> variables;
    for (const std::string& text : options.args) {
        Variable var;
        if (!parseVariable(text, options.multiStation, &var, error))
            return false;
        variables.push_back(var);
    }
    *out = variables;
    return true;
}

std::unique_ptr<Session> startScan(CommandContext& context, bool paced, Session::StationObserver onStation,
                                   std::vector<Variable>* variables)
{
    std::string error;
    if (!parseVariables(context.options, variables, &error)) {
        complain(error);
        return nullptr;
    }
    std::unique_ptr<Session> session(new Session(context.api, context.info, context.links, context.trace,
                                                 sessionSettings(context.options, context.info, paced), *variables));
    session->addStationObserver(std::move(onStation));
    std::vector<size_t> all;
    for (size_t v = 0; v < variables->size(); ++v)
        all.push_back(v);
    session->scan(all);
    session->start();
    return session;
}

bool prepareCommand(Options* options, std::string* error)
{
    if (options->command == "panel" || options->command == "bridge")
        return preparePanel(options, error) && prepareMqtt(options, error);
    if (options->command != "write") {
        std::vector<Variable> variables;
        return parseVariables(*options, &variables, error);
    }
    for (const std::string& text : options->args) {
        WriteRequest request;
        if (!parseWrite(text, options->multiStation, &request, error))
            return false;
    }
    return true;
}

SessionSettings sessionSettings(const Options& options, const ComInfo& info, bool paced)
{
    SessionSettings settings;
    settings.multiStation = options.multiStation;
    settings.defaultStation = options.station;
    settings.localLinkId = info.localLinkId;
    settings.remoteMode = options.remoteMode;
    settings.retries = options.retries;
    settings.replyTimeout = milliseconds(options.timeoutSeconds);
    settings.scanPeriod = paced ? milliseconds(options.scanPeriodSeconds) : std::chrono::milliseconds(0);
    settings.demote = options.multiStation;
    // Several controllers: each one's own connection can be asked apart from
    // the scan. A gateway's stations all share one; so does remote mode's
    // peer, which a Modbus probe would not reach.
    settings.probe = options.plcs.size() > 1 && !options.remoteMode;
    settings.demoteAfter = options.demoteAfter;
    settings.demoteFor = milliseconds(options.demoteForSeconds);
    return settings;
}

#if !LOGOHOST_WITH_PANEL
// A cross build leaves the panel out by default (LOGO_BUILD_PANEL).
bool preparePanel(Options*, std::string* error)
{
    *error = "this logohost was built without the panel (LOGO_BUILD_PANEL=OFF)";
    return false;
}

int runPanel(CommandContext&) { return kExitUsage; }
int runBridge(CommandContext&) { return kExitUsage; }
bool prepareMqtt(Options*, std::string*) { return false; }
#endif

}  // namespace logohost
