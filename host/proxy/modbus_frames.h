// A client's Modbus TCP requests as the proxy takes them: framed by the
// MBAP header, checked against the function's own layout and against the
// controller's map, and turned into the driver's ranges and bytes; and the
// replies built back from the driver's bytes. No sockets and no session.
#ifndef LOGOHOST_MODBUS_FRAMES_H
#define LOGOHOST_MODBUS_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/logo_map.h"
#include "common/modbus_wire.h"
#include "host/binding/driver_request.h"

namespace logohost {

using Frame = std::vector<uint8_t>;

// The bytes of the whole frame that starts with this MBAP header
// (wire::kMbapBytes of it), or 0 when the header cannot start a frame of
// ours (protocol id not 0, a length out of range): the stream is garbage.
size_t frameLength(const uint8_t* header);

// What a well-framed request asks for. exception != 0: answer with it.
struct ClientRequest {
    uint8_t function = 0;
    uint8_t exception = 0;
    logomap::Location where{logomap::Area::I, 0};
    int count = 0;               // bits or registers
    std::vector<uint8_t> bytes;  // a write's values as the driver takes them: a byte per bit, two per word low first
};
ClientRequest decodeRequest(const Frame& frame);
bool writesCoils(uint8_t function);

// The driver's range for elements [where.index, where.index + count) of an area.
DriverRange driverRange(const logomap::Location& where, int count, int station);

// Replies carry the request's transaction and unit id.
Frame readReply(const Frame& request, const ClientRequest& read, const std::vector<uint8_t>& driverBytes);
Frame writeReply(const Frame& request);
Frame exceptionReply(const Frame& request, uint8_t code);

}  // namespace logohost

#endif  // LOGOHOST_MODBUS_FRAMES_H
