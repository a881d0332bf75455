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

struct Exchange {
    LinkOutcome outcome = LinkOutcome::NoReply;
    QByteArray reply;
    std::string problem;  // why a reply was refused
};

class TcpLink {
public:
    TcpLink(std::string host, int port, std::chrono::milliseconds timeout, Trace& trace);
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
    uint16_t transaction_ = 0;
    QByteArray sent_;  // the frame as it went out, kept to judge its reply
    std::string lastProblem_;
    std::chrono::milliseconds backoff_{0};
    Clock::time_point nextAttempt_{};

    bool waitForBackoff(const std::atomic<bool>& stop) const;
    bool connectNow();
    void close(const std::string& why, bool backOff);
    bool sendAll(const char* frame, int length);
    Exchange receive(ReplyShape shape, Clock::time_point deadline);
    void judge(ReplyShape shape, Exchange* result);
    // Reads at least one more byte into reply, at most `want` in all, by
    // the deadline. Returns false on time-out or a closed connection.
    bool readMore(QByteArray* reply, int want, Clock::time_point deadline, bool first, bool* closed);
    std::string peer() const;
};

}  // namespace logohost

#endif  // LOGOHOST_TCP_LINK_H
