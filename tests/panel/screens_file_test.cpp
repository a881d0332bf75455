// The screens file: what a panel builder may write, and for every mistake a
// message that names the file, the item and what is wrong.
#include <gtest/gtest.h>

#include <string>

#include "host/model/screens_file.h"

namespace {

using namespace logohost;

// One screen "main" holding the items given (JSON text).
std::string oneScreen(const std::string& items) { return R"({"screens": [{"name": "main", "items": [)" + items + "]}]}"; }

// A screen of one item, and the top-level keys given (JSON text).
std::string withTop(const std::string& keys)
{
    return "{" + keys + R"(, "screens": [{"name": "main", "items": [{"var": "VW0"}]}]})";
}

TEST(ScreensFile, ReadsItemsWithTheirSettings)
{
    const std::string text = R"({"title": "Pump station", "screens": [
        {"name": "main", "title": "Main", "items": [
            {"var": "VW10", "label": "Level", "unit": "cm", "scale": 0.1, "offset": -5, "min": 0, "max": 100, "write": true},
            {"var": "q1", "label": "Pump", "write": true, "on": "Running", "off": "Stopped"},
            {"var": "AI1", "trend": true}]},
        {"name": "setup", "items": [{"var": "VW10", "label": "Level again", "scale": 0.1, "offset": -5, "min": 0, "max": 100}]}]})";
    ScreenSet set;
    std::string error;
    ASSERT_TRUE(parseScreens(text, "pumps.json", StationContext{}, &set, &error)) << error;
    EXPECT_EQ(set.title, "Pump station");
    ASSERT_EQ(set.screens.size(), 2u);
    EXPECT_EQ(set.screens[1].title, "setup");  // the name when no title is given
    const PanelItem& level = set.screens[0].items[0];
    EXPECT_EQ(level.decimals, 2);  // a fractional scale shows decimals unless told
    EXPECT_TRUE(level.write);
    EXPECT_TRUE(level.rangeGiven);
    EXPECT_EQ(shownText(level, 1234), "118.40");
    EXPECT_DOUBLE_EQ(rawValue(level, 118.4), 1234);
    const PanelItem& pump = set.screens[0].items[1];
    EXPECT_EQ(shownText(pump, 1), "Running");
    EXPECT_EQ(shownText(pump, 0), "Stopped");
    const PanelItem& input = set.screens[0].items[2];
    EXPECT_EQ(input.label, "AI1");
    EXPECT_TRUE(input.trend);
    EXPECT_EQ(input.min, -32768);  // the whole signed word when the file gives no range
    EXPECT_EQ(input.max, 32767);
    EXPECT_EQ(shownText(input, -3), "-3");
}

TEST(ScreensFile, ControllersAndAlarms)
{
    const std::string text = R"({
        "controllers": [{"station": 2, "name": "tank", "address": "[::1]:5021"}, {"station": 3, "name": "mill", "address": "plc3"}],
        "alarms": [{"id": "level", "var": "AI1@2", "above": 90, "deadband": 2, "text": "Level high", "class": "fault"},
                   {"id": "door", "var": "I3@3", "when": "off", "text": "Door open"}],
        "screens": [{"name": "main", "items": [{"var": "AI1@2", "scale": 0.1}]}]})";
    ScreenSet set;
    std::string error;
    // The controllers make the file multi-station: its variables carry their station.
    ASSERT_TRUE(parseScreens(text, "plant.json", StationContext{false, 1}, &set, &error)) << error;
    ASSERT_EQ(set.controllers.size(), 2u);
    EXPECT_EQ(set.controllers[0].host, "::1");
    EXPECT_EQ(set.controllers[0].port, 5021);
    EXPECT_EQ(set.controllers[1].port, 502);
    ASSERT_EQ(set.alarms.size(), 2u);
    EXPECT_EQ(set.alarms[0].condition, AlarmCondition::Above);
    EXPECT_EQ(set.alarms[0].deadband, 2);
    EXPECT_EQ(set.alarms[0].alarmClass, AlarmClass::Fault);
    EXPECT_EQ(set.alarms[1].condition, AlarmCondition::BitOff);
    EXPECT_EQ(set.alarms[1].alarmClass, AlarmClass::Warning);  // unless told
    // I3@3 is on no screen: it becomes an item of none, to be scanned all the same.
    ASSERT_EQ(set.hiddenItems.size(), 1u);
    EXPECT_EQ(set.hiddenItems[0].varText, "I3@3");
}

TEST(ScreensFile, BuiltInScreensParseInBothModes)
{
    EXPECT_GE(builtInScreens(StationContext{false, 1}).screens.size(), 2u);
    EXPECT_GE(builtInScreens(StationContext{true, 1}).screens.size(), 2u);
}

TEST(ScreensFile, MistakesAreNamedWithTheItem)
{
    const struct {
        const char* name;
        std::string text;
        bool multiStation;
        std::string message;  // the whole message, after "f.json: "
    } rows[] = {
        {"not JSON", "{\"screens\": [", false, "not valid JSON: parse error at line 1, column 14: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"},
        {"top level not an object", "[]", false, "top level: expected an object with \"screens\""},
        {"no screens", "{\"title\": \"x\"}", false, "top level: \"screens\" must be a list of at least one screen"},
        {"unknown top key", "{\"screens\": [], \"colour\": 1}", false,
         "top level: unknown key \"colour\" (expected alarms, controllers, screens, title)"},
        {"controller without a name", withTop(R"("controllers": [{"station": 2, "address": "10.0.0.2"}])"), false,
         "controller 0: \"name\" must be 1 to 40 letters, digits, '-' or '_'"},
        {"controller with an empty port", withTop(R"("controllers": [{"station": 2, "name": "mill", "address": "10.0.0.2:"}])"),
         false, "controller 0: \"address\" must be HOST[:PORT]: the port after ':' is empty"},
        {"two controllers, one station",
         withTop(R"("controllers": [{"station": 2, "name": "a", "address": "h"}, {"station": 2, "name": "b", "address": "i"}])"),
         false, "controller 1: another controller has station 2"},
        {"alarm id unfit", withTop(R"("alarms": [{"id": "a b", "var": "M1", "when": "on", "text": "x"}])"), false,
         "alarm 0: \"id\" must be 1 to 40 letters, digits, '-' or '_'"},
        {"alarm on a bad variable", withTop(R"("alarms": [{"id": "a", "var": "M65", "when": "on", "text": "x"}])"), false,
         "alarm \"a\": bad variable \"M65\": M takes a flag number (1-64)"},
        {"bit alarm with a value", withTop(R"("alarms": [{"id": "a", "var": "M1", "above": 1, "text": "x"}])"), false,
         "alarm \"a\": M1 is a bit: give \"when\": \"on\" or \"off\", not a value"},
        {"word alarm with when", withTop(R"("alarms": [{"id": "a", "var": "AI1", "when": "on", "text": "x"}])"), false,
         "alarm \"a\": AI1 is a word: give one of \"above\" or \"below\" a value in its shown units"},
        {"word alarm, above and below", withTop(R"("alarms": [{"id": "a", "var": "AI1", "above": 1, "below": 0, "text": "x"}])"),
         false, "alarm \"a\": AI1 is a word: give one of \"above\" or \"below\" a value in its shown units"},
        {"negative deadband", withTop(R"("alarms": [{"id": "a", "var": "AI1", "above": 1, "deadband": -1, "text": "x"}])"),
         false, "alarm \"a\": \"deadband\" must be a number of 0 or more"},
        {"alarm without text", withTop(R"("alarms": [{"id": "a", "var": "M1", "when": "on"}])"), false,
         "alarm \"a\": \"text\" must say what the alarm means, e.g. \"Tank overflow\""},
        {"alarm class", withTop(R"("alarms": [{"id": "a", "var": "M1", "when": "on", "text": "x", "class": "error"}])"),
         false, "alarm \"a\": \"class\" must be fault, warning or info"},
        {"two alarms, one id",
         withTop(R"("alarms": [{"id": "a", "var": "M1", "when": "on", "text": "x"}, {"id": "a", "var": "M2", "when": "on", "text": "y"}])"),
         false, "alarm \"a\": another alarm has the same id"},
        {"screen without name", R"({"screens": [{"items": []}]})", false,
         "screen 0: \"name\" must be 1 to 40 letters, digits, '-' or '_' (it is part of the page's address)"},
        {"name unfit for an address", R"({"screens": [{"name": "a b", "items": []}]})", false,
         "screen 0: \"name\" must be 1 to 40 letters, digits, '-' or '_' (it is part of the page's address)"},
        {"screen without items", R"({"screens": [{"name": "main", "items": []}]})", false,
         "screen \"main\": \"items\" must be a list of at least one item"},
        {"two screens, one name",
         R"({"screens": [{"name": "a", "items": [{"var": "I1"}]}, {"name": "a", "items": [{"var": "I2"}]}]})", false,
         "screen \"a\": another screen has the same name"},
        {"item without var", oneScreen(R"({"var": "VW0"}, {"label": "x"})"), false,
         "screen \"main\" item 1: \"var\" is missing or not a string, e.g. \"var\": \"VW10\""},
        {"bad variable", oneScreen(R"({"var": "VW11"})"), false,
         "screen \"main\" item 0 (VW11): bad variable \"VW11\": VW takes an even V byte number (0-848)"},
        {"station without --stations", oneScreen(R"({"var": "VW0@2"})"), false,
         "screen \"main\" item 0 (VW0@2): bad variable \"VW0@2\": a station \"@2\" needs --stations"},
        {"count", oneScreen(R"({"var": "VW0:4"})"), false,
         "screen \"main\" item 0 (VW0:4): an item shows one value: give each element an item of its own"},
        {"misspelt key", oneScreen(R"({"var": "VW0", "lable": "x"})"), false,
         "screen \"main\" item 0 (VW0): unknown key \"lable\" (expected decimals, label, max, min, off, offset, on, "
         "scale, trend, unit, var, write)"},
        {"write to an input", oneScreen(R"({"var": "AI2", "write": true})"), false,
         "screen \"main\" item 0 (AI2): AI2 is an input and cannot be written"},
        {"write not a flag", oneScreen(R"({"var": "Q1", "write": "yes"})"), false,
         "screen \"main\" item 0 (Q1): \"write\" must be true or false"},
        {"word key on a bit", oneScreen(R"({"var": "Q1", "scale": 2})"), false,
         "screen \"main\" item 0 (Q1): \"scale\" is for words, Q1 is a bit"},
        {"bit key on a word", oneScreen(R"({"var": "AM1", "on": "Yes"})"), false,
         "screen \"main\" item 0 (AM1): \"on\" is for bits, AM1 is a word"},
        {"zero scale", oneScreen(R"({"var": "VW0", "scale": 0})"), false,
         "screen \"main\" item 0 (VW0): \"scale\" must be a number other than 0"},
        {"decimals", oneScreen(R"({"var": "VW0", "decimals": 1.5})"), false,
         "screen \"main\" item 0 (VW0): \"decimals\" must be a whole number from 0 to 6"},
        {"min above max", oneScreen(R"({"var": "VW0", "min": 5, "max": 1})"), false,
         "screen \"main\" item 0 (VW0): \"min\" is above \"max\""},
        {"range the word cannot hold", oneScreen(R"({"var": "VW0", "scale": 0.1, "max": 5000})"), false,
         "screen \"main\" item 0 (VW0): \"min\" and \"max\" must lie within what VW0 can hold, -3276.80 to 3276.70 "
         "as scaled"},
        {"label not text", oneScreen(R"({"var": "VW0", "label": 3})"), false,
         "screen \"main\" item 0 (VW0): \"label\" must be a string"},
        {"same variable twice on a screen", oneScreen(R"({"var": "VW0"}, {"var": "vw0"})"), false,
         "screen \"main\" item 1 (vw0): vw0 is on this screen twice"},
        {"same station twice by default", oneScreen(R"({"var": "VW0"}, {"var": "VW0@1"})"), true,
         "screen \"main\" item 1 (VW0@1): VW0@1 is on this screen twice"},
        {"one variable, two meanings",
         R"({"screens": [{"name": "a", "items": [{"var": "VW0", "scale": 0.1}]},
                         {"name": "b", "items": [{"var": "VW0"}]}]})",
         false,
         "screen \"b\" item 0 (VW0): VW0 has another scale, offset, min or max than at screen \"a\" item 0 (VW0): a "
         "variable must read the same on every screen"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScreenSet set;
        std::string error;
        EXPECT_FALSE(parseScreens(row.text, "f.json", StationContext{row.multiStation, 1}, &set, &error));
        EXPECT_EQ(error, "f.json: " + row.message);
    }
}

TEST(ScreensFile, AFileThatCannotBeReadIsNamed)
{
    ScreenSet set;
    std::string error;
    EXPECT_FALSE(loadScreensFile("/nonexistent/screens.json", StationContext{}, &set, &error));
    EXPECT_EQ(error, "/nonexistent/screens.json: cannot be read");
}

}  // namespace
