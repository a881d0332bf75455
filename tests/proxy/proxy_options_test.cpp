// The proxy's options on the command line: where it listens, and the
// message for what is refused.
#include <gtest/gtest.h>

#include "host/commands/cli_options.h"

namespace {

using namespace logohost;

TEST(ProxyOptions, ListenWhereToldAndRefuseWhatCannotBe)
{
    const struct {
        std::vector<std::string> words;
        const char *host, *error;  // host when parsed, else the start of the message
        int port;
    } rows[] = {
        {{"--modbus-listen", "5502"}, "127.0.0.1", "", 5502},
        {{"--modbus-listen", "[::1]:0"}, "::1", "", 0},
        {{"--modbus-listen", "0.0.0.0:5502", "--modbus-allow", "192.168.0.0/24", "--modbus-allow", "fd00::1"},
         "0.0.0.0", "", 5502},
        {{"--modbus-listen", "70000"}, nullptr,
         "bad value \"70000\" for --modbus-listen: the port must be a number from 0 to 65535", 0},
        {{"--modbus-listen", "plc.example:5502"}, nullptr,
         "bad value \"plc.example:5502\" for --modbus-listen: 'plc.example' is not a numeric IPv4 or IPv6 address", 0},
        {{"--modbus-listen", "0.0.0.0:5502"}, nullptr,
         "--modbus-listen 0.0.0.0 is off loopback: name the networks its clients may come from with --modbus-allow", 0},
        {{"--modbus-listen", "5502", "--modbus-allow", "10.0.0.0/33"}, nullptr,
         "bad value \"10.0.0.0/33\" for --modbus-allow: the prefix after '/' must be a number from 0 to 32", 0},
        {{"--modbus-listen", "5502", "--modbus-max-age", "-1"}, nullptr, "bad value \"-1\" for --modbus-max-age", 0},
        {{"--modbus-max-clients", "4"}, nullptr, "--modbus-allow, --modbus-max-age and --modbus-max-clients need", 0},
    };
    for (const auto& row : rows) {
        std::vector<std::string> words{"logohost", "panel"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        SCOPED_TRACE(words[2] + " " + words[3]);
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(&word[0]);
        Options options;
        std::string error;
        const ParseStatus status = parseOptions(static_cast<int>(argv.size()), argv.data(), &options, &error);
        ASSERT_EQ(status, row.host ? kParsed : kParseError) << error;
        if (!row.host) {
            EXPECT_EQ(error.substr(0, std::string(row.error).size()), row.error);
            continue;
        }
        EXPECT_TRUE(options.modbusListen);
        EXPECT_EQ(options.modbusHost, row.host);
        EXPECT_EQ(options.modbusPort, row.port);
    }
}

}  // namespace
