// The model as the page and scripts read it: JSON, in the words an operator
// reads, and CSV for a trend's download.
#ifndef LOGOHOST_PANEL_VIEWS_H
#define LOGOHOST_PANEL_VIEWS_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"

namespace logohost {

using Json = nlohmann::json;

// What the status page shows besides the model: the HTTP side's own figures.
struct ServerFigures {
    size_t openStreams = 0;
    size_t streamLimit = 0;
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
std::string trendCsv(const PanelItem& item, const std::vector<TrendPoint>& points);
Json errorJson(const std::string& message);

}  // namespace logohost

#endif  // LOGOHOST_PANEL_VIEWS_H
