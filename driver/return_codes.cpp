// The integer codes DataCom reports: a kind of outcome and the requester's category.
#include "driver/dispatcher.h"
#include "driver/modbus_rtu_master.h"

int SwitchErrorReturn(int base)
{
    const FrameQueue& queue = PLC_driver.frameQueue;
    const int sourceType = queue.isEmpty() ? 0 : queue.first().var.sourceType;
    const bool category = sourceType >= 0 && sourceType < SOURCE_TYPE_CATEGORIES;
    return base + 1 + (category ? sourceType : 0);
}

int GetDriverReturnValue(int kind)
{
    switch (kind) {
    case KIND_LOCAL + OUTCOME_OK: return RC_LOCAL_OK;
    case KIND_LOCAL + OUTCOME_BAD_KIND: return SwitchErrorReturn(RC_LOCAL_BAD_KIND);
    case KIND_LOCAL + OUTCOME_NO_REPLY: return SwitchErrorReturn(RC_LOCAL_NO_REPLY);
    case KIND_LOCAL + OUTCOME_BAD_LENGTH: return SwitchErrorReturn(RC_LOCAL_BAD_LENGTH);
    case KIND_REMOTE + OUTCOME_OK: return RC_REMOTE_OK;
    case KIND_REMOTE + OUTCOME_BAD_KIND: return SwitchErrorReturn(RC_REMOTE_BAD_KIND);
    case KIND_REMOTE + OUTCOME_NO_REPLY: return SwitchErrorReturn(RC_REMOTE_NO_REPLY);
    case KIND_REMOTE + OUTCOME_BAD_LENGTH: return SwitchErrorReturn(RC_REMOTE_BAD_LENGTH);
    default: return RC_UNKNOWN_KIND;
    }
}

void passRetValue(const RW_VAR* source, RW_VAR* target)
{
    // Read data reaches the host through the image, never the result record.
    *target = *source;
    target->value = QByteArray();
}
