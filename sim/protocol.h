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
// The layouts of both are in common/modbus_wire.h and common/remote_wire.h.
#ifndef LOGOSIM_PROTOCOL_H
#define LOGOSIM_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/logo_map.h"
#include "common/modbus_wire.h"
#include "common/remote_wire.h"
#include "sim/memory.h"

namespace logosim {

using namespace wire;
using logomap::locate;
using logomap::Location;
using logomap::Table;

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
