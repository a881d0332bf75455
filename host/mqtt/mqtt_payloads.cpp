#include "host/mqtt/mqtt_payloads.h"

#include <cmath>

#include <nlohmann/json.hpp>

#include "host/alarms/plant_json.h"

namespace logohost {
namespace {

using Json = nlohmann::json;

// A set's payload may be any bytes: what is not UTF-8 is replaced, not thrown on.
std::string serialized(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace

std::string statePayload(const PanelItem& item, const ElementStatus& element)
{
    const Json text = element.hasValue ? Json(shownText(item, static_cast<double>(element.value))) : Json(nullptr);
    return serialized(Json{{"value", shownValueJson(item, element)},
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

std::string alarmPayload(const AlarmStatus& alarm) { return serialized(alarmJson(alarm)); }

std::string resultPayload(const std::string& value, const ActionResult& result, int64_t atMs)
{
    return serialized(Json{{"value", value},
                {"ok", result.outcome == Outcome::Done},
                {"outcome", outcomeName(result.outcome)},
                {"message", result.message},
                {"at", isoTime(atMs)}});
}

}  // namespace logohost
