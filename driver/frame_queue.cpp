#include "driver/frame_queue.h"

#include "driver/modbus_rtu_master.h"

Protocol& FrameQueue::append(int length)
{
    if (count_ == slots_.size())
        slots_.append(Protocol());
    Protocol& slot = slots_[count_++];
    // Growing only when a frame is longer than any before: a buffer keeps
    // its room when it shrinks.
    slot.frame.resize(length);
    slot.frameLength = length;
    return slot;
}

void FrameQueue::removeFirst()
{
    // The consumed slot goes behind the frames still queued, to be reused.
    slots_.move(0, count_ - 1);
    --count_;
}

unsigned char* queueFrame(int length, int replyLength, int replyHeaderLength, int dataLength, const RW_VAR* var)
{
    Protocol& protocol = PLC_driver.frameQueue.append(length);
    protocol.replyLength = replyLength;
    protocol.replyHeaderLength = replyHeaderLength;
    protocol.dataLength = dataLength;
    protocol.var = *var;

    // Every frame is a request of its own; the dispatcher completes the list
    // entry once framesAnswered reaches framesPerRequest.
    PLC_driver.comInfo->framesAnswered = 0;
    PLC_driver.comInfo->framesPerRequest = 1;
    return reinterpret_cast<unsigned char*>(protocol.frame.data());
}

const Protocol& inFlight() { return PLC_driver.frameQueue.first(); }
