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
    v.area = static_cast<int>(in.byte() % 10) - 1;
    v.address = in.interesting();
    v.count = in.interesting();
    v.station = in.byte() % 4;
    v.rwType = in.byte() % 3;
    v.linkId = in.flag() ? info.localLinkId : 9;
    v.sourceType = static_cast<int8_t>(in.byte());
    v.sourceId = in.byte() % 3;
    v.value = in.bytes(in.byte() % 16);
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput in(data, size);
    freshDriver(&info);
    RegistCallBackFuncIntf(onReadDone, onFail);
    info.multiStation = in.flag();
    info.remoteMode = in.flag();
    info.retryLimit = in.byte() % 3;
    info.maxBlockLength = static_cast<int8_t>(in.byte());
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
            const int lengths[] = {reply.size(), p ? p->replyLength : 0, 0, in.int16()};
            DataCom(in.flag() ? &reply : nullptr, lengths[in.byte() % 4]);
        }
        QByteArray image;
        GetRegisterData(QString(), v.area, QString::number(v.address), v.station, image, in.interesting());
    }
    return 0;
}
