// DataCom: judging the reply to the frame in flight and completing its entry.
#include "driver/dispatcher.h"

#include <climits>

#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"
#include "image/reply_store.h"

namespace {

// Counters of the host's record that a long-running panel or a wild value
// must not overflow.
void countUp(int* counter)
{
    if (*counter < INT_MAX)
        ++*counter;
}

// The single length check shared by both areas; only a local read's data
// is stored.
int judgeReply(QByteArray* reply, int length, bool local)
{
    const int link = local ? KIND_LOCAL : KIND_REMOTE;
    const int expected = inFlight().replyLength;
    if (length == 0 && expected != 0)
        return GetDriverReturnValue(link + OUTCOME_NO_REPLY);
    if (length != expected && expected != REPLY_LENGTH_ANY)
        return GetDriverReturnValue(link + OUTCOME_BAD_LENGTH);
    const int kind = CheckGetData(reply, length);
    if (kind == CHECKED_NEITHER)
        return GetDriverReturnValue(link + OUTCOME_BAD_KIND);
    if (kind == CHECKED_READ && local) {
        DriverLock lock(&PLC_driver.imageMutex);
        SaveToLocalDataErea(inFlight(), reply);
    }
    return GetDriverReturnValue(link + OUTCOME_OK);
}

bool sameRequest(const RW_VAR& a, int sourceType, int sourceId)
{
    return a.sourceType == sourceType && a.sourceId == sourceId;
}

void notifyOnceRead(const RW_VAR& head)
{
    Modbus_RTU_Master& d = PLC_driver;
    if (d.readDoneCallback == 0)
        return;
    const intptr_t context = d.comInfo->hostContext;
    if (d.commFailed != 0) {
        d.readDoneCallback(context, head.sourceType, head.sourceId, READ_DONE_GIVEN_UP);
        return;
    }
    // The head is one entry of its request; more mean pieces still waiting.
    if (d.onceReadList.entriesOfRequest(head.sourceType, head.sourceId) > 1)
        return;
    d.readDoneCallback(context, head.sourceType, head.sourceId, READ_DONE_COMPLETED);
}

// Copies the entry the frame came from into the result and retires it:
// writes and one-shot reads leave their list, a cyclic entry goes to the back.
// A rebuild while a cyclic frame was on its way has replaced that entry: the
// result then names the frame's own record and the new list is left as it
// is, so that a give-up is never charged to an unrelated station (whose
// writes the clean-up would discard).
void completeEntry(bool local, const RW_VAR& answered)
{
    Modbus_RTU_Master& d = PLC_driver;
    switch (d.currentList) {
    case LIST_WRITE:
        if (!d.writeList.isEmpty()) {
            passRetValue(&d.writeList.first(), &d.result);
            d.writeList.removeFirst();
        }
        break;
    case LIST_ONCE:
        if (!d.onceReadList.isEmpty()) {
            if (local)
                notifyOnceRead(d.onceReadList.first());
            passRetValue(&d.onceReadList.first(), &d.result);
            d.onceReadList.removeFirst();
        }
        break;
    case LIST_CYCLIC:
        if (d.inFlightGeneration != d.readListGeneration) {
            passRetValue(&answered, &d.result);
        } else if (!d.readList.isEmpty()) {
            passRetValue(&d.readList.first(), &d.result);
            if (d.frameQueue.isEmpty())
                d.readList.move(0, d.readList.size() - 1);
        }
        break;
    default:
        break;
    }
}

// After a give-up: tell the host, then drop what belonged to the failed
// request (and, on one controller, every pending write, which would only
// meet the same dead link).
void abandonRequest()
{
    Modbus_RTU_Master& d = PLC_driver;
    const int sourceType = d.result.sourceType;
    const int sourceId = d.result.sourceId;
    const int station = d.result.station;
    if (d.failCallback != 0) {
        QList<RW_VAR> failed;
        d.failCallback(&failed, sourceType, 1);
    }
    if (d.comInfo->multiStation == 0) {
        d.onceReadList.removeIf([&](const RW_VAR& v) { return sameRequest(v, sourceType, sourceId); });
        d.writeList.clear();
    } else {
        d.onceReadList.removeIf(
            [&](const RW_VAR& v) { return v.station == station && sameRequest(v, sourceType, sourceId); });
        d.writeList.removeIf([&](const RW_VAR& v) { return v.station == station; });
    }
}

RW_VAR* finish(int code)
{
    PLC_driver.result.returnCode = code;
    return &PLC_driver.result;
}

// The record a cyclic frame was built from when the cyclic list was rebuilt
// while the frame was on its way (completeEntry needs it then); an empty
// record otherwise.
RW_VAR recordIfListRebuilt()
{
    const Modbus_RTU_Master& d = PLC_driver;
    const bool rebuilt = d.currentList == LIST_CYCLIC && d.inFlightGeneration != d.readListGeneration;
    return rebuilt ? d.frameQueue.first().var : RW_VAR();
}

RW_VAR* goodReply(int code, bool local)
{
    Modbus_RTU_Master& d = PLC_driver;
    ComInfo* info = d.comInfo;
    DriverLock lock(&d.listMutex);
    d.commFailed = 0;
    const RW_VAR answered = recordIfListRebuilt();
    d.frameQueue.removeFirst();
    countUp(&info->framesAnswered);

    // The entry is completed even while no cyclic variables are registered:
    // otherwise a write or one-shot read answered then would stay at the
    // head of its list and be sent again for ever.
    if (info->framesAnswered < info->framesPerRequest)
        return finish(code);
    // A list of n entries needs n + 1 good local replies for a full pass.
    if (info->scanDone == 0 && local && ++d.scanPosition > d.readList.size()) {
        d.scanPosition = 0;
        setScanDone(info, 1);
    }
    completeEntry(local, answered);
    return finish(code);
}

RW_VAR* failedReply(int code, bool local)
{
    Modbus_RTU_Master& d = PLC_driver;
    ComInfo* info = d.comInfo;
    DriverLock lock(&d.listMutex);
    d.scanPosition = 0;
    countUp(&info->retryCount);
    d.commFailed = 1;
    setScanDone(info, 0);
    // Failures count towards the limit across good replies: only a give-up
    // resets the count.
    if (info->retryCount <= info->retryLimit)
        return finish(RC_RETRYING);
    info->retryCount = 0;
    const RW_VAR answered = recordIfListRebuilt();
    d.frameQueue.clear();
    completeEntry(local, answered);
    abandonRequest();
    return finish(code);
}

}  // namespace

int CheckGetData(QByteArray*, int)
{
    switch (inFlight().var.rwType) {
    case RW_READ: return CHECKED_READ;
    case RW_WRITE: return CHECKED_WRITE;
    default: return CHECKED_NEITHER;
    }
}

int DealDataOfLocalArea(QByteArray* reply, int length) { return judgeReply(reply, length, true); }

int DealDataOfRemoteArea(QByteArray* reply, int length) { return judgeReply(reply, length, false); }

RW_VAR* DataCom(QByteArray* reply, int length)
{
    Modbus_RTU_Master& d = PLC_driver;
    if (d.frameQueue.isEmpty()) {
        DriverLock lock(&d.listMutex);
        return finish(RC_LOCAL_OK);
    }
    // A missing reply buffer is a reply with nothing in it.
    QByteArray none;
    if (reply == 0) {
        reply = &none;
        length = 0;
    }
    const bool local = inFlight().var.linkId == d.comInfo->localLinkId;
    const int code = local ? DealDataOfLocalArea(reply, length) : DealDataOfRemoteArea(reply, length);
    if (code == RC_LOCAL_OK || code == RC_REMOTE_OK)
        return goodReply(code, local);
    return failedReply(code, local);
}
