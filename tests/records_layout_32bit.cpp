// Compiled for a 32-bit target by the test suite (syntax only): the layout
// checks in the public header must hold there as they do on 64-bit, so a
// host on a 32-bit panel and this driver agree on every record offset.
#include "logo_modbus_tcp.h"

static_assert(sizeof(void*) == 4, "this check is meant for a 32-bit target");
static_assert(sizeof(RW_VAR) == 60 && sizeof(Protocol) == 92, "records of a 32-bit panel");
