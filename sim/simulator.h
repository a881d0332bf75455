// A LOGO! controller served over Modbus TCP, for testing the driver and the
// host without hardware.
//
// The address map is common/logo_map.h. Each unit identifier (station) has
// its own memory, created on first use. Remote-mode frames of the driver are
// answered from the same memory; their layouts are in common/remote_wire.h.
#ifndef LOGOSIM_SIMULATOR_H
#define LOGOSIM_SIMULATOR_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/protocol.h"

namespace logosim {

enum class FaultKind {
    Drop,       // close the connection instead of answering
    DropMid,    // send the first half of the reply, then close
    Late,       // answer after delayMs
    Short,      // leave off the reply's last byte
    Long,       // add two bytes to the reply (a Modbus reply's length field counts them)
    Exception,  // answer with Modbus exception exceptionCode (remote mode: DeviceFailure status)
    Silent,     // never answer this request, keep the connection
};
constexpr int kFaultKindCount = 7;
const char* faultKindName(FaultKind kind);

// One fault rule. It fires on every Nth request it applies to, or with a
// probability drawn from the simulator's seeded generator (reproducible for
// the same seed and the same request sequence). All faults but Exception
// still carry out the request; only its reply is spoiled.
struct FaultSpec {
    FaultKind kind = FaultKind::Drop;
    int everyNth = 1;          // used when probability < 0
    double probability = -1;   // 0..1, or < 0 for "use everyNth"
    int delayMs = 1000;        // Late only
    int station = -1;          // only requests for this unit id; -1 = any
    int exceptionCode = kExServerDeviceFailure;  // Exception only
};

// Text form: KIND[:every=N][:prob=P][:delay=MS][:station=N][:code=C], KIND one
// of drop, drop-mid, late, short, long, exception, silent. On failure returns
// false and says in *error which part of the text was wrong and what was
// expected.
bool parseFaultSpec(const std::string& text, FaultSpec* out, std::string* error);

struct SimOptions {
    std::string host = "127.0.0.1";  // address to listen on, IPv4 or IPv6
    int port = 0;                    // 0: any free port, see Simulator::port()
    bool animate = false;            // I1..I8 and AI1..AI8 change over time
    std::vector<FaultSpec> faults;
    unsigned seed = 1;               // for probabilistic faults
    // Called on the server thread with each request's requestLogLine, before
    // it is answered; it must not call back into the simulator.
    std::function<void(const std::string&)> requestLog;
};

struct SimStats {
    uint64_t requests = 0;     // complete requests received
    uint64_t replies = 0;      // replies sent in full (faulty ones included)
    uint64_t connections = 0;  // connections accepted
    uint64_t writeRequests = 0;  // requests with a write function (or remote-mode writes), answered or not
    std::array<uint64_t, kFaultKindCount> faults{};
    uint64_t faultsOf(FaultKind kind) const { return faults[static_cast<int>(kind)]; }
};

class Simulator {
public:
    explicit Simulator(SimOptions options);
    ~Simulator();  // stops and joins the server thread
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Binds, listens and serves on a background thread.
    bool start(std::string* error);
    int port() const;
    void stop();

    // Replaces the fault rules; their counters start again.
    void setFaults(std::vector<FaultSpec> faults);
    // Paused, the controller closes every connection and refuses new ones;
    // resume listens again on the same port. Both return once in effect.
    void pause();
    bool resume(std::string* error = nullptr);

    SimStats stats() const;

    // Direct memory access by Modbus table and address, for tests. An address
    // outside the map, or a station outside 0..255, throws std::out_of_range
    // naming it; bit access to a register table (or the reverse) throws
    // std::invalid_argument.
    bool bit(int station, Table table, int address) const;
    void setBit(int station, Table table, int address, bool value);
    uint16_t word(int station, Table table, int address) const;
    void setWord(int station, Table table, int address, uint16_t value);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// The host's `sim` subcommand: --listen HOST[:PORT] (default 127.0.0.1:5020,
// port 0 = any free port), --animate, --fault RULE (repeatable), --seed N,
// --log-requests (each request's requestLogLine on standard output), --help. Prints "LOGO! simulator listening on HOST:PORT" first, then serves
// until SIGINT or SIGTERM and returns 0 (2 for bad arguments, 1 if it cannot
// listen). Lines on standard input change it while it runs:
//   fault RULE [RULE...]   replace the fault rules ("fault none" clears them)
//   pause | resume
int runSimulatorMain(int argc, char** argv);

}  // namespace logosim

#endif  // LOGOSIM_SIMULATOR_H
