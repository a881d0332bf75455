// The plant on an MQTT broker: every item's state and every alarm
// published as it changes, Home Assistant's discovery entries, and writes
// from `set` topics through the operator's actions, with the same checks
// as the panel's and the outcome published and journaled.
//
// What is published is always scanned: the bridge holds every screen open
// for as long as it runs, as a browser holds the one it shows, broker or
// no broker. On every connection it publishes everything again (a broker
// restarted without persistence has forgotten the retained messages), and
// clears what a previous run left retained that the screens no longer have.
#ifndef LOGOHOST_MQTT_BRIDGE_H
#define LOGOHOST_MQTT_BRIDGE_H

#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/alarms/alarm_board.h"
#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"
#include "host/mqtt/ha_discovery.h"
#include "host/mqtt/mqtt_client.h"
#include "host/mqtt/mqtt_topics.h"
#include "host/mqtt/set_queue.h"

namespace logohost {

struct MqttSettings {
    BrokerSettings broker;  // its client id and last will are the bridge's to set
    std::string node;
    std::function<void(const std::string&)> say;       // connected
    std::function<void(const std::string&)> complain;  // not connected, and why
};

class MqttBridge {
public:
    // `recorder` journals the refusals the bridge makes itself (a payload
    // that is no value, an unknown item, a set replaced while it waited);
    // the actions journal the rest.
    MqttBridge(PlantModel& model, OperatorActions& actions, const AlarmBoard& alarms, MqttSettings settings,
               OperatorActions::Recorder recorder);
    ~MqttBridge();
    MqttBridge(const MqttBridge&) = delete;
    MqttBridge& operator=(const MqttBridge&) = delete;

    bool start(std::string* error);
    // Lets the set being written finish and be answered (those still
    // waiting are dropped), publishes offline and disconnects.
    void stop();

    const Topics& topics() const { return topics_; }
    std::string brokerAddress() const { return client_.address(); }

private:
    struct Entry {
        size_t var = 0;
        std::string name;  // VAR in the topics
        DiscoveryEntry discovery;
        bool announced = false;  // on this connection
        std::string sentKey;     // the state last published on this connection
    };

    PlantModel& model_;
    OperatorActions& actions_;
    const AlarmBoard& alarms_;
    const MqttSettings settings_;
    const OperatorActions::Recorder recorder_;
    const Topics topics_;
    std::vector<Entry> entries_;
    std::map<std::string, size_t> byName_;  // VAR -> entry
    std::set<std::string> ownTopics_;       // every retained topic this run publishes
    std::vector<int> streams_;
    SetQueue sets_;
    MqttClient client_;
    std::atomic<bool> stopping_{false};
    std::thread publisher_, writer_;
    std::vector<std::string> alarmsSent_;  // per alarm, on this connection

    void buildEntries();
    DeviceInfo deviceOf(size_t var) const;
    MqttClient::Handlers handlers();
    std::vector<std::string> sweepPatterns() const;
    void onConnected();
    void onMessage(const std::string& topic, const std::string& payload, bool retained);
    void onSet(const std::string& name, const std::string& payload, bool retained);
    void publishLoop();
    bool publishChanges();
    bool publishAlarms();
    void writeLoop();
    void perform(const PendingSet& set);
    void answer(const std::string& name, const std::string& subject, const std::string& payload,
                const ActionResult& result, bool journal);
};

}  // namespace logohost

#endif  // LOGOHOST_MQTT_BRIDGE_H
