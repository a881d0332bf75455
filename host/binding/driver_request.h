// A request of the host in the driver's own terms: station, area, address
// and count in bits or words.
#ifndef LOGOHOST_DRIVER_REQUEST_H
#define LOGOHOST_DRIVER_REQUEST_H

#include <string>
#include <vector>

#include "host/notation/variable_notation.h"

namespace logohost {

struct DriverRange {
    int station = 0;
    int area = 0;
    int address = 0;          // as the driver counts it: V bits by byte x 8 + bit, VW by register
    std::string addressText;  // the same as the driver converts it: "12", "10.3"
    int count = 1;            // bits or 16-bit words
};

// The whole variable, on its station (or the default one).
DriverRange rangeOf(const Variable& var, int defaultStation);

// A write: the range and its bytes as the driver takes them (one per bit,
// two per word, low byte first).
struct DriverWrite {
    DriverRange range;
    std::vector<uint8_t> bytes;
    std::string label;  // the variable as the requester named it, carried to the driver unread
};

}  // namespace logohost

#endif  // LOGOHOST_DRIVER_REQUEST_H
