// Builders for the request bytes the tests send.
#ifndef LOGOSIM_TESTS_FRAMES_H
#define LOGOSIM_TESTS_FRAMES_H

#include <cstdint>
#include <numeric>
#include <vector>

namespace simtest {

using Bytes = std::vector<uint8_t>;

inline void putBe16(Bytes& out, unsigned value)
{
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

inline Bytes mbap(const Bytes& pdu, uint8_t unit = 1, uint16_t transaction = 0)
{
    Bytes out;
    putBe16(out, transaction);
    putBe16(out, 0);
    putBe16(out, static_cast<unsigned>(pdu.size() + 1));
    out.push_back(unit);
    out.insert(out.end(), pdu.begin(), pdu.end());
    return out;
}

// Function code, address, and a 16-bit quantity or value.
inline Bytes pdu(uint8_t fc, unsigned address, unsigned field)
{
    Bytes out{fc};
    putBe16(out, address);
    putBe16(out, field);
    return out;
}

// A write-multiple PDU; byteCount is the byte count field as sent.
inline Bytes writeMultiple(uint8_t fc, unsigned address, unsigned quantity, const Bytes& value)
{
    Bytes out = pdu(fc, address, quantity);
    out.push_back(static_cast<uint8_t>(value.size()));
    out.insert(out.end(), value.begin(), value.end());
    return out;
}

struct RemoteFields {
    uint8_t sourceType = 3;
    uint8_t linkId = 9;
    uint8_t station = 1;
};

inline uint8_t sum8(const Bytes& bytes)
{
    return static_cast<uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u));
}

// A remote-mode frame: read when value is empty, else a write carrying it.
inline Bytes remoteFrame(uint16_t area, int32_t address, uint16_t count, const Bytes& value = {},
                         RemoteFields fields = {})
{
    Bytes out{static_cast<uint8_t>(22 + value.size()), fields.sourceType,
              static_cast<uint8_t>(value.empty() ? 0 : 1), fields.linkId, fields.station};
    putBe16(out, area);
    putBe16(out, static_cast<uint32_t>(address) >> 16);
    putBe16(out, static_cast<uint32_t>(address) & 0xFFFF);
    putBe16(out, count);
    for (int i = 0; i < 8; ++i)
        out.push_back(0);  // param1, param2
    out.insert(out.end(), value.begin(), value.end());
    out.push_back(sum8(out));
    return out;
}

}  // namespace simtest

#endif  // LOGOSIM_TESTS_FRAMES_H
