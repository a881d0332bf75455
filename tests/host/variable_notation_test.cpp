// The controller's notation and its mapping onto the driver's areas and
// address texts.
#include <gtest/gtest.h>

#include "host/variable_notation.h"

namespace logohost {
namespace {

struct GoodCase {
    const char* name;
    const char* text;
    bool stations;
    int area;
    const char* addressText;
    int driverCount;
    int station;
    const char* firstElement;
    const char* lastElement;
};

// Failures name the row, not its bytes.
void PrintTo(const GoodCase& c, std::ostream* os) { *os << c.name; }

class GoodVariable : public ::testing::TestWithParam<GoodCase> {};

TEST_P(GoodVariable, MapsOntoTheDriver)
{
    const GoodCase& c = GetParam();
    Variable var;
    std::string error;
    ASSERT_TRUE(parseVariable(c.text, c.stations, &var, &error)) << error;
    EXPECT_EQ(driverArea(var.kind), c.area);
    EXPECT_EQ(driverAddressText(var), c.addressText);
    EXPECT_EQ(driverCount(var), c.driverCount);
    EXPECT_EQ(var.station, c.station);
    EXPECT_EQ(elementName(var, 0, c.stations), c.firstElement);
    EXPECT_EQ(elementName(var, var.count - 1, c.stations), c.lastElement);
}

const GoodCase kGoodCases[] = {
    {"FirstInput", "I1", false, 0, "1", 1, kNoStation, "I1", "I1"},
    {"LastInput", "I24", false, 0, "24", 1, kNoStation, "I24", "I24"},
    {"OutputsLowerCase", "q1:4", false, 1, "1", 4, kNoStation, "Q1", "Q4"},
    {"LastFlag", "M64", false, 2, "64", 1, kNoStation, "M64", "M64"},
    {"VBit", "V10.3", false, 3, "10.3", 1, kNoStation, "V10.3", "V10.3"},
    {"VBitsAcrossAByte", "V10.7:3", false, 3, "10.7", 3, kNoStation, "V10.7", "V11.1"},
    {"LastVBit", "V850.7", false, 3, "850.7", 1, kNoStation, "V850.7", "V850.7"},
    {"AnalogueInput", "AI8", false, 4, "8", 1, kNoStation, "AI8", "AI8"},
    {"AnalogueOutput", "AQ2", false, 5, "2", 1, kNoStation, "AQ2", "AQ2"},
    {"AnalogueFlags", "AM5:2", false, 6, "5", 2, kNoStation, "AM5", "AM6"},
    {"VWordsFromZero", "VW0:8", false, 7, "0", 8, kNoStation, "VW0", "VW14"},
    {"VWordByByteNumber", "VW10", false, 7, "5", 1, kNoStation, "VW10", "VW10"},
    {"LastVWord", "VW848", false, 7, "424", 1, kNoStation, "VW848", "VW848"},
    {"VDoubleIsTwoWords", "VD10", false, 7, "5", 2, kNoStation, "VD10", "VD10"},
    {"VDoubles", "VD0:2", false, 7, "0", 4, kNoStation, "VD0", "VD4"},
    {"Station", "VW0:4@2", true, 7, "0", 4, 2, "VW0@2", "VW6@2"},
    {"StationZero", "AM1@0", true, 6, "1", 1, 0, "AM1@0", "AM1@0"},
    {"NoStationSuffixInMultiStation", "Q3", true, 1, "3", 1, kNoStation, "Q3", "Q3"},
};

INSTANTIATE_TEST_SUITE_P(Notation, GoodVariable, ::testing::ValuesIn(kGoodCases),
                         [](const ::testing::TestParamInfo<GoodCase>& info) { return info.param.name; });

struct BadCase {
    const char* name;
    const char* text;
    bool stations;
    const char* message;
};

void PrintTo(const BadCase& c, std::ostream* os) { *os << c.name; }

class BadVariable : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadVariable, NamesTheTextAndWhatWasExpected)
{
    const BadCase& c = GetParam();
    Variable var;
    std::string error;
    EXPECT_FALSE(parseVariable(c.text, c.stations, &var, &error));
    EXPECT_EQ(error, c.message);
}

const BadCase kBadCases[] = {
    {"OddVWord", "VW11", false, "bad variable \"VW11\": VW takes an even V byte number (0-848)"},
    {"VWordPastTheEnd", "VW850", false, "bad variable \"VW850\": VW takes an even V byte number (0-848)"},
    {"VDoublePastTheEnd", "VD848", false, "bad variable \"VD848\": VD takes an even V byte number (0-846)"},
    {"InputZero", "I0", false, "bad variable \"I0\": I takes an input number (1-24)"},
    {"InputTooHigh", "I25", false, "bad variable \"I25\": I takes an input number (1-24)"},
    {"OutputTooHigh", "Q21", false, "bad variable \"Q21\": Q takes an output number (1-20)"},
    {"FlagTooHigh", "M65", false, "bad variable \"M65\": M takes a flag number (1-64)"},
    {"AnalogueInputTooHigh", "AI9", false, "bad variable \"AI9\": AI takes an analogue input number (1-8)"},
    {"AnalogueOutputZero", "AQ0", false, "bad variable \"AQ0\": AQ takes an analogue output number (1-8)"},
    {"AnalogueFlagTooHigh", "AM65", false, "bad variable \"AM65\": AM takes an analogue flag number (1-64)"},
    {"VWithoutBit", "V10", false,
     "bad variable \"V10\": V takes BYTE.BIT, a V byte number (0-850) and a bit (0-7)"},
    {"VBitEight", "V10.8", false,
     "bad variable \"V10.8\": V takes BYTE.BIT, a V byte number (0-850) and a bit (0-7)"},
    {"VBytePastTheEnd", "V851.0", false,
     "bad variable \"V851.0\": V takes BYTE.BIT, a V byte number (0-850) and a bit (0-7)"},
    {"NegativeNumber", "VW-2", false, "bad variable \"VW-2\": VW takes an even V byte number (0-848)"},
    {"UnknownArea", "X1", false,
     "bad variable \"X1\": expected I, Q, M, V, AI, AQ, AM, VW or VD followed by a number, e.g. VW0:4, V10.3 or "
     "AI1"},
    {"Empty", "", false,
     "bad variable \"\": expected I, Q, M, V, AI, AQ, AM, VW or VD followed by a number, e.g. VW0:4, V10.3 or AI1"},
    {"CountZero", "VW0:0", false, "bad variable \"VW0:0\": the count after \":\" must be a number from 1 to 425"},
    {"CountMissing", "AM1:", false, "bad variable \"AM1:\": the count after \":\" must be a number from 1 to 64"},
    {"CountOverTheArea", "Q1:21", false,
     "bad variable \"Q1:21\": the count after \":\" must be a number from 1 to 20"},
    {"StationWithoutStations", "VW0@2", false, "bad variable \"VW0@2\": a station \"@2\" needs --stations"},
    {"StationTooHigh", "VW0@256", true,
     "bad variable \"VW0@256\": the station after \"@\" must be a number from 0 to 255"},
    {"StationMissing", "VW0@", true,
     "bad variable \"VW0@\": the station after \"@\" must be a number from 0 to 255"},
};

INSTANTIATE_TEST_SUITE_P(Notation, BadVariable, ::testing::ValuesIn(kBadCases),
                         [](const ::testing::TestParamInfo<BadCase>& info) { return info.param.name; });

struct RangeCase {
    const char* name;
    int area;
    int address;
    int count;
    int station;
    bool withStation;
    const char* text;
};

void PrintTo(const RangeCase& c, std::ostream* os) { *os << c.name; }

class RangeName : public ::testing::TestWithParam<RangeCase> {};

TEST_P(RangeName, SpellsADriverRequestInTheControllersNotation)
{
    const RangeCase& c = GetParam();
    EXPECT_EQ(rangeName(c.area, c.address, c.count, c.station, c.withStation), c.text);
}

const RangeCase kRangeCases[] = {
    {"AnalogueFlags", 6, 64, 2, 1, false, "AM64:2"},
    {"VWordFromRegister", 7, 5, 1, 1, false, "VW10"},
    {"VBitsFromBitAddress", 3, 83, 3, 1, false, "V10.3:3"},
    {"OutputWithStation", 1, 1, 1, 2, true, "Q1@2"},
    {"UnknownArea", 9, 4, 1, 1, false, "area 9 address 4"},
};

INSTANTIATE_TEST_SUITE_P(Notation, RangeName, ::testing::ValuesIn(kRangeCases),
                         [](const ::testing::TestParamInfo<RangeCase>& info) { return info.param.name; });

}  // namespace
}  // namespace logohost
