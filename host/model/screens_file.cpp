#include "host/model/screens_file.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "common/endpoint.h"
#include "common/modbus_wire.h"
#include "host/embedded_file.h"
#include "host/model/json_fields.h"
#include "host/notation/value_codec.h"

namespace logohost {
namespace {

using namespace json_fields;

constexpr int kMaxDecimals = 6;
constexpr double kWordMin = -32768;  // words read back signed, so a write must fit that range
constexpr double kWordMax = 32767;
constexpr double kDoubleMin = -2147483648.0;
constexpr double kDoubleMax = 2147483647.0;

const std::set<std::string> kTopKeys = {"title", "screens", "controllers", "alarms"};
const std::set<std::string> kControllerKeys = {"station", "name", "address"};
const std::set<std::string> kAlarmKeys = {"id", "var", "when", "above", "below", "deadband", "text", "class"};
constexpr int kModbusPort = 502;
const std::set<std::string> kScreenKeys = {"name", "title", "items"};
const std::set<std::string> kItemKeys = {"var",   "label", "unit",     "write", "trend", "scale", "offset",
                                         "decimals", "min", "max", "on",  "off"};
const std::set<std::string> kWordOnlyKeys = {"scale", "offset", "decimals", "min", "max"};
const std::set<std::string> kBitOnlyKeys = {"on", "off"};

// The range of shown values the raw type can carry, for an item's scaling.
void rawRange(const PanelItem& item, double* low, double* high)
{
    const bool doubleWord = item.var.kind == Kind::VD;
    const double a = shownValue(item, doubleWord ? kDoubleMin : kWordMin);
    const double b = shownValue(item, doubleWord ? kDoubleMax : kWordMax);
    *low = std::min(a, b);
    *high = std::max(a, b);
}

void parseWordSettings(const Json& json, const std::string& where, PanelItem* item)
{
    item->scale = number(json, "scale", where, 1);
    if (item->scale == 0 || !std::isfinite(item->scale))
        fail(where, "\"scale\" must be a number other than 0");
    item->offset = number(json, "offset", where, 0);
    const bool integral = item->scale == std::floor(item->scale) && item->offset == std::floor(item->offset);
    const double decimals = number(json, "decimals", where, integral ? 0 : 2);
    if (decimals != std::floor(decimals) || decimals < 0 || decimals > kMaxDecimals)
        fail(where, "\"decimals\" must be a whole number from 0 to " + std::to_string(kMaxDecimals));
    item->decimals = static_cast<int>(decimals);
    double low = 0;
    double high = 0;
    rawRange(*item, &low, &high);
    item->rangeGiven = json.contains("min") || json.contains("max");
    item->min = number(json, "min", where, low);
    item->max = number(json, "max", where, high);
    if (item->min > item->max)
        fail(where, "\"min\" is above \"max\"");
    if (item->min < low || item->max > high)
        fail(where, "\"min\" and \"max\" must lie within what " + item->var.text + " can hold, " +
                        shownText(*item, item->var.kind == Kind::VD ? kDoubleMin : kWordMin) + " to " +
                        shownText(*item, item->var.kind == Kind::VD ? kDoubleMax : kWordMax) + " as scaled");
}

PanelItem parseItem(const Json& json, const std::string& where, StationContext stations)
{
    if (!json.is_object())
        fail(where, "an item must be an object with at least \"var\"");
    if (!json.contains("var") || !json.at("var").is_string())
        fail(where, "\"var\" is missing or not a string, e.g. \"var\": \"VW10\"");
    PanelItem item;
    item.varText = json.at("var").get<std::string>();
    const std::string named = where + " (" + item.varText + ")";
    checkKeys(json, kItemKeys, named);
    std::string error;
    if (!parseVariable(item.varText, stations.multiStation, &item.var, &error))
        fail(named, error);
    if (item.var.count != 1)
        fail(named, "an item shows one value: give each element an item of its own");
    const bool bit = isBitKind(item.var.kind);
    for (const std::string& key : bit ? kWordOnlyKeys : kBitOnlyKeys)
        if (json.contains(key))
            fail(named, "\"" + key + "\" is for " + (bit ? "words, " : "bits, ") + item.varText + " is a " +
                            (bit ? "bit" : "word"));
    item.label = text(json, "label", named, item.varText);
    item.unit = text(json, "unit", named, "");
    item.write = flag(json, "write", named);
    item.trend = flag(json, "trend", named);
    if (item.write && !isWritable(item.var.kind))
        fail(named, item.varText + " is an input and cannot be written");
    if (bit) {
        item.onText = text(json, "on", named, item.onText);
        item.offText = text(json, "off", named, item.offText);
    } else {
        parseWordSettings(json, named, &item);
    }
    return item;
}

struct FirstUse {
    std::string where;
    const PanelItem* item;
};

// A variable means one thing on every screen: items may differ in label,
// unit, texts and controls, not in how its raw value reads.
void checkSameMeaning(const PanelItem& item, const std::string& where, const FirstUse& first)
{
    const PanelItem& other = *first.item;
    if (item.scale != other.scale || item.offset != other.offset || item.min != other.min || item.max != other.max)
        fail(where, item.varText + " has another scale, offset, min or max than at " + first.where +
                        ": a variable must read the same on every screen");
}

PanelScreen parseScreen(const Json& json, const std::string& where, StationContext stations)
{
    if (!json.is_object())
        fail(where, "a screen must be an object with \"name\" and \"items\"");
    const std::string name = json.contains("name") && json.at("name").is_string() ? json.at("name").get<std::string>() : "";
    if (!validName(name))
        fail(where, "\"name\" must be 1 to 40 letters, digits, '-' or '_' (it is part of the page's address)");
    PanelScreen screen;
    screen.name = name;
    const std::string named = "screen \"" + name + "\"";
    checkKeys(json, kScreenKeys, named);
    screen.title = text(json, "title", named, name);
    if (!json.contains("items") || !json.at("items").is_array() || json.at("items").empty())
        fail(named, "\"items\" must be a list of at least one item");
    const Json& items = json.at("items");
    for (size_t i = 0; i < items.size(); ++i)
        screen.items.push_back(parseItem(items[i], named + " item " + std::to_string(i), stations));
    return screen;
}

void checkAcrossScreens(const ScreenSet& set, StationContext stations)
{
    std::map<std::string, FirstUse> firstUse;
    std::set<std::string> names;
    for (const PanelScreen& screen : set.screens) {
        if (!names.insert(screen.name).second)
            fail("screen \"" + screen.name + "\"", "another screen has the same name");
        std::set<std::string> onThisScreen;
        for (size_t i = 0; i < screen.items.size(); ++i) {
            const PanelItem& item = screen.items[i];
            const std::string where =
                "screen \"" + screen.name + "\" item " + std::to_string(i) + " (" + item.varText + ")";
            const std::string key = variableKey(item.var, stations);
            if (!onThisScreen.insert(key).second)
                fail(where, item.varText + " is on this screen twice");
            const auto found = firstUse.find(key);
            if (found == firstUse.end())
                firstUse[key] = FirstUse{where, &item};
            else
                checkSameMeaning(item, where, found->second);
        }
    }
}

std::string formatFixed(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    // "-0.0" reads as a fault on a panel
    const std::string result = text;
    return result.find_first_not_of("-0.") == std::string::npos && result[0] == '-' ? result.substr(1) : result;
}

ControllerEntry parseController(const Json& json, const std::string& where)
{
    if (!json.is_object())
        fail(where, "a controller must be an object with \"station\", \"name\" and \"address\"");
    checkKeys(json, kControllerKeys, where);
    ControllerEntry controller;
    const double station = number(json, "station", where, -1);
    if (station != std::floor(station) || station < 0 || station > wire::kMaxUnitId)
        fail(where, "\"station\" must be a whole number from 0 to 255");
    controller.station = static_cast<int>(station);
    controller.name = json_fields::text(json, "name", where, "");
    if (!validName(controller.name))
        fail(where, "\"name\" must be 1 to 40 letters, digits, '-' or '_'");
    common::Endpoint endpoint;
    std::string error;
    if (!common::parseEndpoint(json_fields::text(json, "address", where, ""), kModbusPort, 1, &endpoint, &error))
        fail(where, "\"address\" must be HOST[:PORT]: " + error);
    controller.host = endpoint.host;
    controller.port = endpoint.port;
    return controller;
}

std::vector<ControllerEntry> parseControllers(const Json& json)
{
    std::vector<ControllerEntry> controllers;
    std::set<int> stations;
    std::set<std::string> names;
    for (size_t c = 0; c < json.size(); ++c) {
        const std::string where = "controller " + std::to_string(c);
        controllers.push_back(parseController(json[c], where));
        if (!stations.insert(controllers.back().station).second)
            fail(where, "another controller has station " + std::to_string(controllers.back().station));
        if (!names.insert(controllers.back().name).second)
            fail(where, "another controller has the name \"" + controllers.back().name + "\"");
    }
    return controllers;
}

// The alarm's condition: a bit's "when", or a word's "above" or "below".
void parseCondition(const Json& json, const std::string& where, AlarmRule* rule)
{
    const bool bit = isBitKind(rule->var.kind);
    if (bit) {
        if (json.contains("above") || json.contains("below") || json.contains("deadband"))
            fail(where, rule->varText + " is a bit: give \"when\": \"on\" or \"off\", not a value");
        const std::string when = json_fields::text(json, "when", where, "");
        if (when != "on" && when != "off")
            fail(where, "\"when\" must be \"on\" or \"off\"");
        rule->condition = when == "on" ? AlarmCondition::BitOn : AlarmCondition::BitOff;
        return;
    }
    if (json.contains("when") || json.contains("above") == json.contains("below"))
        fail(where, rule->varText + " is a word: give one of \"above\" or \"below\" a value in its shown units");
    rule->condition = json.contains("above") ? AlarmCondition::Above : AlarmCondition::Below;
    rule->threshold = number(json, rule->condition == AlarmCondition::Above ? "above" : "below", where, 0);
    rule->deadband = number(json, "deadband", where, 0);
    if (rule->deadband < 0 || !std::isfinite(rule->deadband))
        fail(where, "\"deadband\" must be a number of 0 or more");
}

AlarmRule parseAlarm(const Json& json, const std::string& where, StationContext stations)
{
    if (!json.is_object())
        fail(where, "an alarm must be an object with \"id\", \"var\", \"text\" and its condition");
    AlarmRule rule;
    rule.id = json_fields::text(json, "id", where, "");
    if (!validName(rule.id))
        fail(where, "\"id\" must be 1 to 40 letters, digits, '-' or '_'");
    const std::string named = "alarm \"" + rule.id + "\"";
    checkKeys(json, kAlarmKeys, named);
    rule.varText = json_fields::text(json, "var", named, "");
    std::string error;
    if (!parseVariable(rule.varText, stations.multiStation, &rule.var, &error))
        fail(named, error);
    if (rule.var.count != 1)
        fail(named, "an alarm watches one element: give each element an alarm of its own");
    parseCondition(json, named, &rule);
    rule.text = json_fields::text(json, "text", named, "");
    if (rule.text.empty())
        fail(named, "\"text\" must say what the alarm means, e.g. \"Tank overflow\"");
    const std::string alarmClass = json_fields::text(json, "class", named, "warning");
    if (alarmClass != "fault" && alarmClass != "warning" && alarmClass != "info")
        fail(named, "\"class\" must be fault, warning or info");
    rule.alarmClass = alarmClass == "fault" ? AlarmClass::Fault : alarmClass == "info" ? AlarmClass::Info
                                                                                       : AlarmClass::Warning;
    return rule;
}

// Alarms with distinct ids; a variable no screen shows becomes a hidden item.
void parseAlarms(const Json& json, StationContext stations, ScreenSet* set)
{
    std::set<std::string> ids;
    std::set<std::string> known;
    for (const PanelScreen& screen : set->screens)
        for (const PanelItem& item : screen.items)
            known.insert(variableKey(item.var, stations));
    for (size_t a = 0; a < json.size(); ++a) {
        set->alarms.push_back(parseAlarm(json[a], "alarm " + std::to_string(a), stations));
        const AlarmRule& rule = set->alarms.back();
        if (!ids.insert(rule.id).second)
            fail("alarm \"" + rule.id + "\"", "another alarm has the same id");
        if (!known.insert(variableKey(rule.var, stations)).second)
            continue;
        PanelItem hidden;
        hidden.varText = rule.varText;
        hidden.var = rule.var;
        hidden.label = rule.text;
        hidden.min = -2147483648.0;
        hidden.max = 2147483647.0;
        set->hiddenItems.push_back(hidden);
    }
}

const Json& listAt(const Json& json, const char* key)
{
    static const Json kEmpty = Json::array();
    if (!json.contains(key))
        return kEmpty;
    if (!json.at(key).is_array())
        fail("top level", std::string("\"") + key + "\" must be a list");
    return json.at(key);
}

}  // namespace

const char* alarmClassName(AlarmClass alarmClass)
{
    switch (alarmClass) {
    case AlarmClass::Fault: return "fault";
    case AlarmClass::Warning: return "warning";
    case AlarmClass::Info: return "info";
    }
    return "?";
}

bool parseScreens(const std::string& text, const std::string& fileName, StationContext stations, ScreenSet* out,
                  std::string* error)
{
    Json json;
    try {
        json = Json::parse(text);
    } catch (const std::exception& e) {
        *error = fileName + ": not valid JSON: " + jsonErrorText(e);
        return false;
    }
    try {
        if (!json.is_object())
            fail("top level", "expected an object with \"screens\"");
        checkKeys(json, kTopKeys, "top level");
        ScreenSet set;
        set.title = json_fields::text(json, "title", "top level", "LOGO! panel");
        set.controllers = parseControllers(listAt(json, "controllers"));
        if (!set.controllers.empty())
            stations.multiStation = true;
        if (!json.contains("screens") || !json.at("screens").is_array() || json.at("screens").empty())
            fail("top level", "\"screens\" must be a list of at least one screen");
        const Json& screens = json.at("screens");
        for (size_t s = 0; s < screens.size(); ++s)
            set.screens.push_back(parseScreen(screens[s], "screen " + std::to_string(s), stations));
        checkAcrossScreens(set, stations);
        parseAlarms(listAt(json, "alarms"), stations, &set);
        *out = set;
        return true;
    } catch (const std::exception& e) {
        *error = fileName + ": " + e.what();
        return false;
    }
}

bool loadScreensFile(const std::string& path, StationContext stations, ScreenSet* out, std::string* error)
{
    std::ifstream file(path);
    if (!file) {
        *error = path + ": cannot be read";
        return false;
    }
    std::stringstream content;
    content << file.rdbuf();
    return parseScreens(content.str(), path, stations, out, error);
}

ScreenSet builtInScreens(StationContext stations)
{
    const EmbeddedFile* file = findModelFile("builtin_screens.json");
    ScreenSet set;
    std::string error;
    if (!file || !parseScreens(std::string(file->data, file->size), "built-in screens", stations, &set, &error))
        throw std::logic_error("the built-in screens do not parse: " + error);
    return set;
}

std::string variableKey(Variable var, StationContext stations)
{
    if (var.station == kNoStation && stations.multiStation)
        var.station = stations.defaultStation;
    return elementName(var, 0, stations.multiStation);
}

double shownValue(const PanelItem& item, double raw) { return raw * item.scale + item.offset; }

std::string shownText(const PanelItem& item, double raw)
{
    if (isBitKind(item.var.kind))
        return raw != 0 ? item.onText : item.offText;
    return formatFixed(shownValue(item, raw), item.decimals);
}

double rawValue(const PanelItem& item, double shown) { return std::round((shown - item.offset) / item.scale); }

}  // namespace logohost
