#include "host/link/trace.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "host/link/modbus_exceptions.h"
#include "host/notation/time_text.h"

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
