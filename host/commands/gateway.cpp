#include "host/commands/gateway.h"

#include <cstdio>
#include <fstream>

#include "common/endpoint.h"
#include "host/mqtt/mqtt_bridge.h"
#include "host/proxy/client_access.h"
#include "host/proxy/modbus_proxy.h"

namespace logohost {
namespace {

constexpr int kMqttPort = 1883;
constexpr int kMqttTlsPort = 8883;

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

}  // namespace

bool prepareMqtt(Options* options, std::string* error)
{
    if (!options->mqttCa.empty() && !std::ifstream(options->mqttCa)) {
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

Gateway::Gateway(const Options& options, PlantRuntime& plant)
    : options_(options), plant_(plant), proxy_(modbusProxy(options, plant))
{
}

Gateway::~Gateway() { stop(); }

bool Gateway::bind(std::string* error)
{
    if (!proxy_ || proxy_->bind(error))
        return true;
    *error += "; choose another with --modbus-listen HOST:PORT";
    return false;
}

bool Gateway::start()
{
    if (proxy_)
        proxy_->start();
    if (!bridging())
        return true;
    mqtt_.reset(new MqttBridge(plant_.model(), plant_.actions(), plant_.alarms(), mqttSettings(options_),
                               [this](const ActionRecord& action) { plant_.record(action); }));
    std::string error;
    if (mqtt_->start(&error))
        return true;
    complain(error);
    mqtt_.reset();
    return false;
}

void Gateway::announce() const
{
    if (!proxy_)
        return;
    std::printf("Modbus clients: %s\n", proxy_->address().c_str());
    std::fflush(stdout);
}

void Gateway::stop()
{
    if (mqtt_)
        mqtt_->stop();
    if (proxy_)
        proxy_->stop();
}

std::string Gateway::mqttDescription() const
{
    const MqttSettings settings = mqttSettings(options_);
    return "MQTT broker " + common::endpointText(settings.broker.host, settings.broker.port) + ", topics under " +
           kTopicRoot + "/" + settings.node + "/, Home Assistant discovery under " + kDiscoveryPrefix + "/";
}

}  // namespace logohost
