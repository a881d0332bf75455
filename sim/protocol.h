// Request framing and answering, with no sockets, so that the same code
// serves the network and can be fed arbitrary bytes by a fuzzer.
//
// Two request formats share one TCP stream:
//  - Modbus TCP (MBAP header, then the PDU).
//  - Remote-mode frames: byte 0 is the frame length (never 0).
// A request whose first byte is 0 is Modbus (the driver always sends
// transaction id 0), except that a remote-mode write of 256 bytes also has a
// length byte of 0: byte 2 tells it apart, being its rwType (1) where Modbus
// has protocol id 0. General Modbus tools count their transaction ids up, so
// a request whose first byte is not 0 is still taken as Modbus when bytes
// 2..5 read as a plausible MBAP header (protocol 0, length 2..254); a
// remote-mode frame only looks like that when its area is 512 or more, which
// no area is.
//
// Remote-mode replies. Every reply starts with the same 9-byte header:
//   0     total reply length, low 8 bits
//   1     sourceType, 2 rwType, 3 linkId, 4 station (copied from the request)
//   5..6  area (copied), high byte first
//   7     status, RemoteStatus (0 = done)
//   8     number of bytes that follow the header, low 8 bits
// A good read reply is the header then the data: one byte (0 or 1) per bit,
// or two bytes per word, high byte first; 9 + data bytes in all.
// A good write reply is 12 bytes: the header with byte 8 = 3, then
//   9..10 number of elements written, high byte first
//   11    check byte, low 8 bits of the sum of bytes 0..10.
// A request that cannot be carried out gets the header alone (9 bytes,
// nonzero status, byte 8 = 0), so its length never matches a good reply.
#ifndef LOGOSIM_PROTOCOL_H
#define LOGOSIM_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/memory.h"

namespace logosim {

// Modbus function codes the controller answers.
constexpr uint8_t kFcReadCoils = 0x01;
constexpr uint8_t kFcReadDiscreteInputs = 0x02;
constexpr uint8_t kFcReadHoldingRegisters = 0x03;
constexpr uint8_t kFcReadInputRegisters = 0x04;
constexpr uint8_t kFcWriteSingleCoil = 0x05;
constexpr uint8_t kFcWriteSingleRegister = 0x06;
constexpr uint8_t kFcWriteMultipleCoils = 0x0F;
constexpr uint8_t kFcWriteMultipleRegisters = 0x10;
constexpr uint8_t kExceptionFlag = 0x80;

// Modbus exception codes.
constexpr uint8_t kExIllegalFunction = 0x01;
constexpr uint8_t kExIllegalDataAddress = 0x02;
constexpr uint8_t kExIllegalDataValue = 0x03;
constexpr uint8_t kExServerDeviceFailure = 0x04;

// Quantity limits of one request.
constexpr int kMaxReadBits = 2000;
constexpr int kMaxReadRegisters = 125;
constexpr int kMaxWriteBits = 1968;
constexpr int kMaxWriteRegisters = 123;

// MBAP layout: transaction id (0..1), protocol id (2..3), length of what
// follows (4..5), unit id (6); the PDU starts with the function code (7).
constexpr size_t kMbapLengthOffset = 4;
constexpr size_t kMbapUnitOffset = 6;
constexpr size_t kMbapHeaderBytes = 7;
constexpr size_t kMbapMinLength = 2;    // unit id and function code
constexpr size_t kMbapMaxLength = 254;  // unit id and the largest PDU (253)
constexpr uint16_t kCoilOn = 0xFF00;
constexpr uint16_t kCoilOff = 0x0000;

// Remote-mode frame layout.
constexpr size_t kRemoteHeaderBytes = 22;  // a read frame, or a write frame without its value
constexpr size_t kRemoteSourceTypeOffset = 1;
constexpr size_t kRemoteRwTypeOffset = 2;
constexpr size_t kRemoteStationOffset = 4;
constexpr size_t kRemoteAreaOffset = 5;
constexpr size_t kRemoteAddressOffset = 7;
constexpr size_t kRemoteCountOffset = 11;
constexpr size_t kRemoteValueOffset = 21;
constexpr size_t kRemoteReplyHeaderBytes = 9;
constexpr size_t kRemoteWriteReplyBytes = 12;
constexpr uint8_t kRemoteRead = 0;
constexpr uint8_t kRemoteWrite = 1;

enum class RemoteStatus : uint8_t {
    Ok = 0,
    BadCheckByte = 1,
    BadLength = 2,      // byte 0, or the bytes received, disagree with the frame's fields
    UnknownArea = 3,
    BadAddress = 4,     // the elements do not all lie inside the area
    UnknownRwType = 5,
    ReadOnlyArea = 6,   // a write to I or AI
    DeviceFailure = 7,  // injected fault
};

// The four Modbus data tables.
enum class Table { Coil, DiscreteInput, InputRegister, HoldingRegister };

// Where a Modbus address of a table lands in the controller's memory.
struct Location {
    Area area;
    int index;  // element number inside the area, from 0
};
// Finds the area holding all of [address, address + count) in the table;
// false when the range is not wholly inside one area.
bool locate(Table table, int address, int count, Location* out);

struct FrameInfo {
    enum Status { NeedMore, Complete, Unframeable } status;
    size_t length;  // bytes of the request when Complete
};
// How many bytes the request at the start of the buffer takes.
// Unframeable: the stream cannot be trusted any more (close it).
FrameInfo frameRequest(const uint8_t* data, size_t len);

struct Response {
    std::vector<uint8_t> bytes;  // empty: nothing to send
    bool remoteMode = false;
    bool closeAfter = false;     // the stream position is lost after this request
};
// Answers one complete request (data[0..len) as framed by frameRequest).
Response handleFrame(MemoryBank& bank, const uint8_t* data, size_t len);
// The same, for callers that only want the bytes.
std::vector<uint8_t> handleRequest(MemoryBank& bank, const uint8_t* data, size_t len);

// The unit id (Modbus) or station (remote mode) a complete request is for.
uint8_t requestStation(const uint8_t* data, size_t len);
bool isRemoteModeRequest(const uint8_t* data, size_t len);
// The reply an exception fault sends instead of the real one.
std::vector<uint8_t> faultReply(const uint8_t* data, size_t len, uint8_t exceptionCode);

// What one request asks for, as the request log shows it.
struct RequestSummary {
    bool remoteMode = false;
    uint8_t station = 0;
    uint8_t function = 0;  // Modbus function code; remote mode: 0 read, 1 write
    int area = -1;         // remote mode only
    int address = 0;       // Modbus address; remote mode: element number in the area
    int quantity = 0;      // elements asked for (1 for a single write)
    bool write = false;
};
// The summary of a complete request; the fields a frame too short to hold
// stay 0.
RequestSummary summarizeRequest(const uint8_t* data, size_t len);
// "unit 1 function 3 address 528 quantity 2", "unit 2 remote write area 7 address 10 quantity 1"
std::string requestLogLine(const RequestSummary& request);

}  // namespace logosim

#endif  // LOGOSIM_PROTOCOL_H
