// The simulator over real sockets, seen by a libmodbus client, as the driver's
// own tests will see it.
#include <gtest/gtest.h>

#include <modbus.h>

#include <cerrno>
#include <mutex>
#include <string>
#include <vector>

#include "sim/simulator.h"

using namespace logosim;

namespace {

constexpr uint32_t kTimeoutSeconds = 2;  // generous: only a fault should make a reply miss it

struct Client {
    explicit Client(int port, int station = 1) : ctx(modbus_new_tcp("127.0.0.1", port))
    {
        modbus_set_slave(ctx, station);
        modbus_set_response_timeout(ctx, kTimeoutSeconds, 0);
    }
    ~Client() { modbus_close(ctx); modbus_free(ctx); }  // modbus_free alone would leak the socket
    modbus_t* const ctx;
};

class SimulatorTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(sim_.start(&error)) << error;
    }
    Simulator sim_{SimOptions{}};
};

TEST_F(SimulatorTest, EachStationHasItsOwnMemory)
{
    Client one(sim_.port(), 1), two(sim_.port(), 2);
    ASSERT_EQ(modbus_connect(one.ctx), 0);
    ASSERT_EQ(modbus_connect(two.ctx), 0);
    ASSERT_EQ(modbus_write_register(one.ctx, 512, 111), 1);
    ASSERT_EQ(modbus_write_register(two.ctx, 512, 222), 1);
    uint16_t value = 0;
    ASSERT_EQ(modbus_read_registers(one.ctx, 512, 1, &value), 1);
    EXPECT_EQ(value, 111);
    ASSERT_EQ(modbus_read_registers(two.ctx, 512, 1, &value), 1);
    EXPECT_EQ(value, 222);
    EXPECT_EQ(sim_.word(3, Table::HoldingRegister, 512), 0);
}

TEST(SimulatorRequestLog, NamesEveryRequestCountsWritesAndKeepsTheConnectionAfterAnException)
{
    std::mutex mutex;
    std::vector<std::string> lines;
    SimOptions options;
    options.requestLog = [&](const std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(line);
    };
    Simulator sim(options);
    std::string error;
    ASSERT_TRUE(sim.start(&error)) << error;
    Client client(sim.port(), 3);
    ASSERT_EQ(modbus_connect(client.ctx), 0);
    uint16_t words[2];
    ASSERT_EQ(modbus_read_registers(client.ctx, 528, 2, words), 2);
    ASSERT_EQ(modbus_write_register(client.ctx, 10, 4321), 1);
    EXPECT_EQ(modbus_write_register(client.ctx, 520, 1), -1);  // refused, but asked for all the same
    EXPECT_EQ(errno, EMBXILADD);
    EXPECT_EQ(modbus_read_registers(client.ctx, 10, 1, words), 1) << "an exception closed the connection";
    EXPECT_EQ(words[0], 4321);
    const SimStats stats = sim.stats();
    EXPECT_EQ(stats.requests, 4u);
    EXPECT_EQ(stats.writeRequests, 2u);
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(lines, (std::vector<std::string>{"unit 3 function 3 address 528 quantity 2",
                                               "unit 3 function 6 address 10 quantity 1",
                                               "unit 3 function 6 address 520 quantity 1",
                                               "unit 3 function 3 address 10 quantity 1"}));
}

struct FaultCase {
    const char* name;
    const char* rule;
    int failingCall;  // the calls before it succeed; 0: two calls, neither fails
    int expectedErrno;
    friend void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.name; }
};

class FaultSeenByClient : public SimulatorTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(FaultSeenByClient, FailsTheCallItSpoils)
{
    const FaultCase& c = GetParam();
    FaultSpec rule;
    std::string error;
    ASSERT_TRUE(parseFaultSpec(c.rule, &rule, &error)) << error;
    sim_.setFaults({rule});
    // Station 7, not 1, so that rules matched against the wrong station show.
    Client client(sim_.port(), 7);
    ASSERT_EQ(modbus_connect(client.ctx), 0);
    uint16_t value = 0;
    for (int call = 1; call <= (c.failingCall == 0 ? 2 : c.failingCall); ++call) {
        errno = 0;
        const bool fails = call == c.failingCall;
        // A spoiled reply never completes, and a late one is due long after
        // this, so a short wait keeps the rows quick without making them flaky.
        if (fails)
            modbus_set_response_timeout(client.ctx, 0, 500 * 1000);
        EXPECT_EQ(modbus_read_registers(client.ctx, 0, 1, &value), fails ? -1 : 1) << "call " << call;
        if (fails) {
            EXPECT_EQ(errno, c.expectedErrno) << modbus_strerror(errno);
        }
    }
    EXPECT_EQ(sim_.stats().faultsOf(rule.kind) > 0, c.failingCall > 0);
}

const FaultCase kFaults[] = {
    {"exception", "exception", 1, EMBXSFAIL},
    {"exception_code_6", "exception:code=6", 1, EMBXSBUSY},
    {"late", "late:delay=5000", 1, ETIMEDOUT},
    {"silent", "silent", 1, ETIMEDOUT},
    {"short", "short", 1, ETIMEDOUT},
    {"drop", "drop", 1, ECONNRESET},
    {"drop_mid", "drop-mid", 1, ECONNRESET},
    // libmodbus reads a reply by its byte count, so the two extra bytes stay
    // in the stream and spoil the next reply's transaction id.
    {"long", "long", 2, EMBBADDATA},
    {"this_station", "exception:station=7", 1, EMBXSFAIL},
    {"other_station", "exception:station=1", 0, 0},
};

INSTANTIATE_TEST_SUITE_P(Kinds, FaultSeenByClient, testing::ValuesIn(kFaults),
                         [](const testing::TestParamInfo<FaultCase>& row) { return row.param.name; });

TEST_F(SimulatorTest, PauseClosesAndRefusesThenResumeServesTheSameMemory)
{
    Client client(sim_.port());
    ASSERT_EQ(modbus_connect(client.ctx), 0);
    ASSERT_EQ(modbus_write_register(client.ctx, 100, 4321), 1);
    sim_.pause();
    uint16_t value = 0;
    EXPECT_EQ(modbus_read_registers(client.ctx, 100, 1, &value), -1) << "the connection was closed";
    modbus_close(client.ctx);
    EXPECT_EQ(modbus_connect(client.ctx), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    std::string error;
    ASSERT_TRUE(sim_.resume(&error)) << error;
    ASSERT_EQ(modbus_connect(client.ctx), 0) << modbus_strerror(errno);
    ASSERT_EQ(modbus_read_registers(client.ctx, 100, 1, &value), 1);
    EXPECT_EQ(value, 4321);
}

}  // namespace
