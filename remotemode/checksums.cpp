// Check values over byte buffers and hexadecimal digit conversions.
#include "logo_modbus_tcp.h"

namespace {

enum {
    CRC_START = 0xFFFF,
    CRC_POLYNOMIAL_REFLECTED = 0xA001,  // 0x8005 bit-reversed: CRC-16/MODBUS
    ASCII_ZERO = 48,
    ASCII_LETTER_OFFSET = 55,  // 10 + 55 = 'A'
    ASCII_AT_SIGN = 64
};

}  // namespace

unsigned short CalSUM(unsigned char* data, unsigned short length)
{
    unsigned short sum = 0;
    for (unsigned i = 0; i < length; ++i)
        sum = static_cast<unsigned short>(sum + data[i]);
    return sum;
}

unsigned short CalCRC(unsigned char* data, unsigned short length)
{
    unsigned crc = CRC_START;
    for (unsigned i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ CRC_POLYNOMIAL_REFLECTED : crc >> 1;
    }
    return static_cast<unsigned short>(crc);
}

// (NOT sum AND 255) + 1, not reduced to 8 bits: a sum whose low byte is 0
// gives 256, which one byte of storage turns into 0.
int CalLRC(unsigned char* data, unsigned short length)
{
    unsigned sum = 0;
    for (unsigned i = 0; i < length; ++i)
        sum += data[i];
    return static_cast<int>((~sum & 0xFF) + 1);
}

// An empty buffer has no first byte to start from; it gives 0 instead of
// reading past the buffer.
unsigned char CalXOR(unsigned char* data, unsigned short length)
{
    unsigned char x = 0;
    for (unsigned i = 0; i < length; ++i)
        x ^= data[i];
    return x;
}

// No range test, as the conversion has none; near INT_MAX the sum wraps
// round to INT_MIN like the 32-bit arithmetic of the panels, instead of
// overflowing.
int DigitalToASCII(int digit)
{
    const unsigned offset = digit <= 9 ? ASCII_ZERO : ASCII_LETTER_OFFSET;
    return static_cast<int>(static_cast<unsigned>(digit) + offset);
}

int ASCIIToDigital(int character)
{
    if (character < ASCII_ZERO)
        return 0;
    if (character < ASCII_AT_SIGN)
        return character - ASCII_ZERO;
    if (character == ASCII_AT_SIGN)
        return 0;
    return character - ASCII_LETTER_OFFSET;
}
