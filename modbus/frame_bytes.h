// Byte-level helpers shared by the request builders.
#ifndef LOGO_MODBUS_FRAME_BYTES_H
#define LOGO_MODBUS_FRAME_BYTES_H

#include <QByteArray>

// Appends the low 16 bits of value, high byte first, as every frame field is sent.
inline void appendWord16(QByteArray& frame, int value)
{
    frame.append(static_cast<char>((value >> 8) & 0xFF));
    frame.append(static_cast<char>(value & 0xFF));
}

inline void appendWord32(QByteArray& frame, int value)
{
    appendWord16(frame, static_cast<int>(static_cast<unsigned>(value) >> 16));
    appendWord16(frame, value);
}

inline void appendByte(QByteArray& frame, int value) { frame.append(static_cast<char>(value & 0xFF)); }

// Byte i of a byte array as unsigned, or 0 when the array is shorter.
inline unsigned char byteOr0(const QByteArray& bytes, int i)
{
    return i >= 0 && i < bytes.size() ? static_cast<unsigned char>(bytes.at(i)) : 0;
}

#endif  // LOGO_MODBUS_FRAME_BYTES_H
