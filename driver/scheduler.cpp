// ComCommunication: which frame goes out next.
#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"
#include "image/station_image.h"
#include "modbus/read_requests.h"
#include "modbus/write_requests.h"
#include "remotemode/remote_frames.h"

namespace {

typedef void (*Builder)(FrameQueue& queue, const RW_VAR* var);

// The two frame formats, chosen by ComInfo::remoteMode as a backend is
// chosen: everything after the frame is built is the same for both.
struct FrameFormat {
    Builder read;
    Builder write;
    // Whether a write shows in the image while the link is down too. It
    // shows at once, before the controller answers; while the link is down
    // the host's write has put a Modbus write's value there already.
    bool mirrorsWhileLinkDown;
};

const FrameFormat kFrameFormats[] = {
    {ReadRegister, WriteRegister, false},     // remoteMode 0: Modbus TCP
    {Remote_ReadVar, Remote_WriteVar, true},  // any other: the remote-mode frame
};

// Five frames in a row at most from the write list and from the one-shot
// list, so neither can stop the cyclic scan for long.
enum { BURST_LIMIT = 5 };

bool frameQueued() { return !PLC_driver.frameQueue.isEmpty(); }

void resetBursts()
{
    PLC_driver.writeBurst = 0;
    PLC_driver.onceBurst = 0;
}

// Every frame is a request of its own: the dispatcher completes the list
// entry once framesAnswered reaches framesPerRequest.
void startRequest(ComInfo* info)
{
    info->framesAnswered = 0;
    info->framesPerRequest = 1;
}

// A write's value enters the image whether or not the area has a frame.
void buildWrite(const FrameFormat& format, const RW_VAR* var)
{
    format.write(PLC_driver.frameQueue, var);
    if (format.mirrorsWhileLinkDown || PLC_driver.commFailed == 0)
        WriteDataToLocal(var);
}

// Builds a frame for the head of a write or one-shot list. Heads for a
// switched-off station are discarded. A head for which no frame can be built
// (a write to an input, an unknown area, an impossible count) is discarded
// too: only a reply removes entries, so left in place it would hold every
// entry behind it for ever.
template <typename Queue, typename Build>
bool serveQueue(Queue& list, Build build)
{
    while (!list.isEmpty()) {
        if (!Ethernetcontains(list.first().station)) {
            build(&list.first());
            if (frameQueued())
                return true;
        }
        list.removeFirst();
    }
    return false;
}

void serveCyclic(Builder read)
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
    read(d.frameQueue, &list.first());
    d.inFlightGeneration = d.readListGeneration;
    // An entry without a frame goes to the back instead of holding the scan.
    if (!frameQueued())
        list.move(0, list.size() - 1);
}

}  // namespace

Protocol* ComCommunication()
{
    Modbus_RTU_Master& d = PLC_driver;
    // The frame in flight is handed out again until its reply is dealt with.
    if (frameQueued())
        return &d.frameQueue.first();

    DriverLock lock(&d.listMutex);
    const FrameFormat& format = kFrameFormats[d.comInfo->remoteMode != 0 ? 1 : 0];
    if (!d.writeList.isEmpty() && d.writeBurst < BURST_LIMIT) {
        d.currentList = LIST_WRITE;
        if (serveQueue(d.writeList, [&](const RW_VAR* var) { buildWrite(format, var); }))
            ++d.writeBurst;
    } else if (!d.onceReadList.isEmpty() && d.onceBurst < BURST_LIMIT) {
        d.currentList = LIST_ONCE;
        if (serveQueue(d.onceReadList, [&](const RW_VAR* var) { format.read(d.frameQueue, var); }))
            ++d.onceBurst;
    } else {
        serveCyclic(format.read);
    }
    if (!frameQueued())
        return 0;
    startRequest(d.comInfo);
    return &d.frameQueue.first();
}
