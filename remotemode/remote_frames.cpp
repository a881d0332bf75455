#include "remotemode/remote_frames.h"

#include "modbus/areas.h"
#include "modbus/frame_bytes.h"

namespace {

// Bytes 1 to 20: the record's own fields, in the peer's order.
void writeRecordFields(FrameWriter& frame, const RW_VAR* var)
{
    frame.byte(var->sourceType);
    frame.byte(var->rwType);
    frame.byte(var->linkId);
    frame.byte(var->station);
    frame.word16(var->area);
    frame.word32(var->address);
    frame.word16(var->count);
    frame.word32(var->param1);
    frame.word32(var->param2);
}

// The sum of the bytes written so far (their count taken modulo 65536).
void writeCheckByte(FrameWriter& frame)
{
    frame.byte(CalSUM(frame.start(), static_cast<unsigned short>(frame.written())));
}

}  // namespace

void Remote_ReadVar(FrameQueue& queue, const RW_VAR* var)
{
    // The reply's size follows from the area; a read of an unknown area, or
    // of a count the 16-bit field cannot carry, has no reply to expect and
    // gets no frame (the scheduler drops it).
    if (!isArea(var->area) || var->count < 0 || var->count > MAX_QUANTITY)
        return;
    const int dataLength = isBitArea(var->area) ? var->count : 2 * var->count;
    FrameWriter frame(queue.append(*var, REMOTE_RECORD_FRAME_LENGTH, REMOTE_REPLY_HEADER + dataLength,
                                   REMOTE_REPLY_HEADER, dataLength));
    frame.byte(REMOTE_RECORD_FRAME_LENGTH);
    writeRecordFields(frame, var);
    writeCheckByte(frame);
}

void Remote_WriteVar(FrameQueue& queue, const RW_VAR* var)
{
    const int length = REMOTE_RECORD_FRAME_LENGTH + var->value.size();
    FrameWriter frame(queue.append(*var, length, REMOTE_WRITE_REPLY_LENGTH, 0, 0));
    frame.byte(length);  // only its low 8 bits fit
    writeRecordFields(frame, var);
    frame.bytes(var->value);
    writeCheckByte(frame);
}
