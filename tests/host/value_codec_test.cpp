// Values as typed by an operator, as printed, and as the driver carries them.
#include <gtest/gtest.h>

#include "host/value_codec.h"

namespace logohost {
namespace {

struct ParseCase {
    const char* name;
    const char* text;
    ValueType type;
    bool good;
    uint32_t raw;  // when good
};

// Failures name the row, not its bytes.
void PrintTo(const ParseCase& c, std::ostream* os) { *os << c.name; }

class ValueParsing : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ValueParsing, AcceptsTheNotationsAndRejectsTheRest)
{
    const ParseCase& c = GetParam();
    uint32_t raw = 0xDEADBEEF;
    std::string expected;
    EXPECT_EQ(parseValue(c.text, c.type, &raw, &expected), c.good);
    if (c.good)
        EXPECT_EQ(raw, c.raw);
    else
        EXPECT_EQ(expected.rfind("expected ", 0), 0u) << expected;
}

const ParseCase kParseCases[] = {
    {"BitOne", "1", ValueType::Bit, true, 1},
    {"BitOn", "On", ValueType::Bit, true, 1},
    {"BitTrue", "true", ValueType::Bit, true, 1},
    {"BitOff", "off", ValueType::Bit, true, 0},
    {"BitFalseUpperCase", "FALSE", ValueType::Bit, true, 0},
    {"BitTwo", "2", ValueType::Bit, false, 0},
    {"BitYes", "yes", ValueType::Bit, false, 0},
    {"WordMinusOne", "-1", ValueType::Word, true, 0xFFFF},
    {"WordLowest", "-32768", ValueType::Word, true, 0x8000},
    {"WordHighestUnsigned", "65535", ValueType::Word, true, 0xFFFF},
    {"WordHex", "0x7fff", ValueType::Word, true, 0x7FFF},
    {"WordHexUpper", "0XABCD", ValueType::Word, true, 0xABCD},
    {"WordBelowRange", "-32769", ValueType::Word, false, 0},
    {"WordAboveRange", "65536", ValueType::Word, false, 0},
    {"WordHexTooLong", "0x10000", ValueType::Word, false, 0},
    {"WordHexEmpty", "0x", ValueType::Word, false, 0},
    {"WordFraction", "1.5", ValueType::Word, false, 0},
    {"WordEmpty", "", ValueType::Word, false, 0},
    {"WordDoubleSign", "--1", ValueType::Word, false, 0},
    {"WordTrailingText", "12abc", ValueType::Word, false, 0},
    {"DoubleNegative", "-100000", ValueType::DoubleWord, true, 0xFFFE7960},
    {"DoubleLowest", "-2147483648", ValueType::DoubleWord, true, 0x80000000},
    {"DoubleHighestUnsigned", "4294967295", ValueType::DoubleWord, true, 0xFFFFFFFF},
    {"DoubleHex", "0x12345678", ValueType::DoubleWord, true, 0x12345678},
    {"DoubleAboveRange", "4294967296", ValueType::DoubleWord, false, 0},
    {"DoubleBelowRange", "-2147483649", ValueType::DoubleWord, false, 0},
};

INSTANTIATE_TEST_SUITE_P(Values, ValueParsing, ::testing::ValuesIn(kParseCases),
                         [](const ::testing::TestParamInfo<ParseCase>& info) { return info.param.name; });

TEST(ValueFormatting, ShowsWordsAndDoubleWordsSigned)
{
    const struct {
        uint32_t raw;
        ValueType type;
        const char* text;
    } cases[] = {
        {1, ValueType::Bit, "1"},       {0, ValueType::Bit, "0"},
        {0xFFFF, ValueType::Word, "-1"}, {0x7FFF, ValueType::Word, "32767"},
        {0x8000, ValueType::Word, "-32768"}, {0xFFFE7960, ValueType::DoubleWord, "-100000"},
        {0x7FFFFFFF, ValueType::DoubleWord, "2147483647"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(formatValue(c.raw, c.type), c.text);
    }
}

struct PackCase {
    const char* name;
    Kind kind;
    std::vector<uint32_t> values;
    std::vector<uint8_t> bytes;
};

void PrintTo(const PackCase& c, std::ostream* os) { *os << c.name; }

class DriverBytes : public ::testing::TestWithParam<PackCase> {};

TEST_P(DriverBytes, PackAndUnpackInTheDriversLayout)
{
    const PackCase& c = GetParam();
    EXPECT_EQ(packValues(c.kind, c.values), c.bytes);
    EXPECT_EQ(unpackValues(c.kind, c.bytes, static_cast<int>(c.values.size())), c.values);
}

const PackCase kPackCases[] = {
    {"BitsOneBytePerBit", Kind::Q, {1, 0, 1}, {1, 0, 1}},
    {"WordsLowByteFirst", Kind::VW, {0x1234, 0xABCD}, {0x34, 0x12, 0xCD, 0xAB}},
    {"AnalogueWord", Kind::AM, {0xFFF8}, {0xF8, 0xFF}},
    {"DoubleHighWordFirst", Kind::VD, {0x12345678}, {0x34, 0x12, 0x78, 0x56}},
    {"TwoDoubles", Kind::VD, {0xFFFE7960, 1}, {0xFE, 0xFF, 0x60, 0x79, 0, 0, 1, 0}},
};

INSTANTIATE_TEST_SUITE_P(Values, DriverBytes, ::testing::ValuesIn(kPackCases),
                         [](const ::testing::TestParamInfo<PackCase>& info) { return info.param.name; });

TEST(DriverBytes, MissingBytesReadAsZero)
{
    EXPECT_EQ(unpackValues(Kind::VW, {0x34}, 2), (std::vector<uint32_t>{0x34, 0}));
}

struct WriteCase {
    const char* name;
    const char* text;
    bool stations;
    const char* error;  // empty: good
    std::vector<uint32_t> values;
};

void PrintTo(const WriteCase& c, std::ostream* os) { *os << c.name; }

class WriteArgument : public ::testing::TestWithParam<WriteCase> {};

TEST_P(WriteArgument, SplitsVariableAndValues)
{
    const WriteCase& c = GetParam();
    WriteRequest request;
    std::string error;
    const bool good = parseWrite(c.text, c.stations, &request, &error);
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(good, std::string(c.error).empty());
    if (good)
        EXPECT_EQ(request.values, c.values);
}

const WriteCase kWriteCases[] = {
    {"OneWord", "VW0=123", false, "", {123}},
    {"SeveralWords", "VW0:3=1,-2,0x10", false, "", {1, 0xFFFE, 0x10}},
    {"BitWords", "Q1:2=on,0", false, "", {1, 0}},
    {"DoubleWord", "VD4=-100000", false, "", {0xFFFE7960}},
    {"WithStation", "AM1@3=5", true, "", {5}},
    {"NoEquals", "VW0", false, "bad write \"VW0\": expected VAR=VALUE, e.g. VW0=123 or Q1:2=1,0", {}},
    {"Input", "I1=1", false, "bad write \"I1=1\": I1 is an input and cannot be written", {}},
    {"AnalogueInput", "AI2=5", false, "bad write \"AI2=5\": AI2 is an input and cannot be written", {}},
    {"TooFewValues", "VW0:2=1", false, "bad write \"VW0:2=1\": VW0:2 takes 2 values separated by commas, got 1", {}},
    {"TooManyValues", "Q1=1,0", false, "bad write \"Q1=1,0\": Q1 takes 1 value, got 2", {}},
    {"BadBit", "Q1=2", false, "bad value \"2\" for Q1: expected 0/1, on/off or true/false", {}},
    {"BadSecondWord", "VW0:2=1,x", false,
     "bad value \"x\" for VW2: expected -32768..32767, 0..65535 or 0x0000..0xFFFF", {}},
    {"BadVariable", "VW1=1", false, "bad variable \"VW1\": VW takes an even V byte number (0-848)", {}},
};

INSTANTIATE_TEST_SUITE_P(Values, WriteArgument, ::testing::ValuesIn(kWriteCases),
                         [](const ::testing::TestParamInfo<WriteCase>& info) { return info.param.name; });

}  // namespace
}  // namespace logohost
