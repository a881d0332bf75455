// Byte-level helpers shared by the request builders.
#ifndef LOGO_MODBUS_FRAME_BYTES_H
#define LOGO_MODBUS_FRAME_BYTES_H

#include <QByteArray>

// Writes a frame's fields one after another into a buffer the frame queue
// sized for them. Every multi-byte field goes out high byte first; a field
// narrower than its value carries the value's low bits, computed on unsigned
// values so that any int a host passes is safe.
class FrameWriter {
public:
    explicit FrameWriter(unsigned char* out) : out_(out), at_(0) {}

    void byte(int value) { out_[at_++] = static_cast<unsigned char>(static_cast<unsigned>(value) & 0xFFu); }
    void word16(int value)
    {
        byte(static_cast<int>(static_cast<unsigned>(value) >> 8));
        byte(value);
    }
    void word32(int value)
    {
        word16(static_cast<int>(static_cast<unsigned>(value) >> 16));
        word16(value);
    }
    void bytes(const QByteArray& data)
    {
        for (int i = 0; i < data.size(); ++i)
            byte(data.at(i));
    }
    int written() const { return at_; }
    unsigned char* start() const { return out_; }

private:
    unsigned char* out_;
    int at_;
};

// Byte i of a byte array as unsigned, or 0 when the array is shorter.
inline unsigned char byteOr0(const QByteArray& bytes, int i)
{
    return i >= 0 && i < bytes.size() ? static_cast<unsigned char>(bytes.at(i)) : 0;
}

#endif  // LOGO_MODBUS_FRAME_BYTES_H
