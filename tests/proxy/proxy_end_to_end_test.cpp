// The real `logohost panel --modbus-listen` between Modbus clients and the
// simulated controller: many clients at once through the host's one
// connection, and clients the proxy closes or refuses.
#include <gtest/gtest.h>
#include <modbus.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <regex>
#include <thread>

#include "../host/host_process.h"
#include "sim/simulator.h"

namespace {

using logosim::Table;

constexpr int kClients = 10;  // the last one is pymodbus
constexpr int kRounds = 20;
constexpr int kSharedRegister = 200;  // VW400 on: each client reads its own, set in the simulator
constexpr int kOwnRegister = 300;     // VW600 on: each client writes its own
constexpr int kOwnCoil = 800;         // V100.0 on
constexpr int kInputs = 4;            // I1..I4
constexpr int kReplySeconds = 10;     // a sanitized build under load is slow; nothing here should take long

uint16_t sharedValue(int client) { return static_cast<uint16_t>(1000 + 17 * client); }

modbus_t* connectTo(int port)
{
    modbus_t* ctx = modbus_new_tcp("127.0.0.1", port);
    modbus_set_slave(ctx, 1);
    modbus_set_response_timeout(ctx, kReplySeconds, 0);
    if (modbus_connect(ctx) != 0)
        ADD_FAILURE() << "cannot connect to the proxy: " << modbus_strerror(errno);
    return ctx;
}

void closeClient(modbus_t* ctx)
{
    modbus_close(ctx);
    modbus_free(ctx);
}

class Proxy : public ::testing::Test {
protected:
    void start(std::vector<std::string> extra = {})
    {
        sim_ = std::make_unique<logosim::Simulator>(logosim::SimOptions{});
        std::string error;
        ASSERT_TRUE(sim_->start(&error)) << error;
        for (int client = 0; client < kClients; ++client)
            sim_->setWord(1, Table::HoldingRegister, kSharedRegister + client, sharedValue(client));
        sim_->setBit(1, Table::DiscreteInput, 1, true);  // I2
        std::vector<std::string> args{"panel", "--plc", "127.0.0.1:" + std::to_string(sim_->port()), "--driver",
                                      kDriver, "--listen", "127.0.0.1:0", "--modbus-listen", "127.0.0.1:0"};
        args.insert(args.end(), extra.begin(), extra.end());
        out_ = startHost(args, "/dev/null");
        pid_ = std::stoi(readLine(out_));
        std::smatch found;
        std::string line;
        for (int i = 0; i < 8 && !std::regex_search(line, found, std::regex(R"(^Modbus clients: 127\.0\.0\.1:(\d+))"));
             ++i)
            line = readLine(out_);
        ASSERT_FALSE(found.empty()) << "no Modbus address in the panel's output";
        port_ = std::stoi(found[1]);
    }

    void TearDown() override
    {
        if (!out_)
            return;
        kill(pid_, SIGINT);
        EXPECT_EQ(pclose(out_), 0) << "the panel did not end cleanly on Ctrl-C";
    }

    // Reads its own value and the inputs, writes its own register and coil.
    void poll(int client, std::string* error) const
    {
        modbus_t* ctx = connectTo(port_);
        for (int round = 0; round < kRounds && error->empty(); ++round) {
            uint16_t word = 0;
            uint8_t inputs[kInputs] = {};
            if (modbus_read_registers(ctx, kSharedRegister + client, 1, &word) != 1 ||
                modbus_read_input_bits(ctx, 0, kInputs, inputs) != kInputs ||
                modbus_write_register(ctx, kOwnRegister + client, round) != 1 ||
                modbus_write_bit(ctx, kOwnCoil + client, round % 2) != 1)
                *error = modbus_strerror(errno);
            else if (word != sharedValue(client) || inputs[0] || !inputs[1])
                *error = "read " + std::to_string(word) + " and inputs " + std::to_string(inputs[0]) +
                         std::to_string(inputs[1]) + ", not what the simulator holds";
        }
        closeClient(ctx);
    }

    std::unique_ptr<logosim::Simulator> sim_;
    FILE* out_ = nullptr;
    pid_t pid_ = 0;
    int port_ = 0;
};

TEST_F(Proxy, TenClientsAtOnceShareTheHostsOneConnection)
{
    start({"--modbus-max-age", "0"});
    const int pymodbusClient = kClients - 1;
    std::string script = "/usr/bin/python3 " PYMODBUS_CLIENT;
    for (const int arg : {port_, kRounds, kSharedRegister + pymodbusClient, static_cast<int>(sharedValue(pymodbusClient)),
                          kOwnRegister + pymodbusClient})
        script += " " + std::to_string(arg);
    FILE* python = popen((script + " 2>&1").c_str(), "r");
    std::vector<std::string> errors(kClients - 1);
    std::vector<std::thread> threads;
    for (int client = 0; client < pymodbusClient; ++client)
        threads.emplace_back([this, client, &errors] { poll(client, &errors[client]); });
    for (std::thread& thread : threads)
        thread.join();
    const std::string pythonSaid = readLine(python);
    EXPECT_EQ(pclose(python), 0) << pythonSaid;
    for (int client = 0; client < pymodbusClient; ++client) {
        EXPECT_EQ(errors[client], "") << "client " << client;
        EXPECT_EQ(sim_->bit(1, Table::Coil, kOwnCoil + client), (kRounds - 1) % 2 == 1) << "client " << client;
    }
    for (int client = 0; client < kClients; ++client)
        EXPECT_EQ(sim_->word(1, Table::HoldingRegister, kOwnRegister + client), kRounds - 1) << "client " << client;
    EXPECT_EQ(sim_->stats().connections, 1u);
}

TEST_F(Proxy, AClientSendingGarbageIsClosedAndTheOthersCarryOn)
{
    start();
    modbus_t* good = connectTo(port_);
    const int raw = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in proxy{};
    proxy.sin_family = AF_INET;
    proxy.sin_port = htons(static_cast<uint16_t>(port_));
    proxy.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval wait{kReplySeconds, 0};
    setsockopt(raw, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    ASSERT_EQ(connect(raw, reinterpret_cast<sockaddr*>(&proxy), sizeof proxy), 0);
    const char garbage[] = "GET / HTTP/1.1\r\n\r\n";  // protocol id "T " is not 0
    ASSERT_EQ(send(raw, garbage, sizeof garbage - 1, 0), static_cast<ssize_t>(sizeof garbage - 1));
    char reply = 0;
    EXPECT_EQ(recv(raw, &reply, 1, 0), 0) << "the garbage client was not closed";
    close(raw);
    uint16_t word = 0;
    EXPECT_EQ(modbus_read_registers(good, kSharedRegister, 1, &word), 1) << modbus_strerror(errno);
    EXPECT_EQ(word, sharedValue(0));
    closeClient(good);
    EXPECT_EQ(sim_->stats().connections, 1u);
}

TEST_F(Proxy, RefusesClientsPastTheLimitAndOutsideTheAllowedNetworks)
{
    const struct {
        const char* name;
        std::vector<std::string> args;
        int error;  // the second client's
    } rows[] = {
        {"past the limit", {"--modbus-max-clients", "1"}, EMBXGPATH},
        {"outside the allowed network", {"--modbus-allow", "10.0.0.0/8"}, ECONNRESET},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        start(row.args);
        modbus_t* first = connectTo(port_);
        modbus_t* second = connectTo(port_);
        uint16_t word = 0;
        errno = 0;
        EXPECT_EQ(modbus_read_registers(second, kSharedRegister, 1, &word), -1);
        EXPECT_EQ(errno, row.error) << modbus_strerror(errno);
        closeClient(second);
        closeClient(first);
        TearDown();
        out_ = nullptr;
    }
}

}  // namespace
