// The driver's whole exported interface called as a host might call it,
// with any value in every int field of every record and in every argument:
// settings, screens, queued writes and one-shot reads, image reads and
// writes, stations switched off and on, address conversion, check values,
// and the communication loop with good and bad replies. Every list must stay
// within its bounds.
#include "fuzz_input.h"

#include <cstdlib>

namespace {

ComInfo info;
enum { QUEUE_CAPACITY = 1024, PACKING_ELEMENTS = 64, LONGEST_CYCLIC_RANGE = 80 };

void onReadDone(intptr_t, int, int, int) {}
void onFail(QList<RW_VAR>*, int, int) {}

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
        const int length = in.flag() ? reply.size() : in.anyInt();
        DataCom(&reply, length);
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

// The check values and packing operations on memory of this run's own: the
// packing operations trust their caller with the bounds, as the driver's
// own callers clip first, so ranges stay inside the buffer here, while
// counts below 1 and odd counts are any.
void helpers(FuzzInput& in)
{
    unsigned char bytes[PACKING_ELEMENTS] = {};
    unsigned short words[PACKING_ELEMENTS] = {};
    QByteArray given = in.bytes(in.byte() % 16), out;
    const int start = in.byte() % PACKING_ELEMENTS;
    const int room = PACKING_ELEMENTS - start;
    const int count = in.flag() ? in.anyInt() % (room + 1) : in.byte() % (room + 1);
    const int bitStart = start * 16 / PACKING_ELEMENTS, bitCount = count < 16 ? count : 16;
    switch (in.byte() % 10) {
    case 0: GetBitFromUC(out, bytes, start, count); break;
    case 1: SetBitToUC(start, bytes, &given, count); break;
    case 2: GetWordFromUS(out, words, start, count); break;
    case 3: SetWordToUS(start, words, &given, count); break;
    case 4: GetWordFromUI(out, words, start, count); break;
    case 5: SetWordToUI(start, words, &given, count); break;
    case 6: GetBitFromUS(out, words, bitStart, bitCount); break;
    case 7: SetBitToUS(bitStart, words, &given, bitCount); break;
    case 8: {
        unsigned char* p = reinterpret_cast<unsigned char*>(given.data());
        const unsigned short n = static_cast<unsigned short>(given.size());
        CalSUM(p, n);
        CalCRC(p, n);
        CalLRC(p, n);
        CalXOR(p, n);
        break;
    }
    default:
        DigitalToASCII(in.anyInt());
        ASCIIToDigital(in.anyInt());
        break;
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
            PLCAddressChangeIntef(area, in.text());
            break;
        }
        case 7: anySettings(in); break;  // the settings are read afresh at every use
        case 8: helpers(in); break;
        default: QueryFinishFlag(); break;
        }
    }
    frames(in);
    const Modbus_RTU_Master& d = PLC_driver;
    if (d.writeList.size() > QUEUE_CAPACITY + unconditional || d.onceReadList.size() > QUEUE_CAPACITY + unconditional)
        std::abort();
    return 0;
}
