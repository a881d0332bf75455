// Modbus TCP read requests (function codes 1 to 4).
#ifndef LOGO_MODBUS_READ_REQUESTS_H
#define LOGO_MODBUS_READ_REQUESTS_H

#include "logo_modbus_tcp.h"

// Queues the read request for the record; nothing for an area outside 0 to 7.
void ReadRegister(const RW_VAR* var);
void ReadBool(const RW_VAR* var);
void ReadAnalog(const RW_VAR* var);

#endif  // LOGO_MODBUS_READ_REQUESTS_H
