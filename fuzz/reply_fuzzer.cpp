// Any bytes, of any length, handed to DataCom for any frame in flight: both
// frame modes, both image forms, every area, replies longer and shorter than
// expected, time-outs and give-ups.
#include "fuzz_input.h"

namespace {

ComInfo info;

void onReadDone(intptr_t, int, int, int) {}
void onFail(QList<RW_VAR>* list, int, int) { list->append(RW_VAR()); }

RW_VAR anyRecord(FuzzInput& in)
{
    RW_VAR v = RW_VAR();
    v.area = in.flag() ? static_cast<int>(in.byte() % 10) - 1 : in.anyInt();
    in.range(&v.address, &v.count);
    v.station = in.flag() ? in.byte() % 4 : in.anyInt();
    v.rwType = in.byte() % 3;
    v.linkId = in.flag() ? info.localLinkId : in.anyInt();
    v.sourceType = in.anyInt();
    v.sourceId = in.byte() % 3;
    v.param1 = in.anyInt();
    v.value = in.bytes(in.byte() % 16);
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput in(data, size);
    DriverSession session(&info);
    RegistCallBackFuncIntf(onReadDone, onFail);
    info.multiStation = in.flag();
    info.remoteMode = in.flag();
    info.retryLimit = in.byte() % 3;
    info.maxBlockLength = in.anyInt();
    info.localLinkId = 1;
    while (!in.empty()) {
        RW_VAR v = anyRecord(in);
        switch (in.byte() % 3) {
        case 0: AddListWriteVar(&v, 1); break;
        case 1: AddListOnceReadVar(&v, 1); break;
        default: {
            QMutexLocker lock(&PLC_driver.listMutex);  // AddListReadVar relies on its caller's lock
            AddListReadVar(&v);
        }
        }
        for (int frames = in.byte() % 4; frames >= 0; --frames) {
            Protocol* p = ComCommunication();
            QByteArray reply = in.bytes(in.byte() % 2 ? (p ? p->replyLength : 0) : in.byte());
            const int lengths[] = {reply.size(), p ? p->replyLength : 0, 0, in.anyInt()};
            const bool buffer = in.flag();
            DataCom(buffer ? &reply : nullptr, lengths[in.byte() % 4]);
        }
        QByteArray image;
        int address, count;
        in.range(&address, &count);
        GetRegisterData(QString(), v.area, QString::number(address), v.station, image, count);
    }
    return 0;
}
