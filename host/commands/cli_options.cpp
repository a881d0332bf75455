#include "host/commands/cli_options.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <functional>

namespace logohost {
namespace {

constexpr int kMaxPort = 65535;
constexpr int kMaxStation = 255;
constexpr int kMaxBlockWords = 125;  // the most registers one Modbus read may return
constexpr int kMaxRetries = 100;

bool parseInt(const std::string& text, int min, int max, int* out)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || value < min || value > max)
        return false;
    *out = static_cast<int>(value);
    return true;
}

bool parseSeconds(const std::string& text, double min, double max, double* out)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !std::isfinite(value) || value < min || value > max)
        return false;
    *out = value;
    return true;
}

// HOST, HOST:PORT, [V6]:PORT; a bare IPv6 address (several colons) is a host.
bool parseHostPort(const std::string& text, int minPort, std::string* hostOut, int* portOut)
{
    std::string host = text;
    std::string port;
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos)
            return false;
        host = text.substr(1, close - 1);
        if (close + 1 < text.size()) {
            if (text[close + 1] != ':')
                return false;
            port = text.substr(close + 2);
        }
    } else if (text.find(':') == text.rfind(':') && text.find(':') != std::string::npos) {
        host = text.substr(0, text.find(':'));
        port = text.substr(text.find(':') + 1);
    }
    if (host.empty())
        return false;
    *hostOut = host;
    return port.empty() || parseInt(port, minPort, kMaxPort, portOut);
}

// A token travels in addresses, cookies and headers: plain characters only.
bool isTokenText(const std::string& text)
{
    constexpr size_t kMinToken = 8;
    constexpr size_t kMaxToken = 128;
    if (text.size() < kMinToken || text.size() > kMaxToken)
        return false;
    for (const char c : text)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_')
            return false;
    return true;
}

struct OptionRule {
    const char* name;
    const char* expected;  // empty for a flag
    std::function<bool(Options*, const std::string&)> apply;
};

const std::vector<OptionRule>& optionRules()
{
    using S = const std::string&;
    static const std::vector<OptionRule> rules = {
        {"--plc", "HOST or HOST:PORT (port 1-65535)",
         [](Options* o, S v) { return parseHostPort(v, 1, &o->plcHost, &o->plcPort); }},
        {"--station", "a station number from 0 to 255",
         [](Options* o, S v) { return parseInt(v, 0, kMaxStation, &o->station); }},
        {"--stations", "", [](Options* o, S) { return o->multiStation = true; }},
        {"--remote-mode", "", [](Options* o, S) { return o->remoteMode = true; }},
        {"--max-block", "a number of words from 1 to 125",
         [](Options* o, S v) { return parseInt(v, 1, kMaxBlockWords, &o->maxBlock); }},
        {"--retries", "a whole number from 0 to 100",
         [](Options* o, S v) { return parseInt(v, 0, kMaxRetries, &o->retries); }},
        {"--timeout", "seconds from 0.01 to 60",
         [](Options* o, S v) { return parseSeconds(v, 0.01, 60, &o->timeoutSeconds); }},
        {"--interval", "seconds from 0.05 to 3600",
         [](Options* o, S v) { return parseSeconds(v, 0.05, 3600, &o->intervalSeconds); }},
        {"--duration", "seconds from 0.1 to 31536000",
         [](Options* o, S v) { return parseSeconds(v, 0.1, 31536000, &o->durationSeconds); }},
        {"--demote-after", "a number of given-up requests from 1 to 1000",
         [](Options* o, S v) { return parseInt(v, 1, 1000, &o->demoteAfter); }},
        {"--demote-for", "seconds from 0.1 to 86400",
         [](Options* o, S v) { return parseSeconds(v, 0.1, 86400, &o->demoteForSeconds); }},
        {"--trace", "", [](Options* o, S) { return o->trace = true; }},
        {"--format", "table, csv or jsonl",
         [](Options* o, S v) {
             o->format = v == "csv" ? Format::Csv : v == "jsonl" ? Format::Jsonl : Format::Table;
             return v == "table" || v == "csv" || v == "jsonl";
         }},
        {"--driver", "the path of liblogo_modbus_tcp.so",
         [](Options* o, S v) {
             o->driverPath = v;
             return !v.empty();
         }},
        {"--screens", "the path of a screens file (JSON)",
         [](Options* o, S v) {
             o->screensPath = v;
             return !v.empty();
         }},
        {"--listen", "HOST or HOST:PORT (port 0-65535, 0: any free port)",
         [](Options* o, S v) { return parseHostPort(v, 0, &o->listenHost, &o->listenPort); }},
        {"--token", "8 to 128 letters, digits, '-' or '_'",
         [](Options* o, S v) {
             o->token = v;
             return isTokenText(v);
         }},
        {"--read-only", "", [](Options* o, S) { return o->readOnly = true; }},
        {"--scan-period", "seconds from 0 to 60",
         [](Options* o, S v) { return parseSeconds(v, 0, 60, &o->scanPeriodSeconds); }},
        {"--help", "", [](Options* o, S) { return o->help = true; }},
        {"-h", "", [](Options* o, S) { return o->help = true; }},
    };
    return rules;
}

const OptionRule* findOption(const std::string& name)
{
    for (const OptionRule& rule : optionRules())
        if (name == rule.name)
            return &rule;
    return nullptr;
}

bool isCommand(const std::string& word)
{
    return word == "watch" || word == "read" || word == "write" || word == "panel" || word == "sim";
}

// One option at argv[*i]; advances *i past its value.
bool applyOption(int argc, char** argv, int* i, Options* options, std::string* error)
{
    std::string name = argv[*i];
    std::string value;
    const size_t equals = name.find('=');
    const bool inlineValue = equals != std::string::npos;
    if (inlineValue) {
        value = name.substr(equals + 1);
        name.erase(equals);
    }
    const OptionRule* rule = findOption(name);
    if (!rule) {
        *error = "unknown option \"" + name + "\" (see logohost --help)";
        return false;
    }
    const bool takesValue = rule->expected[0] != '\0';
    if (!takesValue && inlineValue) {
        *error = "option " + name + " takes no value, got \"" + value + "\"";
        return false;
    }
    if (takesValue && !inlineValue) {
        if (*i + 1 >= argc) {
            *error = "option " + name + " needs a value: " + rule->expected;
            return false;
        }
        value = argv[++*i];
    }
    if (!rule->apply(options, value)) {
        *error = "bad value \"" + value + "\" for " + name + ": expected " + rule->expected;
        return false;
    }
    return true;
}

bool checkArguments(const Options& options, std::string* error)
{
    if (options.command.empty()) {
        *error = "no command given: expected watch, read, write, panel or sim (see logohost --help)";
        return false;
    }
    const bool panelOptions = !options.screensPath.empty() || !options.listenHost.empty() || !options.token.empty() ||
                              options.readOnly;
    if (options.command != "panel" && panelOptions) {
        *error = "--screens, --listen, --token and --read-only are options of the panel command";
        return false;
    }
    if (options.command == "panel") {
        if (options.args.empty())
            return true;
        *error = "panel takes no variables: its screens come from --screens FILE (or the built-in ones)";
        return false;
    }
    if (options.command != "sim" && options.args.empty()) {
        *error = options.command + " needs at least one " +
                 (options.command == "write" ? "VAR=VALUE, e.g. logohost write VW0=123"
                                             : "variable, e.g. logohost " + options.command + " VW0:4 Q1");
        return false;
    }
    return true;
}

}  // namespace

ParseStatus parseOptions(int argc, char** argv, Options* out, std::string* error)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (options.command == "sim") {
            options.args.push_back(word);
        } else if (word.size() > 1 && word[0] == '-' && !std::isdigit(static_cast<unsigned char>(word[1]))) {
            if (!applyOption(argc, argv, &i, &options, error))
                return kParseError;
        } else if (options.command.empty()) {
            if (!isCommand(word)) {
                *error = "unknown command \"" + word +
                         "\": expected watch, read, write, panel or sim (see logohost --help)";
                return kParseError;
            }
            options.command = word;
        } else {
            options.args.push_back(word);
        }
    }
    if (!options.help && !checkArguments(options, error))
        return kParseError;
    *out = options;
    return kParsed;
}

std::string usageText()
{
    return R"(usage: logohost [OPTIONS] COMMAND ARGUMENTS...

Exchanges data with a Siemens LOGO! controller over Modbus TCP through the
driver liblogo_modbus_tcp.so. Without --plc it starts a built-in simulated
controller on a free loopback port.

Commands:
  watch VAR...          scan the variables cyclically and show them live
  read VAR...           read the variables once (one full scan) and print them
  write VAR=VALUE...    write values to the controller and wait for each result
  panel [--screens FILE] [--listen HOST:PORT] [--token TOKEN] [--read-only]
                        serve an operator panel to browsers and print its address
  sim [--listen HOST:PORT] [--animate] [--fault KIND[:every=N]...]...
                        run the simulated controller as a server (sim --help)

Variables (count :N, station @S with --stations):
  I1-I24  Q1-Q20  M1-M64  V0.0-V850.7 (byte.bit)  AI1-AI8  AQ1-AQ8  AM1-AM64
  VW0-VW848 and VD0-VD846 by even V byte number (VD: 32 bits, high word first)
  e.g. VW0:8  Q1:4  V10.3  AM5:2  VW0:4@2
Values: bits 0/1, on/off, true/false; words -32768..65535 or 0xFFFF; VD 32-bit.
  Several elements: VW0:3=1,2,3

Options:
  --plc HOST[:PORT]     the controller (port 502 by default)
  --station N           Modbus unit identifier (default 1)
  --stations            several stations: variables carry @STATION
  --demote-after N      with --stations, switch a station off after N given-up
                        requests in a row (default 3)
  --demote-for SECONDS  ... for this long (default 10)
  --remote-mode         use the driver's remote-mode frames instead of Modbus
  --max-block N         most words in one request (1-125, default 64)
  --retries N           failed replies before a request is given up (default 2)
  --timeout SECONDS     reply time-out (default 1)
  --interval SECONDS    watch: display refresh / scan line period (default 1)
  --duration SECONDS    watch, panel: stop after this long (default: until Ctrl-C)
  --format FORMAT       table (default), csv or jsonl
  --trace               every frame in hex on standard error
  --driver PATH         the driver library (default: beside logohost)
  --help                this text

Panel options:
  --screens FILE        the screens (JSON; see README.md); default: built-in
                        screens for the simulator
  --listen HOST[:PORT]  where browsers connect (default 127.0.0.1:8502; port 0:
                        any free port). Off loopback, changes need a token.
  --token TOKEN         the token changes need (default: none on loopback,
                        else generated and printed in the address)
  --read-only           no writes and no station switching, and no controls
  --scan-period SECONDS one pass over the scanned variables per period at most
                        (default 0.2; 0: as fast as the link goes)
  The panel scans only the screens some browser shows (or a script polled in
  the last 10 s), plus the trended variables, always.

Examples:
  logohost watch VW0:4 AI1:2 Q1:4
  logohost --plc 192.168.0.3 read AM1:4 V10.3 --format csv
  logohost --plc 192.168.0.3 write VW0=1234 Q1=on VD4=-100000
  logohost --stations --plc 192.168.0.3 watch VW0:2@1 VW0:2@2 --demote-after 1
  logohost panel --plc 192.168.0.3 --screens pumps.json
  logohost sim --listen 127.0.0.1:5020 --animate --fault late:every=10:delay=1500
)";
}

}  // namespace logohost
