#include "remotemode/remote_frames.h"

#include "driver/frame_queue.h"
#include "image/station_image.h"
#include "modbus/areas.h"
#include "modbus/frame_bytes.h"

namespace {

// Bytes 1 to 20: the record's own fields, in the peer's order.
void appendRecordFields(QByteArray& frame, const RW_VAR* var)
{
    appendByte(frame, var->sourceType);
    appendByte(frame, var->rwType);
    appendByte(frame, var->linkId);
    appendByte(frame, var->station);
    appendWord16(frame, var->area);
    appendWord32(frame, var->address);
    appendWord16(frame, var->count);
    appendWord32(frame, var->param1);
    appendWord32(frame, var->param2);
}

void appendCheckByte(QByteArray& frame)
{
    const unsigned short sum =
        CalSUM(reinterpret_cast<unsigned char*>(frame.data()), static_cast<unsigned short>(frame.size()));
    appendByte(frame, sum);
}

}  // namespace

void Remote_ReadVar(RW_VAR* var)
{
    // The reply's size follows from the area; a read of an unknown area, or
    // of a count the 16-bit field cannot carry, has no reply to expect and
    // gets no frame (the scheduler drops it).
    if (!isArea(var->area) || var->count < 0 || var->count > MAX_QUANTITY)
        return;
    QByteArray frame;
    appendByte(frame, REMOTE_READ_LENGTH);
    appendRecordFields(frame, var);
    appendCheckByte(frame);
    const int dataLength = isBitArea(var->area) ? var->count : 2 * var->count;
    queueFrame(frame, REMOTE_REPLY_HEADER + dataLength, REMOTE_REPLY_HEADER, dataLength, var);
}

void Remote_WriteVar(RW_VAR* var)
{
    QByteArray frame;
    appendByte(frame, 0);  // the length, known once the value is in
    appendRecordFields(frame, var);
    frame.append(var->value);
    frame[0] = static_cast<char>((frame.size() + 1) & 0xFF);
    appendCheckByte(frame);
    // Unlike the Modbus builder this resets the request's frame counters as
    // well (queueFrame does), so every write is completed by its own reply.
    queueFrame(frame, REMOTE_WRITE_REPLY_LENGTH, 0, 0, var);
    WriteDataToLocal(var);
}
