#include "modbus/read_requests.h"

#include "modbus/areas.h"
#include "modbus/mbap.h"

namespace {

// A count that the 16-bit quantity field cannot carry (or a negative one)
// would also overflow the reply length; such a record gets no frame, and the
// scheduler drops it instead of letting it hold its list.
bool servableCount(int count) { return count >= 0 && count <= MAX_QUANTITY; }

void queueRead(FrameQueue& queue, const RW_VAR* var, int functionCode, int bytesPerElement)
{
    if (!servableCount(var->count))
        return;
    const int dataLength = bytesPerElement * var->count;
    FrameWriter frame(queue.append(*var, REQUEST_LENGTH, READ_REPLY_HEADER + dataLength, READ_REPLY_HEADER, dataLength));
    writeShortRequest(frame, var->station, functionCode, get_add(var->area, var->address), var->count);
}

}  // namespace

void ReadRegister(FrameQueue& queue, const RW_VAR* var)
{
    if (isBitArea(var->area))
        ReadBool(queue, var);
    else if (isWordArea(var->area))
        ReadAnalog(queue, var);
}

void ReadBool(FrameQueue& queue, const RW_VAR* var)
{
    int functionCode = FC_NONE;
    if (var->area == AREA_I)
        functionCode = FC_READ_DISCRETE_INPUTS;
    else if (var->area == AREA_Q || var->area == AREA_M || var->area == AREA_V)
        functionCode = FC_READ_COILS;
    // One data byte per requested bit: exact for the single-bit reads the lists make.
    queueRead(queue, var, functionCode, 1);
}

void ReadAnalog(FrameQueue& queue, const RW_VAR* var)
{
    int functionCode = FC_NONE;
    if (var->area == AREA_AI)
        functionCode = FC_READ_INPUT_REGISTERS;
    else if (var->area == AREA_AQ || var->area == AREA_AM || var->area == AREA_VW)
        functionCode = FC_READ_HOLDING_REGISTERS;
    queueRead(queue, var, functionCode, 2);
}
