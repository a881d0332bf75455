#include "host/binding/driver_request.h"

namespace logohost {

DriverRange rangeOf(const Variable& var, int defaultStation)
{
    DriverRange range;
    range.station = var.station == kNoStation ? defaultStation : var.station;
    range.area = driverArea(var.kind);
    range.address = driverAddress(var);
    range.addressText = driverAddressText(var);
    range.count = driverCount(var);
    return range;
}

}  // namespace logohost
