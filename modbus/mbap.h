// The Modbus TCP header every request starts with.
#ifndef LOGO_MODBUS_MBAP_H
#define LOGO_MODBUS_MBAP_H

#include "modbus/areas.h"
#include "modbus/frame_bytes.h"

// Transaction id 0 (replies are matched by position), protocol 0, the
// length of what follows the length field, and the unit id.
inline void writeMbapHeader(FrameWriter& frame, int lengthAfterField, int station)
{
    frame.word16(0);
    frame.word16(0);
    frame.word16(lengthAfterField);
    frame.byte(station);
}

// A 12-byte request: function code, 16-bit address and a 16-bit field
// (quantity, or a single value).
inline void writeShortRequest(FrameWriter& frame, int station, int functionCode, int modbusAddress, int field)
{
    writeMbapHeader(frame, MBAP_LENGTH_AFTER_FIELD, station);
    frame.byte(functionCode);
    frame.word16(modbusAddress);
    frame.word16(field);
}

#endif  // LOGO_MODBUS_MBAP_H
