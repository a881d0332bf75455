// The real logohost against a peer that answers every request with a reply
// of the right shape that answers something else: each kind is refused with
// its reason, no value is shown, and the connection is opened afresh. The
// same peer answering correctly is read.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <thread>

#include "host_process.h"

namespace {

// Answers each Modbus/TCP request in full (registers read as 0x1234, bits as
// 1, writes echoed), then lets the test spoil the reply.
class WrongReplyPeer {
public:
    using Spoil = std::function<void(std::string* reply)>;

    explicit WrongReplyPeer(Spoil spoil) : spoil_(std::move(spoil))
    {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(0, bind(listener_, reinterpret_cast<sockaddr*>(&address), size));
        EXPECT_EQ(0, listen(listener_, 4));
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~WrongReplyPeer()
    {
        stop_ = true;
        thread_.join();
        close(listener_);
    }

    std::string plc() const { return "127.0.0.1:" + std::to_string(port_); }
    int connections() const { return connections_; }

private:
    Spoil spoil_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<int> connections_{0};
    std::thread thread_;

    static std::string answer(const std::string& request)
    {
        const auto byte = [&](size_t i) { return static_cast<uint8_t>(request[i]); };
        const int function = byte(7);
        std::string reply = request.substr(0, 12);  // a write's echo
        reply[4] = 0;
        reply[5] = 6;
        if (function >= 1 && function <= 4) {
            const int quantity = byte(10) << 8 | byte(11);
            const bool bits = function <= 2;
            const int bytes = bits ? (quantity + 7) / 8 : 2 * quantity;
            reply = request.substr(0, 4) + char((3 + bytes) >> 8) + char(3 + bytes) + request.substr(6, 2) + char(bytes);
            for (int i = 0; i < bytes; ++i)
                reply += bits ? char(1) : char(i % 2 ? 0x34 : 0x12);
        }
        return reply;
    }

    void serve()
    {
        int client = -1;
        std::string pending;
        while (!stop_) {
            pollfd fds[2] = {{listener_, POLLIN, 0}, {client, POLLIN, 0}};
            if (poll(fds, client >= 0 ? 2 : 1, 20) <= 0)
                continue;
            if (fds[0].revents & POLLIN) {
                if (client >= 0)
                    close(client);
                client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
                pending.clear();
                ++connections_;
                continue;
            }
            char chunk[512];
            const ssize_t n = recv(client, chunk, sizeof chunk, 0);
            if (n <= 0) {
                close(client);
                client = -1;
                continue;
            }
            pending.append(chunk, static_cast<size_t>(n));
            while (pending.size() >= 6) {
                const size_t length = 6 + (static_cast<uint8_t>(pending[4]) << 8 | static_cast<uint8_t>(pending[5]));
                if (pending.size() < length)
                    break;
                std::string reply = answer(pending.substr(0, length));
                pending.erase(0, length);
                spoil_(&reply);
                send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
            }
        }
        if (client >= 0)
            close(client);
    }
};

struct WrongKind {
    const char* name;
    std::vector<std::string> command;  // read VW0, or write VW2=5
    WrongReplyPeer::Spoil spoil;
    std::string reason;
};

const std::vector<std::string> kRead{"read", "VW0"};
const std::vector<std::string> kWrite{"write", "VW2=5"};

const WrongKind kKinds[] = {
    {"TransactionId", kRead, [](std::string* r) { (*r)[1] ^= 0x40; }, "reply to transaction "},
    {"ProtocolId", kRead, [](std::string* r) { (*r)[2] = (*r)[3] = 'T'; },
     "not a Modbus/TCP reply: protocol id 0x5454"},
    {"LengthField", kRead, [](std::string* r) { (*r)[4] = (*r)[5] = 1; },
     "not a Modbus/TCP reply: its length field says 257 bytes follow, 5 did"},
    {"UnitId", kRead, [](std::string* r) { (*r)[6] = 2; }, "reply from unit 2 to a request for unit 1"},
    {"FunctionCode", kRead, [](std::string* r) { (*r)[7] = 4; },
     "function code 0x04 in reply to a request with function code 0x03"},
    {"ByteCount", kRead, [](std::string* r) { (*r)[8] = 4; }, "byte count 4 for 1 register (2 expected)"},
    {"WriteEcho", kWrite, [](std::string* r) { (*r)[9] ^= 1; },
     "echo of address 0x0000 value 0x0005 for a write of address 0x0001 value 0x0005"},
    {"AWebServer", kRead, [](std::string* r) { *r = "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n"; },
     "not a Modbus/TCP reply: protocol id 0x5450"},
};

class RefusedReply : public ::testing::TestWithParam<WrongKind> {};

TEST_P(RefusedReply, IsNamedAndNoValueIsShown)
{
    const WrongKind& kind = GetParam();
    WrongReplyPeer peer(kind.spoil);
    std::vector<std::string> args{"--plc", peer.plc(), "--driver", kDriver, "--timeout", "0.3", "--retries", "1",
                                  "--trace", "--format", "csv"};
    args.insert(args.end(), kind.command.begin(), kind.command.end());
    const Exit run = runHost(args);
    EXPECT_EQ(1, run.code);
    const bool write = kind.command.front() == "write";
    // Writes report at sourceType 1, so the driver's no-reply code is 42 there.
    const std::string message = (write ? "logohost: write VW2=5: not written: " : "logohost: VW0: ") +
                                std::string("the reply was refused: ") + kind.reason;
    EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(write ? " (driver code 42)\n" : " (driver code 41)\n"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("-- reply refused: " + kind.reason), std::string::npos) << run.err;
    EXPECT_TRUE(readValues(run).empty()) << run.out;
    EXPECT_EQ(run.out.find(",written"), std::string::npos) << run.out;
    // Both attempts went out, each on a connection of its own.
    EXPECT_GE(peer.connections(), 2);
}

INSTANTIATE_TEST_SUITE_P(EveryKind, RefusedReply, ::testing::ValuesIn(kKinds),
                         [](const ::testing::TestParamInfo<WrongKind>& info) { return std::string(info.param.name); });

TEST(RefusedReplies, ACorrectPeerIsReadAndWatchCountsRefusals)
{
    WrongReplyPeer good([](std::string*) {});
    const Exit read = runHost({"--plc", good.plc(), "--driver", kDriver, "read", "VW0", "--format", "csv"});
    EXPECT_EQ(0, read.code) << read.err;
    EXPECT_EQ(readValues(read), (Values{{"VW0", "4660"}}));

    WrongReplyPeer wrongUnit([](std::string* r) { (*r)[6] = 7; });
    const Exit watch = runHost({"--plc", wrongUnit.plc(), "--driver", kDriver, "--timeout", "0.2", "--retries", "0",
                                "watch", "VW0", "--format", "csv", "--interval", "0.2", "--duration", "1"});
    EXPECT_EQ(1, watch.code) << watch.err;
    EXPECT_NE(watch.err.find("VW0: refused: reply from unit 7 to a request for unit 1, when the watch ended"),
              std::string::npos)
        << watch.err;
    const std::vector<Values> rows = csvRows(watch);
    ASSERT_FALSE(rows.empty()) << watch.out;
    EXPECT_EQ("refused: reply from unit 7 to a request for unit 1", rows.back().at("VW0"));
    EXPECT_GT(std::stoi(rows.back().at("refused")), 0);
    EXPECT_EQ("0", rows.back().at("replies"));
}

}  // namespace
