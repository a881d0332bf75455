// ComCommunication: which frame goes out next.
#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"
#include "modbus/read_requests.h"
#include "modbus/write_requests.h"
#include "remotemode/remote_frames.h"

namespace {

typedef void (*Builder)(const RW_VAR*);

// Five frames in a row at most from the write list and from the one-shot
// list, so neither can stop the cyclic scan for long.
enum { BURST_LIMIT = 5 };

bool frameBuilt() { return !PLC_driver.frameQueue.isEmpty(); }

void resetBursts()
{
    PLC_driver.writeBurst = 0;
    PLC_driver.onceBurst = 0;
}

// Builds a frame for the head of a write or one-shot list. Heads for a
// switched-off station are discarded. A head for which no frame can be built
// (a write to an input, an unknown area, an impossible count) is discarded
// too: only a reply removes entries, so left in place it would hold every
// entry behind it for ever.
template <typename Queue>
bool serveQueue(Queue& list, Builder build)
{
    while (!list.isEmpty()) {
        if (!Ethernetcontains(list.first().station)) {
            build(&list.first());
            if (frameBuilt())
                return true;
        }
        list.removeFirst();
    }
    return false;
}

void serveCyclic(Builder build)
{
    Modbus_RTU_Master& d = PLC_driver;
    QList<RW_VAR>& list = d.readList;
    if (list.isEmpty()) {
        resetBursts();
        setScanDone(d.comInfo, 1);
        return;
    }
    d.currentList = LIST_CYCLIC;
    // Pass over entries of switched-off stations, keeping them; at most one
    // full turn, so a list whose stations are all off keeps its order.
    for (int n = list.size(); n > 0 && Ethernetcontains(list.first().station); --n)
        list.move(0, list.size() - 1);
    // Whether or not a cyclic frame results, the queues have had their turn:
    // with every cyclic station off (or no entry servable) nothing else would
    // ever reset the bursts, and writes and one-shot reads would wait until a
    // station came back.
    resetBursts();
    if (Ethernetcontains(list.first().station))
        return;
    build(&list.first());
    d.inFlightGeneration = d.readListGeneration;
    // An entry without a frame goes to the back instead of holding the scan.
    if (!frameBuilt())
        list.move(0, list.size() - 1);
}

}  // namespace

Protocol* ComCommunication()
{
    Modbus_RTU_Master& d = PLC_driver;
    // The frame in flight is handed out again until its reply is dealt with.
    if (frameBuilt())
        return &d.frameQueue.first();

    DriverLock lock(&d.listMutex);
    const bool remote = d.comInfo->remoteMode != 0;
    if (!d.writeList.isEmpty() && d.writeBurst < BURST_LIMIT) {
        d.currentList = LIST_WRITE;
        if (serveQueue(d.writeList, remote ? Remote_WriteVar : WriteRegister))
            ++d.writeBurst;
    } else if (!d.onceReadList.isEmpty() && d.onceBurst < BURST_LIMIT) {
        d.currentList = LIST_ONCE;
        if (serveQueue(d.onceReadList, remote ? Remote_ReadVar : ReadRegister))
            ++d.onceBurst;
    } else {
        serveCyclic(remote ? Remote_ReadVar : ReadRegister);
    }
    return frameBuilt() ? &d.frameQueue.first() : 0;
}
