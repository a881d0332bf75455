// The one rule for element ranges: every area holds elements 0 to 65534.
#ifndef LOGO_IMAGE_BOUNDS_H
#define LOGO_IMAGE_BOUNDS_H

#include "driver/modbus_rtu_master.h"

// Number of elements of [start, start + count) that exist in an area. A
// negative start refuses the whole range (0); a range running past the end
// is cut there. Lists, image accesses and host writes all go through this, so
// no element beyond the image is ever read, written or requested.
inline int clipToArea(int start, int count)
{
    if (start < 0 || start >= IMAGE_AREA_SIZE || count <= 0)
        return 0;
    const int room = IMAGE_AREA_SIZE - start;
    return count < room ? count : room;
}

#endif  // LOGO_IMAGE_BOUNDS_H
