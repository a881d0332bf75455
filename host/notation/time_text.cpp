#include "host/notation/time_text.h"

#include <cstdio>
#include <ctime>
#include <string>

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

namespace logohost {
namespace {

// "+HH:MM", "-HH:MM" or "Z" at the end, as minutes east of UTC.
bool parseZone(const std::string& zone, int* minutes)
{
    int hours = 0;
    int mins = 0;
    char sign = 0;
    if (zone == "Z") {
        *minutes = 0;
        return true;
    }
    if (std::sscanf(zone.c_str(), "%c%2d:%2d", &sign, &hours, &mins) != 3 || (sign != '+' && sign != '-') ||
        zone.size() != 6 || hours > 14 || mins > 59)
        return false;
    *minutes = (sign == '-' ? -1 : 1) * (hours * 60 + mins);
    return true;
}

}  // namespace

bool parseIsoTime(const std::string& text, int64_t* epochMs)
{
    std::tm parts{};
    int used = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &parts.tm_year, &parts.tm_mon, &parts.tm_mday,
                    &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &used) != 6 || used != 19)
        return false;
    int millis = 0;
    size_t rest = 19;
    if (rest < text.size() && text[rest] == '.') {
        const size_t digits = text.find_first_not_of("0123456789", rest + 1);
        const std::string fraction = text.substr(rest + 1, (digits == std::string::npos ? text.size() : digits) - rest - 1);
        if (fraction.empty() || fraction.size() > 9)
            return false;
        millis = std::stoi((fraction + "00").substr(0, 3));
        rest += 1 + fraction.size();
    }
    int zone = 0;
    if (!parseZone(text.substr(rest), &zone) || parts.tm_mon < 1 || parts.tm_mon > 12 || parts.tm_mday < 1 ||
        parts.tm_mday > 31 || parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 60)
        return false;
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    const int64_t seconds = static_cast<int64_t>(timegm(&parts)) - static_cast<int64_t>(zone) * 60;
    *epochMs = seconds * 1000 + millis;
    return true;
}

}  // namespace logohost
