// Turning a fuzzer's bytes into driver inputs, and a driver that starts
// every run from the same state.
#ifndef LOGO_FUZZ_FUZZ_INPUT_H
#define LOGO_FUZZ_FUZZ_INPUT_H

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "driver/modbus_rtu_master.h"

// Values at the edges a host can reach: the ends of the int range, and the
// ends of an image area (elements 0 to 65534).
const int kEdges[] = {INT_MIN, INT_MIN + 1, -65536, -65535, -2, -1, 0, 1, 65533, 65534, 65535, 65536, INT_MAX - 1, INT_MAX};
const int kEdgeCount = sizeof kEdges / sizeof kEdges[0];
const int kAreaEnd = 65535;
const int kLongest = 1100;

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

    // Any int a host may pass: small mostly, often an edge, now and then
    // any 32-bit value.
    int anyInt()
    {
        const uint8_t kind = byte();
        if (kind < 64)
            return kEdges[kind % kEdgeCount];
        if (kind < 80)
            return int32();
        return byte() % 64 - 8;
    }

    // An element range (start, count): a few elements mostly, edges often,
    // and the arithmetic at the edges is what matters. Every range is cut
    // to the image (0 to 65534) by the driver, and what it then covers costs
    // time element by element (one list entry per bit, one image entry per
    // element), so a huge count meets a start near the area's end: the
    // range covers at most kLongest elements, enough to fill a queue to its
    // limit of 1,024, and the same branches run as for a range of 65,535.
    void range(int* start, int* count, int longest = kLongest)
    {
        const uint8_t kind = byte();
        if (kind < 180) {
            *start = byte() % 64;
            *count = byte() % 24 - 2;
            return;
        }
        if (kind < 254) {
            *start = anyInt();
            *count = anyInt();
        } else {
            *start = byte();
            *count = kind == 254 ? 1000 + byte() : INT_MAX;
        }
        const int covered = *start >= 0 && *start < kAreaEnd ? std::min(*count, kAreaEnd - *start) : 0;
        if (covered > longest)
            *start = kAreaEnd - longest + byte() % 64;
    }

    QByteArray bytes(int n)
    {
        QByteArray out;
        while (n-- > 0 && size_)
            out.append(static_cast<char>(byte()));
        return out;
    }
    QString text() { return QString::fromLatin1(bytes(byte() % 24)); }
    // The address text of a range from range(): mostly the driver's own
    // notation of its start (V as byte.bit), sometimes any text, but never
    // for a count longer than the range may cover: any text may convert to
    // a start the range was not kept short for.
    QString addressText(int area, int address, int count, int longest = kLongest)
    {
        if (flag() && flag() && count <= longest)
            return text();
        if (area != AREA_V)
            return QString::number(address);
        return QString::number(address / 8) + QLatin1Char('.') + QString::number(address % 8);
    }

private:
    const uint8_t* data_;
    size_t size_;
};

// The driver for one run: settings from the run, and at its end every list
// and counter as at load. Resetting at the end rather than the start keeps
// each run's allocations and frees in balance, so that libFuzzer does not run
// every input twice looking for a leak. The single-station image keeps its
// values from run to run: they are data, and no branch depends on them.
class DriverSession {
public:
    explicit DriverSession(ComInfo* info) : info_(info)
    {
        *info_ = ComInfo();
        SetComInfo(info_);
    }
    ~DriverSession() { PLC_driver.clearAllButImageArrays(); }

private:
    ComInfo* info_;
    DriverSession(const DriverSession&);
    DriverSession& operator=(const DriverSession&);
};

#endif  // LOGO_FUZZ_FUZZ_INPUT_H
