#include "host/commands/cli_options.h"

#include "common/endpoint.h"
#include "common/modbus_wire.h"
#include "common/numbers.h"
#include "host/proxy/client_access.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <functional>

namespace logohost {
namespace {

constexpr int kModbusPort = 502;
constexpr int kMaxPort = 65535;
constexpr int kMaxBlockWords = 125;  // the most registers one Modbus read may return
constexpr int kMaxRetries = 100;
constexpr int kMostModbusClients = 256;  // each holds a thread
constexpr double kMostMaxAgeSeconds = 3600;
constexpr size_t kMaxNodeName = 64;

// ---- values ------------------------------------------------------------------

bool parseInt(const std::string& text, int min, int max, int* out) { return common::parseInt(text, min, max, out); }

bool parseSeconds(const std::string& text, double min, double max, double* out)
{
    return common::parseDecimal(text, min, max, out);
}

bool setText(std::string* field, const std::string& value)
{
    *field = value;
    return !value.empty();
}

// HOST[:PORT] once, or STATION=HOST[:PORT] as often as there are controllers.
bool parsePlc(const std::string& text, Options* options, std::string* why)
{
    PlcOption plc;
    std::string address = text;
    const size_t equals = text.find('=');
    if (equals != std::string::npos) {
        if (!parseInt(text.substr(0, equals), 0, wire::kMaxUnitId, &plc.station)) {
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

bool parseListen(const std::string& text, Options* options, std::string* why)
{
    common::Endpoint endpoint;
    if (!common::parseEndpoint(text, options->listenPort, 0, &endpoint, why))
        return false;
    options->listenHost = endpoint.host;
    options->listenPort = endpoint.port;
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

// A panel's token travels in addresses, cookies and headers, and an MQTT
// node is a topic level and a Home Assistant id: plain characters only.
bool isPlainName(const std::string& text, size_t minSize, size_t maxSize)
{
    if (text.size() < minSize || text.size() > maxSize)
        return false;
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_'; });
}

// PORT alone listens on loopback; HOST alone on the Modbus port.
bool parseModbusListen(const std::string& text, Options* options, std::string* why)
{
    common::Endpoint endpoint{options->modbusHost, 0};
    const bool portOnly = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if (portOnly && !parseInt(text, 0, kMaxPort, &endpoint.port)) {
        *why = "the port must be a number from 0 to 65535";
        return false;
    }
    Network address;
    if (!portOnly && (!common::parseEndpoint(text, kModbusPort, 0, &endpoint, why) ||
                      !parseListenAddress(endpoint.host, &address, why)))
        return false;
    options->modbusListen = true;
    options->modbusHost = endpoint.host;
    options->modbusPort = endpoint.port;
    return true;
}

bool parseModbusAllow(const std::string& text, Options* options, std::string* why)
{
    Network network;
    if (!parseNetwork(text, &network, why))
        return false;
    options->modbusAllow.push_back(text);
    return true;
}

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

// ---- the options, in groups by the commands that take them -------------------

using S = const std::string&;
using W = std::string*;

struct OptionRule {
    const char* name;
    const char* expected;  // empty for a flag
    // On failure *why may say what exactly was wrong.
    std::function<bool(Options*, const std::string&, std::string* why)> apply;
    const char* needs = "";  // another option that must be given with it, and why
    const char* needsWhy = "";
};

struct OptionGroup {
    std::vector<std::string> commands;  // empty: every command
    const char* why;                    // said after the commands to one who gave it to another
    std::vector<OptionRule> rules;
};

std::vector<OptionRule> linkRules()
{
    return {
        {"--plc", "HOST[:PORT] (port 1-65535), or STATION=HOST[:PORT] for each of several controllers",
         [](Options* o, S v, W why) { return parsePlc(v, o, why); }},
        {"--station", "a station number from 0 to 255",
         [](Options* o, S v, W) { return parseInt(v, 0, wire::kMaxUnitId, &o->station); }},
        {"--stations", "", [](Options* o, S, W) { return o->multiStation = true; }},
        {"--remote-mode", "", [](Options* o, S, W) { return o->remoteMode = true; }},
        {"--max-block", "a number of words from 1 to 125",
         [](Options* o, S v, W) { return parseInt(v, 1, kMaxBlockWords, &o->maxBlock); }},
        {"--retries", "a whole number from 0 to 100",
         [](Options* o, S v, W) { return parseInt(v, 0, kMaxRetries, &o->retries); }},
        {"--timeout", "seconds from 0.01 to 60",
         [](Options* o, S v, W) { return parseSeconds(v, 0.01, 60, &o->timeoutSeconds); }},
        {"--demote-after", "a number of given-up requests from 1 to 1000",
         [](Options* o, S v, W) { return parseInt(v, 1, 1000, &o->demoteAfter); }},
        {"--demote-for", "seconds from 0.1 to 86400",
         [](Options* o, S v, W) { return parseSeconds(v, 0.1, 86400, &o->demoteForSeconds); }},
        {"--driver", "the path of liblogo_modbus_tcp.so", [](Options* o, S v, W) { return setText(&o->driverPath, v); }},
        {"--trace", "", [](Options* o, S, W) { return o->trace = true; }},
        {"--format", "table, csv or jsonl",
         [](Options* o, S v, W) {
             o->format = v == "csv" ? Format::Csv : v == "jsonl" ? Format::Jsonl : Format::Table;
             return v == "table" || v == "csv" || v == "jsonl";
         }},
        {"--interval", "seconds from 0.05 to 3600",
         [](Options* o, S v, W) { return parseSeconds(v, 0.05, 3600, &o->intervalSeconds); }},
        {"--duration", "seconds from 0.1 to 31536000",
         [](Options* o, S v, W) { return parseSeconds(v, 0.1, 31536000, &o->durationSeconds); }},
        {"--help", "", [](Options* o, S, W) { return o->help = true; }},
    };
}

std::vector<OptionRule> plantRules()
{
    return {
        {"--screens", "the path of a screens file (JSON)", [](Options* o, S v, W) { return setText(&o->screensPath, v); }},
        {"--read-only", "", [](Options* o, S, W) { return o->readOnly = true; }},
        {"--data", "the folder of the panel's history", [](Options* o, S v, W) { return setText(&o->dataDirectory, v); }},
        {"--keep", "a duration: hours, days or weeks, e.g. 12h, 30d, 8w",
         [](Options* o, S v, W) { return parseKeep(v, &o->keepHours); }},
    };
}

std::vector<OptionRule> httpRules()
{
    return {
        {"--listen", "HOST or HOST:PORT (port 0-65535, 0: any free port)",
         [](Options* o, S v, W why) { return parseListen(v, o, why); }},
        {"--token", "8 to 128 letters, digits, '-' or '_'",
         [](Options* o, S v, W) { return setText(&o->token, v) && isPlainName(v, 8, 128); }},
        {"--max-viewers", "a number of open screens from 1 to 1000",
         [](Options* o, S v, W) { return parseInt(v, 1, 1000, &o->maxViewers); }},
    };
}

std::vector<OptionRule> proxyRules()
{
    const char* listen = "--modbus-listen";
    const char* why = "it is a setting of the Modbus proxy, which --modbus-listen starts";
    return {
        {"--modbus-listen", "PORT (on 127.0.0.1) or HOST:PORT (a numeric address; port 0-65535, 0: any free port)",
         [](Options* o, S v, W why) { return parseModbusListen(v, o, why); }},
        {"--modbus-allow", "a network as ADDRESS/PREFIX, e.g. 192.168.0.0/24 or fd00::/8, or one ADDRESS",
         [](Options* o, S v, W why) { return parseModbusAllow(v, o, why); }, listen, why},
        {"--modbus-max-age", "seconds from 0 to 3600",
         [](Options* o, S v, W) { return parseSeconds(v, 0, kMostMaxAgeSeconds, &o->modbusMaxAgeSeconds); }, listen,
         why},
        {"--modbus-max-clients", "a number of clients from 1 to 256",
         [](Options* o, S v, W) { return parseInt(v, 1, kMostModbusClients, &o->modbusMaxClients); }, listen, why},
    };
}

std::vector<OptionRule> mqttRules()
{
    const char* mqtt = "--mqtt";
    const char* why = "it is a setting of the broker's connection, which --mqtt starts";
    return {
        {"--mqtt", "HOST[:PORT] (port 1-65535; 1883 by default, 8883 with --mqtt-ca; IPv6 as [ADDR]:PORT)",
         [](Options* o, S v, W why) { return parseMqtt(v, o, why); }},
        {"--mqtt-user", "a user name", [](Options* o, S v, W) { return setText(&o->mqttUser, v); }, mqtt, why},
        {"--mqtt-password-file", "the path of a file holding the password",
         [](Options* o, S v, W) { return setText(&o->mqttPasswordFile, v); }, "--mqtt-user",
         "MQTT sends a password only with a user name"},
        {"--mqtt-ca", "the path of the CA certificates (PEM) that the broker's certificate is checked against",
         [](Options* o, S v, W) { return setText(&o->mqttCa, v); }, mqtt, why},
        {"--mqtt-node", "1 to 64 letters, digits, '-' or '_'",
         [](Options* o, S v, W) { return setText(&o->mqttNode, v) && isPlainName(v, 1, kMaxNodeName); }, mqtt, why},
    };
}

const std::vector<OptionGroup>& optionGroups()
{
    static const std::vector<OptionGroup> groups = {
        {{}, "", linkRules()},
        {{"watch", "panel", "bridge"},
         ", which scan until stopped",
         {{"--scan-period", "seconds from 0 to 60",
           [](Options* o, S v, W) { return parseSeconds(v, 0, 60, &o->scanPeriodSeconds); }}}},
        {{"panel", "bridge"}, "", plantRules()},
        {{"panel"}, "", httpRules()},
        {{"panel", "bridge"}, "", proxyRules()},
        {{"panel", "bridge"}, "", mqttRules()},
    };
    return groups;
}

struct FoundOption {
    const OptionGroup* group = nullptr;
    const OptionRule* rule = nullptr;
};

FoundOption findOption(const std::string& name)
{
    const std::string longName = name == "-h" ? "--help" : name;
    for (const OptionGroup& group : optionGroups())
        for (const OptionRule& rule : group.rules)
            if (longName == rule.name)
                return {&group, &rule};
    return {};
}

bool isCommand(const std::string& word)
{
    return word == "watch" || word == "read" || word == "write" || word == "panel" || word == "bridge" ||
           word == "sim";
}

const char* const kCommands = "expected watch, read, write, panel, bridge or sim (see logohost --help)";

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
    const OptionRule* rule = findOption(name).rule;
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
    options->given.push_back(rule->name);
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

// "the panel command", "the panel and bridge commands"
std::string commandsText(const std::vector<std::string>& commands)
{
    std::string text = "the ";
    for (size_t c = 0; c < commands.size(); ++c)
        text += (c == 0 ? "" : c + 1 == commands.size() ? " and " : ", ") + commands[c];
    return text + (commands.size() == 1 ? " command" : " commands");
}

// Every option given belongs to the command, with what it needs beside it.
bool checkOptionsFitCommand(const Options& options, std::string* error)
{
    for (const std::string& name : options.given) {
        const FoundOption found = findOption(name);
        const std::vector<std::string>& commands = found.group->commands;
        if (!commands.empty() && std::find(commands.begin(), commands.end(), options.command) == commands.end()) {
            *error = name + " is an option of " + commandsText(commands) + found.group->why;
            return false;
        }
        const std::string needs = found.rule->needs;
        if (!needs.empty() && std::find(options.given.begin(), options.given.end(), needs) == options.given.end()) {
            *error = name + " needs " + needs + ": " + found.rule->needsWhy;
            return false;
        }
    }
    return true;
}

bool checkArguments(const Options& options, std::string* error)
{
    const auto refuse = [error](const std::string& message) {
        *error = message;
        return false;
    };
    if (options.command.empty())
        return refuse(std::string("no command given: ") + kCommands);
    if (!checkOptionsFitCommand(options, error))
        return false;
    if (options.command == "bridge" && options.mqttHost.empty())
        return refuse("bridge needs --mqtt HOST[:PORT]: the broker to publish the plant to");
    Network address;
    std::string why;
    if (options.modbusListen && options.modbusAllow.empty() && parseListenAddress(options.modbusHost, &address, &why) &&
        !isLoopback(address))
        return refuse("--modbus-listen " + options.modbusHost +
                      " is off loopback: name the networks its clients may come from with --modbus-allow CIDR "
                      "(a Modbus write carries no credentials)");
    if (options.command == "panel" || options.command == "bridge") {
        if (options.args.empty())
            return true;
        return refuse(options.command + " takes no variables: its screens come from --screens FILE (or the built-in ones)");
    }
    if (options.command != "sim" && options.args.empty())
        return refuse(options.command + " needs at least one " +
                      (options.command == "write" ? "VAR=VALUE, e.g. logohost write VW0=123"
                                                  : "variable, e.g. logohost " + options.command + " VW0:4 Q1"));
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
                *error = "unknown command \"" + word + "\": " + kCommands;
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

}  // namespace logohost
