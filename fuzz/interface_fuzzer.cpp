// The driver's whole exported interface called as a host might call it,
// with any value in every int field of every record and in every argument:
// settings, screens, cyclic entries of any kind, queued writes and one-shot
// reads, image reads and writes, stations switched off and on, address
// conversion, and the communication loop with good replies, replies of any
// length, no reply buffer, time-outs and give-ups. Every list must stay
// within its bounds and agree with its index.
#include "fuzz_input.h"

#include <cstdlib>

#include "driver/locks.h"
#include "varlist/address_text.h"

namespace {

ComInfo info;
enum { QUEUE_CAPACITY = 1024, LONGEST_CYCLIC_RANGE = 80 };

void onReadDone(intptr_t, int, int, int) {}
// The list is the driver's to release, whatever the host put into it.
void onFail(QList<RW_VAR>* list, int, int) { list->append(RW_VAR()); }

// A byte of flags says which words take any value; the others keep values a
// host would use, so that short inputs already drive the whole loop.
void anySettings(FuzzInput& in)
{
    const uint8_t any = in.byte();
    info.maxBlockLength = any & 0x01 ? in.anyInt() : in.byte() % 130;
    info.defaultStation = any & 0x02 ? in.anyInt() : 1;
    info.retryLimit = any & 0x04 ? in.anyInt() : in.byte() % 3;
    info.multiStation = any & 0x08 ? in.anyInt() : 0;
    info.remoteMode = any & 0x10 ? in.anyInt() : 0;
    info.localLinkId = any & 0x20 ? in.anyInt() : 1;
    info.writeMode = any & 0x40 ? in.anyInt() : 2;
    if (any & 0x80) {
        info.retryCount = in.anyInt();
        info.framesPerRequest = in.anyInt();
        info.framesAnswered = in.anyInt();
        info.scanDone = in.anyInt();
    }
}

int anyArea(FuzzInput& in) { return in.flag() ? in.byte() % 8 : in.anyInt(); }

// The same for a record: area and range always, the other fields only
// where a flag asks for any value.
RW_VAR anyRecord(FuzzInput& in, bool write)
{
    const uint8_t any = in.byte();
    RW_VAR v = RW_VAR();
    v.area = anyArea(in);
    in.range(&v.address, &v.count);
    v.addressText = in.addressText(v.area, v.address, any & 0x01 ? v.count : INT_MAX);
    v.station = any & 0x02 ? in.anyInt() : in.byte() % 3;
    v.sourceType = any & 0x04 ? in.anyInt() : 1;
    v.sourceId = any & 0x04 ? in.anyInt() : in.byte() % 4;
    v.rwType = any & 0x08 ? in.anyInt() : write;
    v.linkId = any & 0x10 ? in.anyInt() : info.localLinkId;
    if (any & 0x20) {
        v.remoteFlag = in.anyInt();
        v.returnCode = in.anyInt();
        v.param1 = in.anyInt();
        v.param2 = in.anyInt();
        v.auxText = in.text();
    }
    v.value = any & 0x40 ? in.bytes(in.byte() % 8) : QByteArray(2 * (v.count > 0 && v.count < 4 ? v.count : 1), '\1');
    return v;
}

void rebuild(FuzzInput& in)
{
    QList<HOSTVAR> vars;
    for (int n = in.byte() % 16; n > 0; --n) {
        HOSTVAR v = HOSTVAR();
        v.area = in.byte() % 12;
        v.station = in.byte();
        // No limit of the cyclic list needs long ranges to be reached.
        int address;
        in.range(&address, &v.count, LONGEST_CYCLIC_RANGE);
        v.addressText = in.addressText(v.area, address, v.count, LONGEST_CYCLIC_RANGE);
        vars.append(v);
    }
    ReCreatReadVarList(&vars);
}

void frames(FuzzInput& in)
{
    for (int n = in.byte() % 8; n >= 0; --n) {
        Protocol* p = ComCommunication();
        const int expected = p && p->replyLength > 0 ? p->replyLength : 0;
        QByteArray reply = in.flag() ? QByteArray(expected, '\1') : in.bytes(in.byte() % 32);
        const uint8_t how = in.byte();  // bit 0: the reply's own length, else any; bit 1: no buffer
        const int length = how & 1 ? reply.size() : in.anyInt();
        DataCom(how & 2 ? 0 : &reply, length);
    }
}

void imageAccess(FuzzInput& in)
{
    const int area = anyArea(in);
    int address, count;
    in.range(&address, &count);
    const QString text = in.addressText(area, address, count);
    QByteArray data = in.bytes(in.byte() % 16);
    // Values are read into names first: the order in which a call's
    // arguments are evaluated is the compiler's, and the seeds rely on one.
    const bool get = in.flag();
    const QString auxText = in.text();
    const int station = in.anyInt();
    if (get) {
        GetRegisterData(auxText, area, text, station, data, count);
        return;
    }
    const int sourceType = in.anyInt();
    const int sourceId = in.anyInt();
    SetRegisterData(auxText, area, text, station, data, count, sourceType, sourceId);
}

bool sameTarget(const RW_VAR& a, const RW_VAR& b)
{
    return a.station == b.station && a.area == b.area && a.address == b.address && a.count == b.count;
}

// The queues' indexes answer as a search of their lists would: a waiting
// write is found at its target's first waiting entry, a queued read is
// found, and each request counts its entries.
void checkQueueIndexes()
{
    const WriteQueue& writes = PLC_driver.writeList;
    for (int i = 1; i < writes.size(); ++i) {
        int first = 1;
        while (!sameTarget(writes.at(first), writes.at(i)))
            ++first;
        if (writes.findWaiting(writes.at(i)) != first)
            std::abort();
    }
    const OnceReadQueue& reads = PLC_driver.onceReadList;
    for (int i = 0; i < reads.size(); ++i) {
        const RW_VAR& read = reads.at(i);
        int ofRequest = 0;
        for (int j = 0; j < reads.size(); ++j)
            ofRequest += reads.at(j).sourceType == read.sourceType && reads.at(j).sourceId == read.sourceId;
        if (!reads.contains(read) || reads.entriesOfRequest(read.sourceType, read.sourceId) != ofRequest)
            std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput in(data, size);
    DriverSession session(&info);
    RegistCallBackFuncIntf(onReadDone, onFail);
    anySettings(in);
    int unconditional = 0;
    while (!in.empty()) {
        switch (in.byte() % 10) {
        case 0: rebuild(in); break;
        case 1:
        case 2: {
            const bool write = in.flag();
            RW_VAR v = anyRecord(in, write);
            const int flag = in.flag() ? in.byte() % 3 : in.anyInt();
            unconditional += flag == 1;
            write ? AddListWriteVar(&v, flag) : AddListOnceReadVar(&v, flag);
            break;
        }
        case 3: frames(in); break;
        case 4: imageAccess(in); break;
        case 5: {
            const int station = in.anyInt();
            EnCommStation(station, in.anyInt());
            break;
        }
        case 6: {
            const int area = anyArea(in);
            const QString text = in.text();
            const int address = PLCAddressChangeIntef(area, text);
            // The exported conversion is the driver's own; a V address needs its bit.
            if (address != StringAddressToInt(area, text) ||
                (area == AREA_V && !text.contains(QLatin1Char('.')) && address != -1))
                std::abort();
            break;
        }
        case 7: anySettings(in); break;  // the settings are read afresh at every use
        case 8: {  // a cyclic entry of any kind, as no rebuild makes it
            RW_VAR v = anyRecord(in, in.flag());
            DriverLock lock(&PLC_driver.listMutex);  // AddListReadVar relies on its caller's lock
            AddListReadVar(&v);
            break;
        }
        default: QueryFinishFlag(); break;
        }
    }
    frames(in);
    checkQueueIndexes();
    const Modbus_RTU_Master& d = PLC_driver;
    if (d.writeList.size() > QUEUE_CAPACITY + unconditional || d.onceReadList.size() > QUEUE_CAPACITY + unconditional)
        std::abort();
    return 0;
}
