// The plant's values and alarms as JSON, in the same words for every front
// that shows them (the panel's API and pages, MQTT).
#ifndef LOGOHOST_PLANT_JSON_H
#define LOGOHOST_PLANT_JSON_H

#include <cstdint>

#include <nlohmann/json.hpp>

#include "host/alarms/alarm_board.h"

namespace logohost {

// An ISO 8601 time, or null for 0 (never).
nlohmann::json timeOrNull(int64_t epochMs);
// As an item shows it: 91.1, never 91.10000000000001.
double rounded(double value, int decimals);
// The value in the item's shown units (a bit 0 or 1), or null when never read.
nlohmann::json shownValueJson(const PanelItem& item, const ElementStatus& element);
nlohmann::json alarmJson(const AlarmStatus& alarm);

}  // namespace logohost

#endif  // LOGOHOST_PLANT_JSON_H
