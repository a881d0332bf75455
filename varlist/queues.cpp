// The write queue and the one-shot read queue.
#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"
#include "modbus/areas.h"
#include "varlist/address_text.h"
#include "varlist/pieces.h"

namespace {

enum { QUEUE_CAPACITY = 1024 };

}  // namespace

int AddListWriteVar(RW_VAR* var, int flag)
{
    Modbus_RTU_Master& d = PLC_driver;
    DriverLock lock(&d.listMutex);
    WriteQueue& writes = d.writeList;
    if (flag == QUEUE_UNCONDITIONAL || writes.size() < 2) {
        writes.append(*var);
        return writes.size();
    }
    // The head may be on its way already: a newer value for its target goes
    // behind it. Among the waiting writes the newest value wins, at the
    // place of the oldest.
    const int waiting = writes.findWaiting(*var);
    if (waiting >= 0)
        writes.replace(waiting, *var);
    else if (writes.size() < QUEUE_CAPACITY)
        writes.append(*var);
    return writes.size();
}

int AddListOnceReadVar(RW_VAR* var, int flag)
{
    Modbus_RTU_Master& d = PLC_driver;
    if (flag == QUEUE_UNCONDITIONAL) {
        DriverLock lock(&d.listMutex);
        d.onceReadList.append(*var);
        return d.onceReadList.size();
    }
    const int address = StringAddressToInt(var->area, var->addressText);
    if (address < 0)
        return 0;
    // No read builder serves an area outside 0 to 7: such a record is
    // refused like an invalid address, instead of queuing entries that
    // would hold every read behind them.
    if (!isArea(var->area))
        return 0;
    const ComInfo* info = d.comInfo;
    var->param1 = 0;
    var->param2 = 0;
    if (info->multiStation == 0)
        var->station = info->defaultStation;
    var->address = address;
    const int maxLen = isBitArea(var->area) ? 1 : blockLength(info);
    // Elements past the area's end are not requested; a negative count asks
    // for nothing, in every area.
    const int elements = clipToArea(address, var->count);

    DriverLock lock(&d.listMutex);
    OnceReadQueue& reads = d.onceReadList;
    cutIntoPieces(address, elements, maxLen, [&](int pieceAddress, int pieceCount) {
        // A full list takes no piece, duplicate or not: stop cutting rather
        // than hold the list lock over thousands of dropped pieces.
        if (reads.size() >= QUEUE_CAPACITY)
            return false;
        var->address = pieceAddress;
        var->count = pieceCount;
        if (!reads.contains(*var))
            reads.append(*var);
        return true;
    });
    // The caller's record ends as the last piece, queued or not.
    lastPiece(address, elements, maxLen, &var->address, &var->count);
    return reads.size();
}
