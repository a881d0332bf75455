// The bridge's topics and what a `set` may carry.
//
//   logohost/NODE/status           online / offline (retained; offline is the last will)
//   logohost/NODE/VAR/state        the item's value with its truth (retained)
//   logohost/NODE/VAR/set          a value to write (writable items only)
//   logohost/NODE/VAR/result       the outcome of each set
//   logohost/NODE/alarm/ID         an alarm's state (retained)
//   homeassistant/COMPONENT/NODE/VAR/config   Home Assistant discovery (retained)
//
// VAR is the element's name in the controller's notation, station included
// when there are several ("VW10@2"), with every character but letters,
// digits, '-' and '_' made '_' ("VW10_2", "V10_3"): the wildcards '+' and
// '#' and the level separator '/' could not stand in a topic level, and
// Home Assistant takes only those characters in its object ids. Two
// elements never meet on one name: only V bits have a '.', and only a
// station follows '@'.
#ifndef LOGOHOST_MQTT_TOPICS_H
#define LOGOHOST_MQTT_TOPICS_H

#include <string>

#include "host/notation/variable_notation.h"

namespace logohost {

constexpr const char* kTopicRoot = "logohost";
constexpr const char* kDiscoveryPrefix = "homeassistant";

// Letters, digits, '-' and '_' kept; anything else '_'; never empty.
std::string topicName(const std::string& text);
// This machine's host name, as a topic level.
std::string defaultNode();

class Topics {
public:
    explicit Topics(std::string node);

    const std::string& node() const { return node_; }
    std::string status() const { return base_ + "status"; }
    std::string state(const std::string& var) const { return base_ + var + "/state"; }
    std::string set(const std::string& var) const { return base_ + var + "/set"; }
    std::string result(const std::string& var) const { return base_ + var + "/result"; }
    std::string alarm(const std::string& id) const { return base_ + "alarm/" + id; }
    std::string discovery(const char* component, const std::string& var) const;

    // Every set, for the subscription; and the VAR of one, empty when the
    // topic is not a set of this node.
    std::string anySet() const { return base_ + "+/set"; }
    std::string varOfSet(const std::string& topic) const;

    // What a previous run may have left retained under this node: every
    // state, alarm and discovery entry. Those the screens no longer have
    // are cleared.
    std::string anyState() const { return base_ + "+/state"; }
    std::string anyAlarm() const { return base_ + "alarm/+"; }
    std::string anyDiscovery() const;
    // Sent to itself after subscribing to the above: the broker sends the
    // retained messages of a subscription first, so when this comes back
    // every leftover has come.
    std::string sweepDone() const { return base_ + "sweep-done"; }

private:
    const std::string node_;
    const std::string base_;  // "logohost/NODE/"
};

// What a `set` of a bit takes: ON, OFF, true, false, 1, 0 in any case
// (ON and OFF are what Home Assistant's switch sends). A word takes a
// decimal number in the item's shown units, as Home Assistant's number
// sends it ("42", "42.5", "-1e2"). Surrounding blanks are ignored. On
// failure *why says what was expected.
bool parseSetValue(Kind kind, const std::string& payload, double* value, std::string* why);

}  // namespace logohost

#endif  // LOGOHOST_MQTT_TOPICS_H
