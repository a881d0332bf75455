// The TCP connection to the controller: one send per frame, the reply read
// with as few recv calls as its framing allows, and a fresh connection
// whenever the stream can no longer be trusted.
#ifndef LOGOHOST_TCP_LINK_H
#define LOGOHOST_TCP_LINK_H

#include <QByteArray>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "host/link/trace.h"

namespace logohost {

struct ReplyShape {
    bool modbus;         // the length comes from the MBAP header
    int expectedLength;  // the driver's expectation; -1: any
};

enum class LinkOutcome {
    Reply,     // a complete reply that answers the frame, in reply
    NoReply,   // time-out, refused or dropped connection: the frame got no answer
    Refused,   // bytes came that do not answer the frame (problem says why); never for the driver
    Stopped,   // the host is shutting down
};

// Why a frame got no usable answer, as far as the link can tell.
enum class LinkFault {
    None,
    CannotConnect,   // refused, unreachable or unknown: nothing can be sent now
    ConnectTimeout,  // the connection attempt was not answered in time
    ReplyTimeout,    // connected, but no (complete) reply in time
    Closed,          // the controller closed the connection, or a send failed
    BadReply,        // bytes came that do not answer the frame
};

struct Exchange {
    LinkOutcome outcome = LinkOutcome::NoReply;
    QByteArray reply;
    std::string problem;  // why a reply was refused
    LinkFault fault = LinkFault::None;
    std::string cause;    // the fault in a few words: "connection refused", "timed out after 1000 ms"
    bool sent = false;    // the frame went out
};

// While a failed connection backs off: wait for the next attempt (one
// controller, nothing else to talk to), or answer at once that nothing can
// be sent (several controllers: the others must not wait).
enum class BackoffWait { Sleep, FailFast };

class TcpLink {
public:
    TcpLink(std::string host, int port, std::chrono::milliseconds timeout, Trace& trace,
            BackoffWait backoffWait = BackoffWait::Sleep);
    ~TcpLink();
    TcpLink(const TcpLink&) = delete;
    TcpLink& operator=(const TcpLink&) = delete;

    // Opens the connection first if there is none (after the back-off of
    // earlier failures), sends the frame and reads its reply. A Modbus frame
    // goes out with a transaction id of the link's own, which its reply must
    // carry; a reply that does not answer the frame is refused, and the
    // connection, no longer to be trusted to be in step, is opened afresh.
    Exchange exchange(const char* frame, int length, ReplyShape shape, const std::atomic<bool>& stop);

    int connections() const { return connections_; }
    bool connected() const { return fd_ >= 0; }
    std::string peer() const;
    // Why the connection last failed or was dropped, for messages about
    // requests that got no reply. Read it only while no exchange runs.
    const std::string& lastProblem() const { return lastProblem_; }

private:
    using Clock = std::chrono::steady_clock;

    const std::string host_;
    const int port_;
    const std::chrono::milliseconds timeout_;
    Trace& trace_;
    const BackoffWait backoffWait_;
    int fd_ = -1;
    int connections_ = 0;
    uint16_t transaction_ = 0;
    QByteArray sent_;  // the frame as it went out, kept to judge its reply
    std::string lastProblem_;
    LinkFault lastFault_ = LinkFault::None;
    std::string lastCause_;
    std::chrono::milliseconds backoff_{0};
    Clock::time_point nextAttempt_{};

    bool waitForBackoff(const std::atomic<bool>& stop) const;
    bool connectNow();
    Exchange noAnswer() const;
    void close(LinkFault fault, const std::string& cause, const std::string& why, bool backOff);
    bool sendAll(const char* frame, int length);
    Exchange receive(ReplyShape shape, Clock::time_point deadline, const std::atomic<bool>& stop);
    void judge(ReplyShape shape, Exchange* result);
    // Reads at least one more byte into reply, at most `want` in all, by
    // the deadline. Returns false on time-out, a closed connection or stop.
    bool readMore(QByteArray* reply, int want, Clock::time_point deadline, bool first, bool* closed,
                  const std::atomic<bool>& stop);
};

}  // namespace logohost

#endif  // LOGOHOST_TCP_LINK_H
