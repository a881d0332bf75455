#include "host/commands/commands.h"

#include <algorithm>
#include <cstdio>

#include "host/notation/value_codec.h"

namespace logohost {
namespace {

constexpr std::chrono::milliseconds kDeadlineSlack{5000};
constexpr std::chrono::milliseconds kWorstBackoff{2000};  // the link's longest pause between connection attempts

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
}

}  // namespace

bool parseVariables(const Options& options, std::vector<Variable>* out, std::string* error)
{
    std::vector<Variable> variables;
    for (const std::string& text : options.args) {
        Variable var;
        if (!parseVariable(text, options.multiStation, &var, error))
            return false;
        variables.push_back(var);
    }
    *out = variables;
    return true;
}

bool parseVariablesOrReport(const Options& options, std::vector<Variable>* out)
{
    std::string error;
    if (parseVariables(options, out, &error))
        return true;
    std::fprintf(stderr, "logohost: %s\n", error.c_str());
    return false;
}

bool checkCommandArguments(const Options& options, std::string* error)
{
    if (options.command == "panel")
        return checkPanelArguments(options, error);
    if (options.command != "write") {
        std::vector<Variable> variables;
        return parseVariables(options, &variables, error);
    }
    for (const std::string& text : options.args) {
        WriteRequest request;
        if (!parseWrite(text, options.multiStation, &request, error))
            return false;
    }
    return true;
}

#if !LOGOHOST_WITH_PANEL
// A cross build leaves the panel out by default (LOGO_BUILD_PANEL).
bool checkPanelArguments(const Options&, std::string* error)
{
    *error = "this logohost was built without the panel (LOGO_BUILD_PANEL=OFF)";
    return false;
}

int runPanel(CommandContext&) { return kExitUsage; }
#endif

Communication::Communication(CommandContext& context, CommLoop::ResultSink sink, StationReport onStation)
    : lastRateAt_(std::chrono::steady_clock::now())
{
    const Options& options = context.options;
    if (options.multiStation)
        demotion_.reset(new StationDemotion(context.api, options.demoteAfter, milliseconds(options.demoteForSeconds),
                                            std::move(onStation)));
    StationDemotion* demotion = demotion_.get();
    CommLoop::ResultSink chained = [demotion, sink](const RequestResult& result) {
        sink(result);
        if (demotion)
            demotion->onResult(result);
    };
    CommLoop::Tick tick = [demotion]() {
        if (demotion)
            demotion->tick();
    };
    loop_.reset(new CommLoop(context.api, context.info, context.link, context.trace, chained, tick));
}

Communication::~Communication() { stop(); }

void Communication::start() { loop_->start(); }

void Communication::stop() { loop_->stop(); }

CounterView Communication::counters() const
{
    const LinkCounters& c = loop_->counters();
    CounterView view;
    view.frames = c.frames.load();
    view.replies = c.replies.load();
    view.refused = c.refused.load();
    view.failures = c.failures.load();
    view.connections = c.connections.load();
    return view;
}

double Communication::frameRate()
{
    const auto now = std::chrono::steady_clock::now();
    const uint64_t frames = loop_->counters().frames.load();
    const double seconds = std::chrono::duration<double>(now - lastRateAt_).count();
    const double rate = seconds > 0 ? static_cast<double>(frames - lastFrames_) / seconds : 0;
    lastFrames_ = frames;
    lastRateAt_ = now;
    return rate;
}

std::chrono::milliseconds resultDeadline(const Options& options, int frames)
{
    const auto perFrame = (milliseconds(options.timeoutSeconds) + kWorstBackoff) * (options.retries + 1);
    return kDeadlineSlack + perFrame * std::max(frames, 1);
}

}  // namespace logohost
