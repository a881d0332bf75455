// logohost: the reference host of the LOGO! Modbus TCP driver.
#include <cstdio>

#include "common/endpoint.h"

#include "host/commands/cli_options.h"
#include "host/commands/commands.h"
#include "host/binding/driver_api.h"
#include "host/commands/embedded_sim.h"
#include "host/commands/interrupt.h"
#include "host/link/link_set.h"
#include "host/link/trace.h"

namespace {

using namespace logohost;

constexpr int kLocalLinkId = 1;        // any fixed value: results for it are local ones

ComInfo comInfoFor(const Options& options)
{
    ComInfo info{};
    info.maxBlockLength = options.maxBlock;
    info.defaultStation = options.station;
    info.retryLimit = options.retries;
    info.multiStation = options.multiStation ? 1 : 0;
    info.remoteMode = options.remoteMode ? 1 : 0;
    info.localLinkId = kLocalLinkId;
    info.writeMode = WRITE_MODE_TO_CONTROLLER;
    info.hostContext = 0;
    return info;
}

int fail(const std::string& message, int code)
{
    std::fprintf(stderr, "logohost: %s\n", message.c_str());
    return code;
}

std::vector<ControllerAddress> controllersOf(const Options& options)
{
    std::vector<ControllerAddress> controllers;
    for (const PlcOption& plc : options.plcs) {
        ControllerAddress address;
        address.host = plc.host;
        address.port = plc.port;
        address.station = plc.station;
        address.name = !plc.name.empty() ? plc.name
                       : plc.station < 0 ? common::endpointText(plc.host, plc.port)
                                         : "station " + std::to_string(plc.station);
        controllers.push_back(address);
    }
    return controllers;
}

int runCommand(const Options& options)
{
    DriverApi api;
    std::string error;
    const std::string driverPath = options.driverPath.empty() ? defaultDriverPath() : options.driverPath;
    if (!loadDriver(driverPath, &api, &error))
        return fail(error, kExitFailed);

    Trace trace(options.trace);
    LinkSet links(controllersOf(options), milliseconds(options.timeoutSeconds), trace);
    ComInfo info = comInfoFor(options);
    CommandContext context{options, api, info, links, trace};
    if (options.command == "watch")
        return runWatch(context);
    if (options.command == "read")
        return runRead(context);
    if (options.command == "panel")
        return runPanel(context);
    if (options.command == "bridge")
        return runBridge(context);
    return runWrite(context);
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    std::string error;
    if (parseOptions(argc, argv, &options, &error) != kParsed)
        return fail(error, kExitUsage);
    if (options.help) {
        std::fputs(usageText().c_str(), stdout);
        return kExitOk;
    }
    if (options.command == "sim")
        return runSimulatorCommand(options.args);

    if (!prepareCommand(&options, &error))
        return fail(error, kExitUsage);
    holdStopSignals();
    EmbeddedSimulator simulator;
    if (options.plcs.empty()) {
        if (!simulator.start(&error))
            return fail("cannot start the built-in simulator: " + error, kExitFailed);
        std::fprintf(stderr, "logohost: no --plc given, using the built-in LOGO! simulator on %s\n",
                     common::endpointText(simulator.host(), simulator.port()).c_str());
        options.plcs.push_back(PlcOption{-1, simulator.host(), simulator.port(), ""});
    }
    return runCommand(options);
}
