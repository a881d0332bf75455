#include "host/notation/variable_notation.h"

#include <cctype>

#include "common/logo_map.h"
#include "common/modbus_wire.h"

namespace logohost {
namespace {

using namespace logomap;

constexpr int kBitsPerByte = 8;
constexpr size_t kMaxDigits = 9;  // keeps every parsed number inside int

// What one area accepts. For V, VW and VD `first`/`last` are V byte numbers.
struct KindInfo {
    Kind kind;
    const char* prefix;
    int first;
    int last;
    const char* takes;  // completes "<prefix> takes ..."
    int maxCount;
    const char* noun;   // completes "the last ..."
};

// Longer prefixes first, so that "VW" is not read as "V" and "AI" not as "A...".
const KindInfo kKinds[] = {
    {Kind::VW, "VW", 0, 2 * (kVWordCount - 1), "an even V byte number", kVWordCount, "V word"},
    {Kind::VD, "VD", 0, 2 * (kVWordCount - 2), "an even V byte number", kVWordCount / 2, "V double word"},
    {Kind::AI, "AI", 1, kAnalogInputCount, "an analogue input number", kAnalogInputCount, "analogue input"},
    {Kind::AQ, "AQ", 1, kAnalogOutputCount, "an analogue output number", kAnalogOutputCount, "analogue output"},
    {Kind::AM, "AM", 1, kAnalogFlagCount, "an analogue flag number", kAnalogFlagCount, "analogue flag"},
    {Kind::I, "I", 1, kInputCount, "an input number", kInputCount, "input"},
    {Kind::Q, "Q", 1, kOutputCount, "an output number", kOutputCount, "output"},
    {Kind::M, "M", 1, kFlagCount, "a flag number", kFlagCount, "flag"},
    {Kind::V, "V", 0, kVByteCount - 1, "BYTE.BIT, a V byte number", kVBitCount, "V bit"},
};

const KindInfo& infoOf(Kind kind)
{
    for (const KindInfo& info : kKinds)
        if (info.kind == kind)
            return info;
    return kKinds[0];
}

// Digits only, no sign, no spaces; false for anything else or an empty text.
bool parseNumber(const std::string& text, int* out)
{
    if (text.empty() || text.size() > kMaxDigits)
        return false;
    int value = 0;
    for (const char c : text) {
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
        value = value * 10 + (c - '0');
    }
    *out = value;
    return true;
}

std::string upper(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool fail(const std::string& text, const std::string& why, std::string* error)
{
    *error = "bad variable \"" + text + "\": " + why;
    return false;
}

std::string rangeText(int first, int last) { return "(" + std::to_string(first) + "-" + std::to_string(last) + ")"; }

// The element part: area prefix and number ("VW10", "V10.3").
bool parseElement(const std::string& original, const std::string& element, Variable* var, std::string* error)
{
    for (const KindInfo& info : kKinds) {
        const std::string prefix = info.prefix;
        if (element.compare(0, prefix.size(), prefix) != 0)
            continue;
        const std::string number = element.substr(prefix.size());
        const std::string takes = prefix + " takes " + info.takes + " " + rangeText(info.first, info.last);
        var->kind = info.kind;
        if (info.kind == Kind::V) {
            const size_t dot = number.find('.');
            const bool good = dot != std::string::npos && parseNumber(number.substr(0, dot), &var->first) &&
                              parseNumber(number.substr(dot + 1), &var->bit) && var->first <= info.last &&
                              var->bit < kBitsPerByte;
            return good || fail(original, takes + " and a bit (0-7)", error);
        }
        const bool evenOnly = info.kind == Kind::VW || info.kind == Kind::VD;
        const bool good = parseNumber(number, &var->first) && var->first >= info.first && var->first <= info.last &&
                          (!evenOnly || var->first % 2 == 0);
        return good || fail(original, takes, error);
    }
    return fail(original,
                "expected I, Q, M, V, AI, AQ, AM, VW or VD followed by a number, e.g. VW0:4, V10.3 or AI1", error);
}

// The last element of the variable lies inside the controller's map.
bool fitsTheMap(const Variable& var)
{
    switch (var.kind) {
    case Kind::V: return var.first * kBitsPerByte + var.bit + var.count <= kVBitCount;
    case Kind::VW: return var.first / 2 + var.count <= kVWordCount;
    case Kind::VD: return var.first / 2 + 2 * var.count <= kVWordCount;
    default: return var.first + var.count - 1 <= infoOf(var.kind).last;
    }
}

// "VW846:3 runs past VW848, the last V word"
std::string lastElementText(const Variable& var)
{
    const KindInfo& info = infoOf(var.kind);
    Variable last = var;
    last.station = kNoStation;
    if (var.kind == Kind::V) {
        last.first = info.last;
        last.bit = kBitsPerByte - 1;
    } else {
        last.first = info.last;
    }
    return "it runs past " + elementName(last, 0, false) + ", the last " + info.noun;
}

}  // namespace

bool parseVariable(const std::string& text, bool allowStation, Variable* out, std::string* error)
{
    Variable var;
    var.text = text;
    std::string rest = upper(text);

    const size_t at = rest.find('@');
    if (at != std::string::npos) {
        const std::string station = rest.substr(at + 1);
        if (!allowStation)
            return fail(text, "a station \"@" + station + "\" needs --stations", error);
        if (!parseNumber(station, &var.station) || var.station > wire::kMaxUnitId)
            return fail(text, "the station after \"@\" must be a number from 0 to " + std::to_string(wire::kMaxUnitId),
                        error);
        rest.erase(at);
    }

    std::string countText;
    const size_t colon = rest.find(':');
    if (colon != std::string::npos) {
        countText = rest.substr(colon + 1);
        rest.erase(colon);
    }
    if (!parseElement(text, rest, &var, error))
        return false;

    if (colon != std::string::npos) {
        const int maxCount = infoOf(var.kind).maxCount;
        if (!parseNumber(countText, &var.count) || var.count < 1 || var.count > maxCount)
            return fail(text, "the count after \":\" must be a number from 1 to " + std::to_string(maxCount), error);
    }
    if (!fitsTheMap(var))
        return fail(text, lastElementText(var), error);
    *out = var;
    return true;
}

bool isBitKind(Kind kind) { return kind == Kind::I || kind == Kind::Q || kind == Kind::M || kind == Kind::V; }

bool isWritable(Kind kind) { return kind != Kind::I && kind != Kind::AI; }

int wordsPerElement(Kind kind) { return isBitKind(kind) ? 0 : kind == Kind::VD ? 2 : 1; }

int driverArea(Kind kind)
{
    switch (kind) {
    case Kind::I: return 0;
    case Kind::Q: return 1;
    case Kind::M: return 2;
    case Kind::V: return 3;
    case Kind::AI: return 4;
    case Kind::AQ: return 5;
    case Kind::AM: return 6;
    case Kind::VW:
    case Kind::VD: return 7;
    }
    return 0;
}

int driverAddress(const Variable& var, int index)
{
    switch (var.kind) {
    case Kind::V: return var.first * kBitsPerByte + var.bit + index;
    case Kind::VW: return var.first / 2 + index;
    case Kind::VD: return var.first / 2 + 2 * index;
    default: return var.first + index;
    }
}

std::string driverAddressText(const Variable& var, int index)
{
    const int address = driverAddress(var, index);
    if (var.kind == Kind::V)
        return std::to_string(address / kBitsPerByte) + "." + std::to_string(address % kBitsPerByte);
    return std::to_string(address);
}

int driverCount(const Variable& var) { return var.kind == Kind::VD ? 2 * var.count : var.count; }

std::string elementName(const Variable& var, int index, bool withStation)
{
    std::string name;
    const std::string prefix = infoOf(var.kind).prefix;
    if (var.kind == Kind::V)
        name = "V" + driverAddressText(var, index);
    else if (var.kind == Kind::VW)
        name = prefix + std::to_string(var.first + 2 * index);
    else if (var.kind == Kind::VD)
        name = prefix + std::to_string(var.first + 4 * index);
    else
        name = prefix + std::to_string(var.first + index);
    if (withStation && var.station != kNoStation)
        name += "@" + std::to_string(var.station);
    return name;
}

std::string rangeName(int area, int address, int count, int station, bool withStation)
{
    static const char* const kPrefixes[] = {"I", "Q", "M", "V", "AI", "AQ", "AM", "VW"};
    std::string name;
    if (area < 0 || area > 7)
        name = "area " + std::to_string(area) + " address " + std::to_string(address);
    else if (area == 3)
        name = "V" + std::to_string(address / kBitsPerByte) + "." + std::to_string(address % kBitsPerByte);
    else if (area == 7)
        name = "VW" + std::to_string(2 * address);
    else
        name = kPrefixes[area] + std::to_string(address);
    if (count > 1)
        name += ":" + std::to_string(count);
    if (withStation)
        name += "@" + std::to_string(station);
    return name;
}

}  // namespace logohost
