#include "host/alarms/alarm_board.h"

namespace logohost {
namespace {

constexpr size_t kRecentEvents = 500;

// A word alarm is raised past its threshold and clears only a deadband
// back, so that a value hovering at the threshold does not chatter.
bool isRaised(const AlarmRule& rule, bool wasActive, double shown)
{
    switch (rule.condition) {
    case AlarmCondition::BitOn: return shown != 0;
    case AlarmCondition::BitOff: return shown == 0;
    case AlarmCondition::Above: return wasActive ? shown > rule.threshold - rule.deadband : shown > rule.threshold;
    case AlarmCondition::Below: return wasActive ? shown < rule.threshold + rule.deadband : shown < rule.threshold;
    }
    return false;
}

}  // namespace

const char* alarmStateName(AlarmState state)
{
    switch (state) {
    case AlarmState::Cleared: return "cleared";
    case AlarmState::Active: return "active";
    case AlarmState::Unknown: return "unknown";
    }
    return "?";
}

AlarmBoard::AlarmBoard(const PlantModel& model, Record record) : model_(model), record_(std::move(record))
{
    for (const AlarmRule& rule : model.screens().alarms) {
        vars_.push_back(model.indexOf(rule.var));
        AlarmStatus status;
        status.rule = &rule;  // unknown, since no time yet: not read
        status.unit = model.variable(static_cast<size_t>(vars_.back())).item->unit;
        alarms_.push_back(status);
    }
}

void AlarmBoard::restore(const std::vector<AlarmEvent>& events)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const AlarmEvent& event : events) {
        for (AlarmStatus& alarm : alarms_) {
            if (alarm.rule->id != event.alarmId)
                continue;
            if (event.event == "raised") {
                alarm.lastKnown = AlarmState::Active;
                alarm.raisedAtMs = event.atMs;
                alarm.acknowledged = false;
            } else if (event.event == "cleared") {
                alarm.lastKnown = AlarmState::Cleared;
            } else if (event.event == "acknowledged") {
                alarm.acknowledged = true;
                alarm.acknowledgedBy = event.by;
                alarm.acknowledgedAtMs = event.atMs;
            }
        }
    }
}

AlarmState AlarmBoard::judge(const AlarmStatus& alarm, const ElementStatus& element, const PanelItem& item) const
{
    if (element.quality != Quality::Ok)
        return AlarmState::Unknown;
    const bool wasActive = (alarm.state == AlarmState::Unknown ? alarm.lastKnown : alarm.state) == AlarmState::Active;
    const double shown = shownValue(item, static_cast<double>(element.value));
    return isRaised(*alarm.rule, wasActive, shown) ? AlarmState::Active : AlarmState::Cleared;
}

void AlarmBoard::evaluate()
{
    const int64_t now = model_.session().clock().wallMs();
    std::vector<ElementStatus> elements;
    for (const int var : vars_)
        elements.push_back(model_.session().element(static_cast<size_t>(var)));
    const std::lock_guard<std::mutex> lock(mutex_);
    for (size_t a = 0; a < alarms_.size(); ++a) {
        AlarmStatus& alarm = alarms_[a];
        const PanelItem& item = *model_.variable(static_cast<size_t>(vars_[a])).item;
        const ElementStatus& element = elements[a];
        alarm.value = element.hasValue ? shownText(item, static_cast<double>(element.value)) : "";
        alarm.why = element.quality == Quality::Ok ? "" : element.why;
        change(&alarm, judge(alarm, element, item), now);
    }
}

void AlarmBoard::change(AlarmStatus* alarm, AlarmState state, int64_t now)
{
    if (state == alarm->state)
        return;
    const AlarmState before = alarm->state == AlarmState::Unknown ? alarm->lastKnown : alarm->state;
    const bool wasKnown = alarm->state != AlarmState::Unknown;
    alarm->state = state;
    alarm->sinceMs = now;
    if (state == AlarmState::Unknown) {
        alarm->lastKnown = before;
        if (wasKnown)
            emit(*alarm, "unknown", "", now);
        return;
    }
    alarm->lastKnown = state;
    if (state == before) {
        if (state == AlarmState::Active)
            alarm->sinceMs = alarm->raisedAtMs;  // known again, still raised since then
        return;
    }
    if (state == AlarmState::Active) {
        alarm->raisedAtMs = now;
        alarm->acknowledged = false;
        alarm->acknowledgedBy.clear();
        alarm->acknowledgedAtMs = 0;
    }
    emit(*alarm, state == AlarmState::Active ? "raised" : "cleared", "", now);
}

void AlarmBoard::emit(const AlarmStatus& alarm, const char* event, const std::string& by, int64_t now)
{
    AlarmEvent record;
    record.atMs = now;
    record.alarmId = alarm.rule->id;
    record.event = event;
    record.text = alarm.rule->text;
    record.alarmClass = alarmClassName(alarm.rule->alarmClass);
    record.by = by;
    recent_.push_back(record);
    if (recent_.size() > kRecentEvents)
        recent_.pop_front();
    if (record_)
        record_(record);
}

AckOutcome AlarmBoard::acknowledge(const std::string& id, const std::string& who)
{
    const int64_t now = model_.session().clock().wallMs();
    const std::lock_guard<std::mutex> lock(mutex_);
    for (AlarmStatus& alarm : alarms_) {
        if (alarm.rule->id != id)
            continue;
        if (alarm.acknowledged)
            return AckOutcome::NothingToAcknowledge;
        alarm.acknowledged = true;
        alarm.acknowledgedBy = who;
        alarm.acknowledgedAtMs = now;
        emit(alarm, "acknowledged", who, now);
        return AckOutcome::Done;
    }
    return AckOutcome::Unknown;
}

std::vector<AlarmStatus> AlarmBoard::statuses() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return alarms_;
}

AlarmCounts AlarmBoard::counts() const
{
    AlarmCounts counts;
    const std::lock_guard<std::mutex> lock(mutex_);
    int worst = -1;  // the class's rank: fault 2, warning 1, info 0
    for (const AlarmStatus& alarm : alarms_) {
        counts.active += alarm.state == AlarmState::Active;
        counts.unacknowledged += !alarm.acknowledged;
        counts.unknown += alarm.state == AlarmState::Unknown;
        const int rank = 2 - static_cast<int>(alarm.rule->alarmClass);
        if (alarm.listed() && rank > worst) {
            worst = rank;
            counts.worstClass = alarmClassName(alarm.rule->alarmClass);
        }
    }
    return counts;
}

std::vector<AlarmEvent> AlarmBoard::recent() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::vector<AlarmEvent>(recent_.begin(), recent_.end());
}

}  // namespace logohost
