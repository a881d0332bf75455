// Modbus TCP write requests (function codes 5, 6 and 16).
#ifndef LOGO_MODBUS_WRITE_REQUESTS_H
#define LOGO_MODBUS_WRITE_REQUESTS_H

#include "logo_modbus_tcp.h"

// Queues the write request where the area allows one, then mirrors the value
// into the image unless the link has failed.
void WriteRegister(const RW_VAR* var);
void WriteBool(const RW_VAR* var);
void WriteAnalog(const RW_VAR* var);

#endif  // LOGO_MODBUS_WRITE_REQUESTS_H
