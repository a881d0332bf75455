// Frames of the driver's own format, sent instead of Modbus in remote mode.
#ifndef LOGO_REMOTEMODE_REMOTE_FRAMES_H
#define LOGO_REMOTEMODE_REMOTE_FRAMES_H

#include "logo_modbus_tcp.h"

enum RemoteFrame {
    REMOTE_READ_LENGTH = 22,  // length byte, record fields and check byte; a write adds its value
    REMOTE_REPLY_HEADER = 9,
    REMOTE_WRITE_REPLY_LENGTH = 12
};

void Remote_ReadVar(const RW_VAR* var);
void Remote_WriteVar(const RW_VAR* var);

#endif  // LOGO_REMOTEMODE_REMOTE_FRAMES_H
