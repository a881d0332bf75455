#include "modbus/areas.h"

int get_add(int area, int address)
{
    switch (area) {
    case AREA_I: return address + OFFSET_I;
    case AREA_Q: return address + OFFSET_Q;
    case AREA_M: return address + OFFSET_M;
    case AREA_V: return address + OFFSET_V;
    case AREA_AI: return address + OFFSET_AI;
    case AREA_AQ: return address + OFFSET_AQ;
    case AREA_AM: return address + OFFSET_AM;
    case AREA_VW: return address + OFFSET_VW;
    default: return 0;
    }
}
