// Turning a fuzzer's bytes into driver inputs, and a fresh driver per run.
#ifndef LOGO_FUZZ_FUZZ_INPUT_H
#define LOGO_FUZZ_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <new>

#include "driver/modbus_rtu_master.h"

// Reads values off the front of the input; past its end every value is 0,
// so every input, however short, is a complete run.
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    bool empty() const { return size_ == 0; }
    uint8_t byte() { return size_ ? (--size_, *data_++) : 0; }
    bool flag() { return byte() & 1; }
    int int16() { return static_cast<int16_t>(byte() << 8 | byte()); }
    int int32()
    {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i)
            v = v << 8 | byte();
        return static_cast<int32_t>(v);
    }
    // Small values mostly, now and then the extremes a host could pass
    // (rarely, as a range of 65535 elements makes a slow run).
    int interesting()
    {
        switch (byte() % 64) {
        case 0: return int32();
        case 1: return 65535 - byte();
        case 2: return -static_cast<int>(byte());
        default: return byte();
        }
    }
    QByteArray bytes(int n)
    {
        QByteArray out;
        while (n-- > 0 && size_)
            out.append(static_cast<char>(byte()));
        return out;
    }
    QString text() { return QString::fromLatin1(bytes(byte() % 12)); }

private:
    const uint8_t* data_;
    size_t size_;
};

inline void freshDriver(ComInfo* info)
{
    PLC_driver.~Modbus_RTU_Master();
    new (&PLC_driver) Modbus_RTU_Master();
    *info = ComInfo();
    SetComInfo(info);
}

#endif  // LOGO_FUZZ_FUZZ_INPUT_H
