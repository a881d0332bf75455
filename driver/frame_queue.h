// The one way a builder hands a finished frame to the scheduler.
#ifndef LOGO_DRIVER_FRAME_QUEUE_H
#define LOGO_DRIVER_FRAME_QUEUE_H

#include "driver/modbus_rtu_master.h"

// Appends a Protocol with its reply bookkeeping and a copy of var to
// frameQueue, and starts the request's frame counters afresh.
void queueFrame(const QByteArray& frame, int replyLength, int replyHeaderLength, int dataLength, const RW_VAR* var);

// The frame in flight: the head of frameQueue, which must not be empty.
inline const Protocol& inFlight() { return PLC_driver.frameQueue.first(); }

#endif  // LOGO_DRIVER_FRAME_QUEUE_H
