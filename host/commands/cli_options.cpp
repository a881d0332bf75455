#include "host/commands/cli_options.h"

#include "common/endpoint.h"
#include "common/numbers.h"

#include <cctype>
#include <fstream>
#include <functional>

namespace logohost {
namespace {

constexpr int kModbusPort = 502;
constexpr int kMaxStation = 255;
constexpr int kMaxBlockWords = 125;  // the most registers one Modbus read may return
constexpr int kMaxRetries = 100;

bool parseInt(const std::string& text, int min, int max, int* out) { return common::parseInt(text, min, max, out); }

bool parseSeconds(const std::string& text, double min, double max, double* out)
{
    return common::parseDecimal(text, min, max, out);
}

bool parseListen(const std::string& text, Options* options, std::string* why)
{
    common::Endpoint endpoint;
    if (!common::parseEndpoint(text, options->listenPort, 0, &endpoint, why))
        return false;
    options->listenHost = endpoint.host;
    options->listenPort = endpoint.port;
    return true;
}

// HOST[:PORT] once, or STATION=HOST[:PORT] as often as there are controllers.
bool parsePlc(const std::string& text, Options* options, std::string* why)
{
    PlcOption plc;
    std::string address = text;
    const size_t equals = text.find('=');
    if (equals != std::string::npos) {
        if (!parseInt(text.substr(0, equals), 0, kMaxStation, &plc.station)) {
            *why = "the station before '=' must be a number from 0 to 255";
            return false;
        }
        address = text.substr(equals + 1);
    }
    common::Endpoint endpoint;
    if (!common::parseEndpoint(address, kModbusPort, 1, &endpoint, why))
        return false;
    plc.host = endpoint.host;
    plc.port = endpoint.port;
    for (const PlcOption& other : options->plcs) {
        if ((other.station < 0) != (plc.station < 0) || other.station < 0) {
            *why = "give one HOST[:PORT], or STATION=HOST[:PORT] for each of several controllers";
            return false;
        }
        if (other.station == plc.station) {
            *why = "station " + std::to_string(plc.station) + " already has a controller";
            return false;
        }
    }
    options->plcs.push_back(plc);
    return true;
}

// "30d", "12h", "2w": how long the history keeps its data.
bool parseKeep(const std::string& text, int* hours)
{
    constexpr int kMaxHours = 10 * 365 * 24;
    if (text.size() < 2)
        return false;
    const char unit = text.back();
    const int per = unit == 'h' ? 1 : unit == 'd' ? 24 : unit == 'w' ? 7 * 24 : 0;
    int count = 0;
    if (per == 0 || !parseInt(text.substr(0, text.size() - 1), 1, kMaxHours / per, &count))
        return false;
    *hours = count * per;
    return true;
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

// ---- MQTT: the bridge, and the panel with --mqtt -------------------------------

constexpr size_t kMaxNodeName = 64;

// HOST[:PORT]; a port left out is 0 until the command knows whether TLS
// (--mqtt-ca, 8883) or plain TCP (1883) is wanted.
bool parseMqtt(const std::string& text, Options* options, std::string* why)
{
    common::Endpoint endpoint;
    if (!common::parseEndpoint(text, 0, 1, &endpoint, why))
        return false;
    options->mqttHost = endpoint.host;
    options->mqttPort = endpoint.port;
    return true;
}

// A topic level and a Home Assistant node id: no wildcard, no separator.
bool isNodeName(const std::string& text)
{
    if (text.empty() || text.size() > kMaxNodeName)
        return false;
    for (const char c : text)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_')
            return false;
    return true;
}

bool setText(std::string* field, const std::string& value)
{
    *field = value;
    return !value.empty();
}

bool refuse(const std::string& message, std::string* error)
{
    *error = message;
    return false;
}

bool checkMqttArguments(const Options& options, std::string* error)
{
    const bool plant = options.command == "panel" || options.command == "bridge";
    const bool details = !options.mqttUser.empty() || !options.mqttPasswordFile.empty() || !options.mqttCa.empty() ||
                         !options.mqttNode.empty();
    const bool http = !options.listenHost.empty() || !options.token.empty() || options.maxViewers != Options().maxViewers;
    if ((!options.mqttHost.empty() || details) && !plant)
        return refuse("--mqtt and its options are options of the bridge and panel commands", error);
    if (options.command == "bridge" && options.mqttHost.empty())
        return refuse("bridge needs --mqtt HOST[:PORT]: the broker to publish the plant to", error);
    if (details && options.mqttHost.empty())
        return refuse("--mqtt-user, --mqtt-password-file, --mqtt-ca and --mqtt-node need --mqtt HOST[:PORT]", error);
    if (!options.mqttPasswordFile.empty() && options.mqttUser.empty())
        return refuse("--mqtt-password-file needs --mqtt-user: MQTT sends a password only with a user name", error);
    if (options.command == "bridge" && http)
        return refuse("--listen, --token and --max-viewers are options of the panel command: the bridge serves no HTTP",
                      error);
    return true;
}

// ---- the option table ------------------------------------------------------------

struct OptionRule {
    const char* name;
    const char* expected;  // empty for a flag
    // On failure *why may say what exactly was wrong.
    std::function<bool(Options*, const std::string&, std::string* why)> apply;
};

const std::vector<OptionRule>& optionRules()
{
    using S = const std::string&;
    using W = std::string*;
    static const std::vector<OptionRule> rules = {
        {"--plc", "HOST[:PORT] (port 1-65535), or STATION=HOST[:PORT] for each of several controllers",
         [](Options* o, S v, W why) { return parsePlc(v, o, why); }},
        {"--station", "a station number from 0 to 255",
         [](Options* o, S v, W) { return parseInt(v, 0, kMaxStation, &o->station); }},
        {"--stations", "", [](Options* o, S, W) { return o->multiStation = true; }},
        {"--remote-mode", "", [](Options* o, S, W) { return o->remoteMode = true; }},
        {"--max-block", "a number of words from 1 to 125",
         [](Options* o, S v, W) { return parseInt(v, 1, kMaxBlockWords, &o->maxBlock); }},
        {"--retries", "a whole number from 0 to 100",
         [](Options* o, S v, W) { return parseInt(v, 0, kMaxRetries, &o->retries); }},
        {"--timeout", "seconds from 0.01 to 60",
         [](Options* o, S v, W) { return parseSeconds(v, 0.01, 60, &o->timeoutSeconds); }},
        {"--interval", "seconds from 0.05 to 3600",
         [](Options* o, S v, W) { return parseSeconds(v, 0.05, 3600, &o->intervalSeconds); }},
        {"--duration", "seconds from 0.1 to 31536000",
         [](Options* o, S v, W) { return parseSeconds(v, 0.1, 31536000, &o->durationSeconds); }},
        {"--demote-after", "a number of given-up requests from 1 to 1000",
         [](Options* o, S v, W) { return parseInt(v, 1, 1000, &o->demoteAfter); }},
        {"--demote-for", "seconds from 0.1 to 86400",
         [](Options* o, S v, W) { return parseSeconds(v, 0.1, 86400, &o->demoteForSeconds); }},
        {"--trace", "", [](Options* o, S, W) { return o->trace = true; }},
        {"--format", "table, csv or jsonl",
         [](Options* o, S v, W) {
             o->format = v == "csv" ? Format::Csv : v == "jsonl" ? Format::Jsonl : Format::Table;
             return v == "table" || v == "csv" || v == "jsonl";
         }},
        {"--driver", "the path of liblogo_modbus_tcp.so",
         [](Options* o, S v, W) {
             o->driverPath = v;
             return !v.empty();
         }},
        {"--screens", "the path of a screens file (JSON)",
         [](Options* o, S v, W) {
             o->screensPath = v;
             return !v.empty();
         }},
        {"--listen", "HOST or HOST:PORT (port 0-65535, 0: any free port)",
         [](Options* o, S v, W why) { return parseListen(v, o, why); }},
        {"--token", "8 to 128 letters, digits, '-' or '_'",
         [](Options* o, S v, W) {
             o->token = v;
             return isTokenText(v);
         }},
        {"--read-only", "", [](Options* o, S, W) { return o->readOnly = true; }},
        {"--max-viewers", "a number of open screens from 1 to 1000",
         [](Options* o, S v, W) { return parseInt(v, 1, 1000, &o->maxViewers); }},
        {"--data", "the folder of the panel's history",
         [](Options* o, S v, W) {
             o->dataDirectory = v;
             return !v.empty();
         }},
        {"--keep", "a duration: hours, days or weeks, e.g. 12h, 30d, 8w",
         [](Options* o, S v, W) { return o->keepGiven = parseKeep(v, &o->keepHours); }},
        {"--scan-period", "seconds from 0 to 60",
         [](Options* o, S v, W) { return o->scanPeriodGiven = parseSeconds(v, 0, 60, &o->scanPeriodSeconds); }},
        // MQTT: the bridge, and the panel with --mqtt
        {"--mqtt", "HOST[:PORT] (port 1-65535; 1883 by default, 8883 with --mqtt-ca; IPv6 as [ADDR]:PORT)",
         [](Options* o, S v, W why) { return parseMqtt(v, o, why); }},
        {"--mqtt-user", "a user name", [](Options* o, S v, W) { return setText(&o->mqttUser, v); }},
        {"--mqtt-password-file", "the path of a file holding the password",
         [](Options* o, S v, W) { return setText(&o->mqttPasswordFile, v); }},
        {"--mqtt-ca", "the path of the CA certificates (PEM) that the broker's certificate is checked against",
         [](Options* o, S v, W) { return setText(&o->mqttCa, v); }},
        {"--mqtt-node", "1 to 64 letters, digits, '-' or '_'",
         [](Options* o, S v, W) { return setText(&o->mqttNode, v) && isNodeName(v); }},
        {"--help", "", [](Options* o, S, W) { return o->help = true; }},
        {"-h", "", [](Options* o, S, W) { return o->help = true; }},
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
    return word == "watch" || word == "read" || word == "write" || word == "panel" || word == "sim" ||
           word == "bridge";
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
    std::string why;
    if (!rule->apply(options, value, &why)) {
        *error = "bad value \"" + value + "\" for " + name + ": " + (why.empty() ? "" : why + "; ") + "expected " +
                 rule->expected;
        return false;
    }
    return true;
}

// A settings file: one option a line as on the command line, without its
// leading "--" ("plc 192.168.0.3", "read-only"); "#" starts a comment. The
// options take their place where --config stands among the others.
bool applyConfigFile(const std::string& path, Options* options, std::string* error)
{
    std::ifstream file(path);
    if (!file) {
        *error = "--config " + path + ": cannot be read";
        return false;
    }
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line[start] == '#')
            continue;
        const size_t end = line.find_last_not_of(" \t\r");
        const size_t space = line.find_first_of(" \t", start);
        std::string name = "--" + line.substr(start, (space == std::string::npos ? end + 1 : space) - start);
        const size_t valueStart = space == std::string::npos ? std::string::npos : line.find_first_not_of(" \t", space);
        std::string value = valueStart == std::string::npos ? "" : line.substr(valueStart, end + 1 - valueStart);
        std::vector<char*> argv{&name[0]};
        if (!value.empty())
            argv.push_back(&value[0]);
        int at = 0;
        const bool nested = name == "--config";
        if (nested || !applyOption(static_cast<int>(argv.size()), argv.data(), &at, options, error)) {
            *error = path + ":" + std::to_string(number) + ": " + (nested ? "a settings file cannot name another" : *error);
            return false;
        }
        if (at + 1 != static_cast<int>(argv.size())) {
            *error = path + ":" + std::to_string(number) + ": option " + name + " takes no value, got \"" + value + "\"";
            return false;
        }
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
                              options.readOnly || options.maxViewers != Options().maxViewers ||
                              !options.dataDirectory.empty() || options.keepGiven;
    if (!checkMqttArguments(options, error))
        return false;
    if (options.command != "panel" && options.command != "bridge" && panelOptions) {
        *error = "--screens, --listen, --token, --read-only, --max-viewers, --data and --keep are options of the panel "
                 "command";
        return false;
    }
    if (options.scanPeriodGiven && options.command != "watch" && options.command != "panel" &&
        options.command != "bridge") {
        *error = "--scan-period is an option of watch and panel, which scan until stopped";
        return false;
    }
    if (options.command == "panel" || options.command == "bridge") {
        if (options.args.empty())
            return true;
        *error = options.command + " takes no variables: its screens come from --screens FILE (or the built-in ones)";
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

const char* const kUsageIntro = R"(usage: logohost [OPTIONS] COMMAND ARGUMENTS...

Exchanges data with a Siemens LOGO! controller over Modbus TCP through the
driver liblogo_modbus_tcp.so. Without --plc it starts a built-in simulated
controller on a free loopback port.
)";

const char* const kUsageCommands = R"(Commands:
  watch VAR...          scan the variables cyclically and show them live
  read VAR...           read the variables once (one full scan) and print them
  write VAR=VALUE...    write values to the controller and wait for each result
  panel [--screens FILE] [--listen HOST:PORT] [--token TOKEN] [--read-only]
                        serve an operator panel to browsers and print its address
  bridge --mqtt HOST[:PORT] [--screens FILE] [--read-only]
                        publish the plant to an MQTT broker, with Home
                        Assistant's discovery, until Ctrl-C
  sim [--listen HOST:PORT] [--animate] [--fault KIND[:every=N]...]...
                        run the simulated controller as a server (sim --help)
)";

const char* const kUsageVariables = R"(Variables (count :N, station @S with --stations):
  I1-I24  Q1-Q20  M1-M64  V0.0-V850.7 (byte.bit)  AI1-AI8  AQ1-AQ8  AM1-AM64
  VW0-VW848 and VD0-VD846 by even V byte number (VD: 32 bits, high word first)
  e.g. VW0:8  Q1:4  V10.3  AM5:2  VW0:4@2
Values: bits 0/1, on/off, true/false; words -32768..65535 or 0xFFFF; VD 32-bit.
  Several elements: VW0:3=1,2,3
)";

const char* const kUsageOptions = R"(Options:
  --plc HOST[:PORT]     the controller (port 502 by default; IPv6 as [ADDR]:PORT)
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
  --scan-period SECONDS watch, panel: one pass over the scanned variables per
                        period at most (default 0.5, a few frames a second,
                        which a LOGO! serves beside its other clients with
                        ease; 0: as fast as the link goes, for measurements)
  --duration SECONDS    watch, panel: stop after this long (default: until Ctrl-C)
  --format FORMAT       table (default), csv or jsonl
  --trace               every frame in hex on standard error
  --driver PATH         the driver library (default: beside logohost)
  --config FILE         options from a settings file, one a line without its
                        "--" ("plc 192.168.0.3"); the service reads
                        /etc/logohost/panel.conf
  --help                this text
)";

const char* const kUsagePanel = R"(Panel options:
  --screens FILE        the screens (JSON; see README.md); default: built-in
                        screens for the simulator
  --listen HOST[:PORT]  where browsers connect (default 127.0.0.1:8502; port 0:
                        any free port). Off loopback, changes need a token.
  --token TOKEN         the token changes need (default: none on loopback,
                        else generated and printed in the address)
  --read-only           no writes and no station switching, and no controls
  --data DIR            where the history is kept (trend samples, alarms, the
                        journal): default $XDG_STATE_HOME/logohost, else
                        ~/.local/state/logohost; /var/lib/logohost as a service
  --keep DURATION       how long the history keeps its data (default 30d)
  --max-viewers N       screens open in browsers at once (default 150): each
                        open screen holds one of the server's threads; a page
                        past the limit says so and tries again every 5 s
  The panel scans only the screens some browser shows (or a script polled in
  the last 10 s), plus the trended variables, always.
)";

const char* const kUsageMqtt = R"(MQTT options (bridge, and panel to publish beside its pages):
  --mqtt HOST[:PORT]    the broker (port 1883, 8883 with --mqtt-ca; IPv6 as
                        [ADDR]:PORT); the bridge's topics are logohost/NODE/...
  --mqtt-user NAME      the user name to connect with (default: anonymous)
  --mqtt-password-file FILE
                        the password, the file's first line
  --mqtt-ca FILE        TLS, the broker's certificate checked against this CA
  --mqtt-node NAME      the NODE of the topics and of the client id
                        logohost-NODE (default: this host's name)
  --screens, --read-only, --data, --keep, --scan-period and --duration apply
  to the bridge as to the panel; it keeps every screen scanned.
)";

const char* const kUsageExamples = R"(Examples:
  logohost watch VW0:4 AI1:2 Q1:4
  logohost --plc 192.168.0.3 read AM1:4 V10.3 --format csv
  logohost --plc 192.168.0.3 write VW0=1234 Q1=on VD4=-100000
  logohost --stations --plc 192.168.0.3 watch VW0:2@1 VW0:2@2 --demote-after 1
  logohost panel --plc 192.168.0.3 --screens pumps.json
  logohost bridge --plc 192.168.0.3 --screens pumps.json --mqtt broker.lan
  logohost sim --listen 127.0.0.1:5020 --animate --fault late:every=10:delay=1500
)";

}  // namespace

ParseStatus parseOptions(int argc, char** argv, Options* out, std::string* error)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (options.command == "sim") {
            options.args.push_back(word);
        } else if (word == "--config" || word.compare(0, 9, "--config=") == 0) {
            const std::string path = word.size() > 9 ? word.substr(9) : i + 1 < argc ? argv[++i] : "";
            if (path.empty()) {
                *error = "option --config needs a value: the path of a settings file";
                return kParseError;
            }
            if (!applyConfigFile(path, &options, error))
                return kParseError;
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
    // Several controllers at their own addresses are several stations.
    if (!options.plcs.empty() && options.plcs.front().station >= 0)
        options.multiStation = true;
    if (!options.help && !checkArguments(options, error))
        return kParseError;
    *out = options;
    return kParsed;
}

std::string usageText()
{
    // One text per section of --help.
    std::string text;
    for (const char* section : {kUsageIntro, kUsageCommands, kUsageVariables, kUsageOptions, kUsagePanel, kUsageMqtt,
                                kUsageExamples})
        text += std::string(section) + (section == kUsageExamples ? "" : "\n");
    return text;
}

}  // namespace logohost
