// Modbus TCP read requests (function codes 1 to 4).
#ifndef LOGO_MODBUS_READ_REQUESTS_H
#define LOGO_MODBUS_READ_REQUESTS_H

#include "logo_modbus_tcp.h"
#include "modbus/frame_queue.h"

// Queues the read request for the record; nothing for an area outside 0 to 7.
void ReadRegister(FrameQueue& queue, const RW_VAR* var);
void ReadBool(FrameQueue& queue, const RW_VAR* var);
void ReadAnalog(FrameQueue& queue, const RW_VAR* var);

#endif  // LOGO_MODBUS_READ_REQUESTS_H
