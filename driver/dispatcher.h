// Reply dispatch: the one place that decides whether a reply is acceptable.
#ifndef LOGO_DRIVER_DISPATCHER_H
#define LOGO_DRIVER_DISPATCHER_H

#include "logo_modbus_tcp.h"

// Reply kinds, the argument of GetDriverReturnValue.
enum ReplyKind {
    KIND_LOCAL_OK = 0,
    KIND_LOCAL_BAD_KIND = 1,
    KIND_LOCAL_NO_REPLY = 2,
    KIND_LOCAL_BAD_LENGTH = 3,
    KIND_REMOTE_OK = 4,
    KIND_REMOTE_BAD_KIND = 5,
    KIND_REMOTE_NO_REPLY = 6,
    KIND_REMOTE_BAD_LENGTH = 7
};

enum { RC_UNKNOWN_KIND = 200, SOURCE_TYPE_CATEGORIES = 12 };

int DealDataOfLocalArea(QByteArray* reply, int length);
int DealDataOfRemoteArea(QByteArray* reply, int length);
// 1 read, 2 write, 0 neither: the rwType of the frame in flight.
int CheckGetData(QByteArray* reply, int length);
int GetDriverReturnValue(int kind);
int SwitchErrorReturn(int base);
// Copies everything but value from source to target and empties target's value.
void passRetValue(const RW_VAR* source, RW_VAR* target);

#endif  // LOGO_DRIVER_DISPATCHER_H
