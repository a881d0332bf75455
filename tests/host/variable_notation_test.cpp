// The controller's notation and its mapping onto the driver's areas and
// address texts.
#include <gtest/gtest.h>

#include "host/notation/variable_notation.h"

namespace {

using namespace logohost;

TEST(Notation, GoodTextsMapOntoTheDriver)
{
    const struct {
        const char* text;
        bool stations;
        int area;
        const char* address;
        int count, station;        // count in the driver's units
        const char *first, *last;  // element names
    } rows[] = {
        {"I1", false, 0, "1", 1, kNoStation, "I1", "I1"},
        {"q1:4", false, 1, "1", 4, kNoStation, "Q1", "Q4"},
        {"M64", false, 2, "64", 1, kNoStation, "M64", "M64"},
        {"V10.7:3", false, 3, "10.7", 3, kNoStation, "V10.7", "V11.1"},
        {"V850.7", false, 3, "850.7", 1, kNoStation, "V850.7", "V850.7"},
        {"AI8", false, 4, "8", 1, kNoStation, "AI8", "AI8"},
        {"AQ2", false, 5, "2", 1, kNoStation, "AQ2", "AQ2"},
        {"AM5:2", false, 6, "5", 2, kNoStation, "AM5", "AM6"},
        {"VW10", false, 7, "5", 1, kNoStation, "VW10", "VW10"},
        {"VW848", false, 7, "424", 1, kNoStation, "VW848", "VW848"},
        {"VW840:5", false, 7, "420", 5, kNoStation, "VW840", "VW848"},
        {"I23:2", false, 0, "23", 2, kNoStation, "I23", "I24"},
        {"VD10", false, 7, "5", 2, kNoStation, "VD10", "VD10"},
        {"VD0:2", false, 7, "0", 4, kNoStation, "VD0", "VD4"},
        {"VW0:4@2", true, 7, "0", 4, 2, "VW0@2", "VW6@2"},
        {"AM1@0", true, 6, "1", 1, 0, "AM1@0", "AM1@0"},
        {"Q3", true, 1, "3", 1, kNoStation, "Q3", "Q3"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        Variable var;
        std::string error;
        EXPECT_TRUE(parseVariable(row.text, row.stations, &var, &error)) << error;
        EXPECT_EQ(driverArea(var.kind), row.area);
        EXPECT_EQ(driverAddressText(var), row.address);
        EXPECT_EQ(driverCount(var), row.count);
        EXPECT_EQ(var.station, row.station);
        EXPECT_EQ(elementName(var, 0, row.stations), row.first);
        EXPECT_EQ(elementName(var, var.count - 1, row.stations), row.last);
    }
}

TEST(Notation, BadTextsAreNamedWithWhatWasExpected)
{
    const char* const kVBit = "V takes BYTE.BIT, a V byte number (0-850) and a bit (0-7)";
    const struct {
        const char* text;
        bool stations;
        std::string why;
    } rows[] = {
        {"VW11", false, "VW takes an even V byte number (0-848)"},
        {"VW850", false, "VW takes an even V byte number (0-848)"},
        {"VD848", false, "VD takes an even V byte number (0-846)"},
        {"I0", false, "I takes an input number (1-24)"},
        {"Q21", false, "Q takes an output number (1-20)"},
        {"M65", false, "M takes a flag number (1-64)"},
        {"AI9", false, "AI takes an analogue input number (1-8)"},
        {"AQ0", false, "AQ takes an analogue output number (1-8)"},
        {"AM65", false, "AM takes an analogue flag number (1-64)"},
        {"V10", false, kVBit},
        {"V10.8", false, kVBit},
        {"V851.0", false, kVBit},
        {"X1", false, "expected I, Q, M, V, AI, AQ, AM, VW or VD followed by a number, e.g. VW0:4, V10.3 or AI1"},
        {"VW0:0", false, "the count after \":\" must be a number from 1 to 425"},
        {"Q1:21", false, "the count after \":\" must be a number from 1 to 20"},
        {"VW0@2", false, "a station \"@2\" needs --stations"},
        {"VW0@256", true, "the station after \"@\" must be a number from 0 to 255"},
        // Counts that run past the map name its last element.
        {"VW846:3", false, "it runs past VW848, the last V word"},
        {"VD846:2", false, "it runs past VD846, the last V double word"},
        {"I24:2", false, "it runs past I24, the last input"},
        {"M64:2", false, "it runs past M64, the last flag"},
        {"AM60:6", false, "it runs past AM64, the last analogue flag"},
        {"V850.7:2", false, "it runs past V850.7, the last V bit"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        Variable var;
        std::string error;
        EXPECT_FALSE(parseVariable(row.text, row.stations, &var, &error));
        EXPECT_EQ(error, "bad variable \"" + std::string(row.text) + "\": " + row.why);
    }
}

TEST(Notation, DriverRangesAreNamedInTheControllersNotation)
{
    const struct {
        int area, address, count, station;
        bool withStation;
        const char* text;
    } rows[] = {
        {6, 64, 2, 1, false, "AM64:2"},
        {7, 5, 1, 1, false, "VW10"},
        {3, 83, 3, 1, false, "V10.3:3"},
        {1, 1, 1, 2, true, "Q1@2"},
        {9, 4, 1, 1, false, "area 9 address 4"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(rangeName(row.area, row.address, row.count, row.station, row.withStation), row.text);
}

}  // namespace
