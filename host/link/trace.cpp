#include "host/link/trace.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "host/notation/reply_words.h"

namespace logohost {

std::string hexBytes(const char* bytes, int length)
{
    std::string text;
    char digits[4];
    for (int i = 0; i < length; ++i) {
        std::snprintf(digits, sizeof digits, i ? " %02X" : "%02X", static_cast<unsigned char>(bytes[i]));
        text += digits;
    }
    return text;
}

std::string clockText(bool microseconds)
{
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const long micros = static_cast<long>(duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() %
                                          1000000);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    const size_t used = std::strftime(text, sizeof text, "%H:%M:%S", &local);
    if (microseconds)
        std::snprintf(text + used, sizeof text - used, ".%06ld", micros);
    else
        std::snprintf(text + used, sizeof text - used, ".%03ld", micros / 1000);
    return text;
}

void Trace::sent(const char* bytes, int length)
{
    if (enabled_)
        line("->", std::to_string(length) + " bytes: " + hexBytes(bytes, length));
}

void Trace::received(const char* bytes, int length, bool modbus)
{
    if (!enabled_)
        return;
    std::string text = std::to_string(length) + " bytes: " + hexBytes(bytes, length);
    const int exception =
        modbus ? modbusExceptionCode(reinterpret_cast<const uint8_t*>(bytes), static_cast<size_t>(length)) : 0;
    if (exception)
        text += "  exception: " + describeException(exception);
    line("<-", text);
}

void Trace::note(const std::string& text)
{
    if (enabled_)
        line("--", text);
}

void Trace::line(const char* direction, const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::fprintf(stderr, "%s %s %s\n", clockText(true).c_str(), direction, text.c_str());
}

}  // namespace logohost
