// Host records with any field values: RW_VARs for the write and one-shot
// queues and HOSTVAR lists for the cyclic rebuild, under any settings; then
// the loop runs with good replies and every list must stay within bounds.
#include "fuzz_input.h"

#include <cstdlib>

namespace {

ComInfo info;
enum { QUEUE_CAPACITY = 1024 };

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput in(data, size);
    freshDriver(&info);
    info.maxBlockLength = in.flag() ? in.interesting() : static_cast<int8_t>(in.byte());
    info.multiStation = in.flag();
    info.defaultStation = in.interesting();
    info.remoteMode = in.flag();
    info.writeMode = 2;

    QList<HOSTVAR> vars;
    for (int n = in.byte() % 24; n > 0; --n) {
        HOSTVAR v = HOSTVAR();
        v.area = in.byte() % 12;
        v.station = in.byte();
        v.addressText = in.flag() ? QString::number(in.interesting()) : in.text();
        v.count = in.interesting();
        vars.append(v);
    }
    ReCreatReadVarList(&vars);
    int unconditional = 0;
    while (!in.empty()) {
        RW_VAR v = RW_VAR();
        v.area = static_cast<int>(in.byte() % 12) - 2;
        v.address = in.interesting();
        v.addressText = in.flag() ? QString::number(v.address) : in.text();
        v.count = in.interesting();
        v.station = in.byte() % 3;
        v.value = in.bytes(in.byte() % 8);
        const int flag = in.byte() % 3;
        unconditional += flag == 1;
        in.flag() ? AddListWriteVar(&v, flag) : AddListOnceReadVar(&v, flag);
    }
    for (int step = 0; step < 64; ++step) {
        Protocol* p = ComCommunication();
        if (!p)
            continue;
        QByteArray reply(p->replyLength > 0 ? p->replyLength : 0, '\1');
        DataCom(&reply, reply.size());
    }
    const Modbus_RTU_Master& d = PLC_driver;
    if (d.writeList.size() > QUEUE_CAPACITY + unconditional || d.onceReadList.size() > QUEUE_CAPACITY + unconditional)
        std::abort();
    return 0;
}
