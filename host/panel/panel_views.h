// The model as the page and scripts read it: JSON, in the words an operator
// reads, and CSV for a trend's download.
#ifndef LOGOHOST_PANEL_VIEWS_H
#define LOGOHOST_PANEL_VIEWS_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/alarms/alarm_board.h"
#include "host/history/history_store.h"
#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"

namespace logohost {

using Json = nlohmann::json;

// What the status page shows besides the model: the HTTP side's own
// figures, the alarms' counts and the history's health.
struct ServerFigures {
    size_t openStreams = 0;
    size_t streamLimit = 0;
    AlarmCounts alarms;
    HistoryHealth history;
    std::string historyDirectory;
};

// canChange: the request may make changes (it has the token, where one is
// needed); writes also need a panel that is not read-only.
Json screensJson(const ScreenSet& screens, bool canChange, bool readOnly);
// One item: its text, its value rounded to its decimals, its quality in
// words and as a class, when it was last read (a timestamp and an age) and
// when it last changed.
Json itemJson(const ItemState& state, int64_t nowMs);
Json itemsJson(const std::vector<ItemState>& states, int64_t nowMs);
Json statusJson(const PlantModel& model, bool readOnly, const ServerFigures& server);
// Points as [milliseconds since the epoch, shown value or null for a gap].
Json trendJson(const PanelItem& item, const std::vector<TrendPoint>& points);
// Spans as [start, low, high] in shown units, or [start, null, null] for a gap.
Json trendRangeJson(const PanelItem& item, const std::vector<TrendSpan>& spans);
std::string trendRangeCsv(const PanelItem& item, const std::vector<TrendSpan>& spans);
// The alarms an operator works through ("active": raised, unknown, or not
// yet acknowledged), every alarm's state, and the latest changes.
Json alarmsJson(const std::vector<AlarmStatus>& alarms, const AlarmCounts& counts,
                const std::vector<AlarmEvent>& history);
Json journalJson(const std::vector<JournalEntry>& entries);
std::string trendCsv(const PanelItem& item, const std::vector<TrendPoint>& points);
Json errorJson(const std::string& message);

}  // namespace logohost

#endif  // LOGOHOST_PANEL_VIEWS_H
