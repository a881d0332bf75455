// The panel's screens, as a panel builder writes them in a JSON file:
//
//   { "title": "Pump station",
//     "controllers": [ { "station": 1, "name": "tank", "address": "192.168.0.3" }, ... ],
//     "alarms": [ { "id": "overflow", "var": "M3", "when": "on", "text": "Tank overflow", "class": "fault" },
//                 { "id": "level", "var": "AI1", "above": 90, "deadband": 2, "text": "Level high" }, ... ],
//     "screens": [ { "name": "main", "title": "Main",
//                    "items": [ { "var": "VW10", "label": "Level", "unit": "cm" }, ... ] } ] }
//
// Item keys: var (required, the host's notation), label, unit, write, trend,
// scale and offset (shown = raw x scale + offset), decimals, min and max (in
// shown units: the range a write may set, and a trend's scale), on and off
// (a bit's texts). Controllers (optional) put each station on a controller
// of its own address; variables then name their station (VW10@2). An alarm
// watches one element: a bit "when" it is "on" or "off", a word "above" or
// "below" a value in the units its items show, clearing only once it is a
// "deadband" back; its class is fault, warning or info.
#ifndef LOGOHOST_SCREENS_FILE_H
#define LOGOHOST_SCREENS_FILE_H

#include <string>
#include <vector>

#include "host/notation/variable_notation.h"

namespace logohost {

struct PanelItem {
    std::string varText;  // as the file writes it: the page's data-var
    Variable var;
    std::string label;
    std::string unit;
    bool write = false;
    bool trend = false;
    double scale = 1;
    double offset = 0;
    int decimals = 0;
    double min = 0;  // shown units; the whole range of the variable unless the file narrows it
    double max = 0;
    bool rangeGiven = false;
    std::string onText = "ON";
    std::string offText = "OFF";
};

struct PanelScreen {
    std::string name;  // in the page's address: /screen/NAME
    std::string title;
    std::vector<PanelItem> items;
};

struct ControllerEntry {
    int station = 1;
    std::string name;  // for people, and in MQTT device names
    std::string host;
    int port = 502;
};

enum class AlarmCondition { BitOn, BitOff, Above, Below };
enum class AlarmClass { Fault, Warning, Info };

struct AlarmRule {
    std::string id;
    std::string varText;
    Variable var;
    AlarmCondition condition = AlarmCondition::BitOn;
    double threshold = 0;  // shown units
    double deadband = 0;   // shown units
    std::string text;
    AlarmClass alarmClass = AlarmClass::Warning;
};

// "fault", "warning", "info"
const char* alarmClassName(AlarmClass alarmClass);

struct ScreenSet {
    std::string title;
    std::vector<PanelScreen> screens;
    std::vector<ControllerEntry> controllers;  // empty: the command line's --plc
    std::vector<AlarmRule> alarms;
    // An alarm's variable that no screen shows, as an item of no screen: it
    // is scanned all the same, and a word reads in raw units.
    std::vector<PanelItem> hiddenItems;
};

// Where the variables live: with multiStation a var may carry @STATION, and
// one without it is on the default station.
struct StationContext {
    bool multiStation = false;
    int defaultStation = 1;
};

// On failure *error names the file, the item (screen name, item index and
// var) and what is wrong. A file with controllers is in multi-station mode
// whatever `stations` says.
bool parseScreens(const std::string& text, const std::string& fileName, StationContext stations, ScreenSet* out,
                  std::string* error);
bool loadScreensFile(const std::string& path, StationContext stations, ScreenSet* out, std::string* error);

// The screens a panel shows when no file is given: the simulator's moving
// inputs and a few values to set.
ScreenSet builtInScreens(StationContext stations);

// The name that makes two texts the same element ("vw10" and "VW10", and
// "VW10" and "VW10@1" on default station 1).
std::string variableKey(Variable var, StationContext stations);

// Raw controller value of a bit or word variable, as the item shows it.
double shownValue(const PanelItem& item, double raw);
// "12.5", or a bit's on/off text.
std::string shownText(const PanelItem& item, double raw);
// The raw value for a value in shown units, rounded to the nearest step.
double rawValue(const PanelItem& item, double shown);

}  // namespace logohost

#endif  // LOGOHOST_SCREENS_FILE_H
