// Where things sit in the frames the host sends and the replies it reads:
// the one description of the layouts, for framing, checking and naming them.
#ifndef LOGOHOST_FRAME_LAYOUT_H
#define LOGOHOST_FRAME_LAYOUT_H

#include <cstdint>

namespace logohost {
namespace layout {

// Modbus/TCP: transaction id (0..1), protocol id (2..3), length of what
// follows (4..5), unit id (6), function code (7); a read reply then has its
// byte count (8), a write reply echoes address and quantity or value (8..11),
// an exception reply carries its code (8).
constexpr int kTransactionOffset = 0;
constexpr int kProtocolOffset = 2;
constexpr int kLengthOffset = 4;
constexpr int kLengthCountedFrom = 6;  // the length counts the bytes after its own field
constexpr int kUnitOffset = 6;
constexpr int kFunctionOffset = 7;
constexpr int kByteCountOffset = 8;
constexpr int kExceptionCodeOffset = 8;
constexpr int kEchoOffset = 8;
constexpr int kQuantityOffset = 10;
constexpr int kMinLengthField = 2;    // unit id and function code
constexpr int kMaxLengthField = 254;  // unit id and the largest PDU
constexpr int kMinModbusReply = kLengthCountedFrom + kMinLengthField;
constexpr int kExceptionReplyLength = 9;
constexpr int kReadReplyHeader = 9;
constexpr int kWriteReplyLength = 12;
constexpr int kModbusRequest = 12;  // the shortest request the driver builds
constexpr uint8_t kExceptionFlag = 0x80;

// The driver's remote-mode request: length (0), sourceType (1), rwType (2),
// linkId (3), station (4), area (5..6), address (7..10), count (11..12), ...
constexpr int kRemoteRequest = 22;
constexpr int kRemoteRwTypeOffset = 2;
constexpr int kRemoteAreaOffset = 5;
constexpr int kRemoteCountOffset = 11;
constexpr int kRemoteWrite = 1;

// The remote peer's reply header: total length (0, low 8 bits), an echo of
// the request's sourceType, rwType, linkId, station and area (1..6), a status
// (7, 0 = done) and the number of bytes after the header (8, low 8 bits). A
// good write reply adds the number of elements written (9..10) and a check
// byte (11), the low 8 bits of the sum of bytes 0..10; an error reply is the
// header alone.
constexpr int kRemoteHeader = 9;
constexpr int kRemoteStatusOffset = 7;
constexpr int kRemoteFollowingOffset = 8;
constexpr int kRemoteWrittenOffset = 9;
constexpr int kRemoteCheckOffset = 11;
constexpr int kRemoteWriteReply = 12;

}  // namespace layout
}  // namespace logohost

#endif  // LOGOHOST_FRAME_LAYOUT_H
