// The command line: what is accepted, and the message for what is not.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/cli_options.h"

namespace logohost {
namespace {

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
    ASSERT_EQ(parse({"--plc", "plc.example:1502", "read", "VW0", "--timeout=0.25", "--stations", "AM1@2",
                     "--format", "jsonl", "--retries", "0"},
                    &options, &error),
              kParsed)
        << error;
    EXPECT_EQ(options.command, "read");
    EXPECT_EQ(options.args, (std::vector<std::string>{"VW0", "AM1@2"}));
    EXPECT_EQ(options.plcHost, "plc.example");
    EXPECT_EQ(options.plcPort, 1502);
    EXPECT_DOUBLE_EQ(options.timeoutSeconds, 0.25);
    EXPECT_TRUE(options.multiStation);
    EXPECT_EQ(options.format, Format::Jsonl);
    EXPECT_EQ(options.retries, 0);
}

TEST(CommandLine, PlcAddressForms)
{
    const struct {
        const char* text;
        const char* host;
        int port;
    } cases[] = {
        {"plc.example", "plc.example", 502},
        {"plc.example:5020", "plc.example", 5020},
        {"[::1]:1502", "::1", 1502},
        {"::1", "::1", 502},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Options options;
        std::string error;
        ASSERT_EQ(parse({"--plc", c.text, "read", "VW0"}, &options, &error), kParsed) << error;
        EXPECT_EQ(options.plcHost, c.host);
        EXPECT_EQ(options.plcPort, c.port);
    }
}

TEST(CommandLine, SimHandsEveryLaterArgumentToTheSimulator)
{
    Options options;
    std::string error;
    ASSERT_EQ(parse({"sim", "--listen", "127.0.0.1:0", "--fault", "drop"}, &options, &error), kParsed) << error;
    EXPECT_EQ(options.args, (std::vector<std::string>{"--listen", "127.0.0.1:0", "--fault", "drop"}));
}

struct BadCase {
    const char* name;
    std::vector<std::string> words;
    const char* message;
};

// Failures name the row, not its bytes.
void PrintTo(const BadCase& c, std::ostream* os) { *os << c.name; }

class BadCommandLine : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadCommandLine, IsRejectedWithAClearMessage)
{
    Options options;
    std::string error;
    EXPECT_EQ(parse(GetParam().words, &options, &error), kParseError);
    EXPECT_EQ(error, GetParam().message);
}

const BadCase kBadCases[] = {
    {"NoCommand", {}, "no command given: expected watch, read, write or sim (see logohost --help)"},
    {"UnknownCommand", {"frob"}, "unknown command \"frob\": expected watch, read, write or sim (see logohost --help)"},
    {"UnknownOption", {"read", "VW0", "--bogus"}, "unknown option \"--bogus\" (see logohost --help)"},
    {"ReadWithoutVariables", {"read"}, "read needs at least one variable, e.g. logohost read VW0:4 Q1"},
    {"WriteWithoutValues", {"write"}, "write needs at least one VAR=VALUE, e.g. logohost write VW0=123"},
    {"RetriesNotANumber", {"read", "VW0", "--retries", "x"},
     "bad value \"x\" for --retries: expected a whole number from 0 to 100"},
    {"TimeoutZero", {"read", "VW0", "--timeout", "0"}, "bad value \"0\" for --timeout: expected seconds from 0.01 to 60"},
    {"FormatUnknown", {"read", "VW0", "--format", "xml"}, "bad value \"xml\" for --format: expected table, csv or jsonl"},
    {"PortTooHigh", {"--plc", "plc.example:70000", "read", "VW0"},
     "bad value \"plc.example:70000\" for --plc: expected HOST or HOST:PORT (port 1-65535)"},
    {"StationTooHigh", {"--station", "256", "read", "VW0"},
     "bad value \"256\" for --station: expected a station number from 0 to 255"},
    {"MaxBlockTooHigh", {"--max-block", "126", "read", "VW0"},
     "bad value \"126\" for --max-block: expected a number of words from 1 to 125"},
    {"MissingValue", {"read", "VW0", "--interval"}, "option --interval needs a value: seconds from 0.05 to 3600"},
    {"FlagWithValue", {"read", "VW0", "--trace=yes"}, "option --trace takes no value, got \"yes\""},
};

INSTANTIATE_TEST_SUITE_P(Options, BadCommandLine, ::testing::ValuesIn(kBadCases),
                         [](const ::testing::TestParamInfo<BadCase>& info) { return info.param.name; });

}  // namespace
}  // namespace logohost
