#include "driver/frame_queue.h"

#include "driver/modbus_rtu_master.h"

void queueFrame(const QByteArray& frame, int replyLength, int replyHeaderLength, int dataLength, const RW_VAR* var)
{
    Protocol protocol = Protocol();
    protocol.frame = frame;
    protocol.frameLength = frame.size();
    protocol.replyLength = replyLength;
    protocol.replyHeaderLength = replyHeaderLength;
    protocol.dataLength = dataLength;
    protocol.var = *var;
    PLC_driver.frameQueue.append(protocol);

    // Every frame is a request of its own; the dispatcher completes the list
    // entry once framesAnswered reaches framesPerRequest.
    PLC_driver.comInfo->framesAnswered = 0;
    PLC_driver.comInfo->framesPerRequest = 1;
}
