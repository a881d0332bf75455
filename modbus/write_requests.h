// Modbus TCP write requests (function codes 5, 6 and 16).
#ifndef LOGO_MODBUS_WRITE_REQUESTS_H
#define LOGO_MODBUS_WRITE_REQUESTS_H

#include "logo_modbus_tcp.h"
#include "modbus/frame_queue.h"

// Queues the write request where the area allows one: none for an input or
// an area outside 0 to 7.
void WriteRegister(FrameQueue& queue, const RW_VAR* var);
void WriteBool(FrameQueue& queue, const RW_VAR* var);
void WriteAnalog(FrameQueue& queue, const RW_VAR* var);

#endif  // LOGO_MODBUS_WRITE_REQUESTS_H
