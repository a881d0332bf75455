#include "host/panel/panel_views.h"

#include <cstdio>

namespace logohost {
namespace {

Json itemConfigJson(const PanelItem& item)
{
    Json json = {{"var", item.varText}, {"label", item.label}, {"unit", item.unit},
                 {"kind", isBitKind(item.var.kind) ? "bit" : "word"}, {"write", item.write}, {"trend", item.trend}};
    if (isBitKind(item.var.kind)) {
        json["on"] = item.onText;
        json["off"] = item.offText;
    } else {
        json["decimals"] = item.decimals;
        json["step"] = std::abs(item.scale);
        json["min"] = item.min;
        json["max"] = item.max;
        json["rangeGiven"] = item.rangeGiven;
    }
    return json;
}

}  // namespace

Json screensJson(const ScreenSet& screens, bool canChange, bool readOnly)
{
    Json list = Json::array();
    for (const PanelScreen& screen : screens.screens) {
        Json items = Json::array();
        for (const PanelItem& item : screen.items)
            items.push_back(itemConfigJson(item));
        list.push_back({{"name", screen.name}, {"title", screen.title}, {"items", items}});
    }
    return {{"title", screens.title},
            {"canWrite", canChange && !readOnly},
            {"canReadNow", canChange},
            {"readOnly", readOnly},
            {"screens", list}};
}

Json itemJson(const ItemState& state)
{
    Json json = {{"var", state.var},           {"text", state.hasValue ? state.text : "—"},
                 {"state", state.state},       {"stateClass", state.stateClass},
                 {"changedAt", state.changedAt}};
    json["value"] = state.hasValue ? Json(state.value) : Json(nullptr);
    json["raw"] = state.hasValue ? Json(state.raw) : Json(nullptr);
    return json;
}

Json itemsJson(const std::vector<ItemState>& states)
{
    Json items = Json::array();
    for (const ItemState& state : states)
        items.push_back(itemJson(state));
    return items;
}

Json statusJson(const PanelStatus& status)
{
    Json stations = Json::array();
    for (const StationState& station : status.stations)
        stations.push_back({{"station", station.station}, {"on", station.on}, {"note", station.note}});
    return {{"controller", status.peer},
            {"link",
             {{"framesPerSecond", status.framesPerSecond},
              {"frames", status.frames},
              {"replies", status.replies},
              {"failures", status.failures},
              {"refused", status.refused},
              {"connections", status.connections}}},
            {"scan",
             {{"screens", status.scannedScreens},
              {"variables", status.cyclicVariables},
              {"requests", status.cyclicRequests},
              {"trends", status.trendVariables},
              {"periodSeconds", status.scanPeriodSeconds},
              {"openStreams", status.openStreams}}},
            {"readOnly", status.readOnly},
            {"stations", stations}};
}

Json trendJson(const PanelItem& item, const std::vector<TrendPoint>& points)
{
    Json list = Json::array();
    for (const TrendPoint& point : points)
        list.push_back({point.at, point.gap() ? Json(nullptr) : Json(shownValue(item, point.raw))});
    return {{"var", item.varText}, {"points", list}};
}

std::string trendCsv(const PanelItem& item, const std::vector<TrendPoint>& points)
{
    std::string heading = item.label + (item.unit.empty() ? "" : " (" + item.unit + ")");
    for (size_t quote = heading.find('"'); quote != std::string::npos; quote = heading.find('"', quote + 2))
        heading.insert(quote, 1, '"');
    std::string csv = "time,\"" + heading + "\"\n";
    for (const TrendPoint& point : points) {
        csv += localTimestamp(point.at) + ",";
        if (!point.gap()) {
            char value[64];
            std::snprintf(value, sizeof value, "%.*f", item.decimals, shownValue(item, point.raw));
            csv += isBitKind(item.var.kind) ? (point.raw != 0 ? "1" : "0") : value;
        }
        csv += "\n";
    }
    return csv;
}

Json errorJson(const std::string& message) { return {{"error", message}}; }

}  // namespace logohost
