// The alarms of the screens file at run time: each judged from its
// variable's value and truth after every read, raised and cleared with a
// deadband, kept in the list until an operator has acknowledged it, and
// every change told to the history.
//
// An alarm whose variable cannot be read (no reply, stale, station off,
// never read) is "unknown", never "cleared": a silent controller must not
// look like a healthy plant.
#ifndef LOGOHOST_ALARM_BOARD_H
#define LOGOHOST_ALARM_BOARD_H

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/history/history_store.h"
#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"

namespace logohost {

enum class AlarmState { Cleared, Active, Unknown };

// "cleared", "active", "unknown"
const char* alarmStateName(AlarmState state);

struct AlarmStatus {
    const AlarmRule* rule = nullptr;
    AlarmState state = AlarmState::Unknown;
    AlarmState lastKnown = AlarmState::Cleared;  // before it became unknown
    int64_t sinceMs = 0;     // when it entered its state
    int64_t raisedAtMs = 0;  // when it last became active; 0: never
    bool acknowledged = true;  // nothing to acknowledge until it is raised
    std::string acknowledgedBy;
    int64_t acknowledgedAtMs = 0;
    std::string value;  // as its item shows it, when known
    std::string unit;   // its item's
    std::string why;    // unknown: why its variable cannot be read

    // In the list an operator works through: active, unknown, or not yet
    // acknowledged.
    bool listed() const { return state != AlarmState::Cleared || !acknowledged; }
};

struct AlarmCounts {
    int active = 0;
    int unacknowledged = 0;
    int unknown = 0;
    const char* worstClass = "";  // of the listed alarms: fault, warning, info, or "" with none
};

class AlarmBoard {
public:
    using Record = std::function<void(const AlarmEvent&)>;

    AlarmBoard(const PlantModel& model, Record record);

    // The last state of each alarm as the history kept it, before the
    // first reads: a raised, unacknowledged alarm stays so across a restart.
    void restore(const std::vector<AlarmEvent>& events);
    // After every read, and now and then: values may have gone stale.
    void evaluate();
    AckOutcome acknowledge(const std::string& id, const std::string& who);

    std::vector<AlarmStatus> statuses() const;
    AlarmCounts counts() const;
    // The latest changes, newest last, for a history the store cannot give.
    std::vector<AlarmEvent> recent() const;

private:
    const PlantModel& model_;
    const Record record_;
    std::vector<int> vars_;  // per alarm: its variable in the model
    mutable std::mutex mutex_;
    std::vector<AlarmStatus> alarms_;
    std::deque<AlarmEvent> recent_;

    AlarmState judge(const AlarmStatus& alarm, const ElementStatus& element, const PanelItem& item) const;
    void change(AlarmStatus* alarm, AlarmState state, int64_t now);  // under mutex_
    void emit(const AlarmStatus& alarm, const char* event, const std::string& by, int64_t now);  // under mutex_
};

}  // namespace logohost

#endif  // LOGOHOST_ALARM_BOARD_H
