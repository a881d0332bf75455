// Numbers as command lines give them: the whole text must be the number,
// within the range the option allows.
#ifndef LOGO_COMMON_NUMBERS_H
#define LOGO_COMMON_NUMBERS_H

#include <string>

namespace common {

// Decimal digits with an optional sign; nothing else, not even spaces.
bool parseInt(const std::string& text, int min, int max, int* out);
// A finite decimal number ("0.5", "2", "1e-3").
bool parseDecimal(const std::string& text, double min, double max, double* out);

}  // namespace common

#endif  // LOGO_COMMON_NUMBERS_H
