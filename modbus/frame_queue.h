// Frames built and not yet answered; the head is the frame in flight.
#ifndef LOGO_MODBUS_FRAME_QUEUE_H
#define LOGO_MODBUS_FRAME_QUEUE_H

#include <QList>

#include "logo_modbus_tcp.h"

// The scheduler builds a frame only when the queue is empty, so it holds one
// frame at most. Its slots are kept, frame buffers included, from one frame
// to the next: a panel scans for months, and the steady scan then costs no
// heap operation. Slots are handed out in place; a queue never shares them.
class FrameQueue {
public:
    FrameQueue() : count_(0) {}

    bool isEmpty() const { return count_ == 0; }
    int size() const { return count_; }
    Protocol& first() { return slots_[0]; }
    const Protocol& first() const { return slots_.at(0); }
    const Protocol& at(int i) const { return slots_.at(i); }

    // The one way a builder hands over a frame: appends a frame of `length`
    // bytes with a copy of var and what its reply must look like. The
    // builder writes the bytes through the pointer returned.
    unsigned char* append(const RW_VAR& var, int length, int replyLength, int replyHeaderLength, int dataLength);
    void removeFirst();
    void clear() { count_ = 0; }

private:
    QList<Protocol> slots_;
    int count_;
};

#endif  // LOGO_MODBUS_FRAME_QUEUE_H
