// The plant's fronts for other programs, on the panel and the bridge
// alike: the Modbus proxy (--modbus-listen) and the MQTT bridge (--mqtt),
// both over the runtime's one session.
#ifndef LOGOHOST_GATEWAY_H
#define LOGOHOST_GATEWAY_H

#include <memory>
#include <string>

#include "host/commands/plant_runtime.h"

namespace logohost {

class ModbusProxy;
class MqttBridge;

class Gateway {
public:
    // Before plant.start(): the proxy watches the session's results.
    Gateway(const Options& options, PlantRuntime& plant);
    ~Gateway();
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    // The proxy's port; false with why when it cannot be had.
    bool bind(std::string* error);
    // After plant.start(): the proxy serves, the bridge connects (and goes
    // on trying on its own). False, said on standard error, when the bridge
    // cannot start at all.
    bool start();
    // "Modbus clients: HOST:PORT", when there are any.
    void announce() const;
    void stop();

    bool bridging() const { return !options_.mqttHost.empty(); }
    // The broker and the topics, in words, for the bridge's banner.
    std::string mqttDescription() const;

private:
    const Options& options_;
    PlantRuntime& plant_;
    std::unique_ptr<ModbusProxy> proxy_;
    std::unique_ptr<MqttBridge> mqtt_;
};

}  // namespace logohost

#endif  // LOGOHOST_GATEWAY_H
