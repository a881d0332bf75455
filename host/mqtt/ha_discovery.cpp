#include "host/mqtt/ha_discovery.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace logohost {
namespace {

using Json = nlohmann::json;

constexpr const char* kOn = "ON";
constexpr const char* kOff = "OFF";
// The state's JSON read by Home Assistant's templates: a bit's 1 or 0 as
// its ON and OFF; a null value renders "None", which it takes as unknown.
constexpr const char* kBitTemplate = "{{ 'ON' if value_json.value == 1 else 'OFF' }}";
constexpr const char* kValueTemplate = "{{ value_json.value }}";
constexpr const char* kQualityTemplate = "{{ 'online' if value_json.quality == 'ok' else 'offline' }}";

Json availability(const Topics& topics, const std::string& var)
{
    return Json::array({{{"topic", topics.status()}},
                        {{"topic", topics.state(var)}, {"value_template", kQualityTemplate}}});
}

void addWordSettings(const PanelItem& item, const PanelItem* writable, Json* config)
{
    if (!item.unit.empty())
        (*config)["unit_of_measurement"] = item.unit;
    if (!writable) {
        (*config)["state_class"] = "measurement";
        (*config)["suggested_display_precision"] = item.decimals;
        return;
    }
    (*config)["min"] = writable->min;
    (*config)["max"] = writable->max;
    (*config)["step"] = std::fabs(writable->scale);
    (*config)["mode"] = "box";
}

}  // namespace

const char* componentOf(const PanelItem& item, bool writable)
{
    if (isBitKind(item.var.kind))
        return writable ? "switch" : "binary_sensor";
    return writable ? "number" : "sensor";
}

DiscoveryEntry discoveryEntry(const Topics& topics, const std::string& var, const PanelItem& item,
                              const PanelItem* writable, const DeviceInfo& device)
{
    const bool bit = isBitKind(item.var.kind);
    Json config = {{"name", item.label},
                   {"unique_id", "logohost_" + topics.node() + "_" + var},
                   {"state_topic", topics.state(var)},
                   {"value_template", bit ? kBitTemplate : kValueTemplate},
                   {"availability", availability(topics, var)},
                   {"availability_mode", "all"},
                   {"device", {{"identifiers", Json::array({device.id})}, {"name", device.name}, {"model", "LOGO!"}}},
                   {"origin", {{"name", "logohost"}}}};
    if (writable)
        config["command_topic"] = topics.set(var);
    if (bit && writable) {
        config["payload_on"] = kOn;
        config["payload_off"] = kOff;
        config["state_on"] = kOn;
        config["state_off"] = kOff;
    }
    if (!bit)
        addWordSettings(item, writable, &config);
    return {topics.discovery(componentOf(item, writable != nullptr), var),
            config.dump(-1, ' ', false, Json::error_handler_t::replace)};
}

}  // namespace logohost
