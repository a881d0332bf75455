// The simulator's request parser fed any bytes: a stream is cut into
// requests the way a connection is, and every complete one is answered.
#include <cstdlib>

#include "sim/protocol.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    logosim::MemoryBank bank;
    size_t offset = 0;
    while (offset < size) {
        const logosim::FrameInfo frame = logosim::frameRequest(data + offset, size - offset);
        if (frame.status != logosim::FrameInfo::Complete)
            break;
        if (frame.length == 0 || frame.length > size - offset)
            std::abort();  // a framing that does not advance, or runs past the bytes, would hang a connection
        const logosim::Response response = logosim::handleFrame(bank, data + offset, frame.length);
        offset += frame.length;
        if (response.closeAfter)
            break;
    }
    return 0;
}
