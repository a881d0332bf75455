#include "host/panel/panel_views.h"

#include <cmath>
#include <cstdio>

#include "host/alarms/plant_json.h"
#include "host/notation/time_text.h"

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

// The shown value as the item's decimals show it: 91.1, never 91.10000000000001.
// "stale", "no reply: connection refused": the page's state line.
std::string stateText(const ElementStatus& element)
{
    return element.quality == Quality::Stale ? "stale" : qualityWords(element);
}

Json healthJson(const LinkHealth& health)
{
    return {{"state", linkStateName(health.state)}, {"since", timeOrNull(health.sinceMs)},
            {"cause", health.cause}, {"text", healthWords(health)}};
}

Json controllerJson(const ControllerFigures& c)
{
    return {{"name", c.name},
            {"address", c.address},
            {"link", healthJson(c.health)},
            {"framesPerSecond", std::round(c.framesPerSecond * 10) / 10},
            {"frames", c.frames},
            {"replies", c.replies},
            {"failures", c.failures},
            {"refused", c.refused},
            {"connections", c.connections},
            {"losses", c.losses},
            // To a tenth of a millisecond: on a fast link a pass takes less
            // than one, and "0 ms" would say it took nothing. No pass yet: null.
            {"passSeconds", c.pass.passes ? Json(std::round(c.pass.passSeconds * 1e4) / 1e4) : Json()},
            {"cycleSeconds", c.pass.passes ? Json(std::round(c.pass.cycleSeconds * 1e4) / 1e4) : Json()},
            {"passes", c.pass.passes},
            {"overruns", c.pass.overruns}};
}

Json historyJson(const ServerFigures& server)
{
    const HistoryHealth& h = server.history;
    return {{"directory", server.historyDirectory},
            {"writing", h.writing},
            {"problem", h.problem},
            {"problemSince", timeOrNull(h.problemSinceMs)},
            {"samplesStored", h.samplesStored},
            {"samplesDropped", h.samplesDropped},
            {"entriesDropped", h.entriesDropped},
            {"pending", h.pending},
            {"fileBytes", h.fileBytes}};
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

Json itemJson(const ItemState& state, int64_t nowMs)
{
    const ElementStatus& element = state.element;
    const PanelItem& item = *state.item;
    const double raw = static_cast<double>(element.value);
    Json json = {{"var", state.var},
                 {"text", element.hasValue ? shownText(item, raw) : "—"},
                 {"state", stateText(element)},
                 {"stateClass", qualityName(element.quality)},
                 {"why", element.why},
                 {"updatedAt", timeOrNull(element.readAtMs)},
                 {"changedAt", timeOrNull(element.changedAtMs)}};
    json["value"] = shownValueJson(item, element);
    json["raw"] = element.hasValue ? Json(element.value) : Json(nullptr);
    json["age"] = element.hasValue ? Json(std::round(static_cast<double>(nowMs - element.readAtMs) / 100) / 10)
                                   : Json(nullptr);
    return json;
}

Json itemsJson(const std::vector<ItemState>& states, int64_t nowMs)
{
    Json items = Json::array();
    for (const ItemState& state : states)
        items.push_back(itemJson(state, nowMs));
    return items;
}

Json statusJson(const PlantModel& model, bool readOnly, const ServerFigures& server)
{
    const Session& session = model.session();
    const LinkFigures figures = session.figures();
    Json controllers = Json::array();
    for (const ControllerFigures& c : figures.controllers)
        controllers.push_back(controllerJson(c));
    Json stations = Json::array();
    for (const StationState& station : session.stations())
        stations.push_back({{"station", station.station}, {"on", station.on}, {"note", station.note}});
    const ScanFigures scan = model.scanFigures();
    const ControllerFigures total = figures.total();
    LinkHealth worst = figures.controllers.at(0).health;
    session.anyDown(&worst);
    Json link = controllerJson(total);
    link["link"] = healthJson(worst);
    std::string names;
    for (const ControllerFigures& c : figures.controllers)
        names += (names.empty() ? "" : ", ") + c.address;
    return {{"controller", names},
            {"link", link},
            {"controllers", controllers},
            {"scan",
             {{"screens", scan.scannedScreens},
              {"variables", scan.variables},
              {"requests", scan.requests},
              {"trends", scan.trends},
              {"periodSeconds", static_cast<double>(session.settings().scanPeriod.count()) / 1000},
              {"openStreams", server.openStreams},
              {"streamLimit", server.streamLimit}}},
            {"readOnly", readOnly},
            {"stations", stations},
            {"alarms",
             {{"active", server.alarms.active},
              {"unacknowledged", server.alarms.unacknowledged},
              {"unknown", server.alarms.unknown},
              {"worstClass", server.alarms.worstClass}}},
            {"history", historyJson(server)}};
}

Json trendJson(const PanelItem& item, const std::vector<TrendPoint>& points)
{
    Json list = Json::array();
    for (const TrendPoint& point : points)
        list.push_back({point.at, point.gap() ? Json(nullptr) : Json(rounded(shownValue(item, point.raw), item.decimals))});
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

Json trendRangeJson(const PanelItem& item, const std::vector<TrendSpan>& spans)
{
    Json list = Json::array();
    for (const TrendSpan& span : spans) {
        if (span.gap)
            list.push_back({span.fromMs, nullptr, nullptr});
        else
            list.push_back({span.fromMs, rounded(span.low, item.decimals), rounded(span.high, item.decimals)});
    }
    return {{"var", item.varText}, {"spans", list}};
}

std::string trendRangeCsv(const PanelItem& item, const std::vector<TrendSpan>& spans)
{
    const std::string unit = item.unit.empty() ? "" : " (" + item.unit + ")";
    std::string csv = "from,to,lowest" + unit + ",highest" + unit + "\n";
    char values[96];
    for (const TrendSpan& span : spans) {
        csv += localTimestamp(span.fromMs) + "," + localTimestamp(span.toMs) + ",";
        if (!span.gap) {
            std::snprintf(values, sizeof values, "%.*f,%.*f", item.decimals, span.low, item.decimals, span.high);
            csv += values;
        } else {
            csv += ",";
        }
        csv += "\n";
    }
    return csv;
}

Json alarmsJson(const std::vector<AlarmStatus>& alarms, const AlarmCounts& counts,
                const std::vector<AlarmEvent>& history)
{
    Json active = Json::array();
    Json all = Json::array();
    for (const AlarmStatus& alarm : alarms) {
        all.push_back(alarmJson(alarm));
        if (alarm.listed())
            active.push_back(all.back());
    }
    Json events = Json::array();
    for (const AlarmEvent& event : history)
        events.push_back({{"eventId", event.id},     {"id", event.alarmId}, {"text", event.text}, {"class", event.alarmClass},
                          {"state", event.event},    {"at", isoTime(event.atMs)}, {"since", isoTime(event.atMs)},
                          {"acknowledged", event.event == "acknowledged"}, {"by", event.by}});
    return {{"counts",
             {{"active", counts.active},
              {"unacknowledged", counts.unacknowledged},
              {"unknown", counts.unknown},
              {"worstClass", counts.worstClass}}},
            {"active", active},
            {"alarms", all},
            {"history", events}};
}

Json journalJson(const std::vector<JournalEntry>& entries)
{
    Json list = Json::array();
    for (const JournalEntry& entry : entries)
        list.push_back({{"id", entry.id},           {"at", isoTime(entry.atMs)}, {"kind", entry.kind},
                        {"who", entry.who},         {"subject", entry.subject},  {"value", entry.value},
                        {"outcome", entry.outcome}, {"ok", entry.ok}});
    return {{"entries", list}};
}

Json errorJson(const std::string& message) { return {{"error", message}}; }

}  // namespace logohost
