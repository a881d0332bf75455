#include "common/numbers.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace common {

bool parseInt(const std::string& text, int min, int max, int* out)
{
    // strtol skips leading blanks; an option's value must not have any.
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || value < min || value > max)
        return false;
    *out = static_cast<int>(value);
    return true;
}

bool parseDecimal(const std::string& text, double min, double max, double* out)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !std::isfinite(value) || value < min || value > max)
        return false;
    *out = value;
    return true;
}

}  // namespace common
