// The real logohost binary, loading the real driver, against the simulated
// controller: every area read back, and every writable one written, in both
// modes; several stations, exceptions, a faulty link, and a dead station.
#include <gtest/gtest.h>
#include <modbus.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <thread>

#include "host_fixture.h"

namespace {

using logosim::FaultKind;
using logosim::Table;

// What an independent Modbus client finds in the controller.
std::vector<uint16_t> peek(int port, Table table, int address, size_t count)
{
    modbus_t* ctx = modbus_new_tcp("127.0.0.1", port);
    modbus_set_slave(ctx, 1);
    std::vector<uint16_t> words(count);
    std::vector<uint8_t> bits(count);
    const bool coils = table == Table::Coil;
    const int n = modbus_connect(ctx) != 0 ? -1
                  : coils ? modbus_read_bits(ctx, address, static_cast<int>(count), bits.data())
                          : modbus_read_registers(ctx, address, static_cast<int>(count), words.data());
    EXPECT_EQ(n, static_cast<int>(count)) << modbus_strerror(errno);
    modbus_close(ctx);
    modbus_free(ctx);
    return coils ? std::vector<uint16_t>(bits.begin(), bits.end()) : words;
}

bool ipv6Loopback()
{
    const int probe = socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 loopback{};
    loopback.sin6_family = AF_INET6;
    loopback.sin6_addr = in6addr_loopback;
    const bool available = bind(probe, reinterpret_cast<sockaddr*>(&loopback), sizeof loopback) == 0;
    close(probe);
    return available;
}

class EndToEnd : public HostTest {
protected:
    // Three areas make three requests whose replies are all of one length, so
    // a late reply would fit the request after it.
    const Values kThree{{"AM1", "1111"}, {"VW0", "2222"}, {"AQ1", "3333"}};
    void setThree()
    {
        sim_->setWord(1, Table::HoldingRegister, 528, 1111);
        sim_->setWord(1, Table::HoldingRegister, 0, 2222);
        sim_->setWord(1, Table::HoldingRegister, 512, 3333);
    }

};

class BothModes : public EndToEnd, public ::testing::WithParamInterface<bool> {};

TEST_P(BothModes, WritesReachTheControllerAndEveryAreaReadsBack)
{
    const struct {
        std::string write;
        Table table;
        int address;
        std::vector<uint16_t> inController;
        Values readBack;
    } rows[] = {
        {"Q1:3=1,0,on", Table::Coil, 8192, {1, 0, 1}, {{"Q1", "1"}, {"Q2", "0"}, {"Q3", "1"}}},
        {"M2:2=on,1", Table::Coil, 8257, {1, 1}, {{"M2", "1"}, {"M3", "1"}}},
        {"V10.7:2=1,1", Table::Coil, 87, {1, 1}, {{"V10.7", "1"}, {"V11.0", "1"}}},
        {"VW20:3=1,0x7FFF,65535", Table::HoldingRegister, 10, {1, 0x7FFF, 0xFFFF},
         {{"VW20", "1"}, {"VW22", "32767"}, {"VW24", "-1"}}},
        {"AQ3=-1234", Table::HoldingRegister, 514, {0xFB2E}, {{"AQ3", "-1234"}}},
        {"AM5:2=7,-8", Table::HoldingRegister, 532, {7, 0xFFF8}, {{"AM5", "7"}, {"AM6", "-8"}}},
        {"VD40:2=-100000,1", Table::HoldingRegister, 20, {0xFFFE, 0x7960, 0, 1},
         {{"VD40", "-100000"}, {"VD44", "1"}}},
    };
    startSimulator();
    sim_->setBit(1, Table::DiscreteInput, 2, true);     // I3
    sim_->setWord(1, Table::InputRegister, 1, 0xFFFE);  // AI2
    std::vector<std::string> write{"write"}, read{"read", "I1:3", "AI2", "--format", "csv"};
    Values expected{{"I1", "0"}, {"I2", "0"}, {"I3", "1"}, {"AI2", "-2"}};
    for (const auto& row : rows) {
        write.push_back(row.write);
        read.push_back(row.write.substr(0, row.write.find('=')));
        expected.insert(row.readBack.begin(), row.readBack.end());
    }
    const Exit written = host(write, GetParam());
    ASSERT_EQ(written.code, 0) << written.err;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.write);
        EXPECT_EQ(peek(sim_->port(), row.table, row.address, row.inController.size()), row.inController);
    }
    const Exit readBack = host(read, GetParam());
    EXPECT_EQ(readBack.code, 0) << readBack.err;
    EXPECT_EQ(readValues(readBack), expected);
}

TEST_P(BothModes, KeepsStationsApart)
{
    startSimulator();
    sim_->setWord(2, Table::HoldingRegister, 0, 22);
    sim_->setWord(3, Table::HoldingRegister, 0, 33);
    const Exit read = host({"--stations", "read", "VW0@2", "VW0@3", "--format", "csv"}, GetParam());
    EXPECT_EQ(readValues(read), (Values{{"VW0@2", "22"}, {"VW0@3", "33"}})) << read.err;
    EXPECT_EQ(host({"--stations", "write", "VW4@3=7"}, GetParam()).code, 0);
    EXPECT_EQ(sim_->word(3, Table::HoldingRegister, 2), 7);
    EXPECT_EQ(sim_->word(2, Table::HoldingRegister, 2), 0);
}

INSTANTIATE_TEST_SUITE_P(Modes, BothModes, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& mode) { return mode.param ? "Remote" : "Modbus"; });

TEST_F(EndToEnd, FailuresAreReportedInWordsWithAFailingExit)
{
    const std::string kAddress = "the controller answered illegal data address (Modbus exception 02";
    const logosim::FaultSpec illegalAddress{FaultKind::Exception, 1, -1, 0, -1, 2};
    const struct {
        std::vector<std::string> args;
        int code;
        std::vector<std::string> messages;
    } rows[] = {
        {{"read", "AM5:2"}, 1, {"logohost: AM5:2: " + kAddress + "; driver code 71)\n"}},
        {{"write", "AM5:2=1,2", "VW2=5"}, 1,
         {"logohost: write AM5:2=1,2: not written: " + kAddress + "; driver code 72)",
          "logohost: write VW2=5: not written: the controller answered AM5:2 with illegal data address (Modbus "
          "exception 02), and VW2 was queued behind it (driver code 72)"}},
        {{"read", "AM5:2", "--remote-mode"}, 1, {"logohost: AM5:2: "}},  // the error reply is a header alone
        {{"read", "VW11"}, 2, {"logohost: bad variable \"VW11\": VW takes an even V byte number (0-848)\n"}},
        {{"read", "AM64:2"}, 2, {"logohost: bad variable \"AM64:2\": it runs past AM64, the last analogue flag\n"}},
    };
    startSimulator({illegalAddress});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args[1]);
        const uint64_t requestsBefore = sim_->stats().requests;
        std::vector<std::string> args = row.args;
        args.push_back("--trace");
        const Exit run = host(args);
        EXPECT_EQ(run.code, row.code);
        for (const std::string& message : row.messages)
            EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
        // The reply's own length frames a short error reply; waiting for a
        // good reply's length would end in the time-out instead.
        EXPECT_EQ(run.err.find("no complete reply"), std::string::npos) << run.err;
        // Bad input (exit code 2) is rejected before any traffic.
        EXPECT_EQ(sim_->stats().requests == requestsBefore, row.code == 2);
    }
}

TEST_F(EndToEnd, ReadGetsTheRightValuesThroughLinkFaults)
{
    const struct {
        FaultKind kind;
        bool reconnects;
    } rows[] = {{FaultKind::Drop, true}, {FaultKind::Long, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(logosim::faultKindName(row.kind));
        startSimulator({{row.kind, 3}});
        setThree();
        const Exit read = host({"read", "AM1", "VW0", "AQ1", "--format", "csv"});
        EXPECT_EQ(readValues(read), kThree) << read.err;
        EXPECT_GE(sim_->stats().faultsOf(row.kind), 1u);
        EXPECT_GE(sim_->stats().connections, row.reconnects ? 2u : 1u);
    }
}

// A reply that comes after its time-out must never pass for the answer to the
// next frame. With no retries every late reply ends its request, and the next
// frame asks for another variable.
TEST_F(EndToEnd, LateReplyIsNeverShownUnderAnotherVariable)
{
    startSimulator({{FaultKind::Late, 4, -1, 350}});  // past the 200 ms time-out
    setThree();
    const Exit watch = host({"watch", "AM1", "VW0", "AQ1", "--retries", "0", "--format", "csv", "--interval", "0.1",
                            "--scan-period", "0", "--duration", "2"},
                           false, "0.2");
    expectWatchVerdict(watch, {"AM1", "VW0", "AQ1"});
    int shown = 0, wrong = 0;
    const std::regex number("-?[0-9]+");
    for (const Values& row : csvRows(watch)) {
        for (const auto& variable : kThree) {
            const std::string& field = row.at(variable.first);
            const bool value = std::regex_match(field, number);
            shown += value;
            wrong += value && field != variable.second;
        }
    }
    EXPECT_GT(shown, 0);
    EXPECT_EQ(wrong, 0) << watch.out;
    EXPECT_GE(sim_->stats().faultsOf(FaultKind::Late), 2u);
}

// Station 3 never answers: with --demote-after 1 its first given-up request
// switches it off, and station 2 keeps being read meanwhile.
TEST_F(EndToEnd, DeadStationIsSwitchedOffWhileOthersGoOn)
{
    startSimulator({{FaultKind::Silent, 1, -1, 0, 3}});
    sim_->setWord(2, Table::HoldingRegister, 0, 22);
    const Exit watch = host({"--stations", "--trace", "watch", "VW0@2", "VW0@3", "--retries", "0", "--demote-after",
                            "1", "--demote-for", "0.5", "--format", "csv", "--interval", "0.1", "--duration", "2"},
                           false, "0.2");
    EXPECT_EQ(watch.code, 1) << watch.err;  // station 3 never answered
    expectWatchVerdict(watch, {"VW0@2", "VW0@3"});
    const size_t off = watch.err.find("logohost: station 3 switched off for 0.5 s: it is not answering (timed out after 200 ms)");
    const size_t on = watch.err.find("logohost: station 3 switched on again");
    ASSERT_TRUE(off < on && on != std::string::npos) << watch.err;
    // Between the two, frames went to station 2 and none to 3 (MBAP unit id,
    // byte 6, after the host's transaction id).
    const std::string whileOff = watch.err.substr(off, on - off);
    const auto toUnit = [](char unit) { return std::regex(std::string("-> 12 bytes: .. .. 00 00 00 06 0") + unit); };
    EXPECT_TRUE(std::regex_search(whileOff, toUnit('2'))) << whileOff;
    EXPECT_FALSE(std::regex_search(whileOff, toUnit('3'))) << whileOff;
    bool offShown = false;
    for (const Values& row : csvRows(watch)) {
        offShown = offShown || row.at("VW0@3") == "station off";
        if (offShown) {
            EXPECT_EQ(row.at("VW0@2"), "22");
        }
    }
    EXPECT_TRUE(offShown) << watch.out;
}

// Three controllers at their own addresses; the second refuses connections
// for a while. The other two are read throughout, the second's values say
// it is not answering, and once back it is read again within a demotion
// period. Loose bounds on counts, so that a slow machine cannot break them.
TEST(SeveralControllers, ADeadOneDoesNotFreezeTheOthers)
{
    std::vector<std::unique_ptr<logosim::Simulator>> sims;
    std::vector<std::string> args{"--driver", kDriver, "--timeout", "0.3", "--demote-for", "1"};
    for (int station = 1; station <= 3; ++station) {
        sims.push_back(std::make_unique<logosim::Simulator>(logosim::SimOptions{}));
        std::string error;
        ASSERT_TRUE(sims.back()->start(&error)) << error;
        sims.back()->setWord(station, Table::HoldingRegister, 0, static_cast<uint16_t>(11 * station));
        args.insert(args.end(), {"--plc", std::to_string(station) + "=127.0.0.1:" + std::to_string(sims.back()->port())});
    }
    sims[1]->pause();
    args.insert(args.end(), {"watch", "VW0@1", "VW0@2", "VW0@3", "--scan-period", "0.1", "--interval", "0.2",
                             "--duration", "6", "--format", "csv"});
    std::thread comeBack([&] {
        std::this_thread::sleep_for(std::chrono::seconds(2));
        sims[1]->resume();
    });
    const Exit watch = runHost(args);
    comeBack.join();
    expectWatchVerdict(watch, {"VW0@1", "VW0@2", "VW0@3"});
    const std::vector<Values> rows = csvRows(watch);
    ASSERT_GE(rows.size(), 10u) << watch.out;
    size_t healthy = 0, secondDown = 0;
    for (const Values& row : rows) {
        healthy += row.at("VW0@1") == "11" && row.at("VW0@3") == "33";
        secondDown += row.at("VW0@2") != "22" && row.at("VW0@2") != "never read" && row.at("VW0@2") != "stale";
    }
    EXPECT_GE(healthy, rows.size() * 3 / 4) << watch.out;
    EXPECT_GE(secondDown, 2u) << "the dead controller's value was never said to be missing:\n" << watch.out;
    EXPECT_EQ(rows.back().at("VW0@2"), "22") << "not read again after it came back:\n" << watch.out;
    EXPECT_GE(sims[0]->stats().requests, 20u);  // a pass each 0.1 s at most, over 6 s
    EXPECT_GE(sims[2]->stats().requests, 20u);
}

// `logohost sim` serves the host on IPv4 and IPv6 loopback alike.
TEST_F(EndToEnd, SimCommandServesTheHost)
{
    for (const std::string listen : {"127.0.0.1:0", "[::1]:0"}) {
        SCOPED_TRACE(listen);
        if (listen[0] == '[' && !ipv6Loopback()) {
            std::printf("no IPv6 loopback on this machine: only 127.0.0.1 tried\n");
            continue;
        }
        FILE* sim = startHost({"sim", "--listen", listen}, "/dev/null");
        const pid_t pid = std::stoi(readLine(sim));
        const std::string line = readLine(sim);
        std::smatch address;
        ASSERT_TRUE(std::regex_search(line, address, std::regex(R"(^LOGO! simulator listening on (\S+:\d+)$)")))
            << line;
        plc_ = address[1];
        EXPECT_EQ(host({"write", "VW6=4321"}).code, 0);
        EXPECT_EQ(readValues(host({"read", "VW6", "--format", "csv"})), (Values{{"VW6", "4321"}}));
        kill(pid, SIGINT);
        EXPECT_EQ(pclose(sim), 0);
    }
}

TEST_F(EndToEnd, StartsTheBuiltInSimulatorWithoutPlc)
{
    const Exit run = runHost({"--driver", kDriver, "read", "VW0:2", "--format", "csv"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.err.rfind("logohost: no --plc given, using the built-in LOGO! simulator on 127.0.0.1:", 0), 0u)
        << run.err;
    EXPECT_EQ(readValues(run), (Values{{"VW0", "0"}, {"VW2", "0"}}));
}

}  // namespace
