// The --trace output: every frame in hex on standard error, with direction
// and time, and the link's events between them.
#ifndef LOGOHOST_TRACE_H
#define LOGOHOST_TRACE_H

#include <mutex>
#include <string>

namespace logohost {

class Trace {
public:
    explicit Trace(bool enabled) : enabled_(enabled) {}
    bool enabled() const { return enabled_; }

    void sent(const char* bytes, int length);
    // A received reply; a Modbus exception is spelled out beside it.
    void received(const char* bytes, int length, bool modbus);
    void note(const std::string& text);

private:
    const bool enabled_;
    std::mutex mutex_;

    void line(const char* direction, const std::string& text);
};

std::string hexBytes(const char* bytes, int length);

}  // namespace logohost

#endif  // LOGOHOST_TRACE_H
