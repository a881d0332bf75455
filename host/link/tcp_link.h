// The TCP connection to the controller: one send per frame, the reply read
// with as few recv calls as its framing allows, and a fresh connection
// whenever the stream can no longer be trusted.
#ifndef LOGOHOST_TCP_LINK_H
#define LOGOHOST_TCP_LINK_H

#include <QByteArray>

#include <atomic>
#include <chrono>
#include <string>

#include "host/link/trace.h"

namespace logohost {

struct ReplyShape {
    bool modbus;         // the length comes from the MBAP header
    int expectedLength;  // the driver's expectation; -1: any
};

enum class LinkOutcome {
    Reply,        // a complete reply (by its own framing), in reply
    NoReply,      // time-out, refused or dropped connection: the frame got no answer
    Incomplete,   // part of a reply arrived before the time-out, in reply
    Stopped,      // the host is shutting down
};

struct Exchange {
    LinkOutcome outcome = LinkOutcome::NoReply;
    QByteArray reply;
};

class TcpLink {
public:
    TcpLink(std::string host, int port, std::chrono::milliseconds timeout, Trace& trace);
    ~TcpLink();
    TcpLink(const TcpLink&) = delete;
    TcpLink& operator=(const TcpLink&) = delete;

    // Opens the connection first if there is none (after the back-off of
    // earlier failures), sends the frame and reads its reply.
    Exchange exchange(const char* frame, int length, ReplyShape shape, const std::atomic<bool>& stop);

    int connections() const { return connections_; }
    // Why the connection last failed or was dropped, for messages about
    // requests that got no reply. Read it only while no exchange runs.
    const std::string& lastProblem() const { return lastProblem_; }

private:
    using Clock = std::chrono::steady_clock;

    const std::string host_;
    const int port_;
    const std::chrono::milliseconds timeout_;
    Trace& trace_;
    int fd_ = -1;
    int connections_ = 0;
    std::string lastProblem_;
    std::chrono::milliseconds backoff_{0};
    Clock::time_point nextAttempt_{};

    bool waitForBackoff(const std::atomic<bool>& stop) const;
    bool connectNow();
    void close(const std::string& why, bool backOff);
    bool sendAll(const char* frame, int length);
    Exchange receive(ReplyShape shape, Clock::time_point deadline);
    // Reads at least one more byte into reply, at most `want` in all, by
    // the deadline. Returns false on time-out or a closed connection.
    bool readMore(QByteArray* reply, int want, Clock::time_point deadline, bool first, bool* closed);
    std::string peer() const;
};

}  // namespace logohost

#endif  // LOGOHOST_TCP_LINK_H
