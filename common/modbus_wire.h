// Modbus TCP as it crosses the wire between the host and the controller:
// function codes, exception codes, the MBAP header and where each field of
// a request or reply sits. The host's reply checks, its framing, the
// simulator and the host's own Modbus server all read the frames through
// these names. The driver keeps its own copy of what it builds, so that
// what checks the driver stays independent of it.
#ifndef LOGO_COMMON_MODBUS_WIRE_H
#define LOGO_COMMON_MODBUS_WIRE_H

#include <cstdint>

namespace wire {

// Function codes the controller answers.
constexpr uint8_t kFcReadCoils = 0x01;
constexpr uint8_t kFcReadDiscreteInputs = 0x02;
constexpr uint8_t kFcReadHoldingRegisters = 0x03;
constexpr uint8_t kFcReadInputRegisters = 0x04;
constexpr uint8_t kFcWriteSingleCoil = 0x05;
constexpr uint8_t kFcWriteSingleRegister = 0x06;
constexpr uint8_t kFcWriteMultipleCoils = 0x0F;
constexpr uint8_t kFcWriteMultipleRegisters = 0x10;
constexpr uint8_t kExceptionFlag = 0x80;  // set in the function code of an exception reply

// Exception codes.
constexpr uint8_t kExIllegalFunction = 0x01;
constexpr uint8_t kExIllegalDataAddress = 0x02;
constexpr uint8_t kExIllegalDataValue = 0x03;
constexpr uint8_t kExServerDeviceFailure = 0x04;
constexpr uint8_t kExGatewayPathUnavailable = 0x0A;
constexpr uint8_t kExGatewayTargetFailed = 0x0B;  // the device behind a gateway did not answer

// Quantity limits of one request.
constexpr int kMaxReadBits = 2000;
constexpr int kMaxReadRegisters = 125;
constexpr int kMaxWriteBits = 1968;
constexpr int kMaxWriteRegisters = 123;

// MBAP header: transaction id (0..1), protocol id (2..3), length of what
// follows (4..5), unit id (6); the PDU starts with the function code (7).
constexpr int kTransactionOffset = 0;
constexpr int kProtocolOffset = 2;
constexpr int kLengthOffset = 4;
constexpr int kLengthCountedFrom = 6;  // the length counts the bytes after its own field
constexpr int kUnitOffset = 6;
constexpr int kMaxUnitId = 255;  // one byte
constexpr int kFunctionOffset = 7;
constexpr int kMbapBytes = 7;
constexpr int kMinLengthField = 2;    // unit id and function code
constexpr int kMaxLengthField = 254;  // unit id and the largest PDU
constexpr int kMinFrame = kLengthCountedFrom + kMinLengthField;
constexpr int kMaxFrame = kLengthCountedFrom + kMaxLengthField;

// After the function code. A read request: address (8..9), quantity
// (10..11). A read reply: byte count (8), data. A single write request and
// its reply: address (8..9), value (10..11). A multiple write request:
// address, quantity, byte count (12), data; its reply echoes address and
// quantity. An exception reply: its code (8).
constexpr int kAddressOffset = 8;
constexpr int kQuantityOffset = 10;
constexpr int kValueOffset = 10;
constexpr int kByteCountOffset = 8;
constexpr int kWriteByteCountOffset = 12;
constexpr int kWriteDataOffset = 13;
constexpr int kExceptionCodeOffset = 8;
constexpr int kEchoOffset = 8;
constexpr int kEchoBytes = 4;  // address, then quantity or value
constexpr int kReadReplyHeader = 9;
constexpr int kWriteReplyLength = 12;
constexpr int kExceptionReplyLength = 9;
constexpr int kRequestLength = 12;  // a read or single write request

constexpr uint16_t kCoilOn = 0xFF00;
constexpr uint16_t kCoilOff = 0x0000;

inline bool isReadFunction(int function) { return function >= kFcReadCoils && function <= kFcReadInputRegisters; }
inline bool readsBits(int function) { return function == kFcReadCoils || function == kFcReadDiscreteInputs; }
inline bool isWriteFunction(int function)
{
    return function == kFcWriteSingleCoil || function == kFcWriteSingleRegister ||
           function == kFcWriteMultipleCoils || function == kFcWriteMultipleRegisters;
}

inline int readBe16(const uint8_t* bytes) { return bytes[0] << 8 | bytes[1]; }
inline void writeBe16(uint8_t* bytes, int value)
{
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

}  // namespace wire

#endif  // LOGO_COMMON_MODBUS_WIRE_H
