#include "sim/faults.h"

#include "common/modbus_wire.h"
#include "common/numbers.h"

#include <sstream>

namespace logosim {

namespace {

constexpr const char* kKindNames[kFaultKindCount] = {"drop", "drop-mid", "late", "short", "long", "exception", "silent"};
constexpr int kMaxDelayMs = 600000;
constexpr int kMinExceptionCode = 1;
constexpr int kMaxExceptionCode = 255;

bool parseProbability(const std::string& text, double* out) { return common::parseDecimal(text, 0.0, 1.0, out); }

bool fail(std::string* error, const std::string& text, const std::string& message)
{
    if (error != nullptr)
        *error = "bad fault '" + text + "': " + message;
    return false;
}

std::vector<std::string> splitColons(const std::string& text)
{
    std::vector<std::string> parts;
    std::stringstream stream(text);
    std::string part;
    while (std::getline(stream, part, ':'))
        parts.push_back(part);
    if (!text.empty() && text.back() == ':')
        parts.emplace_back();
    return parts;
}

// Applies one "key=value" option to the rule; on failure the message says why.
bool applyOption(const std::string& option, FaultSpec* rule, bool* sawEvery, std::string* message)
{
    const size_t eq = option.find('=');
    const std::string key = option.substr(0, eq);
    const std::string value = eq == std::string::npos ? std::string() : option.substr(eq + 1);
    int number = 0;
    if (eq == std::string::npos) {
        *message = "option '" + option + "' has no value (expected KEY=VALUE)";
    } else if (key == "every") {
        *sawEvery = true;
        if (common::parseInt(value, 1, 1000000000, &number))
            rule->everyNth = number;
        else
            *message = "every='" + value + "' is not a whole number of at least 1";
    } else if (key == "prob") {
        if (!parseProbability(value, &rule->probability))
            *message = "prob='" + value + "' is not a number from 0 to 1";
    } else if (key == "delay") {
        if (common::parseInt(value, 0, kMaxDelayMs, &number))
            rule->delayMs = number;
        else
            *message = "delay='" + value + "' is not a number of milliseconds from 0 to 600000";
    } else if (key == "station") {
        if (common::parseInt(value, 0, wire::kMaxUnitId, &number))
            rule->station = number;
        else
            *message = "station='" + value + "' is not a unit id from 0 to 255";
    } else if (key == "code") {
        if (common::parseInt(value, kMinExceptionCode, kMaxExceptionCode, &number))
            rule->exceptionCode = number;
        else
            *message = "code='" + value + "' is not an exception code from 1 to 255";
    } else {
        *message = "unknown option '" + key + "' (expected every, prob, delay, station or code)";
    }
    return message->empty();
}

}  // namespace

const char* faultKindName(FaultKind kind)
{
    const auto n = static_cast<int>(kind);
    return n >= 0 && n < kFaultKindCount ? kKindNames[n] : "?";
}

bool parseFaultSpec(const std::string& text, FaultSpec* out, std::string* error)
{
    const std::vector<std::string> parts = splitColons(text);
    FaultSpec rule;
    bool known = false;
    for (int k = 0; k < kFaultKindCount && !parts.empty(); ++k) {
        if (parts[0] == kKindNames[k]) {
            rule.kind = static_cast<FaultKind>(k);
            known = true;
        }
    }
    if (!known)
        return fail(error, text,
                    "unknown kind '" + (parts.empty() ? std::string() : parts[0]) +
                        "' (expected drop, drop-mid, late, short, long, exception or silent)");
    bool sawEvery = false;
    for (size_t i = 1; i < parts.size(); ++i) {
        std::string message;
        if (!applyOption(parts[i], &rule, &sawEvery, &message))
            return fail(error, text, message);
        const std::string key = parts[i].substr(0, parts[i].find('='));
        if (key == "delay" && rule.kind != FaultKind::Late)
            return fail(error, text, "delay= applies only to late");
        if (key == "code" && rule.kind != FaultKind::Exception)
            return fail(error, text, "code= applies only to exception");
    }
    if (sawEvery && rule.probability >= 0)
        return fail(error, text, "give every= or prob=, not both");
    *out = rule;
    return true;
}

void FaultPlan::set(std::vector<FaultSpec> faults)
{
    entries_.clear();
    for (FaultSpec& rule : faults)
        entries_.push_back(Entry{rule, 0});
}

bool FaultPlan::fires(Entry& entry)
{
    ++entry.seen;
    if (entry.rule.probability < 0)
        return entry.seen % static_cast<uint64_t>(entry.rule.everyNth) == 0;
    // The generator's raw 32-bit output keeps the draw the same on every
    // standard library, unlike std::uniform_real_distribution.
    const double draw = static_cast<double>(rng_()) / 4294967296.0;
    return draw < entry.rule.probability;
}

const FaultSpec* FaultPlan::next(uint8_t station)
{
    const FaultSpec* chosen = nullptr;
    for (Entry& entry : entries_) {
        if (entry.rule.station >= 0 && entry.rule.station != station)
            continue;
        if (fires(entry) && chosen == nullptr)
            chosen = &entry.rule;
    }
    return chosen;
}

}  // namespace logosim
