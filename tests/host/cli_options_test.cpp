// The command line: what is accepted, and the message for what is not.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/commands/cli_options.h"

namespace {

using namespace logohost;

ParseStatus parse(std::vector<std::string> words, Options* options, std::string* error)
{
    words.insert(words.begin(), "logohost");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(&word[0]);
    return parseOptions(static_cast<int>(argv.size()), argv.data(), options, error);
}

TEST(CommandLine, TakesOptionsBeforeAndAfterTheCommand)
{
    Options options;
    std::string error;
    ASSERT_EQ(parse({"--plc", "plc.example:1502", "read", "VW0", "--timeout=0.25", "--stations", "AM1@2", "--format",
                     "jsonl", "--retries", "0"},
                    &options, &error),
              kParsed)
        << error;
    EXPECT_EQ(options.command, "read");
    EXPECT_EQ(options.args, (std::vector<std::string>{"VW0", "AM1@2"}));
    ASSERT_EQ(options.plcs.size(), 1u);
    EXPECT_EQ(options.plcs[0].host, "plc.example");
    EXPECT_EQ(options.plcs[0].port, 1502);
    EXPECT_EQ(options.plcs[0].station, -1);
    EXPECT_DOUBLE_EQ(options.timeoutSeconds, 0.25);
    EXPECT_TRUE(options.multiStation);
    EXPECT_EQ(options.format, Format::Jsonl);
    EXPECT_EQ(options.retries, 0);
}

TEST(CommandLine, PlcAddressForms)
{
    const struct {
        const char *text, *host;
        int port, station;
    } rows[] = {{"[::1]:1502", "::1", 1502, -1}, {"::1", "::1", 502, -1}, {"[::1]", "::1", 502, -1},
                {"2=127.0.0.1:5022", "127.0.0.1", 5022, 2}, {"0=plc.example", "plc.example", 502, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        Options options;
        std::string error;
        EXPECT_EQ(parse({"--plc", row.text, "read", "VW0"}, &options, &error), kParsed) << error;
        ASSERT_EQ(options.plcs.size(), 1u);
        EXPECT_EQ(options.plcs[0].host, row.host);
        EXPECT_EQ(options.plcs[0].port, row.port);
        EXPECT_EQ(options.plcs[0].station, row.station);
        EXPECT_EQ(options.multiStation, row.station >= 0);  // controllers at their own addresses are stations
    }
}

TEST(CommandLine, PlantOptions)
{
    Options options;
    std::string error;
    ASSERT_EQ(parse({"panel", "--screens", "pumps.json", "--listen", "[::1]:0", "--token", "s3cret-Token_1",
                     "--read-only", "--scan-period", "0", "--modbus-listen", "127.0.0.1:5502", "--modbus-allow",
                     "127.0.0.0/8", "--modbus-allow", "::1", "--mqtt", "[::1]:1884", "--mqtt-node", "hall-2"},
                    &options, &error),
              kParsed)
        << error;
    EXPECT_EQ(options.command, "panel");
    EXPECT_EQ(options.screensPath, "pumps.json");
    EXPECT_EQ(options.listenHost, "::1");
    EXPECT_EQ(options.listenPort, 0);
    EXPECT_EQ(options.token, "s3cret-Token_1");
    EXPECT_TRUE(options.readOnly);
    EXPECT_DOUBLE_EQ(options.scanPeriodSeconds, 0);
    EXPECT_TRUE(options.modbusListen);
    EXPECT_EQ(options.modbusHost, "127.0.0.1");
    EXPECT_EQ(options.modbusPort, 5502);
    EXPECT_EQ(options.mqttHost, "::1");
    EXPECT_EQ(options.mqttPort, 1884);
    ASSERT_EQ(parse({"bridge", "--mqtt", "localhost", "--modbus-listen", "5502"}, &options, &error), kParsed) << error;
    EXPECT_EQ(options.modbusHost, "127.0.0.1");  // a port alone listens on loopback
    EXPECT_EQ(options.mqttPort, 0);              // 1883 or 8883, once TLS is known
}

TEST(CommandLine, BadOnesAreRejectedWithAClearMessage)
{
    const std::string kCommands = "expected watch, read, write, panel, bridge or sim (see logohost --help)";
    const std::string kProxy = ": it is a setting of the Modbus proxy, which --modbus-listen starts";
    const std::string kPlc = "expected HOST[:PORT] (port 1-65535), or STATION=HOST[:PORT] for each of several controllers";
    const struct {
        std::vector<std::string> words;
        std::string message;
    } rows[] = {
        {{}, "no command given: " + kCommands},
        {{"frob"}, "unknown command \"frob\": " + kCommands},
        {{"read", "VW0", "--bogus"}, "unknown option \"--bogus\" (see logohost --help)"},
        {{"read"}, "read needs at least one variable, e.g. logohost read VW0:4 Q1"},
        {{"write"}, "write needs at least one VAR=VALUE, e.g. logohost write VW0=123"},
        {{"read", "VW0", "--retries", "x"}, "bad value \"x\" for --retries: expected a whole number from 0 to 100"},
        {{"read", "VW0", "--timeout", "0"}, "bad value \"0\" for --timeout: expected seconds from 0.01 to 60"},
        {{"read", "VW0", "--format", "xml"}, "bad value \"xml\" for --format: expected table, csv or jsonl"},
        {{"--plc", "plc.example:70000", "read", "VW0"},
         "bad value \"plc.example:70000\" for --plc: the port '70000' is not a number from 1 to 65535; " + kPlc},
        {{"--plc", "127.0.0.1:", "read", "VW0"}, "bad value \"127.0.0.1:\" for --plc: the port after ':' is empty; " + kPlc},
        {{"--plc", "[::1", "read", "VW0"},
         "bad value \"[::1\" for --plc: '[' without its ']' (expected [IPV6]:PORT); " + kPlc},
        {{"--plc", "1=a", "--plc", "1=b", "read", "VW0"},
         "bad value \"1=b\" for --plc: station 1 already has a controller; " + kPlc},
        {{"--plc", "a", "--plc", "2=b", "read", "VW0"},
         "bad value \"2=b\" for --plc: give one HOST[:PORT], or STATION=HOST[:PORT] for each of several controllers; " +
             kPlc},
        {{"read", "VW0", "--scan-period", "1"},
         "--scan-period is an option of the watch, panel and bridge commands, which scan until stopped"},
        {{"--max-block", "126", "read", "VW0"},
         "bad value \"126\" for --max-block: expected a number of words from 1 to 125"},
        {{"read", "VW0", "--interval"}, "option --interval needs a value: seconds from 0.05 to 3600"},
        {{"read", "VW0", "--trace=yes"}, "option --trace takes no value, got \"yes\""},
        {{"panel", "VW0"}, "panel takes no variables: its screens come from --screens FILE (or the built-in ones)"},
        {{"watch", "VW0", "--read-only"}, "--read-only is an option of the panel and bridge commands"},
        {{"bridge", "--mqtt", "b", "--token", "s3cret-Token_1"}, "--token is an option of the panel command"},
        {{"panel", "--keep", "30"}, "bad value \"30\" for --keep: expected a duration: hours, days or weeks, e.g. 12h, 30d, 8w"},
        {{"panel", "--token", "short"}, "bad value \"short\" for --token: expected 8 to 128 letters, digits, '-' or '_'"},
        {{"panel", "--token", "has space 123"},
         "bad value \"has space 123\" for --token: expected 8 to 128 letters, digits, '-' or '_'"},
        {{"panel", "--listen", "127.0.0.1:65536"},
         "bad value \"127.0.0.1:65536\" for --listen: the port '65536' is not a number from 0 to 65535; expected HOST or "
         "HOST:PORT (port 0-65535, 0: any free port)"},
        {{"panel", "--scan-period", "-1"}, "bad value \"-1\" for --scan-period: expected seconds from 0 to 60"},
        // the Modbus proxy
        {{"panel", "--modbus-listen", "70000"},
         "bad value \"70000\" for --modbus-listen: the port must be a number from 0 to 65535; expected PORT (on "
         "127.0.0.1) or HOST:PORT (a numeric address; port 0-65535, 0: any free port)"},
        {{"panel", "--modbus-listen", "plc.example:5502"},
         "bad value \"plc.example:5502\" for --modbus-listen: 'plc.example' is not a numeric IPv4 or IPv6 address (or localhost); "
         "expected PORT (on 127.0.0.1) or HOST:PORT (a numeric address; port 0-65535, 0: any free port)"},
        {{"panel", "--modbus-listen", "0.0.0.0:5502"},
         "--modbus-listen 0.0.0.0 is off loopback: name the networks its clients may come from with --modbus-allow "
         "CIDR (a Modbus write carries no credentials)"},
        {{"panel", "--modbus-listen", "5502", "--modbus-allow", "127.0.0.0/33"},
         "bad value \"127.0.0.0/33\" for --modbus-allow: the prefix after '/' must be a number from 0 to 32; expected a "
         "network as ADDRESS/PREFIX, e.g. 192.168.0.0/24 or fd00::/8, or one ADDRESS"},
        {{"panel", "--modbus-max-clients", "4"}, "--modbus-max-clients needs --modbus-listen" + kProxy},
        {{"read", "VW0", "--modbus-listen", "5502"}, "--modbus-listen is an option of the panel and bridge commands"},
        // MQTT
        {{"bridge"}, "bridge needs --mqtt HOST[:PORT]: the broker to publish the plant to"},
        {{"read", "VW0", "--mqtt", "b"}, "--mqtt is an option of the panel and bridge commands"},
        {{"panel", "--mqtt", "b", "--mqtt-password-file", "f"},
         "--mqtt-password-file needs --mqtt-user: MQTT sends a password only with a user name"},
        {{"panel", "--mqtt-node", "hall"},
         "--mqtt-node needs --mqtt: it is a setting of the broker's connection, which --mqtt starts"},
        {{"bridge", "--mqtt", "b", "--mqtt-node", "a/b"},
         "bad value \"a/b\" for --mqtt-node: expected 1 to 64 letters, digits, '-' or '_'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        Options options;
        std::string error;
        EXPECT_EQ(parse(row.words, &options, &error), kParseError);
        EXPECT_EQ(error, row.message);
    }
}

}  // namespace
