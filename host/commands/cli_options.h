// The command line: subcommand, options and their defaults.
#ifndef LOGOHOST_CLI_OPTIONS_H
#define LOGOHOST_CLI_OPTIONS_H

#include <string>
#include <vector>

namespace logohost {

enum class Format { Table, Csv, Jsonl };

struct Options {
    std::string command;            // watch, read, write, panel or sim
    std::vector<std::string> args;  // variables, VAR=VALUE pairs, or the simulator's own arguments
    std::string plcHost;            // empty: the built-in simulator
    int plcPort = 502;
    int station = 1;
    bool multiStation = false;
    bool remoteMode = false;
    int maxBlock = 64;
    int retries = 2;
    double timeoutSeconds = 1.0;
    double intervalSeconds = 1.0;
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
    double scanPeriodSeconds = 0.2;
    bool help = false;
};

enum ParseStatus { kParsed, kParseError };

// On kParseError *error holds the message. `sim` hands every argument after
// it to the simulator untouched.
ParseStatus parseOptions(int argc, char** argv, Options* out, std::string* error);

std::string usageText();

}  // namespace logohost

#endif  // LOGOHOST_CLI_OPTIONS_H
