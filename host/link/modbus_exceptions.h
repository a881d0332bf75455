// Modbus exception replies: telling one from a reply, and naming its code.
#ifndef LOGOHOST_MODBUS_EXCEPTIONS_H
#define LOGOHOST_MODBUS_EXCEPTIONS_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace logohost {

// The exception code of a Modbus TCP exception reply, 0 for any other reply.
int modbusExceptionCode(const uint8_t* reply, size_t length);

// "illegal data address"
std::string exceptionName(int code);
// "illegal data address (Modbus exception 02)"
std::string describeException(int code);

}  // namespace logohost

#endif  // LOGOHOST_MODBUS_EXCEPTIONS_H
