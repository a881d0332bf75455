// Values as typed by an operator, as printed, and as the driver carries them.
#include <gtest/gtest.h>

#include "host/notation/value_codec.h"

namespace {

using namespace logohost;

TEST(Values, AreParsedAtTheirEdgesAndShownSigned)
{
    const ValueType kBit = ValueType::Bit, kWord = ValueType::Word, kDouble = ValueType::DoubleWord;
    const struct {
        const char* text;
        ValueType type;
        uint32_t raw;
        const char* shown;  // null: the text is rejected
    } rows[] = {
        {"1", kBit, 1, "1"},
        {"On", kBit, 1, "1"},
        {"FALSE", kBit, 0, "0"},
        {"yes", kBit, 0, nullptr},
        {"-32768", kWord, 0x8000, "-32768"},
        {"65535", kWord, 0xFFFF, "-1"},
        {"0X7FFF", kWord, 0x7FFF, "32767"},
        {"-32769", kWord, 0, nullptr},
        {"65536", kWord, 0, nullptr},
        {"0x10000", kWord, 0, nullptr},
        {"12abc", kWord, 0, nullptr},
        {"", kWord, 0, nullptr},
        {"-2147483648", kDouble, 0x80000000, "-2147483648"},
        {"4294967295", kDouble, 0xFFFFFFFF, "-1"},
        {"0x12345678", kDouble, 0x12345678, "305419896"},
        {"4294967296", kDouble, 0, nullptr},
        {"-2147483649", kDouble, 0, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        uint32_t raw = 0xDEADBEEF;
        std::string expected;
        EXPECT_EQ(parseValue(row.text, row.type, &raw, &expected), row.shown != nullptr);
        if (row.shown) {
            EXPECT_EQ(raw, row.raw);
            EXPECT_EQ(formatValue(raw, row.type), row.shown);
        } else {
            EXPECT_EQ(expected.rfind("expected ", 0), 0u) << expected;
        }
    }
}

TEST(Values, WriteArgumentsSplitIntoVariableAndValues)
{
    const struct {
        const char* text;
        bool stations;
        const char* error;  // empty: good
        std::vector<uint32_t> values;
    } rows[] = {
        {"VW0:3=1,-2,0x10", false, "", {1, 0xFFFE, 0x10}},
        {"Q1:2=on,0", false, "", {1, 0}},
        {"VD4=-100000", false, "", {0xFFFE7960}},
        {"AM1@3=5", true, "", {5}},
        {"VW0", false, "bad write \"VW0\": expected VAR=VALUE, e.g. VW0=123 or Q1:2=1,0", {}},
        {"I1=1", false, "bad write \"I1=1\": I1 is an input and cannot be written", {}},
        {"VW0:2=1", false, "bad write \"VW0:2=1\": VW0:2 takes 2 values separated by commas, got 1", {}},
        {"Q1=1,0", false, "bad write \"Q1=1,0\": Q1 takes 1 value, got 2", {}},
        {"Q1=2", false, "bad value \"2\" for Q1: expected 0/1, on/off or true/false", {}},
        {"VW0:2=1,x", false, "bad value \"x\" for VW2: expected -32768..32767, 0..65535 or 0x0000..0xFFFF", {}},
        {"VW1=1", false, "bad variable \"VW1\": VW takes an even V byte number (0-848)", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        WriteRequest request;
        std::string error;
        EXPECT_EQ(parseWrite(row.text, row.stations, &request, &error), row.error[0] == '\0');
        EXPECT_EQ(error, row.error);
        EXPECT_EQ(request.values, row.values);
    }
}

}  // namespace
