// The subcommands watch, read, write, panel and bridge, and what they share.
#ifndef LOGOHOST_COMMANDS_H
#define LOGOHOST_COMMANDS_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "host/binding/driver_api.h"
#include "host/binding/session.h"
#include "host/commands/cli_options.h"
#include "host/link/link_set.h"
#include "host/link/trace.h"
#include "host/notation/variable_notation.h"

namespace logohost {

enum ExitCode { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

struct CommandContext {
    const Options& options;
    const DriverApi& api;
    ComInfo& info;
    LinkSet& links;
    Trace& trace;
};

int runWatch(CommandContext& context);
int runRead(CommandContext& context);
int runWrite(CommandContext& context);
// The panel, when this logohost is built with it (LOGO_BUILD_PANEL); its
// screens file is checked before any I/O.
int runPanel(CommandContext& context);
// The panel's screens file, read before any I/O; its controllers, when it
// names them, become the command's.
bool preparePanel(Options* options, std::string* error);

// The MQTT bridge, when this logohost is built with the panel: the plant's
// runtime without HTTP, on a broker, until Ctrl-C.
int runBridge(CommandContext& context);
// What --mqtt needs before any I/O: its CA file readable, the password from
// its file.
bool prepareMqtt(Options* options, std::string* error);

bool parseVariables(const Options& options, std::vector<Variable>* out, std::string* error);

// A session scanning every variable the command names (read, watch),
// started; null after saying what was wrong with a variable. Station
// switches are told to onStation.
std::unique_ptr<Session> startScan(CommandContext& context, bool paced, Session::StationObserver onStation,
                                   std::vector<Variable>* variables);
// Every variable or VAR=VALUE of the command, checked before any I/O starts,
// and what the command's own files add to the options.
bool prepareCommand(Options* options, std::string* error);

// The session settings the command line asks for; `paced` when the command
// scans until stopped (watch, panel), so that --scan-period applies.
SessionSettings sessionSettings(const Options& options, const ComInfo& info, bool paced);

std::chrono::milliseconds milliseconds(double seconds);

// "logohost: MESSAGE" on standard error.
void complain(const std::string& message);

}  // namespace logohost

#endif  // LOGOHOST_COMMANDS_H
