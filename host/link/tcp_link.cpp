#include "host/link/tcp_link.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "common/endpoint.h"
#include "common/modbus_wire.h"
#include "common/remote_wire.h"
#include "host/link/reply_check.h"

namespace logohost {
namespace {

using namespace wire;

constexpr int kMaxModbusReply = kMaxFrame;
constexpr int kMaxRemoteReply = 4096;  // only used when the driver names no length
constexpr std::chrono::milliseconds kFirstBackoff{50};
constexpr std::chrono::milliseconds kMaxBackoff{2000};
constexpr std::chrono::milliseconds kStopPoll{20};

int remainingMs(std::chrono::steady_clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long long>(0, left.count()));
}

bool waitWritable(int fd, int timeoutMs)
{
    pollfd p{fd, POLLOUT, 0};
    if (poll(&p, 1, timeoutMs) != 1)
        return false;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    errno = error;
    return error == 0;
}

// A connected socket set up for the exchange, or -1 with errno set.
int openSocket(const addrinfo* address, std::chrono::milliseconds timeout)
{
    const int fd = socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC, address->ai_protocol);
    if (fd < 0)
        return -1;
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    const bool connected = connect(fd, address->ai_addr, address->ai_addrlen) == 0 ||
                           (errno == EINPROGRESS && waitWritable(fd, static_cast<int>(timeout.count())));
    if (!connected) {
        const int error = errno ? errno : ETIMEDOUT;
        ::close(fd);
        errno = error;
        return -1;
    }
    fcntl(fd, F_SETFL, flags);
    // Frames are small and each one waits for its reply: no Nagle delay.
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // The first recv of every reply blocks a short while at most, so that the
    // common exchange needs no poll call and a stop is seen soon.
    const std::chrono::milliseconds block = std::min(timeout, kStopPoll);
    timeval tv{static_cast<time_t>(block.count() / 1000), static_cast<suseconds_t>(block.count() % 1000 * 1000)};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    return fd;
}

// A remote-mode reply that is the header alone (an error reply: its first
// byte gives its length, its last that nothing follows). No good reply is
// that short, so waiting for the expected length would only waste the
// time-out.
bool isRemoteHeaderOnly(const QByteArray& reply)
{
    return reply.size() == kRemoteHeader && static_cast<unsigned char>(reply.at(0)) == kRemoteHeader &&
           reply.at(kRemoteFollowingOffset) == 0;
}

enum { kLengthUnknown = 0, kUnframeable = -1 };

// The first recv asks for the whole expected reply; a Modbus reply's own
// length then says whether more is due (an exception reply is shorter).
int firstReadSize(ReplyShape shape)
{
    if (!shape.modbus)
        return shape.expectedLength > 0 ? shape.expectedLength : kMaxRemoteReply;
    const int expected = shape.expectedLength > 0 ? std::min(shape.expectedLength, kMaxModbusReply) : kMaxModbusReply;
    return std::max(expected, kMinFrame + 1);
}

// The full length of the reply as far as the bytes received tell it.
int framedLength(const QByteArray& reply, ReplyShape shape)
{
    if (!shape.modbus) {
        if (isRemoteHeaderOnly(reply))
            return kRemoteHeader;
        // Without a length from the driver, what one recv brought is the reply.
        return shape.expectedLength > 0 ? shape.expectedLength : reply.size();
    }
    if (reply.size() < kLengthCountedFrom)
        return kLengthUnknown;
    const auto* bytes = reinterpret_cast<const unsigned char*>(reply.constData());
    const int length = bytes[kLengthOffset] << 8 | bytes[kLengthOffset + 1];
    if (length < kMinLengthField || length > kMaxLengthField)
        return kUnframeable;
    return kLengthCountedFrom + length;
}

// "Connection refused" as a part of a sentence.
std::string systemError(int error)
{
    std::string text = std::strerror(error);
    if (!text.empty())
        text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

}  // namespace

TcpLink::TcpLink(std::string host, int port, std::chrono::milliseconds timeout, Trace& trace, BackoffWait backoffWait)
    : host_(std::move(host)), port_(port), timeout_(timeout), trace_(trace), backoffWait_(backoffWait)
{
}

TcpLink::~TcpLink()
{
    if (fd_ >= 0)
        ::close(fd_);
}

std::string TcpLink::peer() const { return common::endpointText(host_, port_); }

Exchange TcpLink::noAnswer() const
{
    Exchange none;
    none.fault = lastFault_;
    none.cause = lastCause_;
    return none;
}

Exchange TcpLink::exchange(const char* frame, int length, ReplyShape shape, const std::atomic<bool>& stop)
{
    if (fd_ < 0) {
        if (backoffWait_ == BackoffWait::FailFast && Clock::now() < nextAttempt_)
            return noAnswer();
        if (!waitForBackoff(stop)) {
            Exchange stopped;
            stopped.outcome = LinkOutcome::Stopped;
            return stopped;
        }
        if (!connectNow())
            return noAnswer();
    }
    sent_.resize(length);
    std::memcpy(sent_.data(), frame, static_cast<size_t>(length));
    if (shape.modbus && length >= kLengthCountedFrom) {
        // The driver numbers no frames; numbering them here lets a reply that
        // belongs to an earlier frame be told from the answer to this one.
        ++transaction_;
        sent_[0] = static_cast<char>(transaction_ >> 8);
        sent_[1] = static_cast<char>(transaction_ & 0xFF);
    }
    trace_.sent(sent_.constData(), length);
    if (!sendAll(sent_.constData(), length)) {
        const int error = errno;
        close(LinkFault::Closed, "connection lost: " + systemError(error), std::string("send failed: ") + std::strerror(error),
              true);
        return noAnswer();
    }
    Exchange result = receive(shape, Clock::now() + timeout_, stop);
    if (stop.load() && result.outcome == LinkOutcome::NoReply) {
        result.outcome = LinkOutcome::Stopped;
        return result;
    }
    result.sent = true;
    if (!result.reply.isEmpty())
        trace_.received(result.reply.constData(), result.reply.size(), shape.modbus);
    if (result.outcome == LinkOutcome::Reply)
        judge(shape, &result);
    if (result.outcome == LinkOutcome::Reply)
        backoff_ = std::chrono::milliseconds(0);
    return result;
}

void TcpLink::judge(ReplyShape shape, Exchange* result)
{
    result->problem =
        shape.modbus ? modbusReplyProblem(sent_, result->reply) : remoteReplyProblem(sent_, result->reply);
    if (result->problem.empty())
        return;
    result->outcome = LinkOutcome::Refused;
    result->fault = LinkFault::BadReply;
    result->cause = "refused reply: " + result->problem;
    // A peer that answers with something else is likely not the controller
    // at all: back off rather than hammer it with connections.
    if (fd_ >= 0)
        close(LinkFault::BadReply, result->cause, "reply refused: " + result->problem, true);
    else
        trace_.note("reply refused: " + result->problem);
}

bool TcpLink::waitForBackoff(const std::atomic<bool>& stop) const
{
    while (Clock::now() < nextAttempt_) {
        if (stop.load())
            return false;
        std::this_thread::sleep_for(std::min<Clock::duration>(kStopPoll, nextAttempt_ - Clock::now()));
    }
    return !stop.load();
}

bool TcpLink::connectNow()
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int status = getaddrinfo(host_.c_str(), std::to_string(port_).c_str(), &hints, &found);
    if (status != 0) {
        const std::string why = std::string("cannot resolve ") + host_ + ": " + gai_strerror(status);
        close(LinkFault::CannotConnect, why, why, true);
        return false;
    }
    for (const addrinfo* address = found; address && fd_ < 0; address = address->ai_next)
        fd_ = openSocket(address, timeout_);
    const int error = errno;
    freeaddrinfo(found);
    if (fd_ < 0) {
        const bool timedOut = error == ETIMEDOUT;
        close(timedOut ? LinkFault::ConnectTimeout : LinkFault::CannotConnect,
              timedOut ? "connection timed out after " + std::to_string(timeout_.count()) + " ms" : systemError(error),
              "cannot connect to " + peer() + ": " + std::strerror(error), true);
        return false;
    }
    ++connections_;
    trace_.note("connected to " + peer());
    return true;
}

void TcpLink::close(LinkFault fault, const std::string& cause, const std::string& why, bool backOff)
{
    lastProblem_ = why;
    lastFault_ = fault;
    lastCause_ = cause;
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (backOff) {
        backoff_ = backoff_.count() ? std::min(backoff_ * 2, kMaxBackoff) : kFirstBackoff;
        nextAttempt_ = Clock::now() + backoff_;
        trace_.note(why + "; next connection attempt in " + std::to_string(backoff_.count()) + " ms");
    } else {
        trace_.note(why + "; reconnecting");
    }
}

bool TcpLink::sendAll(const char* frame, int length)
{
    for (int sent = 0; sent < length;) {
        const ssize_t n = send(fd_, frame + sent, static_cast<size_t>(length - sent), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        sent += static_cast<int>(n);
    }
    return true;
}

bool TcpLink::readMore(QByteArray* reply, int want, Clock::time_point deadline, bool first, bool* closed,
                       const std::atomic<bool>& stop)
{
    const auto waitable = [](int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; };
    const int have = reply->size();
    reply->resize(want);
    char* into = reply->data() + have;
    const size_t room = static_cast<size_t>(want - have);
    // The first recv of a reply blocks a short while at most (SO_RCVTIMEO):
    // the common reply needs no poll call.
    ssize_t n = first ? recv(fd_, into, room, 0) : -1;
    int error = n >= 0 ? 0 : first ? errno : EAGAIN;
    while (n < 0 && waitable(error) && Clock::now() < deadline && !stop.load()) {
        pollfd p{fd_, POLLIN, 0};
        const int ready = poll(&p, 1, std::min(remainingMs(deadline), static_cast<int>(kStopPoll.count())));
        n = ready == 1 ? recv(fd_, into, room, MSG_DONTWAIT) : -1;
        error = n >= 0 ? 0 : ready == 0 ? EAGAIN : errno;
    }
    reply->resize(have + static_cast<int>(std::max<ssize_t>(n, 0)));
    *closed = n == 0 || (n < 0 && !waitable(error));
    return n > 0;
}

Exchange TcpLink::receive(ReplyShape shape, Clock::time_point deadline, const std::atomic<bool>& stop)
{
    Exchange result;
    int want = firstReadSize(shape);
    bool closed = false;
    for (bool first = true; readMore(&result.reply, want, deadline, first, &closed, stop); first = false) {
        const int length = framedLength(result.reply, shape);
        if (length == kUnframeable) {
            result.outcome = LinkOutcome::Reply;  // judged, and refused, with the rest
            return result;
        }
        if (length == kLengthUnknown)
            continue;
        if (result.reply.size() >= length) {
            result.outcome = LinkOutcome::Reply;
            if (result.reply.size() > length) {
                result.reply.truncate(length);
                close(LinkFault::BadReply, "bytes after the reply", "bytes after the reply", false);
            }
            return result;
        }
        want = length;
    }
    const std::string got = std::to_string(result.reply.size()) + " bytes of a reply";
    std::string why;
    if (closed)
        why = result.reply.isEmpty() ? "connection closed by the controller" : "connection closed after " + got;
    else  // a late reply on this connection would be taken for the answer to the next frame
        why = "no complete reply within " + std::to_string(timeout_.count()) + " ms" +
              (result.reply.isEmpty() ? "" : " (" + got + ")");
    const LinkFault fault = closed ? LinkFault::Closed : LinkFault::ReplyTimeout;
    std::string cause = closed ? "connection closed by the controller" : "timed out after " + std::to_string(timeout_.count()) + " ms";
    if (!result.reply.isEmpty()) {
        // Part of a reply answers nothing: refused, so that the driver never
        // takes a truncated reply for a whole one.
        result.outcome = LinkOutcome::Refused;
        result.problem = "incomplete reply: " + why;
        cause = result.problem;
    }
    close(result.reply.isEmpty() ? fault : LinkFault::BadReply, cause, why, closed);
    result.fault = lastFault_;
    result.cause = lastCause_;
    return result;
}

}  // namespace logohost
