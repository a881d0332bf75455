// Address texts for every area code, through the conversion and through the
// image accesses that use it.
#include "fuzz_input.h"

#include <cstdlib>

#include "varlist/address_text.h"

namespace {
ComInfo info;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput in(data, size);
    freshDriver(&info);
    const int area = in.flag() ? in.int32() : static_cast<int>(in.byte() % 10) - 1;
    info.multiStation = in.flag();
    info.writeMode = in.flag() ? 2 : 0;
    info.maxBlockLength = static_cast<int8_t>(in.byte());
    // Counts stay small here: the texts are what this target explores, and
    // a write of tens of thousands of pieces only slows the search down.
    const int count = in.byte();
    const QString text = QString::fromUtf8(in.bytes(64));

    const int address = StringAddressToInt(area, text);
    if (PLCAddressChangeIntef(area, text) != address)
        std::abort();  // the exported conversion must be the driver's own
    if (area == AREA_V && !text.contains(QLatin1Char('.')) && address != -1)
        std::abort();

    QByteArray bytes = in.bytes(32);
    SetRegisterData(text, area, text, 1, bytes, count, 0, 0);
    GetRegisterData(QString(), area, text, 1, bytes, count);
    return 0;
}
