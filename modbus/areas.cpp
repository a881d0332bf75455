#include "modbus/areas.h"

namespace {

int wrappingSum(int address, int offset)
{
    return static_cast<int>(static_cast<unsigned>(address) + static_cast<unsigned>(offset));
}

}  // namespace

int get_add(int area, int address)
{
    switch (area) {
    case AREA_I: return wrappingSum(address, OFFSET_I);
    case AREA_Q: return wrappingSum(address, OFFSET_Q);
    case AREA_M: return wrappingSum(address, OFFSET_M);
    case AREA_V: return wrappingSum(address, OFFSET_V);
    case AREA_AI: return wrappingSum(address, OFFSET_AI);
    case AREA_AQ: return wrappingSum(address, OFFSET_AQ);
    case AREA_AM: return wrappingSum(address, OFFSET_AM);
    case AREA_VW: return wrappingSum(address, OFFSET_VW);
    default: return 0;
    }
}
