// The real logohost against a simulated controller with faults, one row per
// way a host can tell its user something untrue: an exit status that
// disagrees with what was printed, a read that waits on a dead link for
// every variable in turn, a watch that floods the controller, a value shown
// as another number than the one written.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <memory>
#include <regex>

#include "host_fixture.h"

namespace {

using logosim::FaultKind;
using logosim::FaultSpec;

using HonestHost = HostTest;

// A port nothing listens on: bound, never listened to, closed.
int deadPort()
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    close(fd);
    return ntohs(address.sin_port);
}

// A reply dropped now and then: whatever a run ends with, its exit status,
// its rows and its messages agree. A row without a value carries its error,
// and each variable without all its values is named on standard error.
TEST_F(HonestHost, ExitStatusAndOutputAgreeOnAFlakyLink)
{
    startSimulator({FaultSpec{FaultKind::Drop, 1, 0.3}});
    const std::vector<std::string> variables{"VW0:2", "AI1", "Q1"};
    for (int run = 0; run < 12; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        std::vector<std::string> args{"read", "--format", "csv"};
        args.insert(args.end(), variables.begin(), variables.end());
        const Exit read = host(args);
        const std::vector<Values> rows = csvRows(read);
        ASSERT_EQ(rows.size(), 4u) << read.out;  // VW0, VW2, AI1, Q1: every element, read or not
        bool all = true;
        for (const Values& row : rows) {
            const bool read = !row.at("value").empty();
            all = all && read;
            EXPECT_NE(read, !row.at("error").empty()) << read;
        }
        EXPECT_EQ(read.code, all ? 0 : 1) << read.out << read.err;
        for (const Values& row : rows) {
            const std::string name = row.at("variable").substr(0, 2) == "VW" ? "VW0:2" : row.at("variable");
            if (row.at("value").empty()) {
                EXPECT_NE(read.err.find("logohost: " + name + ": "), std::string::npos) << read.err;
            }
        }
    }
}

// A controller that does not answer at all ends the read after one
// request's retries, whatever the number of variables, each named with why.
TEST_F(HonestHost, ADeadLinkEndsAReadAtOnce)
{
    const std::vector<std::string> variables{"VW10", "AQ1:2", "AM3", "AI1", "Q1", "M3", "V1.5", "I1"};
    const struct {
        const char* name;
        bool silent;  // else nothing listens
        const char* cause;
    } rows[] = {{"silent", true, "timed out after 300 ms"}, {"refused", false, "connection refused"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.silent)
            startSimulator({FaultSpec{FaultKind::Silent}});
        else
            plc_ = "127.0.0.1:" + std::to_string(deadPort());
        std::vector<std::string> args{"read", "--retries", "2"};
        args.insert(args.end(), variables.begin(), variables.end());
        const Exit read = host(args);
        EXPECT_EQ(read.code, 1);
        for (const std::string& variable : variables) {
            const std::regex named("logohost: " + std::regex_replace(variable, std::regex("[.]"), "\\.") +
                                   ": [^\n]*" + row.cause);
            EXPECT_TRUE(std::regex_search(read.err, named)) << variable << " in\n" << read.err;
        }
        // One request with its two retries, and at most the next frame before
        // the read ends; not three for each variable in turn.
        if (row.silent) {
            EXPECT_LE(sim_->stats().requests, 4u);
        }
    }
}

// A watch asks for one pass per scan period at most, and a controller that
// answers every frame with an exception is not asked thousands of times a
// second. Counts, not times: a slow machine only asks less. (Without
// repeats, so that a reply a loaded machine delays past the time-out does
// not add frames.) Its exit status agrees with its last line.
TEST_F(HonestHost, WatchIsPoliteToTheController)
{
    const struct {
        const char* name;
        std::vector<FaultSpec> faults;
        std::vector<std::string> options;
        uint64_t most;
        bool fails;  // whatever the timing
    } rows[] = {
        {"default period: two requests a pass, a pass each 0.4 s for 2 s", {}, {"--retries", "0"}, 2 * (5 + 3), false},
        {"exceptions, as fast as the link goes", {FaultSpec{FaultKind::Exception}}, {"--scan-period", "0"}, 400, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        startSimulator(row.faults);
        std::vector<std::string> args{"watch", "VW0", "AI1", "--duration", "2", "--format", "csv"};
        args.insert(args.end(), row.options.begin(), row.options.end());
        const Exit watch = host(args);
        expectWatchVerdict(watch, {"VW0", "AI1"});
        if (row.fails) {
            EXPECT_EQ(watch.code, 1);
        }
        EXPECT_GT(sim_->stats().requests, 0u);
        EXPECT_LE(sim_->stats().requests, row.most);
    }
}

TEST_F(HonestHost, WrittenValuesAreEchoedAsTypedAndReadBackAsTheControllerShowsThem)
{
    startSimulator({});
    const Exit write = host({"write", "VW0=65535", "VW2=0x8000"});
    EXPECT_EQ(write.code, 0) << write.err;
    EXPECT_EQ(write.out, "VW0 = 65535  written\nVW2 = 0x8000  written\n");
    EXPECT_EQ(readValues(host({"read", "VW0:2", "--format", "csv"})), (Values{{"VW0", "-1"}, {"VW2", "-32768"}}));
}

}  // namespace
