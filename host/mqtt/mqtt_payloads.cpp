#include "host/mqtt/mqtt_payloads.h"

#include <cmath>

#include <nlohmann/json.hpp>

#include "host/notation/time_text.h"

namespace logohost {
namespace {

using Json = nlohmann::json;

// A set's payload may be any bytes: what is not UTF-8 is replaced, not thrown on.
std::string serialized(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json timeOrNull(int64_t epochMs) { return epochMs ? Json(isoTime(epochMs)) : Json(nullptr); }

// As the panel rounds: 91.1, never 91.10000000000001.
double rounded(double value, int decimals)
{
    const double scale = std::pow(10.0, decimals);
    return std::round(value * scale) / scale;
}

Json shownJson(const PanelItem& item, const ElementStatus& element)
{
    if (!element.hasValue)
        return nullptr;
    const double raw = static_cast<double>(element.value);
    if (isBitKind(item.var.kind))
        return element.value != 0 ? 1 : 0;
    return rounded(shownValue(item, raw), item.decimals);
}

}  // namespace

std::string statePayload(const PanelItem& item, const ElementStatus& element)
{
    const Json text = element.hasValue ? Json(shownText(item, static_cast<double>(element.value))) : Json(nullptr);
    return serialized(Json{{"value", shownJson(item, element)},
                {"text", text},
                {"quality", qualityName(element.quality)},
                {"why", element.why},
                {"updatedAt", timeOrNull(element.readAtMs)},
                {"changedAt", timeOrNull(element.changedAtMs)}});
}

std::string stateKey(const ElementStatus& element)
{
    return std::to_string(element.hasValue) + " " + std::to_string(element.value) + " " +
           qualityName(element.quality) + " " + element.why;
}

std::string alarmPayload(const AlarmStatus& alarm)
{
    const AlarmRule& rule = *alarm.rule;
    return serialized(Json{{"id", rule.id},
                {"text", rule.text},
                {"class", alarmClassName(rule.alarmClass)},
                {"var", rule.varText},
                {"state", alarmStateName(alarm.state)},
                {"since", timeOrNull(alarm.sinceMs)},
                {"raisedAt", timeOrNull(alarm.raisedAtMs)},
                {"acknowledged", alarm.acknowledged},
                {"acknowledgedBy", alarm.acknowledgedBy},
                {"acknowledgedAt", timeOrNull(alarm.acknowledgedAtMs)},
                {"why", alarm.why}});
}

std::string resultPayload(const std::string& value, const ActionResult& result, int64_t atMs)
{
    return serialized(Json{{"value", value},
                {"ok", result.outcome == Outcome::Done},
                {"outcome", outcomeName(result.outcome)},
                {"message", result.message},
                {"at", isoTime(atMs)}});
}

}  // namespace logohost
