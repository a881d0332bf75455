// The subcommands watch, read and write, and what they share.
#ifndef LOGOHOST_COMMANDS_H
#define LOGOHOST_COMMANDS_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/commands/cli_options.h"
#include "host/binding/comm_loop.h"
#include "host/binding/driver_api.h"
#include "host/commands/output_format.h"
#include "host/binding/station_demotion.h"
#include "host/link/tcp_link.h"
#include "host/link/trace.h"
#include "host/notation/variable_notation.h"

namespace logohost {

enum ExitCode { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

struct CommandContext {
    const Options& options;
    const DriverApi& api;
    ComInfo& info;
    TcpLink& link;
    Trace& trace;
    std::string peer;  // "HOST:PORT", for titles
};

int runWatch(CommandContext& context);
int runRead(CommandContext& context);
int runWrite(CommandContext& context);
// The panel, when this logohost is built with it (LOGO_BUILD_PANEL); its
// screens file is checked before any I/O.
int runPanel(CommandContext& context);
bool checkPanelArguments(const Options& options, std::string* error);

bool parseVariables(const Options& options, std::vector<Variable>* out, std::string* error);
// The same for a command: a bad variable is reported on stderr.
bool parseVariablesOrReport(const Options& options, std::vector<Variable>* out);
// Every variable or VAR=VALUE of the command, checked before any I/O starts.
bool checkCommandArguments(const Options& options, std::string* error);

// The communication loop as a command runs it: in multi-station mode a
// failing station is switched off for a while, and the command hears of it.
class Communication {
public:
    using StationReport = StationDemotion::Report;

    Communication(CommandContext& context, CommLoop::ResultSink sink, StationReport onStation);
    ~Communication();
    void start();
    void stop();
    CounterView counters() const;
    // Frames per second since the previous call.
    double frameRate();

private:
    std::unique_ptr<StationDemotion> demotion_;
    std::unique_ptr<CommLoop> loop_;
    uint64_t lastFrames_ = 0;
    std::chrono::steady_clock::time_point lastRateAt_;
};

// The longest a command waits for its results: every frame it may need,
// each with its retries, time-outs and reconnection back-off, with room.
std::chrono::milliseconds resultDeadline(const Options& options, int frames);

}  // namespace logohost

#endif  // LOGOHOST_COMMANDS_H
