#include "modbus/frame_queue.h"

unsigned char* FrameQueue::append(const RW_VAR& var, int length, int replyLength, int replyHeaderLength,
                                  int dataLength)
{
    if (count_ == slots_.size())
        slots_.append(Protocol());
    Protocol& slot = slots_[count_++];
    // Growing only when a frame is longer than any before: a buffer keeps
    // its room when it shrinks.
    slot.frame.resize(length);
    slot.frameLength = length;
    slot.replyLength = replyLength;
    slot.replyHeaderLength = replyHeaderLength;
    slot.dataLength = dataLength;
    slot.var = var;
    return reinterpret_cast<unsigned char*>(slot.frame.data());
}

void FrameQueue::removeFirst()
{
    // The consumed slot goes behind the frames still queued, to be reused.
    slots_.move(0, count_ - 1);
    --count_;
}
