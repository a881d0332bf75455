// Reply dispatch: the one place that decides whether a reply is acceptable.
#ifndef LOGO_DRIVER_DISPATCHER_H
#define LOGO_DRIVER_DISPATCHER_H

#include "logo_modbus_tcp.h"

// What a reply was, judged by its length and the rwType of the frame's
// record; the argument of GetDriverReturnValue is an outcome plus
// KIND_REMOTE for a reply on another link than the host's own.
enum ReplyOutcome { OUTCOME_OK = 0, OUTCOME_BAD_KIND = 1, OUTCOME_NO_REPLY = 2, OUTCOME_BAD_LENGTH = 3 };
enum { KIND_LOCAL = 0, KIND_REMOTE = 4 };

// What CheckGetData makes of the rwType of the frame in flight: rwType
// RW_READ (0) gives CHECKED_READ (1), RW_WRITE (1) gives CHECKED_WRITE (2),
// any other rwType CHECKED_NEITHER (0).
enum CheckedKind { CHECKED_NEITHER = 0, CHECKED_READ = 1, CHECKED_WRITE = 2 };

int DealDataOfLocalArea(QByteArray* reply, int length);
int DealDataOfRemoteArea(QByteArray* reply, int length);
// Named as in the host interface; it looks at no reply data, only at the
// rwType of the frame in flight, and returns a CheckedKind.
int CheckGetData(QByteArray* reply, int length);
// Named as in the host interface; it turns a reply kind into the code DataCom returns.
int GetDriverReturnValue(int kind);
// Named as in the host interface; it adds 1 and the requester's category to a failure base.
int SwitchErrorReturn(int base);
// Named as in the host interface; it copies everything but value from
// source to target and empties target's value.
void passRetValue(const RW_VAR* source, RW_VAR* target);

#endif  // LOGO_DRIVER_DISPATCHER_H
