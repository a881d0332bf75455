// Home Assistant's discovery entries for the bridge's items: one retained
// message per item under homeassistant/COMPONENT/NODE/VAR/config.
//
// A bit is a binary_sensor, or a switch where an item lets the operator
// write it; a word a sensor, or a number (with the item's range and step)
// where it is writable. Read-only mode offers no controls. Each entry is
// available only while the bridge is online and its state's quality is ok,
// so that Home Assistant greys a value the bridge cannot vouch for.
#ifndef LOGOHOST_HA_DISCOVERY_H
#define LOGOHOST_HA_DISCOVERY_H

#include <string>

#include "host/model/screens_file.h"
#include "host/mqtt/mqtt_topics.h"

namespace logohost {

// The controller an item's element lives on, as a Home Assistant device.
struct DeviceInfo {
    std::string id;  // "logohost_NODE", or "logohost_NODE_NAME" for one of several controllers
    std::string name;
};

struct DiscoveryEntry {
    std::string topic;
    std::string payload;
};

// "binary_sensor", "switch", "sensor" or "number".
const char* componentOf(const PanelItem& item, bool writable);

// `item` says what the element is; `writable`, when not null, is the item
// that lets an operator write it, whose range and step a number takes.
DiscoveryEntry discoveryEntry(const Topics& topics, const std::string& var, const PanelItem& item,
                              const PanelItem* writable, const DeviceInfo& device);

}  // namespace logohost

#endif  // LOGOHOST_HA_DISCOVERY_H
