// Frames of the driver's own format, sent instead of Modbus in remote mode.
#ifndef LOGO_REMOTEMODE_REMOTE_FRAMES_H
#define LOGO_REMOTEMODE_REMOTE_FRAMES_H

#include "logo_modbus_tcp.h"
#include "modbus/frame_queue.h"

enum RemoteFrame {
    REMOTE_RECORD_FRAME_LENGTH = 22,  // length byte, record fields and check byte: a read; a write adds its value
    REMOTE_REPLY_HEADER = 9,
    REMOTE_WRITE_REPLY_LENGTH = 12
};

// The record itself, serialised with a sum check, as the frame.
void Remote_ReadVar(FrameQueue& queue, const RW_VAR* var);
void Remote_WriteVar(FrameQueue& queue, const RW_VAR* var);

#endif  // LOGO_REMOTEMODE_REMOTE_FRAMES_H
