// The driver's remote-mode frames on the wire, and the replies a remote
// peer sends back (the simulator answers them; the host checks them).
//
// Request: length (0), sourceType (1), rwType (2), linkId (3), station (4),
// area (5..6), address (7..10), count (11..12), ... a write's value from
// byte 21 on.
//
// Reply: every reply starts with the same 9-byte header:
//   0     total reply length, low 8 bits
//   1     sourceType, 2 rwType, 3 linkId, 4 station (copied from the request)
//   5..6  area (copied), high byte first
//   7     status, RemoteStatus (0 = done)
//   8     number of bytes that follow the header, low 8 bits
// A good read reply is the header then the data: one byte (0 or 1) per bit,
// or two bytes per word, high byte first. A good write reply is 12 bytes:
// the header with byte 8 = 3, then the number of elements written (9..10)
// and a check byte (11), the low 8 bits of the sum of bytes 0..10. A request
// that cannot be carried out gets the header alone, nonzero status and
// byte 8 = 0, so its length never matches a good reply.
#ifndef LOGO_COMMON_REMOTE_WIRE_H
#define LOGO_COMMON_REMOTE_WIRE_H

#include <cstdint>

namespace wire {

constexpr int kRemoteRequest = 22;  // a read frame, or a write frame without its value
constexpr int kRemoteSourceTypeOffset = 1;
constexpr int kRemoteRwTypeOffset = 2;
constexpr int kRemoteStationOffset = 4;
constexpr int kRemoteAreaOffset = 5;
constexpr int kRemoteAddressOffset = 7;
constexpr int kRemoteCountOffset = 11;
constexpr int kRemoteValueOffset = 21;
constexpr uint8_t kRemoteRead = 0;
constexpr uint8_t kRemoteWrite = 1;

constexpr int kRemoteHeader = 9;
constexpr int kRemoteStatusOffset = 7;
constexpr int kRemoteFollowingOffset = 8;
constexpr int kRemoteWrittenOffset = 9;
constexpr int kRemoteCheckOffset = 11;
constexpr int kRemoteWriteReply = 12;

enum class RemoteStatus : uint8_t {
    Ok = 0,
    BadCheckByte = 1,
    BadLength = 2,      // byte 0, or the bytes received, disagree with the frame's fields
    UnknownArea = 3,
    BadAddress = 4,     // the elements do not all lie inside the area
    UnknownRwType = 5,
    ReadOnlyArea = 6,   // a write to I or AI
    DeviceFailure = 7,
};

}  // namespace wire

#endif  // LOGO_COMMON_REMOTE_WIRE_H
