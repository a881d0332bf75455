#include "driver_fixture.h"

#include <cctype>
#include <cstdio>

CallbackLog g_callbacks;

QByteArray hexBytes(const char* text)
{
    QByteArray bytes;
    for (const char* p = text; *p;) {
        if (!std::isxdigit(static_cast<unsigned char>(*p))) {
            ++p;
            continue;
        }
        unsigned value = 0;
        std::sscanf(p, "%2x", &value);
        bytes.append(static_cast<char>(value));
        p += 2;
    }
    return bytes;
}

std::string hexText(const QByteArray& bytes)
{
    std::string text;
    char byte[4];
    for (int i = 0; i < bytes.size(); ++i) {
        std::snprintf(byte, sizeof byte, i ? " %02X" : "%02X", static_cast<unsigned char>(bytes.at(i)));
        text += byte;
    }
    return text;
}
