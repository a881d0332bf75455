#include "host/notation/value_codec.h"

#include <cctype>
#include <cstdlib>

namespace logohost {
namespace {

struct Limits {
    long long minSigned;
    unsigned long long maxUnsigned;
    size_t hexDigits;
    const char* expected;
};

const Limits kWordLimits = {-32768, 0xFFFFull, 4, "expected -32768..32767, 0..65535 or 0x0000..0xFFFF"};
const Limits kDoubleLimits = {-2147483648LL, 0xFFFFFFFFull, 8,
                              "expected -2147483648..2147483647, 0..4294967295 or 0x00000000..0xFFFFFFFF"};
const char* const kBitExpected = "expected 0/1, on/off or true/false";

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool parseBit(const std::string& text, uint32_t* out)
{
    const std::string t = lower(text);
    if (t == "1" || t == "on" || t == "true") {
        *out = 1;
        return true;
    }
    if (t == "0" || t == "off" || t == "false") {
        *out = 0;
        return true;
    }
    return false;
}

bool allOf(const std::string& text, int (*test)(int))
{
    for (const char c : text)
        if (!test(static_cast<unsigned char>(c)))
            return false;
    return !text.empty();
}

bool parseNumber(const std::string& text, const Limits& limits, uint32_t* out)
{
    const uint64_t mask = limits.maxUnsigned;
    if (text.size() > 2 && (text[1] == 'x' || text[1] == 'X') && text[0] == '0') {
        const std::string digits = text.substr(2);
        if (digits.size() > limits.hexDigits || !allOf(digits, isxdigit))
            return false;
        *out = static_cast<uint32_t>(std::strtoull(digits.c_str(), nullptr, 16));
        return true;
    }
    const bool negative = !text.empty() && text[0] == '-';
    const std::string digits = negative ? text.substr(1) : text;
    if (digits.size() > 10 || !allOf(digits, isdigit))
        return false;
    const long long magnitude = std::strtoll(digits.c_str(), nullptr, 10);
    if (negative ? -magnitude < limits.minSigned : static_cast<unsigned long long>(magnitude) > limits.maxUnsigned)
        return false;
    *out = static_cast<uint32_t>(static_cast<uint64_t>(negative ? -magnitude : magnitude) & mask);
    return true;
}

std::vector<std::string> splitCommas(const std::string& text)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t comma; (comma = text.find(',', start)) != std::string::npos; start = comma + 1)
        parts.push_back(text.substr(start, comma - start));
    parts.push_back(text.substr(start));
    return parts;
}

void appendWord(std::vector<uint8_t>* bytes, uint32_t word)
{
    bytes->push_back(static_cast<uint8_t>(word & 0xFF));
    bytes->push_back(static_cast<uint8_t>((word >> 8) & 0xFF));
}

uint32_t wordAt(const std::vector<uint8_t>& bytes, size_t offset)
{
    const uint32_t low = offset < bytes.size() ? bytes[offset] : 0;
    const uint32_t high = offset + 1 < bytes.size() ? bytes[offset + 1] : 0;
    return low | high << 8;
}

}  // namespace

ValueType valueTypeOf(Kind kind)
{
    return isBitKind(kind) ? ValueType::Bit : kind == Kind::VD ? ValueType::DoubleWord : ValueType::Word;
}

bool parseValue(const std::string& text, ValueType type, uint32_t* out, std::string* expected)
{
    switch (type) {
    case ValueType::Bit:
        *expected = kBitExpected;
        return parseBit(text, out);
    case ValueType::Word:
        *expected = kWordLimits.expected;
        return parseNumber(text, kWordLimits, out);
    case ValueType::DoubleWord:
        *expected = kDoubleLimits.expected;
        return parseNumber(text, kDoubleLimits, out);
    }
    return false;
}

int64_t signedValue(uint32_t raw, ValueType type)
{
    switch (type) {
    case ValueType::Bit: return raw ? 1 : 0;
    case ValueType::Word: return static_cast<int16_t>(raw & 0xFFFF);
    case ValueType::DoubleWord: return static_cast<int32_t>(raw);
    }
    return 0;
}

std::string formatValue(uint32_t raw, ValueType type) { return std::to_string(signedValue(raw, type)); }

std::vector<uint8_t> packValues(Kind kind, const std::vector<uint32_t>& values)
{
    std::vector<uint8_t> bytes;
    for (const uint32_t value : values) {
        if (isBitKind(kind)) {
            bytes.push_back(value ? 1 : 0);
        } else if (kind == Kind::VD) {
            appendWord(&bytes, value >> 16);
            appendWord(&bytes, value & 0xFFFF);
        } else {
            appendWord(&bytes, value);
        }
    }
    return bytes;
}

std::vector<uint32_t> unpackValues(Kind kind, const std::vector<uint8_t>& bytes, int count)
{
    std::vector<uint32_t> values;
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        if (isBitKind(kind))
            values.push_back(i < bytes.size() && bytes[i] ? 1 : 0);
        else if (kind == Kind::VD)
            values.push_back(wordAt(bytes, 4 * i) << 16 | wordAt(bytes, 4 * i + 2));
        else
            values.push_back(wordAt(bytes, 2 * i));
    }
    return values;
}

bool parseWrite(const std::string& text, bool allowStation, WriteRequest* out, std::string* error)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        *error = "bad write \"" + text + "\": expected VAR=VALUE, e.g. VW0=123 or Q1:2=1,0";
        return false;
    }
    WriteRequest request;
    if (!parseVariable(text.substr(0, equals), allowStation, &request.var, error))
        return false;
    const Variable& var = request.var;
    if (!isWritable(var.kind)) {
        *error = "bad write \"" + text + "\": " + var.text + " is an input and cannot be written";
        return false;
    }
    const std::vector<std::string> parts = splitCommas(text.substr(equals + 1));
    if (static_cast<int>(parts.size()) != var.count) {
        *error = "bad write \"" + text + "\": " + var.text + " takes " + std::to_string(var.count) +
                 (var.count == 1 ? " value" : " values separated by commas") + ", got " +
                 std::to_string(parts.size());
        return false;
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        uint32_t value = 0;
        std::string expected;
        if (!parseValue(parts[i], valueTypeOf(var.kind), &value, &expected)) {
            *error = "bad value \"" + parts[i] + "\" for " + elementName(var, static_cast<int>(i), true) + ": " +
                     expected;
            return false;
        }
        request.values.push_back(value);
        request.texts.push_back(parts[i]);
    }
    *out = request;
    return true;
}

}  // namespace logohost
