#include "host/mqtt/mqtt_bridge.h"

#include <algorithm>
#include <chrono>

#include "common/thread_name.h"
#include "host/mqtt/mqtt_payloads.h"

namespace logohost {
namespace {

constexpr const char* kWho = "mqtt";
constexpr const char* kOnline = "online";
constexpr const char* kOffline = "offline";
constexpr int kSetQos = 1;     // a set is a command: the broker hands it over once at least
constexpr int kResultQos = 1;  // and its answer likewise
// A retained message lost with its connection is sent again on the next
// one; QoS 0 also keeps libmosquitto from sending an old state again after
// a newer one when it reconnects.
constexpr int kRetainedQos = 0;
constexpr size_t kMaxSetPayload = 64;
// States are gathered at most this often: waking at every result of a fast
// scan would cost more than it tells.
constexpr std::chrono::milliseconds kLeastGap{10};
// ... and at least this often, for values that turn stale with no result.
constexpr std::chrono::milliseconds kRecheck{250};
// Messages the library may hold unsent before the bridge waits for a slow
// broker; what changes meanwhile is sent as it then is.
constexpr int64_t kMaxUnsent = 2000;

std::string controllerDeviceId(const std::string& node) { return "logohost_" + node; }

}  // namespace

MqttBridge::MqttBridge(PlantModel& model, OperatorActions& actions, const AlarmBoard& alarms,
                       MqttSettings settings, OperatorActions::Recorder recorder)
    : model_(model),
      actions_(actions),
      alarms_(alarms),
      settings_(std::move(settings)),
      recorder_(std::move(recorder)),
      topics_(settings_.node),
      client_(
          [this] {
              BrokerSettings broker = settings_.broker;
              broker.clientId = "logohost-" + settings_.node;
              broker.willTopic = topics_.status();
              broker.willPayload = kOffline;
              return broker;
          }(),
          handlers())
{
    buildEntries();
    const std::vector<AlarmStatus> alarmList = alarms_.statuses();
    for (const AlarmStatus& alarm : alarmList)
        ownTopics_.insert(topics_.alarm(topicName(alarm.rule->id)));
    alarmsSent_.resize(alarmList.size());
}

MqttBridge::~MqttBridge() { stop(); }

// Every element some screen shows, once; an alarm's variable that no
// screen shows is the alarm's business, not an item.
void MqttBridge::buildEntries()
{
    std::set<size_t> seen;
    for (const PanelScreen& screen : model_.screens().screens) {
        for (const PanelItem& item : screen.items) {
            const int index = model_.indexOf(item.var);
            if (index < 0 || !seen.insert(static_cast<size_t>(index)).second)
                continue;
            const PanelVariable& var = model_.variable(static_cast<size_t>(index));
            Entry entry;
            entry.var = static_cast<size_t>(index);
            entry.name = topicName(elementName(var.var, 0, model_.settings().multiStation));
            const PanelItem* writable = actions_.readOnly() ? nullptr : var.writable;
            entry.discovery = discoveryEntry(topics_, entry.name, *var.item, writable, deviceOf(entry.var));
            byName_.emplace(entry.name, entries_.size());
            ownTopics_.insert(entry.discovery.topic);
            ownTopics_.insert(topics_.state(entry.name));
            entries_.push_back(entry);
        }
    }
}

// One device per controller, named as the screens file or --plc names it;
// one controller is the plant's only device.
DeviceInfo MqttBridge::deviceOf(size_t var) const
{
    const Session& session = model_.session();
    const LinkFigures figures = session.figures();
    if (figures.controllers.size() <= 1) {
        const std::string& title = model_.screens().title;
        return {controllerDeviceId(settings_.node), title.empty() ? "logohost " + settings_.node : title};
    }
    const std::string& name = figures.controllers.at(session.controllerOf(model_.variable(var).station)).name;
    return {controllerDeviceId(settings_.node) + "_" + topicName(name), name};
}

MqttClient::Handlers MqttBridge::handlers()
{
    MqttClient::Handlers handlers;
    handlers.connected = [this] { onConnected(); };
    handlers.trouble = [this](const std::string& what) {
        if (settings_.complain)
            settings_.complain("MQTT broker " + client_.address() + ": " + what + "; trying again");
    };
    handlers.message = [this](const std::string& topic, const std::string& payload, bool retained) {
        onMessage(topic, payload, retained);
    };
    return handlers;
}

bool MqttBridge::start(std::string* error)
{
    for (size_t s = 0; s < model_.screens().screens.size(); ++s)
        streams_.push_back(model_.openStream(s));
    if (!client_.start(error))
        return false;
    publisher_ = std::thread([this] { publishLoop(); });
    writer_ = std::thread([this] { writeLoop(); });
    return true;
}

void MqttBridge::stop()
{
    if (stopping_.exchange(true))
        return;
    sets_.stop();
    if (writer_.joinable())
        writer_.join();
    if (publisher_.joinable())
        publisher_.join();
    client_.stop(topics_.status(), kOffline);
    for (const int stream : streams_)
        model_.closeStream(stream);
    streams_.clear();
}

// ---- the broker's side, on the client's thread --------------------------------

// What a previous run may have left retained, and the message that ends it.
std::vector<std::string> MqttBridge::sweepPatterns() const
{
    return {topics_.anyState(), topics_.anyAlarm(), topics_.anyDiscovery(), topics_.sweepDone()};
}

void MqttBridge::onConnected()
{
    client_.publish(topics_.status(), kOnline, true, kStatusQos);
    client_.subscribe(topics_.anySet(), kSetQos);
    for (const std::string& pattern : sweepPatterns())
        client_.subscribe(pattern, kRetainedQos);
    client_.publish(topics_.sweepDone(), "", false, kRetainedQos);
    if (settings_.say)
        settings_.say("MQTT: connected to " + client_.address() + " as logohost-" + settings_.node +
                      ", topics under " + kTopicRoot + "/" + settings_.node + "/");
}

void MqttBridge::onMessage(const std::string& topic, const std::string& payload, bool retained)
{
    if (topic == topics_.sweepDone()) {
        for (const std::string& pattern : sweepPatterns())
            client_.unsubscribe(pattern);
        return;
    }
    const std::string name = topics_.varOfSet(topic);
    if (!name.empty()) {
        onSet(name, payload, retained);
        return;
    }
    // A retained leftover of an earlier run (or this run's own message,
    // or an entry just cleared, which comes back empty).
    if (!payload.empty() && ownTopics_.count(topic) == 0)
        client_.publish(topic, "", true, kRetainedQos);
}

void MqttBridge::onSet(const std::string& name, const std::string& payload, bool retained)
{
    const auto found = byName_.find(name);
    if (found == byName_.end())
        return answer(name, name, payload, {Outcome::UnknownVariable, name + " is no item of this bridge"}, true);
    const std::string& subject = model_.variable(entries_[found->second].var).item->varText;
    if (retained)
        return answer(name, subject, payload,
                      {Outcome::BadRequest, "a retained set is refused: the broker would hand it over again at every "
                                            "reconnection"},
                      true);
    if (payload.size() > kMaxSetPayload)
        return answer(name, subject, payload.substr(0, kMaxSetPayload),
                      {Outcome::BadRequest, "a set carries at most " + std::to_string(kMaxSetPayload) + " bytes"}, true);
    PendingSet replaced;
    if (sets_.offer(PendingSet{found->second, payload}, &replaced))
        answer(name, subject, replaced.payload,
               {Outcome::Replaced, subject + " = " + replaced.payload + " not written: replaced by a newer value (" +
                                       payload + ") before it was written"},
               true);
}

// ---- states, alarms and discovery, on the publisher's thread -----------------

void MqttBridge::publishLoop()
{
    common::nameThisThread("mqtt-states");
    const Session& session = model_.session();
    uint64_t seen = 0;
    uint64_t connection = 0;
    while (!stopping_) {
        std::this_thread::sleep_for(kLeastGap);
        seen = session.waitForChange(seen, kRecheck);
        if (!client_.connected())
            continue;
        if (client_.connections() != connection) {
            connection = client_.connections();
            for (Entry& entry : entries_) {
                entry.announced = false;
                entry.sentKey.clear();
            }
            std::fill(alarmsSent_.begin(), alarmsSent_.end(), std::string());
        }
        if (publishChanges())
            publishAlarms();
    }
}

// False when the broker is behind or gone: the rest waits for the next round.
bool MqttBridge::publishChanges()
{
    const std::vector<ElementStatus> elements = model_.session().elements();
    for (Entry& entry : entries_) {
        if (client_.unsent() > kMaxUnsent)
            return false;
        if (!entry.announced)
            entry.announced = client_.publish(entry.discovery.topic, entry.discovery.payload, true, kRetainedQos);
        const ElementStatus& element = elements.at(entry.var);
        const std::string key = stateKey(element);
        if (key == entry.sentKey)
            continue;
        const PanelItem& item = *model_.variable(entry.var).item;
        if (!client_.publish(topics_.state(entry.name), statePayload(item, element), true, kRetainedQos))
            return false;
        entry.sentKey = key;
    }
    return true;
}

bool MqttBridge::publishAlarms()
{
    const std::vector<AlarmStatus> alarms = alarms_.statuses();
    for (size_t a = 0; a < alarms.size() && a < alarmsSent_.size(); ++a) {
        const std::string payload = alarmPayload(alarms[a]);
        if (payload == alarmsSent_[a])
            continue;
        if (client_.unsent() > kMaxUnsent ||
            !client_.publish(topics_.alarm(topicName(alarms[a].rule->id)), payload, true, kRetainedQos))
            return false;
        alarmsSent_[a] = payload;
    }
    return true;
}

// ---- sets, on the writer's thread ------------------------------------------

void MqttBridge::writeLoop()
{
    common::nameThisThread("mqtt-sets");
    PendingSet set;
    while (sets_.take(&set))
        perform(set);
}

void MqttBridge::perform(const PendingSet& set)
{
    const Entry& entry = entries_.at(set.var);
    const PanelVariable& var = model_.variable(entry.var);
    const std::string& varText = var.item->varText;
    double value = 0;
    std::string why;
    if (parseSetValue(var.var.kind, set.payload, &value, &why)) {
        answer(entry.name, varText, set.payload, actions_.write(varText, value, kWho), false);
        return;
    }
    // Not writable, or read-only, says more than a bad value would.
    int index = -1;
    double raw = 0;
    ActionResult refusal = actions_.checkWrite(varText, 0, &index, &raw);
    if (refusal.outcome != Outcome::NotAllowed)
        refusal = {Outcome::BadRequest, "bad value \"" + set.payload + "\" for " + varText + ": " + why};
    answer(entry.name, varText, set.payload, refusal, true);
}

void MqttBridge::answer(const std::string& name, const std::string& subject, const std::string& payload,
                        const ActionResult& result, bool journal)
{
    if (journal && recorder_)
        recorder_(ActionRecord{"write", kWho, subject, payload, result});
    client_.publish(topics_.result(name), resultPayload(payload, result, model_.session().clock().wallMs()), false,
                    kResultQos);
}

}  // namespace logohost
