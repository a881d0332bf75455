#include "host/link/modbus_exceptions.h"

#include <cstdio>

#include "common/modbus_wire.h"

namespace logohost {

int modbusExceptionCode(const uint8_t* reply, size_t length)
{
    if (length != static_cast<size_t>(wire::kExceptionReplyLength) || !(reply[wire::kFunctionOffset] & wire::kExceptionFlag))
        return 0;
    return reply[wire::kExceptionCodeOffset];
}

std::string exceptionName(int code)
{
    static const char* const kNames[] = {
        "",
        "illegal function",
        "illegal data address",
        "illegal data value",
        "server device failure",
        "acknowledge",
        "server device busy",
        "negative acknowledge",
        "memory parity error",
        "",
        "gateway path unavailable",
        "gateway target device failed to respond",
    };
    const int known = static_cast<int>(sizeof kNames / sizeof kNames[0]);
    return code > 0 && code < known && kNames[code][0] ? kNames[code] : "unknown exception";
}

std::string describeException(int code)
{
    char number[8];
    std::snprintf(number, sizeof number, "%02X", code & 0xFF);
    return exceptionName(code) + " (Modbus exception " + number + ")";
}

}  // namespace logohost
