#include "host/proxy/modbus_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/endpoint.h"
#include "common/thread_name.h"

namespace logohost {
namespace {

constexpr int kListenBacklog = 16;
// Past the client limit a few threads still tell clients why they are
// refused; past those a client is closed without a word.
constexpr int kRefusingThreads = 4;
constexpr int kRefusalWaitSeconds = 2;  // for the refused client's first request

// All `length` bytes through `transfer` (a send or a recv from an offset);
// false once the peer has closed or the socket failed.
template <typename Transfer>
bool whole(size_t length, Transfer transfer)
{
    for (size_t done = 0; done < length;) {
        const ssize_t n = transfer(done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

bool receiveAll(int fd, uint8_t* data, size_t length)
{
    return whole(length, [&](size_t done) { return ::recv(fd, data + done, length - done, 0); });
}

bool sendAll(int fd, const Frame& frame)
{
    return whole(frame.size(),
                 [&](size_t done) { return ::send(fd, frame.data() + done, frame.size() - done, MSG_NOSIGNAL); });
}

enum class Read { Frame, Closed, Garbage };

Read readFrame(int fd, Frame* frame)
{
    frame->assign(wire::kMbapBytes, 0);
    if (!receiveAll(fd, frame->data(), frame->size()))
        return Read::Closed;
    const size_t length = frameLength(frame->data());
    if (length == 0)
        return Read::Garbage;
    frame->resize(length);
    return receiveAll(fd, frame->data() + wire::kMbapBytes, length - wire::kMbapBytes) ? Read::Frame : Read::Closed;
}

socklen_t socketAddress(const Network& address, int port, sockaddr_storage* out)
{
    std::memset(out, 0, sizeof *out);
    if (address.family == AF_INET) {
        auto& v4 = reinterpret_cast<sockaddr_in&>(*out);
        v4.sin_family = AF_INET;
        v4.sin_port = htons(static_cast<uint16_t>(port));
        std::memcpy(&v4.sin_addr, address.bytes.data(), sizeof v4.sin_addr);
        return sizeof v4;
    }
    auto& v6 = reinterpret_cast<sockaddr_in6&>(*out);
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(static_cast<uint16_t>(port));
    std::memcpy(&v6.sin6_addr, address.bytes.data(), sizeof v6.sin6_addr);
    return sizeof v6;
}

}  // namespace

ModbusServer::ModbusServer(RequestHandler& handler, ProxySettings settings)
    : handler_(handler), settings_(std::move(settings)), access_(settings_.allowed)
{
}

ModbusServer::~ModbusServer()
{
    stop();
    for (const int fd : {listenFd_, wakeFds_[0], wakeFds_[1]})
        if (fd >= 0)
            ::close(fd);
}

bool ModbusServer::bind(std::string* error)
{
    Network address;
    sockaddr_storage where;
    if (!parseListenAddress(settings_.host, &address, error))
        return false;
    const socklen_t size = socketAddress(address, settings_.port, &where);
    listenFd_ = ::socket(address.family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (listenFd_ >= 0)
        ::setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&where), size) != 0 ||
        ::listen(listenFd_, kListenBacklog) != 0 || ::pipe2(wakeFds_, O_CLOEXEC) != 0) {
        *error = "cannot listen for Modbus clients on " + common::endpointText(settings_.host, settings_.port) +
                 ": " + std::strerror(errno);
        return false;
    }
    socklen_t boundSize = sizeof where;
    ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&where), &boundSize);
    port_ = ntohs(where.ss_family == AF_INET ? reinterpret_cast<sockaddr_in&>(where).sin_port
                                             : reinterpret_cast<sockaddr_in6&>(where).sin6_port);
    return true;
}

std::string ModbusServer::address() const { return common::endpointText(settings_.host, port_); }

void ModbusServer::start() { acceptThread_ = std::thread([this] { acceptLoop(); }); }

void ModbusServer::stop()
{
    if (stopping_.exchange(true))
        return;
    handler_.stop();
    if (wakeFds_[1] >= 0) {
        const char wake = 0;
        (void)!::write(wakeFds_[1], &wake, 1);
    }
    if (acceptThread_.joinable())
        acceptThread_.join();
    const std::lock_guard<std::mutex> lock(clientsMutex_);
    for (const auto& client : clients_)
        ::shutdown(client->fd, SHUT_RDWR);  // wakes its thread out of recv
    for (const auto& client : clients_) {
        client->thread.join();
        ::close(client->fd);
    }
    clients_.clear();
}

void ModbusServer::acceptLoop()
{
    common::nameThisThread("modbus-accept");
    pollfd fds[] = {{listenFd_, POLLIN, 0}, {wakeFds_[0], POLLIN, 0}};
    while (!stopping_.load()) {
        if (::poll(fds, sizeof fds / sizeof fds[0], -1) < 0 && errno != EINTR)
            break;
        if (!(fds[0].revents & POLLIN))
            continue;
        sockaddr_storage peer;
        socklen_t size = sizeof peer;
        const int fd = ::accept4(listenFd_, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC);
        if (fd >= 0)
            admit(fd, peer);
    }
}

void ModbusServer::admit(int fd, const sockaddr_storage& peer)
{
    const std::string who = "modbus " + peerText(peer);
    if (!access_.allows(peer)) {
        say(who + " closed: not in a network --modbus-allow names");
        ::close(fd);
        return;
    }
    const std::lock_guard<std::mutex> lock(clientsMutex_);
    int served = 0, refusing = 0;
    reap(&served, &refusing);
    const bool refused = served >= settings_.maxClients;
    if (refused && refusing >= kRefusingThreads) {
        say(who + " closed: " + std::to_string(served) + " clients already, the most --modbus-max-clients allows");
        ::close(fd);
        return;
    }
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (refused) {
        const timeval wait{kRefusalWaitSeconds, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    }
    clients_.emplace_back(new Client);
    Client* client = clients_.back().get();
    client->fd = fd;
    client->who = who;
    client->refused = refused;
    client->thread = std::thread([this, client] { serve(client); });
}

void ModbusServer::reap(int* served, int* refusing)
{
    for (auto it = clients_.begin(); it != clients_.end();) {
        Client& client = **it;
        if (client.done.load()) {
            client.thread.join();
            ::close(client.fd);
            it = clients_.erase(it);
            continue;
        }
        ++*(client.refused ? refusing : served);
        ++it;
    }
}

// The client's socket stays open until the thread is joined, so that stop()
// never shuts down a descriptor number the system has given to another.
void ModbusServer::serve(Client* client)
{
    common::nameThisThread("modbus-client");
    Frame request;
    Read read;
    while ((read = readFrame(client->fd, &request)) == Read::Frame) {
        const Frame reply = client->refused ? exceptionReply(request, wire::kExGatewayPathUnavailable)
                                            : handler_.answer(request, client->who);
        if (!sendAll(client->fd, reply) || client->refused)
            break;
    }
    if (client->refused)
        say(client->who + " refused: " + std::to_string(settings_.maxClients) +
            " clients already, the most --modbus-max-clients allows");
    else if (read == Read::Garbage)
        say(client->who + " closed: it sent what is not a Modbus TCP frame");
    ::shutdown(client->fd, SHUT_RDWR);
    client->done.store(true);
}

void ModbusServer::say(const std::string& line) const
{
    if (settings_.log)
        settings_.log(line);
}

}  // namespace logohost
