// `bridge`: the plant's runtime on an MQTT broker, without HTTP, until
// Ctrl-C; and the same bridge beside the panel's pages (panel --mqtt).
#include <cstdio>
#include <fstream>

#include "common/endpoint.h"
#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/commands/plant_runtime.h"
#include "host/mqtt/mqtt_bridge.h"

namespace logohost {
namespace {

constexpr int kMqttPort = 1883;
constexpr int kMqttTlsPort = 8883;
constexpr std::chrono::milliseconds kWakeUp{200};  // leases and alarms look at the clock this often

MqttSettings mqttSettings(const Options& options)
{
    MqttSettings settings;
    settings.broker.host = options.mqttHost;
    settings.broker.port = options.mqttPort ? options.mqttPort : options.mqttCa.empty() ? kMqttPort : kMqttTlsPort;
    settings.broker.user = options.mqttUser;
    settings.broker.password = options.mqttPassword;
    settings.broker.caFile = options.mqttCa;
    settings.node = options.mqttNode.empty() ? defaultNode() : options.mqttNode;
    settings.say = [](const std::string& line) {
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
    };
    settings.complain = [](const std::string& line) { complain(line); };
    return settings;
}

bool readable(const std::string& path)
{
    std::ifstream file(path);
    return static_cast<bool>(file);
}

}  // namespace

bool prepareMqtt(Options* options, std::string* error)
{
    if (!options->mqttCa.empty() && !readable(options->mqttCa)) {
        *error = "--mqtt-ca " + options->mqttCa + ": cannot be read";
        return false;
    }
    if (options->mqttPasswordFile.empty())
        return true;
    std::ifstream file(options->mqttPasswordFile);
    if (!file || !std::getline(file, options->mqttPassword)) {
        *error = "--mqtt-password-file " + options->mqttPasswordFile + ": cannot be read";
        return false;
    }
    if (!options->mqttPassword.empty() && options->mqttPassword.back() == '\r')
        options->mqttPassword.pop_back();
    return true;
}

std::unique_ptr<MqttBridge> startMqtt(const Options& options, PlantRuntime& plant)
{
    const auto journal = [&plant](const ActionRecord& action) {
        plant.history().addJournal(journalEntry(action, plant.session().clock().wallMs()));
    };
    std::unique_ptr<MqttBridge> bridge(
        new MqttBridge(plant.model(), plant.actions(), plant.alarms(), mqttSettings(options), journal));
    std::string error;
    if (!bridge->start(&error)) {
        complain(error);
        return nullptr;
    }
    return bridge;
}

int runBridge(CommandContext& context)
{
    const Options& options = context.options;
    ScreenSet screens;
    std::string error;
    if (!plantScreens(options, &screens, &error)) {
        complain(error);
        return kExitUsage;
    }
    PlantRuntime plant(context, std::move(screens));
    const MqttSettings settings = mqttSettings(options);
    std::printf("logohost bridge for the controller %s: MQTT broker %s, topics under %s/%s/, Home Assistant "
                "discovery under %s/\n",
                context.links.describe().c_str(),
                common::endpointText(settings.broker.host, settings.broker.port).c_str(), kTopicRoot,
                settings.node.c_str(), kDiscoveryPrefix);
    if (options.readOnly)
        std::printf("Read-only: every set is refused.\n");
    std::printf("History in %s. Ctrl-C to stop.\n", plant.dataDirectory().c_str());
    std::fflush(stdout);
    std::unique_ptr<MqttBridge> bridge = startMqtt(options, plant);
    if (!bridge)
        return kExitFailed;
    plant.start();

    const bool forever = options.durationSeconds <= 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(options.durationSeconds);
    while (sleepUnlessInterrupted(kWakeUp) && (forever || std::chrono::steady_clock::now() < end))
        plant.tick();
    bridge->stop();
    plant.stop();
    return kExitOk;
}

}  // namespace logohost
