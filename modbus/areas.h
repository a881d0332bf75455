// The controller's areas on Modbus: function codes, address offsets, frame sizes.
#ifndef LOGO_MODBUS_AREAS_H
#define LOGO_MODBUS_AREAS_H

#include "logo_modbus_tcp.h"

enum FunctionCode {
    FC_NONE = 0x00,  // an area or count the builder does not serve
    FC_READ_COILS = 0x01,
    FC_READ_DISCRETE_INPUTS = 0x02,
    FC_READ_HOLDING_REGISTERS = 0x03,
    FC_READ_INPUT_REGISTERS = 0x04,
    FC_WRITE_SINGLE_COIL = 0x05,
    FC_WRITE_SINGLE_REGISTER = 0x06,
    FC_WRITE_MULTIPLE_REGISTERS = 0x10
};

// Modbus data address of element 1 (0 for V and VW) minus the element number
// it stands for: Q1 is coil 8192, so Q's offset is 8191.
enum AreaOffset {
    OFFSET_I = -1,
    OFFSET_Q = 8191,
    OFFSET_M = 8255,
    OFFSET_V = 0,
    OFFSET_AI = -1,
    OFFSET_AQ = 511,
    OFFSET_AM = 527,
    OFFSET_VW = 0
};

enum FrameSize {
    MBAP_LENGTH_AFTER_FIELD = 6,    // MBAP length field of every 12-byte request
    REQUEST_LENGTH = 12,            // read, single coil and single register requests
    MULTIPLE_WRITE_HEADER = 13,     // function code 16 before its register bytes
    READ_REPLY_HEADER = 9,          // bytes in front of a read reply's data
    WRITE_REPLY_LENGTH = 12,
    MAX_QUANTITY = 65535            // the frame's quantity field has 16 bits
};

enum { COIL_ON = 0xFF };

// Elements of every area: 0 to 65534. 65535, not 65536: element 65535 does
// not exist.
enum { ELEMENTS_PER_AREA = 65535 };

inline bool isBitArea(int area) { return area >= AREA_I && area <= AREA_V; }
inline bool isWordArea(int area) { return area >= AREA_AI && area <= AREA_VW; }
inline bool isArea(int area) { return area >= AREA_I && area <= AREA_VW; }

// Zero-based Modbus data address of an element; 0 for an unknown area. Only
// its low 16 bits reach a frame: the sum wraps instead of overflowing, so any
// address a host passes is safe.
int get_add(int area, int address);

// Number of elements of [start, start + count) that exist in an area. A
// negative start refuses the whole range (0); a range running past the end
// is cut there. Lists, image accesses and host writes all go through this, so
// no element beyond the image is ever read, written or requested.
inline int clipToArea(int start, int count)
{
    if (start < 0 || start >= ELEMENTS_PER_AREA || count <= 0)
        return 0;
    const int room = ELEMENTS_PER_AREA - start;
    return count < room ? count : room;
}

#endif  // LOGO_MODBUS_AREAS_H
