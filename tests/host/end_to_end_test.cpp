// The real logohost binary, loading the real driver, against the simulated
// controller: every area written and read back, remote mode, several
// stations, exceptions, a faulty link, and a dead station.
#include <gtest/gtest.h>
#include <modbus.h>

#include <map>
#include <memory>
#include <sstream>

#include "sim/simulator.h"
#include "tests/host/host_process.h"

namespace {

using logosim::Table;

constexpr std::chrono::seconds kRunLimit{40};
const char* const kLoopback = "127.0.0.1";

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

// "variable,value" lines of `read --format csv`.
std::map<std::string, std::string> readValues(const std::string& out)
{
    std::map<std::string, std::string> values;
    for (const std::string& line : split(out, '\n')) {
        const std::vector<std::string> fields = split(line, ',');
        if (fields.size() == 2 && fields[0] != "variable")
            values[fields[0]] = fields[1];
    }
    return values;
}

// The rows of `watch --format csv`, each a map from column name to field.
std::vector<std::map<std::string, std::string>> watchRows(const std::string& out)
{
    const std::vector<std::string> lines = split(out, '\n');
    std::vector<std::map<std::string, std::string>> rows;
    if (lines.empty())
        return rows;
    const std::vector<std::string> header = split(lines[0], ',');
    for (size_t i = 1; i < lines.size(); ++i) {
        const std::vector<std::string> fields = split(lines[i], ',');
        std::map<std::string, std::string> row;
        for (size_t f = 0; f < fields.size() && f < header.size(); ++f)
            row[header[f]] = fields[f];
        rows.push_back(row);
    }
    return rows;
}

// An independent Modbus client, to see what `write` really left in the
// controller.
class ModbusClient {
public:
    ModbusClient(int port, int station) : ctx_(modbus_new_tcp(kLoopback, port))
    {
        modbus_set_slave(ctx_, station);
        connected_ = modbus_connect(ctx_) == 0;
    }
    ~ModbusClient()
    {
        modbus_close(ctx_);
        modbus_free(ctx_);
    }
    std::vector<uint16_t> read(Table table, int address, int count)
    {
        std::vector<uint16_t> values(static_cast<size_t>(count));
        if (table == Table::HoldingRegister) {
            EXPECT_EQ(modbus_read_registers(ctx_, address, count, values.data()), count) << modbus_strerror(errno);
            return values;
        }
        std::vector<uint8_t> bits(static_cast<size_t>(count));
        EXPECT_EQ(modbus_read_bits(ctx_, address, count, bits.data()), count) << modbus_strerror(errno);
        return std::vector<uint16_t>(bits.begin(), bits.end());
    }
    bool connected() const { return connected_; }

private:
    modbus_t* ctx_;
    bool connected_ = false;
};

using Fault = decltype(logosim::SimOptions::faults)::value_type;

Fault fault(logosim::FaultKind kind, int everyNth, int delayMs = 0, int station = -1)
{
    Fault rule;
    rule.kind = kind;
    rule.everyNth = everyNth;
    rule.delayMs = delayMs;
    rule.station = station;
    return rule;
}

class SimulatorFixture {
protected:
    void startSimulator(const std::vector<Fault>& faults = {})
    {
        logosim::SimOptions options;
        options.host = kLoopback;
        options.faults = faults;
        sim_.reset(new logosim::Simulator(options));
        std::string error;
        ASSERT_TRUE(sim_->start(&error)) << error;
    }

    ProcessResult host(const std::vector<std::string>& args, bool remote = false, const char* timeout = "0.3")
    {
        std::vector<std::string> argv{LOGOHOST_PATH, "--plc", std::string(kLoopback) + ":" + std::to_string(sim_->port()),
                                      "--driver", LOGO_DRIVER_PATH, "--timeout", timeout};
        if (remote)
            argv.push_back("--remote-mode");
        argv.insert(argv.end(), args.begin(), args.end());
        return runProcess(argv, kRunLimit);
    }

    std::unique_ptr<logosim::Simulator> sim_;
};

std::string modeName(bool remote) { return remote ? "Remote" : "Modbus"; }

struct WriteReadCase {
    const char* name;
    const char* write;
    const char* variable;
    std::map<std::string, std::string> readBack;
    Table table;
    int address;
    std::vector<uint16_t> inController;
};

// Failures name the row, not its bytes.
void PrintTo(const WriteReadCase& c, std::ostream* os) { *os << c.name; }

const WriteReadCase kWriteReadCases[] = {
    {"VWord", "VW10=-1234", "VW10", {{"VW10", "-1234"}}, Table::HoldingRegister, 5, {0xFB2E}},
    {"VWords", "VW20:3=1,0x7FFF,65535", "VW20:3", {{"VW20", "1"}, {"VW22", "32767"}, {"VW24", "-1"}},
     Table::HoldingRegister, 10, {1, 0x7FFF, 0xFFFF}},
    {"VDouble", "VD40=-100000", "VD40", {{"VD40", "-100000"}}, Table::HoldingRegister, 20, {0xFFFE, 0x7960}},
    {"AnalogueOutput", "AQ2=500", "AQ2", {{"AQ2", "500"}}, Table::HoldingRegister, 513, {500}},
    {"AnalogueFlags", "AM5:2=7,-8", "AM5:2", {{"AM5", "7"}, {"AM6", "-8"}}, Table::HoldingRegister, 532, {7, 0xFFF8}},
    {"Outputs", "Q1:3=1,0,on", "Q1:3", {{"Q1", "1"}, {"Q2", "0"}, {"Q3", "1"}}, Table::Coil, 8192, {1, 0, 1}},
    {"Flag", "M10=true", "M10", {{"M10", "1"}}, Table::Coil, 8265, {1}},
    {"VBitsAcrossAByte", "V10.7:2=1,1", "V10.7:2", {{"V10.7", "1"}, {"V11.0", "1"}}, Table::Coil, 87, {1, 1}},
};

class WriteThenRead : public SimulatorFixture,
                      public ::testing::TestWithParam<std::tuple<WriteReadCase, bool>> {};

TEST_P(WriteThenRead, ValueReachesTheControllerAndReadsBack)
{
    const WriteReadCase& c = std::get<0>(GetParam());
    const bool remote = std::get<1>(GetParam());
    startSimulator();

    const ProcessResult written = host({"write", c.write}, remote);
    ASSERT_EQ(written.exitCode, 0) << written.err;
    EXPECT_NE(written.out.find("written"), std::string::npos) << written.out;

    ModbusClient client(sim_->port(), 1);
    ASSERT_TRUE(client.connected());
    EXPECT_EQ(client.read(c.table, c.address, static_cast<int>(c.inController.size())), c.inController);

    const ProcessResult read = host({"read", c.variable, "--format", "csv"}, remote);
    ASSERT_EQ(read.exitCode, 0) << read.err;
    EXPECT_EQ(readValues(read.out), c.readBack) << read.out;
}

INSTANTIATE_TEST_SUITE_P(
    Areas, WriteThenRead, ::testing::Combine(::testing::ValuesIn(kWriteReadCases), ::testing::Bool()),
    [](const ::testing::TestParamInfo<std::tuple<WriteReadCase, bool>>& info) {
        return std::string(std::get<0>(info.param).name) + modeName(std::get<1>(info.param));
    });

class BothModes : public SimulatorFixture, public ::testing::TestWithParam<bool> {};

TEST_P(BothModes, ReadsInputsSetInTheController)
{
    startSimulator();
    sim_->setBit(1, Table::DiscreteInput, 2, true);     // I3
    sim_->setWord(1, Table::InputRegister, 1, 0xFFFE);  // AI2
    const ProcessResult read = host({"read", "I1:3", "AI2", "--format", "csv"}, GetParam());
    ASSERT_EQ(read.exitCode, 0) << read.err;
    const std::map<std::string, std::string> expected{{"I1", "0"}, {"I2", "0"}, {"I3", "1"}, {"AI2", "-2"}};
    EXPECT_EQ(readValues(read.out), expected);
}

TEST_P(BothModes, KeepsStationsApart)
{
    startSimulator();
    sim_->setWord(2, Table::HoldingRegister, 0, 22);
    sim_->setWord(3, Table::HoldingRegister, 0, 33);
    const ProcessResult read = host({"--stations", "read", "VW0@2", "VW0@3", "--format", "csv"}, GetParam());
    ASSERT_EQ(read.exitCode, 0) << read.err;
    const std::map<std::string, std::string> expected{{"VW0@2", "22"}, {"VW0@3", "33"}};
    EXPECT_EQ(readValues(read.out), expected);

    const ProcessResult written = host({"--stations", "write", "VW4@3=7"}, GetParam());
    ASSERT_EQ(written.exitCode, 0) << written.err;
    EXPECT_EQ(ModbusClient(sim_->port(), 3).read(Table::HoldingRegister, 2, 1), std::vector<uint16_t>{7});
    EXPECT_EQ(ModbusClient(sim_->port(), 2).read(Table::HoldingRegister, 2, 1), std::vector<uint16_t>{0});
}

INSTANTIATE_TEST_SUITE_P(Modes, BothModes, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) { return modeName(info.param); });

struct ExceptionCase {
    const char* name;
    std::vector<std::string> args;
    const char* message;
};

void PrintTo(const ExceptionCase& c, std::ostream* os) { *os << c.name; }

class ExceptionInWords : public SimulatorFixture, public ::testing::TestWithParam<ExceptionCase> {};

TEST_P(ExceptionInWords, NamesTheVariableTheReasonAndTheDriverCode)
{
    startSimulator();
    std::vector<std::string> args = GetParam().args;
    args.push_back("--trace");
    const ProcessResult run = host(args);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find(GetParam().message), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("exception: illegal data address (Modbus exception 02)"), std::string::npos) << run.err;
    // The MBAP length frames the short exception reply: no waiting for the
    // length of a good reply until the time-out.
    EXPECT_EQ(run.err.find("no complete reply"), std::string::npos) << run.err;
}

const ExceptionCase kExceptionCases[] = {
    {"ReadPastTheLastFlag", {"read", "AM64:2"},
     "logohost: AM64:2: illegal data address (Modbus exception 02), driver code 71"},
    {"WritePastTheLastFlag", {"write", "AM64:2=1,2"},
     "logohost: write AM64:2=1,2 failed: illegal data address (Modbus exception 02), driver code 72"},
    {"WriteQueuedBehindAGiveUp", {"write", "AM64:2=1,2", "VW2=5"},
     "logohost: write VW2=5 failed: dropped by the driver when AM64:2 was given up: illegal data address (Modbus "
     "exception 02), driver code 72"},
};

INSTANTIATE_TEST_SUITE_P(Exceptions, ExceptionInWords, ::testing::ValuesIn(kExceptionCases),
                         [](const ::testing::TestParamInfo<ExceptionCase>& info) { return info.param.name; });

struct FaultCase {
    const char* name;
    logosim::FaultKind kind;
    int delayMs;
    bool newConnection;  // the host must have reconnected to get past it
};

void PrintTo(const FaultCase& c, std::ostream* os) { *os << c.name; }

class LinkFault : public SimulatorFixture, public ::testing::TestWithParam<FaultCase> {};

constexpr int kEveryThird = 3;

// Every third request is spoiled; the host must still read the right value
// for every variable.
TEST_P(LinkFault, ReadStillGetsTheRightValues)
{
    startSimulator({fault(GetParam().kind, kEveryThird, GetParam().delayMs)});
    sim_->setWord(1, Table::HoldingRegister, 528, 1111);  // AM1
    sim_->setWord(1, Table::HoldingRegister, 0, 2222);    // VW0
    sim_->setWord(1, Table::HoldingRegister, 512, 3333);  // AQ1
    const ProcessResult read = host({"read", "AM1", "VW0", "AQ1", "--format", "csv"});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    const std::map<std::string, std::string> expected{{"AM1", "1111"}, {"VW0", "2222"}, {"AQ1", "3333"}};
    EXPECT_EQ(readValues(read.out), expected);
    const logosim::SimStats stats = sim_->stats();
    EXPECT_GE(stats.faultsOf(GetParam().kind), 1u);
    if (GetParam().newConnection)
        EXPECT_GE(stats.connections, 2u);
}

const FaultCase kFaultCases[] = {
    {"DroppedConnection", logosim::FaultKind::Drop, 0, true},
    {"DroppedMidReply", logosim::FaultKind::DropMid, 0, true},
    {"ShortReply", logosim::FaultKind::Short, 0, true},
    {"LongReply", logosim::FaultKind::Long, 0, false},
    {"LateReply", logosim::FaultKind::Late, 450, true},  // past the 300 ms time-out
};

INSTANTIATE_TEST_SUITE_P(Faults, LinkFault, ::testing::ValuesIn(kFaultCases),
                         [](const ::testing::TestParamInfo<FaultCase>& info) { return info.param.name; });

class HostAgainstSimulator : public SimulatorFixture, public ::testing::Test {};

// Frames carry no usable transaction id: a reply that comes after its
// time-out must not be taken for the answer to the next frame. With no
// retries every late reply ends its request, and the next frame asks for a
// different variable of the same reply length.
TEST_F(HostAgainstSimulator, LateReplyIsNeverTakenForTheNextAnswer)
{
    startSimulator({fault(logosim::FaultKind::Late, 4, 350)});  // past the 200 ms time-out
    sim_->setWord(1, Table::HoldingRegister, 528, 1111);  // AM1
    sim_->setWord(1, Table::HoldingRegister, 0, 2222);    // VW0
    sim_->setWord(1, Table::HoldingRegister, 512, 3333);  // AQ1
    const ProcessResult watch = host({"watch", "AM1", "VW0", "AQ1", "--retries", "0", "--format", "csv", "--interval",
                                      "0.1", "--duration", "2"},
                                     false, "0.2");
    ASSERT_EQ(watch.exitCode, 0) << watch.err;
    const std::map<std::string, std::string> right{{"AM1", "1111"}, {"VW0", "2222"}, {"AQ1", "3333"}};
    int valuesShown = 0;
    std::string wrong;
    for (const auto& row : watchRows(watch.out)) {
        for (const auto& variable : right) {
            const std::string& field = row.at(variable.first);
            if (field == "never read" || field == "no reply")
                continue;
            ++valuesShown;
            if (field != variable.second)
                wrong += row.at("time") + " " + variable.first + "=" + field + "\n";
        }
    }
    EXPECT_GT(valuesShown, 0);
    EXPECT_EQ(wrong, "") << "values taken from another variable's late reply";
    EXPECT_GE(sim_->stats().faultsOf(logosim::FaultKind::Late), 2u);
}

// Station 3 never answers. With --demote-after 1 its first given-up request
// switches it off, and station 2 keeps being read meanwhile.
TEST_F(HostAgainstSimulator, DeadStationIsSwitchedOffWhileOthersGoOn)
{
    startSimulator({fault(logosim::FaultKind::Silent, 1, 0, 3)});
    sim_->setWord(2, Table::HoldingRegister, 0, 22);
    const ProcessResult watch =
        host({"--stations", "watch", "VW0@2", "VW0@3", "--retries", "0", "--demote-after", "1", "--demote-for", "0.5",
              "--format", "csv", "--interval", "0.1", "--duration", "2", "--trace"},
             false, "0.2");
    ASSERT_EQ(watch.exitCode, 0) << watch.err;
    EXPECT_NE(watch.err.find("logohost: station 3 switched off for 0.5 s after 1 given-up request in a row"),
              std::string::npos)
        << watch.err;
    EXPECT_NE(watch.err.find("logohost: station 3 switched on again"), std::string::npos) << watch.err;

    long framesWhenOff = -1;
    long lastFrames = -1;
    for (const auto& row : watchRows(watch.out)) {
        if (row.at("VW0@3") == "station off" && framesWhenOff < 0)
            framesWhenOff = std::stol(row.at("frames"));
        if (framesWhenOff >= 0)
            EXPECT_EQ(row.at("VW0@2"), "22");
        lastFrames = std::stol(row.at("frames"));
    }
    ASSERT_GE(framesWhenOff, 0) << "station 3 was never shown switched off:\n" << watch.out;
    EXPECT_GT(lastFrames, framesWhenOff) << "no frames went out while station 3 was off";

    // In the trace, between switching off and on: frames to station 2
    // (MBAP unit id, byte 6), none to station 3.
    const size_t off = watch.err.find("station 3 switched off");
    const size_t on = watch.err.find("station 3 switched on again");
    ASSERT_LT(off, on);
    const std::string whileOff = watch.err.substr(off, on - off);
    EXPECT_NE(whileOff.find("-> 12 bytes: 00 00 00 00 00 06 02"), std::string::npos) << whileOff;
    EXPECT_EQ(whileOff.find("-> 12 bytes: 00 00 00 00 00 06 03"), std::string::npos) << whileOff;
}

TEST_F(HostAgainstSimulator, SimCommandServesTheHost)
{
    Process sim({LOGOHOST_PATH, "sim", "--listen", "127.0.0.1:0"});
    std::string line;
    ASSERT_TRUE(sim.readLine(&line, std::chrono::seconds(10)));
    const std::string prefix = "LOGO! simulator listening on 127.0.0.1:";
    ASSERT_EQ(line.rfind(prefix, 0), 0u) << line;
    const std::string plc = "127.0.0.1:" + line.substr(prefix.size());
    const std::vector<std::string> base{LOGOHOST_PATH, "--plc", plc, "--driver", LOGO_DRIVER_PATH};

    std::vector<std::string> write = base;
    write.insert(write.end(), {"write", "VW6=4321"});
    EXPECT_EQ(runProcess(write, kRunLimit).exitCode, 0);
    std::vector<std::string> read = base;
    read.insert(read.end(), {"read", "VW6", "--format", "csv"});
    const ProcessResult result = runProcess(read, kRunLimit);
    EXPECT_EQ(readValues(result.out), (std::map<std::string, std::string>{{"VW6", "4321"}})) << result.err;
    EXPECT_EQ(sim.interruptAndWait(std::chrono::seconds(10)), 0);
}

TEST_F(HostAgainstSimulator, StartsTheBuiltInSimulatorWithoutPlc)
{
    const ProcessResult run =
        runProcess({LOGOHOST_PATH, "--driver", LOGO_DRIVER_PATH, "read", "VW0:2", "--format", "csv"}, kRunLimit);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err.rfind("logohost: no --plc given, using the built-in LOGO! simulator on 127.0.0.1:", 0), 0u)
        << run.err;
    EXPECT_EQ(readValues(run.out), (std::map<std::string, std::string>{{"VW0", "0"}, {"VW2", "0"}}));
}

TEST_F(HostAgainstSimulator, BadInputIsRejectedBeforeAnyTraffic)
{
    startSimulator();
    const struct {
        std::vector<std::string> args;
        int exitCode;
        const char* message;
    } cases[] = {
        {{"read", "VW11"}, 2, "logohost: bad variable \"VW11\": VW takes an even V byte number (0-848)\n"},
        {{"write", "AI1=5"}, 2, "logohost: bad write \"AI1=5\": AI1 is an input and cannot be written\n"},
        {{"read", "VW0", "--driver", "/nonexistent/liblogo_modbus_tcp.so"}, 1,
         "logohost: cannot load the driver \"/nonexistent/liblogo_modbus_tcp.so\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args.front() + " " + c.args[1]);
        const ProcessResult run = host(c.args);
        EXPECT_EQ(run.exitCode, c.exitCode);
        EXPECT_EQ(run.err.rfind(c.message, 0), 0u) << run.err;
        EXPECT_TRUE(run.out.empty()) << run.out;
    }
    EXPECT_EQ(sim_->stats().requests, 0u);
}

}  // namespace
