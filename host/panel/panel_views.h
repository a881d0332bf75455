// The model's views as the page and scripts read them: JSON, and CSV for
// a trend's download.
#ifndef LOGOHOST_PANEL_VIEWS_H
#define LOGOHOST_PANEL_VIEWS_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/panel/panel_model.h"

namespace logohost {

using Json = nlohmann::json;

// canChange: the request may make changes (it has the token, where one is
// needed); writes also need a panel that is not read-only.
Json screensJson(const ScreenSet& screens, bool canChange, bool readOnly);
Json itemJson(const ItemState& state);
Json itemsJson(const std::vector<ItemState>& states);
Json statusJson(const PanelStatus& status);
// Points as [milliseconds since the epoch, shown value or null for a gap].
Json trendJson(const PanelItem& item, const std::vector<TrendPoint>& points);
std::string trendCsv(const PanelItem& item, const std::vector<TrendPoint>& points);
Json errorJson(const std::string& message);

}  // namespace logohost

#endif  // LOGOHOST_PANEL_VIEWS_H
