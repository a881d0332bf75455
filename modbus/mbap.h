// The Modbus TCP header every request starts with.
#ifndef LOGO_MODBUS_MBAP_H
#define LOGO_MODBUS_MBAP_H

#include <QByteArray>

#include "modbus/frame_bytes.h"

// Transaction id 0 (replies are matched by position), protocol 0, the
// length of what follows the length field, and the unit id.
inline QByteArray mbapHeader(int lengthAfterField, int station)
{
    QByteArray frame;
    appendWord16(frame, 0);
    appendWord16(frame, 0);
    appendWord16(frame, lengthAfterField);
    appendByte(frame, station);
    return frame;
}

// A 12-byte request: function code, 16-bit address and a 16-bit field
// (quantity, or a single value).
inline QByteArray shortRequest(int station, int functionCode, int modbusAddress, int field)
{
    QByteArray frame = mbapHeader(6, station);
    appendByte(frame, functionCode);
    appendWord16(frame, modbusAddress);
    appendWord16(frame, field);
    return frame;
}

#endif  // LOGO_MODBUS_MBAP_H
