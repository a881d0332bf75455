// The network side: one thread polls the listening socket and every
// connection, so a slow or silent fault on one client never holds up another
// and delayed replies are just queue entries with a due time.
//
// libmodbus provides the listening and accepting. Its modbus_reply cannot be
// used for the answers: its mapping gives each table one contiguous range,
// while coils and holding registers here have holes that must answer
// "illegal data address", V memory must be shared between two tables, and
// remote-mode frames and spoiled replies are not Modbus at all. So requests
// are framed and answered by sim/protocol.h.
#include "sim/simulator.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <modbus.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "common/endpoint.h"
#include "sim/faults.h"

namespace logosim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kListenBacklog = 16;
constexpr size_t kReadChunk = 4096;
// Larger than the longest frame the framing can ask for (a remote-mode word
// write of 65535 words), so a client is only cut off for real garbage.
constexpr size_t kMaxBufferedBytes = 1 << 18;
constexpr size_t kLongFaultExtraBytes = 2;
constexpr uint8_t kLongFaultFiller = 0xEE;
constexpr auto kAnimationTick = std::chrono::milliseconds(100);
constexpr double kRunningBitSeconds = 0.5;
constexpr int kAnimatedInputs = 8;
constexpr double kAnalogFullScale = 1000.0;  // LOGO! analogue values run 0..1000

const char* tableName(Table table)
{
    switch (table) {
    case Table::Coil: return "coil";
    case Table::DiscreteInput: return "discrete input";
    case Table::InputRegister: return "input register";
    case Table::HoldingRegister: return "holding register";
    }
    return "?";
}

Location locateOrThrow(int station, Table table, int address, bool wantBits)
{
    if (station < 0 || station > wire::kMaxUnitId)
        throw std::out_of_range("station " + std::to_string(station) + " is not a unit id from 0 to 255");
    const bool bits = table == Table::Coil || table == Table::DiscreteInput;
    if (bits != wantBits)
        throw std::invalid_argument(std::string("the ") + tableName(table) + " table holds " +
                                    (bits ? "bits" : "registers") + ", not " + (wantBits ? "bits" : "registers"));
    Location at;
    if (!locate(table, address, 1, &at))
        throw std::out_of_range(std::string("no ") + tableName(table) + " at address " + std::to_string(address));
    return at;
}

// I1..I8 light one at a time in turn; AI1..AI8 alternate between ramps and
// sine waves of different periods, so a watch of any of them shows motion.
void animate(Memory& memory, double seconds)
{
    const int lit = static_cast<int>(seconds / kRunningBitSeconds) % kAnimatedInputs;
    for (int i = 0; i < kAnimatedInputs; ++i)
        memory.setBit(Area::I, i, i == lit);
    for (int i = 0; i < kAnalogInputCount; ++i) {
        const double period = 4.0 + 2.0 * i;
        const double phase = std::fmod(seconds, period) / period;
        const double value = i % 2 == 0 ? phase : 0.5 + 0.5 * std::sin(2 * M_PI * phase);
        memory.setWord(Area::AI, i, static_cast<uint16_t>(std::lround(value * kAnalogFullScale)));
    }
}

void spoil(std::vector<uint8_t>& reply, FaultKind kind, bool remoteMode)
{
    if (kind == FaultKind::Short && !reply.empty()) {
        reply.pop_back();
    } else if (kind == FaultKind::Long) {
        reply.insert(reply.end(), kLongFaultExtraBytes, kLongFaultFiller);
        if (!remoteMode && reply.size() > kLengthOffset + 1) {
            const size_t length = reply.size() - 6;
            reply[kLengthOffset] = static_cast<uint8_t>(length >> 8);
            reply[kLengthOffset + 1] = static_cast<uint8_t>(length);
        }
    } else if (kind == FaultKind::DropMid) {
        reply.resize(reply.size() / 2);
    }
}

}  // namespace

struct Simulator::Impl {
    struct Pending {
        std::vector<uint8_t> bytes;
        Clock::time_point due;
        bool closeAfter = false;
        bool isReply = true;  // counts in SimStats::replies once sent in full
    };

    struct Connection {
        int fd = -1;
        std::vector<uint8_t> in;
        std::deque<Pending> out;
        bool closing = false;  // a close is queued: read no more requests
    };

    SimOptions options;
    mutable std::mutex memoryMutex;
    MemoryBank bank;
    std::mutex faultMutex;
    FaultPlan plan;

    std::atomic<uint64_t> requests{0}, replies{0}, connectionsAccepted{0}, writeRequests{0};
    std::array<std::atomic<uint64_t>, kFaultKindCount> faults{};

    std::thread thread;
    std::atomic<bool> running{false}, stopping{false};
    int wakeFds[2] = {-1, -1};
    modbus_t* ctx = nullptr;
    int listenFd = -1;
    std::atomic<int> boundPort{0};
    std::vector<Connection> connections;  // server thread only
    Clock::time_point startTime = Clock::now();
    Clock::time_point nextTick = Clock::now();

    // pause/resume requests, carried out by the server thread.
    std::mutex commandMutex;
    std::condition_variable commandDone;
    bool wantPaused = false, paused = false;
    uint64_t commandSeq = 0, doneSeq = 0;
    std::string resumeError;

    explicit Impl(SimOptions o) : options(std::move(o)), plan(options.seed) { plan.set(options.faults); }

    bool listen(int port, std::string* error);
    void closeListener();
    void serve();
    void applyCommands();
    void acceptOne();
    void readFrom(Connection& conn);
    void process(Connection& conn, const uint8_t* frame, size_t len);
    void flush(Connection& conn, Clock::time_point now);
    void closeConnection(Connection& conn);
    int pollTimeoutMs(Clock::time_point now) const;
    double secondsRunning(Clock::time_point now) const
    {
        return std::chrono::duration<double>(now - startTime).count();
    }
    void wake() const;
    bool runCommand(bool pause, std::string* error);
};

bool Simulator::Impl::listen(int port, std::string* error)
{
    // The protocol-independent backend of libmodbus takes IPv6 as well.
    const std::string where = common::endpointText(options.host, port);
    ctx = modbus_new_tcp_pi(options.host.c_str(), std::to_string(port).c_str());
    if (ctx == nullptr) {
        *error = "cannot listen on " + where + ": " + modbus_strerror(errno);
        return false;
    }
    listenFd = modbus_tcp_pi_listen(ctx, kListenBacklog);
    if (listenFd < 0) {
        *error = "cannot listen on " + where + ": " + modbus_strerror(errno);
        closeListener();
        return false;
    }
    sockaddr_storage bound{};
    socklen_t size = sizeof bound;
    getsockname(listenFd, reinterpret_cast<sockaddr*>(&bound), &size);
    boundPort = ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&bound)->sin6_port
                                                  : reinterpret_cast<const sockaddr_in*>(&bound)->sin_port);
    return true;
}

void Simulator::Impl::closeListener()
{
    if (listenFd >= 0)
        ::close(listenFd);
    listenFd = -1;
    if (ctx != nullptr)
        modbus_free(ctx);  // never modbus_close: its socket is the last accepted connection
    ctx = nullptr;
}

void Simulator::Impl::wake() const
{
    const char byte = 1;
    if (wakeFds[1] >= 0 && ::write(wakeFds[1], &byte, 1) < 0) {
        // A full pipe already holds a wake-up; nothing is lost.
    }
}

int Simulator::Impl::pollTimeoutMs(Clock::time_point now) const
{
    Clock::time_point soonest = Clock::time_point::max();
    for (const Connection& conn : connections)
        if (!conn.out.empty())
            soonest = std::min(soonest, conn.out.front().due);
    if (options.animate)
        soonest = std::min(soonest, nextTick);
    if (soonest == Clock::time_point::max())
        return -1;
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(soonest - now).count();
    return static_cast<int>(std::max<long long>(0, wait + 1));
}

void Simulator::Impl::serve()
{
    while (!stopping) {
        applyCommands();
        std::vector<pollfd> fds{{wakeFds[0], POLLIN, 0}, {listenFd, POLLIN, 0}};
        for (const Connection& conn : connections)
            fds.push_back({conn.closing ? -1 : conn.fd, POLLIN, 0});
        const int ready = ::poll(fds.data(), fds.size(), pollTimeoutMs(Clock::now()));
        if (ready < 0 && errno != EINTR)
            break;
        char drain[64];
        while (ready > 0 && (fds[0].revents & POLLIN) && ::read(wakeFds[0], drain, sizeof drain) > 0) {
        }
        if (ready > 0 && (fds[1].revents & POLLIN))
            acceptOne();
        for (size_t i = 2; ready > 0 && i < fds.size(); ++i)
            if (fds[i].revents & (POLLIN | POLLHUP | POLLERR))
                readFrom(connections[i - 2]);
        const Clock::time_point now = Clock::now();
        for (Connection& conn : connections)
            flush(conn, now);
        connections.erase(std::remove_if(connections.begin(), connections.end(),
                                         [](const Connection& c) { return c.fd < 0; }),
                          connections.end());
        if (options.animate && now >= nextTick) {
            const double seconds = secondsRunning(now);
            std::lock_guard<std::mutex> lock(memoryMutex);
            bank.forEachStation([seconds](uint8_t, Memory& memory) { animate(memory, seconds); });
            nextTick = now + kAnimationTick;
        }
    }
}

void Simulator::Impl::applyCommands()
{
    std::lock_guard<std::mutex> lock(commandMutex);
    if (doneSeq == commandSeq)
        return;
    resumeError.clear();
    if (wantPaused && !paused) {
        for (Connection& conn : connections)
            closeConnection(conn);
        connections.clear();
        closeListener();
        paused = true;
    } else if (!wantPaused && paused) {
        paused = !listen(boundPort, &resumeError);
    }
    doneSeq = commandSeq;
    commandDone.notify_all();
}

void Simulator::Impl::acceptOne()
{
    int fd = modbus_tcp_pi_accept(ctx, &listenFd);
    if (fd < 0)
        return;  // the client gave up before we took it; keep listening
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);  // replies are tiny: no Nagle delay
    Connection conn;
    conn.fd = fd;
    connections.push_back(std::move(conn));
    ++connectionsAccepted;
}

void Simulator::Impl::readFrom(Connection& conn)
{
    uint8_t chunk[kReadChunk];
    const ssize_t got = ::recv(conn.fd, chunk, sizeof chunk, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
        closeConnection(conn);
        return;
    }
    if (got < 0)
        return;
    conn.in.insert(conn.in.end(), chunk, chunk + got);
    size_t used = 0;
    while (!conn.closing) {
        const FrameInfo frame = frameRequest(conn.in.data() + used, conn.in.size() - used);
        if (frame.status == FrameInfo::NeedMore)
            break;
        if (frame.status == FrameInfo::Unframeable) {
            conn.out.push_back(Pending{{}, Clock::now(), true, false});
            conn.closing = true;
            break;
        }
        process(conn, conn.in.data() + used, frame.length);
        used += frame.length;
    }
    conn.in.erase(conn.in.begin(), conn.in.begin() + static_cast<std::ptrdiff_t>(used));
    if (conn.in.size() > kMaxBufferedBytes)
        closeConnection(conn);
}

void Simulator::Impl::process(Connection& conn, const uint8_t* frame, size_t len)
{
    ++requests;
    const RequestSummary summary = summarizeRequest(frame, len);
    if (summary.write)
        ++writeRequests;
    if (options.requestLog)
        options.requestLog(requestLogLine(summary));
    FaultSpec fault;
    bool faulty = false;
    {
        std::lock_guard<std::mutex> lock(faultMutex);
        if (const FaultSpec* chosen = plan.next(requestStation(frame, len))) {
            fault = *chosen;
            faulty = true;
        }
    }
    Response response;
    if (faulty && fault.kind == FaultKind::Exception) {
        response.bytes = faultReply(frame, len, static_cast<uint8_t>(fault.exceptionCode));
    } else {
        std::lock_guard<std::mutex> lock(memoryMutex);
        if (options.animate)  // a station's first read already shows motion
            animate(bank.station(requestStation(frame, len)), secondsRunning(Clock::now()));
        response = handleFrame(bank, frame, len);
    }
    Pending pending{std::move(response.bytes), Clock::now(), response.closeAfter, true};
    if (faulty) {
        ++faults[static_cast<int>(fault.kind)];
        spoil(pending.bytes, fault.kind, response.remoteMode);
        if (fault.kind == FaultKind::Silent)
            return;
        if (fault.kind == FaultKind::Late)
            pending.due += std::chrono::milliseconds(fault.delayMs);
        if (fault.kind == FaultKind::Drop || fault.kind == FaultKind::DropMid) {
            if (fault.kind == FaultKind::Drop)
                pending.bytes.clear();
            pending.closeAfter = true;
            pending.isReply = false;
        }
    }
    conn.closing = pending.closeAfter;
    conn.out.push_back(std::move(pending));
}

void Simulator::Impl::flush(Connection& conn, Clock::time_point now)
{
    while (conn.fd >= 0 && !conn.out.empty() && conn.out.front().due <= now) {
        const Pending& next = conn.out.front();
        // Counted before sending, so a client that has its reply always
        // finds it in the statistics.
        const bool countsAsReply = next.isReply && !next.bytes.empty();
        if (countsAsReply)
            ++replies;
        if (!next.bytes.empty()) {
            // A client that does not take its replies is cut off rather than
            // allowed to stall the thread every other client depends on.
            const ssize_t sent = ::send(conn.fd, next.bytes.data(), next.bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent != static_cast<ssize_t>(next.bytes.size())) {
                if (countsAsReply)
                    --replies;
                closeConnection(conn);
                return;
            }
        }
        const bool close = next.closeAfter;
        conn.out.pop_front();
        if (close)
            closeConnection(conn);
    }
}

void Simulator::Impl::closeConnection(Connection& conn)
{
    if (conn.fd >= 0)
        ::close(conn.fd);
    conn.fd = -1;
    conn.out.clear();
}

bool Simulator::Impl::runCommand(bool pause, std::string* error)
{
    std::unique_lock<std::mutex> lock(commandMutex);
    if (!running) {
        if (error != nullptr)
            *error = "the simulator is not running";
        return false;
    }
    wantPaused = pause;
    const uint64_t seq = ++commandSeq;
    wake();
    commandDone.wait(lock, [&] { return doneSeq >= seq || !running; });
    if (error != nullptr)
        *error = resumeError;
    return resumeError.empty();
}

Simulator::Simulator(SimOptions options) : impl_(new Impl(std::move(options))) {}

Simulator::~Simulator() { stop(); }

bool Simulator::start(std::string* error)
{
    std::string message;
    if (impl_->running) {
        message = "the simulator is already running";
    } else if (pipe2(impl_->wakeFds, O_NONBLOCK | O_CLOEXEC) != 0) {
        message = std::string("cannot create the wake-up pipe: ") + std::strerror(errno);
    } else if (impl_->listen(impl_->options.port, &message)) {
        impl_->stopping = false;
        impl_->running = true;
        impl_->startTime = Clock::now();
        impl_->thread = std::thread([this] { impl_->serve(); });
        return true;
    }
    if (error != nullptr)
        *error = message;
    return false;
}

int Simulator::port() const { return impl_->boundPort; }

void Simulator::stop()
{
    if (!impl_->running)
        return;
    impl_->stopping = true;
    impl_->wake();
    impl_->thread.join();
    {
        std::lock_guard<std::mutex> lock(impl_->commandMutex);
        impl_->running = false;
        impl_->commandDone.notify_all();
    }
    for (Impl::Connection& conn : impl_->connections)
        impl_->closeConnection(conn);
    impl_->connections.clear();
    impl_->closeListener();
    for (int& fd : impl_->wakeFds) {
        ::close(fd);
        fd = -1;
    }
}

void Simulator::setFaults(std::vector<FaultSpec> faults)
{
    std::lock_guard<std::mutex> lock(impl_->faultMutex);
    impl_->plan.set(std::move(faults));
}

void Simulator::pause() { impl_->runCommand(true, nullptr); }

bool Simulator::resume(std::string* error) { return impl_->runCommand(false, error); }

SimStats Simulator::stats() const
{
    SimStats out;
    out.requests = impl_->requests;
    out.replies = impl_->replies;
    out.connections = impl_->connectionsAccepted;
    out.writeRequests = impl_->writeRequests;
    for (int k = 0; k < kFaultKindCount; ++k)
        out.faults[k] = impl_->faults[k];
    return out;
}

bool Simulator::bit(int station, Table table, int address) const
{
    const Location at = locateOrThrow(station, table, address, true);
    std::lock_guard<std::mutex> lock(impl_->memoryMutex);
    return impl_->bank.station(static_cast<uint8_t>(station)).bit(at.area, at.index);
}

void Simulator::setBit(int station, Table table, int address, bool value)
{
    const Location at = locateOrThrow(station, table, address, true);
    std::lock_guard<std::mutex> lock(impl_->memoryMutex);
    impl_->bank.station(static_cast<uint8_t>(station)).setBit(at.area, at.index, value);
}

uint16_t Simulator::word(int station, Table table, int address) const
{
    const Location at = locateOrThrow(station, table, address, false);
    std::lock_guard<std::mutex> lock(impl_->memoryMutex);
    return impl_->bank.station(static_cast<uint8_t>(station)).word(at.area, at.index);
}

void Simulator::setWord(int station, Table table, int address, uint16_t value)
{
    const Location at = locateOrThrow(station, table, address, false);
    std::lock_guard<std::mutex> lock(impl_->memoryMutex);
    impl_->bank.station(static_cast<uint8_t>(station)).setWord(at.area, at.index, value);
}

}  // namespace logosim
