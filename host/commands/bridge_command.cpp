// `bridge`: the plant's runtime on an MQTT broker (and, with
// --modbus-listen, for Modbus clients), without HTTP, until Ctrl-C.
#include <cstdio>

#include "host/commands/commands.h"
#include "host/commands/gateway.h"

namespace logohost {

int runBridge(CommandContext& context)
{
    const Options& options = context.options;
    const std::unique_ptr<PlantRuntime> opened = openPlant(context);
    if (!opened)
        return kExitUsage;
    PlantRuntime& plant = *opened;
    std::string error;
    Gateway gateway(options, plant);
    if (!gateway.bind(&error)) {
        complain(error);
        return kExitFailed;
    }
    std::printf("logohost bridge for the controller %s: %s\n", context.links.describe().c_str(),
                gateway.mqttDescription().c_str());
    if (options.readOnly)
        std::printf("Read-only: every set is refused.\n");
    std::printf("History in %s. Ctrl-C to stop.\n", plant.dataDirectory().c_str());
    std::fflush(stdout);
    plant.start();
    if (!gateway.start())
        return kExitFailed;
    gateway.announce();
    plant.run(options.durationSeconds);
    gateway.stop();
    plant.stop();
    return kExitOk;
}

}  // namespace logohost
