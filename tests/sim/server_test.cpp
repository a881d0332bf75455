// The simulator over real sockets, seen by a libmodbus client.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <modbus.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

#include "sim/simulator.h"
#include "tests/sim/frames.h"

using namespace logosim;
using simtest::Bytes;

namespace {

constexpr int kSlowTimeoutMs = 2000;  // generous: only faults should make a reply miss it

class Client {
public:
    explicit Client(int port, int station = 1, int timeoutMs = kSlowTimeoutMs)
        : ctx_(modbus_new_tcp("127.0.0.1", port))
    {
        modbus_set_slave(ctx_, station);
        modbus_set_response_timeout(ctx_, static_cast<uint32_t>(timeoutMs / 1000),
                                    static_cast<uint32_t>(timeoutMs % 1000) * 1000);
    }
    ~Client() { modbus_free(ctx_); }  // modbus_free closes nothing: close first
    bool connect() { return modbus_connect(ctx_) == 0; }
    void close() { modbus_close(ctx_); }
    modbus_t* get() const { return ctx_; }

private:
    modbus_t* ctx_;
};

// A raw TCP connection for looking at reply bytes libmodbus would hide.
class RawSocket {
public:
    explicit RawSocket(int port) : fd_(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(port));
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    }
    ~RawSocket() { ::close(fd_); }
    bool connected() const { return connected_; }
    void send(const Bytes& bytes) { ASSERT_EQ(::send(fd_, bytes.data(), bytes.size(), 0), ssize_t(bytes.size())); }
    // Reads until `want` bytes arrived, the peer closed, or nothing came for idleMs.
    Bytes receive(size_t want, int idleMs, bool* closed = nullptr)
    {
        Bytes got;
        for (;;) {
            pollfd pfd{fd_, POLLIN, 0};
            if (got.size() >= want || ::poll(&pfd, 1, idleMs) <= 0)
                break;
            uint8_t chunk[1024];
            const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
            if (n <= 0) {
                if (closed != nullptr)
                    *closed = true;
                break;
            }
            got.insert(got.end(), chunk, chunk + n);
        }
        return got;
    }

private:
    int fd_;
    bool connected_ = false;
};

class SimulatorTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(sim_.start(&error)) << error;
        ASSERT_GT(sim_.port(), 0);
    }
    Simulator sim_{SimOptions{}};
};

TEST_F(SimulatorTest, ValuesWrittenReadBackInEveryTable)
{
    Client client(sim_.port());
    ASSERT_TRUE(client.connect());
    modbus_t* ctx = client.get();

    ASSERT_EQ(modbus_write_bit(ctx, 8194, 1), 1);  // Q3
    uint8_t bits[20] = {};
    ASSERT_EQ(modbus_read_bits(ctx, 8192, 20, bits), 20);
    for (int q = 0; q < 20; ++q)
        EXPECT_EQ(bits[q], q == 2) << "Q" << q + 1;
    EXPECT_TRUE(sim_.bit(1, Table::Coil, 8194));

    const uint16_t words[3] = {0x0102, 0xFFFF, 7};
    ASSERT_EQ(modbus_write_registers(ctx, 423, 3, words), 3);  // VW846..VW850
    ASSERT_EQ(modbus_write_register(ctx, 530, 1234), 1);         // AM3
    uint16_t back[3] = {};
    ASSERT_EQ(modbus_read_registers(ctx, 423, 3, back), 3);
    EXPECT_EQ(std::vector<uint16_t>(back, back + 3), std::vector<uint16_t>(words, words + 3));
    EXPECT_EQ(sim_.word(1, Table::HoldingRegister, 530), 1234);
    EXPECT_TRUE(sim_.bit(1, Table::Coil, 423 * 16)) << "VW423 = 0x0102 sets V846.0";

    sim_.setBit(1, Table::DiscreteInput, 23, true);
    sim_.setWord(1, Table::InputRegister, 7, 999);
    ASSERT_EQ(modbus_read_input_bits(ctx, 22, 2, bits), 2);
    EXPECT_EQ(bits[0], 0);
    EXPECT_EQ(bits[1], 1);
    ASSERT_EQ(modbus_read_input_registers(ctx, 7, 1, back), 1);
    EXPECT_EQ(back[0], 999);
}

TEST_F(SimulatorTest, OutOfRangeRequestsFailWithIllegalDataAddress)
{
    Client client(sim_.port());
    ASSERT_TRUE(client.connect());
    uint8_t bits[8];
    uint16_t words[8];
    EXPECT_EQ(modbus_read_registers(client.get(), 426, 1, words), -1);
    EXPECT_EQ(errno, EMBXILADD);
    EXPECT_EQ(modbus_read_bits(client.get(), 6808, 1, bits), -1);
    EXPECT_EQ(errno, EMBXILADD);
    EXPECT_EQ(modbus_read_input_registers(client.get(), 7, 2, words), -1);
    EXPECT_EQ(errno, EMBXILADD);
    EXPECT_EQ(modbus_write_register(client.get(), 520, 1), -1);
    EXPECT_EQ(errno, EMBXILADD);
    EXPECT_EQ(modbus_read_registers(client.get(), 0, 1, words), 1) << "the connection stays usable";
}

TEST_F(SimulatorTest, TestAccessRefusesAddressesOutsideTheMap)
{
    EXPECT_THROW(sim_.word(1, Table::HoldingRegister, 426), std::out_of_range);
    EXPECT_THROW(sim_.setBit(1, Table::Coil, 8212, true), std::out_of_range);
    EXPECT_THROW(sim_.word(256, Table::HoldingRegister, 0), std::out_of_range);
    EXPECT_THROW(sim_.bit(1, Table::HoldingRegister, 0), std::invalid_argument);
}

TEST_F(SimulatorTest, StationsHaveIndependentMemory)
{
    Client one(sim_.port(), 1), two(sim_.port(), 2);
    ASSERT_TRUE(one.connect());
    ASSERT_TRUE(two.connect());  // two clients connected at once
    ASSERT_EQ(modbus_write_register(one.get(), 512, 111), 1);
    ASSERT_EQ(modbus_write_register(two.get(), 512, 222), 1);
    uint16_t value = 0;
    ASSERT_EQ(modbus_read_registers(one.get(), 512, 1, &value), 1);
    EXPECT_EQ(value, 111);
    ASSERT_EQ(modbus_read_registers(two.get(), 512, 1, &value), 1);
    EXPECT_EQ(value, 222);
    EXPECT_EQ(sim_.word(3, Table::HoldingRegister, 512), 0);
    EXPECT_EQ(sim_.stats().connections, 2u);
}

TEST_F(SimulatorTest, ModbusAndRemoteModeShareAStreamInOrder)
{
    sim_.setWord(1, Table::HoldingRegister, 2, 0xA1B2);
    RawSocket raw(sim_.port());
    ASSERT_TRUE(raw.connected());
    Bytes both = simtest::remoteFrame(7, 2, 1);
    const Bytes modbus = simtest::mbap(simtest::pdu(kFcReadHoldingRegisters, 2, 1));
    both.insert(both.end(), modbus.begin(), modbus.end());
    raw.send(both);  // one segment, two requests
    const Bytes reply = raw.receive(11 + 11, kSlowTimeoutMs);
    const Bytes expected{11, 3, 0, 9, 1, 0, 7, 0, 2, 0xA1, 0xB2,            // remote-mode read reply
                         0, 0, 0, 0, 0, 5, 1, kFcReadHoldingRegisters, 2, 0xA1, 0xB2};
    EXPECT_EQ(reply, expected);
    EXPECT_EQ(sim_.stats().requests, 2u);
    EXPECT_EQ(sim_.stats().replies, 2u);
}

// ---- Faults as a libmodbus client sees them ----------------------------------

struct FaultCase {
    const char* name;
    const char* rule;
    int failingCall;   // 1-based call that fails; the calls before it succeed
    int expectedErrno;
    friend void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.name; }
};

class FaultSeenByClient : public SimulatorTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(FaultSeenByClient, Fails)
{
    const FaultCase& c = GetParam();
    FaultSpec rule;
    std::string error;
    ASSERT_TRUE(parseFaultSpec(c.rule, &rule, &error)) << error;
    sim_.setFaults({rule});
    constexpr int kFaultTimeoutMs = 200;  // far below the 1 s late delay
    Client client(sim_.port(), 1, kFaultTimeoutMs);
    ASSERT_TRUE(client.connect());
    uint16_t value = 0;
    for (int call = 1; call < c.failingCall; ++call)
        ASSERT_EQ(modbus_read_registers(client.get(), 0, 1, &value), 1) << "call " << call;
    errno = 0;
    EXPECT_EQ(modbus_read_registers(client.get(), 0, 1, &value), -1);
    EXPECT_EQ(errno, c.expectedErrno) << modbus_strerror(errno);
    EXPECT_GE(sim_.stats().faultsOf(rule.kind), 1u);
}

const FaultCase kFaultCases[] = {
    {"exception_default", "exception", 1, EMBXSFAIL},
    {"exception_code_6", "exception:code=6", 1, EMBXSBUSY},
    {"late", "late:delay=1000", 1, ETIMEDOUT},
    {"silent", "silent", 1, ETIMEDOUT},
    {"short", "short", 1, ETIMEDOUT},
    {"drop", "drop", 1, ECONNRESET},
    {"drop_mid", "drop-mid", 1, ECONNRESET},
    {"every_second", "exception:every=2", 2, EMBXSFAIL},
    {"for_this_station", "exception:station=1", 1, EMBXSFAIL},
    // libmodbus reads a reply by its byte count, so two extra bytes stay in
    // the stream and spoil the next reply's transaction id.
    {"long", "long", 2, EMBBADDATA},
};

INSTANTIATE_TEST_SUITE_P(Kinds, FaultSeenByClient, testing::ValuesIn(kFaultCases),
                         [](const testing::TestParamInfo<FaultCase>& info) { return info.param.name; });

TEST_F(SimulatorTest, SpoiledRepliesHaveTheExpectedBytes)
{
    const Bytes request = simtest::mbap(simtest::pdu(kFcReadHoldingRegisters, 0, 2));
    const Bytes good{0, 0, 0, 0, 0, 7, 1, kFcReadHoldingRegisters, 4, 0, 0, 0, 0};
    struct Case {
        const char* rule;
        Bytes expected;
        bool closes;
    };
    Bytes longer = good;
    longer[5] += 2;
    longer.insert(longer.end(), {0xEE, 0xEE});
    const Case cases[] = {
        {"short", Bytes(good.begin(), good.end() - 1), false},
        {"long", longer, false},
        {"drop-mid", Bytes(good.begin(), good.begin() + good.size() / 2), true},
        {"drop", {}, true},
        {"exception:code=11", {0, 0, 0, 0, 0, 3, 1, kFcReadHoldingRegisters | kExceptionFlag, 11}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rule);
        FaultSpec rule;
        std::string error;
        ASSERT_TRUE(parseFaultSpec(c.rule, &rule, &error)) << error;
        sim_.setFaults({rule});
        RawSocket raw(sim_.port());
        raw.send(request);
        bool closed = false;
        // Wait for one byte more than expected: only a close or the idle
        // time ends the read, so a reply too long would show.
        EXPECT_EQ(raw.receive(c.expected.size() + 1, 300, &closed), c.expected);
        EXPECT_EQ(closed, c.closes);
    }
}

TEST_F(SimulatorTest, LateReplyOnOneConnectionDoesNotHoldUpAnother)
{
    FaultSpec late;
    std::string error;
    ASSERT_TRUE(parseFaultSpec("late:delay=5000:station=5", &late, &error)) << error;
    sim_.setFaults({late});
    RawSocket slow(sim_.port());
    slow.send(simtest::mbap(simtest::pdu(kFcReadHoldingRegisters, 0, 1), 5));
    Client fast(sim_.port(), 1);
    ASSERT_TRUE(fast.connect());
    uint16_t value = 0;
    EXPECT_EQ(modbus_read_registers(fast.get(), 0, 1, &value), 1) << modbus_strerror(errno);
}

TEST_F(SimulatorTest, PauseClosesAndRefusesThenResumeServesTheSameMemory)
{
    Client client(sim_.port());
    ASSERT_TRUE(client.connect());
    ASSERT_EQ(modbus_write_register(client.get(), 100, 4321), 1);

    sim_.pause();
    uint16_t value = 0;
    EXPECT_EQ(modbus_read_registers(client.get(), 100, 1, &value), -1) << "the connection was closed";
    client.close();
    EXPECT_FALSE(client.connect());
    EXPECT_EQ(errno, ECONNREFUSED);

    std::string error;
    ASSERT_TRUE(sim_.resume(&error)) << error;
    ASSERT_TRUE(client.connect()) << modbus_strerror(errno);
    ASSERT_EQ(modbus_read_registers(client.get(), 100, 1, &value), 1);
    EXPECT_EQ(value, 4321);
}

TEST(SimulatorAnimation, InputsMove)
{
    SimOptions options;
    options.animate = true;
    Simulator sim(options);
    std::string error;
    ASSERT_TRUE(sim.start(&error)) << error;
    Client client(sim.port());
    ASSERT_TRUE(client.connect());
    // Poll until a change shows; the bound only stops a broken animation.
    uint16_t first[8] = {}, now[8] = {};
    ASSERT_EQ(modbus_read_input_registers(client.get(), 0, 8, first), 8);
    bool changed = false;
    for (int attempt = 0; attempt < 100 && !changed; ++attempt) {
        usleep(50 * 1000);
        ASSERT_EQ(modbus_read_input_registers(client.get(), 0, 8, now), 8);
        changed = !std::equal(first, first + 8, now);
    }
    EXPECT_TRUE(changed);
    uint8_t inputs[8] = {};
    ASSERT_EQ(modbus_read_input_bits(client.get(), 0, 8, inputs), 8);
    EXPECT_EQ(std::count(inputs, inputs + 8, 1), 1) << "one running bit";
}

// ---- The `sim` subcommand ------------------------------------------------------

TEST(SimulatorMain, BadArgumentsExitWithUsageError)
{
    struct Case {
        std::vector<std::string> args;
        const char* mentions;
    };
    const Case cases[] = {
        {{"--fault", "bogus"}, "--fault: bad fault 'bogus'"},
        {{"--listen", "127.0.0.1:70000"}, "port '70000'"},
        {{"--listen", ":502"}, "host is missing"},
        {{"--seed", "-3"}, "--seed '-3'"},
        {{"--listen"}, "--listen needs a value"},
        {{"--animate=yes"}, "--animate takes no value"},
        {{"--frobnicate"}, "unknown argument '--frobnicate'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mentions);
        std::vector<char*> argv{const_cast<char*>("sim")};
        for (const std::string& arg : c.args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        testing::internal::CaptureStderr();
        const int rc = runSimulatorMain(static_cast<int>(argv.size()), argv.data());
        const std::string stderrText = testing::internal::GetCapturedStderr();
        EXPECT_EQ(rc, 2);
        EXPECT_NE(stderrText.find(c.mentions), std::string::npos) << stderrText;
    }
}

TEST(SimulatorMain, AnnouncesItsPortServesAndExitsCleanlyOnSigterm)
{
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        ::close(out[0]);
        char arg0[] = "sim", arg1[] = "--listen", arg2[] = "127.0.0.1:0";
        char* argv[] = {arg0, arg1, arg2, nullptr};
        _exit(runSimulatorMain(3, argv));
    }
    ::close(out[1]);
    struct Reaper {  // never leave the child running when an assertion returns early
        pid_t pid;
        ~Reaper()
        {
            if (pid > 0 && waitpid(pid, nullptr, WNOHANG) == 0) {
                kill(pid, SIGKILL);
                waitpid(pid, nullptr, 0);
            }
        }
    } reaper{child};
    FILE* lines = fdopen(out[0], "r");
    char line[256] = {};
    ASSERT_NE(fgets(line, sizeof line, lines), nullptr);
    int port = 0;
    ASSERT_EQ(std::sscanf(line, "LOGO! simulator listening on 127.0.0.1:%d", &port), 1) << line;
    Client client(port);
    ASSERT_TRUE(client.connect());
    uint16_t value = 1;
    EXPECT_EQ(modbus_read_registers(client.get(), 0, 1, &value), 1);
    EXPECT_EQ(value, 0);
    client.close();
    kill(child, SIGTERM);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    reaper.pid = 0;
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    fclose(lines);
}

}  // namespace
