#include "host/alarms/plant_json.h"

#include <cmath>

#include "host/notation/time_text.h"

namespace logohost {

using Json = nlohmann::json;

Json timeOrNull(int64_t epochMs) { return epochMs ? Json(isoTime(epochMs)) : Json(nullptr); }

double rounded(double value, int decimals)
{
    const double scale = std::pow(10.0, decimals);
    return std::round(value * scale) / scale;
}

Json shownValueJson(const PanelItem& item, const ElementStatus& element)
{
    if (!element.hasValue)
        return nullptr;
    if (isBitKind(item.var.kind))
        return element.value != 0 ? 1 : 0;
    return rounded(shownValue(item, static_cast<double>(element.value)), item.decimals);
}

Json alarmJson(const AlarmStatus& alarm)
{
    const AlarmRule& rule = *alarm.rule;
    return {{"id", rule.id},
            {"text", rule.text},
            {"class", alarmClassName(rule.alarmClass)},
            {"var", rule.varText},
            {"state", alarmStateName(alarm.state)},
            {"since", timeOrNull(alarm.sinceMs)},
            {"raisedAt", timeOrNull(alarm.raisedAtMs)},
            {"acknowledged", alarm.acknowledged},
            {"acknowledgedBy", alarm.acknowledgedBy},
            {"acknowledgedAt", timeOrNull(alarm.acknowledgedAtMs)},
            {"value", alarm.value},
            {"unit", alarm.unit},
            {"why", alarm.why}};
}

}  // namespace logohost
