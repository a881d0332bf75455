#include "host/notation/time_text.h"

#include <cstdio>
#include <ctime>

namespace logohost {
namespace {

// strftime's pattern for the whole seconds, then ".mmm" from the rest.
std::string withMilliseconds(int64_t epochMs, const char* pattern, bool utc)
{
    const std::time_t seconds = static_cast<std::time_t>(epochMs / 1000);
    std::tm parts{};
    if (utc)
        gmtime_r(&seconds, &parts);
    else
        localtime_r(&seconds, &parts);
    char text[48];
    const size_t used = std::strftime(text, sizeof text, pattern, &parts);
    std::snprintf(text + used, sizeof text - used, ".%03d", static_cast<int>(epochMs % 1000));
    return text;
}

}  // namespace

std::string secondsText(std::chrono::milliseconds duration)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g s", static_cast<double>(duration.count()) / 1000);
    return text;
}

std::string clockText(bool microseconds)
{
    using namespace std::chrono;
    const auto now = system_clock::now().time_since_epoch();
    const int64_t epochMs = duration_cast<milliseconds>(now).count();
    if (!microseconds)
        return clockTextOf(epochMs);
    char micros[8];
    std::snprintf(micros, sizeof micros, "%03d", static_cast<int>(duration_cast<std::chrono::microseconds>(now).count() % 1000));
    return clockTextOf(epochMs) + micros;
}

std::string clockTextOf(int64_t epochMs) { return withMilliseconds(epochMs, "%H:%M:%S", false); }

std::string localTimestamp(int64_t epochMs) { return withMilliseconds(epochMs, "%Y-%m-%dT%H:%M:%S", false); }

std::string isoTime(int64_t epochMs) { return withMilliseconds(epochMs, "%Y-%m-%dT%H:%M:%S", true) + "Z"; }

}  // namespace logohost
