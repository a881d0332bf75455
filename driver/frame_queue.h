// The one way a builder hands a finished frame to the scheduler.
#ifndef LOGO_DRIVER_FRAME_QUEUE_H
#define LOGO_DRIVER_FRAME_QUEUE_H

#include "logo_modbus_tcp.h"

// Appends a Protocol with its reply bookkeeping and a copy of var to
// frameQueue, and starts the request's frame counters afresh.
void queueFrame(const QByteArray& frame, int replyLength, int replyHeaderLength, int dataLength, const RW_VAR* var);

#endif  // LOGO_DRIVER_FRAME_QUEUE_H
