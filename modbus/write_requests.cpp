#include "modbus/write_requests.h"

#include "modbus/areas.h"
#include "modbus/mbap.h"

namespace {

// Register k of a write record's value (low byte first), or 0 when value
// does not hold both of its bytes: a register is never sent half from value.
int registerAt(const QByteArray& value, int k)
{
    if (value.size() < 2 * k + 2)
        return 0;
    return (byteOr0(value, 2 * k + 1) << 8) | byteOr0(value, 2 * k);
}

}  // namespace

void WriteRegister(FrameQueue& queue, const RW_VAR* var)
{
    if (var->area == AREA_Q || var->area == AREA_M || var->area == AREA_V)
        WriteBool(queue, var);
    else if (var->area == AREA_AQ || var->area == AREA_AM || var->area == AREA_VW)
        WriteAnalog(queue, var);
}

void WriteBool(FrameQueue& queue, const RW_VAR* var)
{
    // Only the byte value 1 switches a coil on.
    const int coil = (!var->value.isEmpty() && var->value.at(0) == 1) ? COIL_ON << 8 : 0;
    FrameWriter frame(queue.append(*var, REQUEST_LENGTH, WRITE_REPLY_LENGTH, 0, 0));
    writeShortRequest(frame, var->station, FC_WRITE_SINGLE_COIL, get_add(var->area, var->address), coil);
}

void WriteAnalog(FrameQueue& queue, const RW_VAR* var)
{
    const int count = var->count;
    // A negative count has no frame (its length would be negative), nor has
    // one the quantity field cannot carry; the scheduler drops such a write.
    // Count 0 still goes out with function code 0, for the controller to refuse.
    if (count < 0 || count > MAX_QUANTITY)
        return;
    const int modbusAddress = get_add(var->area, var->address);
    if (count == 1) {
        FrameWriter frame(queue.append(*var, REQUEST_LENGTH, WRITE_REPLY_LENGTH, 0, 0));
        writeShortRequest(frame, var->station, FC_WRITE_SINGLE_REGISTER, modbusAddress, registerAt(var->value, 0));
        return;
    }
    const int functionCode = count >= 2 ? FC_WRITE_MULTIPLE_REGISTERS : FC_NONE;
    FrameWriter frame(queue.append(*var, MULTIPLE_WRITE_HEADER + 2 * count, WRITE_REPLY_LENGTH, 0, 0));
    writeMbapHeader(frame, MULTIPLE_WRITE_HEADER - MBAP_LENGTH_AFTER_FIELD + 2 * count, var->station);
    frame.byte(functionCode);
    frame.word16(modbusAddress);
    frame.word16(count);
    frame.byte(2 * count);
    for (int k = 0; k < count; ++k)
        frame.word16(registerAt(var->value, k));
}
