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
    DriverSession session(&info);
    const int area = in.flag() ? in.anyInt() : static_cast<int>(in.byte() % 10) - 1;
    info.multiStation = in.flag();
    info.writeMode = in.flag() ? 2 : 0;
    info.maxBlockLength = in.anyInt();
    const QString text = QString::fromUtf8(in.bytes(in.byte() % 65));
    const int address = StringAddressToInt(area, text);
    // The texts are what this target explores: counts stay a few elements
    // unless the address is near the area's end or outside it.
    int count = in.flag() ? in.byte() : in.anyInt();
    if (count > 255 && address >= 0 && address < 65535 - 255)
        count = in.byte();
    if (PLCAddressChangeIntef(area, text) != address)
        std::abort();  // the exported conversion must be the driver's own
    if (area == AREA_V && !text.contains(QLatin1Char('.')) && address != -1)
        std::abort();

    QByteArray bytes = in.bytes(32);
    SetRegisterData(text, area, text, 1, bytes, count, 0, 0);
    GetRegisterData(QString(), area, text, 1, bytes, count);
    return 0;
}
