// The command line: subcommand, options and their defaults.
#ifndef LOGOHOST_CLI_OPTIONS_H
#define LOGOHOST_CLI_OPTIONS_H

#include <string>
#include <vector>

namespace logohost {

enum class Format { Table, Csv, Jsonl };

// One --plc: HOST[:PORT], or STATION=HOST[:PORT] for one controller of
// several, each at its own address.
struct PlcOption {
    int station = -1;  // -1: every station goes to this address
    std::string host;
    int port = 502;
    std::string name;  // empty: named after its address or station
};

struct Options {
    std::string command;            // watch, read, write, panel, bridge or sim
    std::vector<std::string> args;  // variables, VAR=VALUE pairs, or the simulator's own arguments
    std::vector<PlcOption> plcs;    // empty: the built-in simulator
    int station = 1;
    bool multiStation = false;
    bool remoteMode = false;
    int maxBlock = 64;
    int retries = 2;
    double timeoutSeconds = 1.0;
    double intervalSeconds = 1.0;
    // One pass over the scanned variables per period at most: a few frames
    // a second are nothing to a LOGO! beside its other clients, and a screen
    // shows a change within half a second (the period, then the panel's
    // few milliseconds to reach even a hundred viewers).
    double scanPeriodSeconds = 0.4;
    // panel: its history
    std::string dataDirectory;  // empty: the user's state folder
    int keepHours = 30 * 24;
    double durationSeconds = 0;  // 0: until interrupted
    int demoteAfter = 3;
    double demoteForSeconds = 10;
    bool trace = false;
    Format format = Format::Table;
    std::string driverPath;  // empty: beside the executable
    // panel
    std::string screensPath;  // empty: the built-in screens
    std::string listenHost;   // empty: 127.0.0.1
    int listenPort = 8502;
    std::string token;        // empty: generated when listening off loopback
    bool readOnly = false;
    int maxViewers = 150;     // event streams open at once: each holds a server thread
    // panel: the Modbus proxy
    bool modbusListen = false;
    std::string modbusHost = "127.0.0.1";
    int modbusPort = 502;
    std::vector<std::string> modbusAllow;  // networks its clients may come from; empty: loopback only
    double modbusMaxAgeSeconds = -1;       // negative: the scan period
    int modbusMaxClients = 32;
    // bridge, and panel with --mqtt: the MQTT broker
    std::string mqttHost;          // empty: no broker
    int mqttPort = 0;              // 0: 1883, or 8883 with --mqtt-ca
    std::string mqttUser;          // empty: anonymous
    std::string mqttPasswordFile;
    std::string mqttPassword;      // read from the file before any I/O, never from the command line
    std::string mqttCa;            // empty: plain TCP
    std::string mqttNode;          // empty: the host name, made fit for a topic
    bool help = false;
    std::vector<std::string> given;  // the options given, by their long names, in order
};

enum ParseStatus { kParsed, kParseError };

// On kParseError *error holds the message. `sim` hands every argument after
// it to the simulator untouched.
ParseStatus parseOptions(int argc, char** argv, Options* out, std::string* error);

std::string usageText();

}  // namespace logohost

#endif  // LOGOHOST_CLI_OPTIONS_H
