// `read`: one full scan of the variables, then print them.
#include <cstdio>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/notation/reply_words.h"
#include "host/binding/scan_state.h"

namespace logohost {
namespace {

// A variable whose request is given up this many times in a row fails the
// read: one give-up may be a passing fault, two in a row are not.
constexpr int kGiveUpsPerVariable = 2;
constexpr std::chrono::milliseconds kPoll{10};

enum class ReadOutcome { Done, Failed, TimedOut, Interrupted };

bool allRead(const std::vector<ElementStatus>& elements)
{
    for (const ElementStatus& element : elements)
        if (element.state != ElementState::Ok)
            return false;
    return true;
}

bool anyGivenUp(const std::vector<ElementStatus>& elements)
{
    for (const ElementStatus& element : elements)
        if (element.state == ElementState::StationOff ||
            (element.state == ElementState::Failed && element.failuresInRow >= kGiveUpsPerVariable))
            return true;
    return false;
}

ReadOutcome waitForScan(const ScanState& state, std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        // A good reply for every variable is what a one-time read needs. The
        // driver's completed pass is not enough on its own (a variable given
        // up earlier may not have been answered since), nor needed: the
        // driver restarts its pass at every failed reply, even one its retry
        // repairs, so on a link that fails now and then it may never report one.
        const std::vector<ElementStatus> elements = state.snapshot();
        if (allRead(elements))
            return ReadOutcome::Done;
        if (anyGivenUp(elements))
            return ReadOutcome::Failed;
        if (std::chrono::steady_clock::now() >= deadline)
            return ReadOutcome::TimedOut;
        if (interrupted())
            return ReadOutcome::Interrupted;
        state.waitForResult(kPoll);
    }
}

std::string whyUnread(const ElementStatus& element, std::chrono::milliseconds limit, const TcpLink& link)
{
    switch (element.state) {
    case ElementState::Failed:
        if (!element.refusal.empty())
            return failureText(element.returnCode, element.exceptionCode, element.refusal);
        if (isNoReplyCode(element.returnCode) && !link.lastProblem().empty())
            return failureText(element.returnCode, 0) + "; " + link.lastProblem();
        return failureText(element.returnCode, element.exceptionCode);
    case ElementState::StationOff: return "its station was switched off after repeated failures";
    default: return "not read within " + secondsText(static_cast<double>(limit.count()) / 1000);
    }
}

// One message per variable, for its first element that was not read.
void reportUnread(const std::vector<Variable>& variables, const std::vector<ElementStatus>& elements,
                  std::chrono::milliseconds limit, const TcpLink& link)
{
    if (allRead(elements)) {
        std::fprintf(stderr, "logohost: the driver reported no complete scan within %s\n",
                     secondsText(static_cast<double>(limit.count()) / 1000).c_str());
        return;
    }
    std::vector<bool> reported(variables.size(), false);
    for (const ElementStatus& element : elements) {
        if (element.state == ElementState::Ok || reported[element.variable])
            continue;
        reported[element.variable] = true;
        std::fprintf(stderr, "logohost: %s: %s\n", variables[element.variable].text.c_str(),
                     whyUnread(element, limit, link).c_str());
    }
}

int framesPerScan(const std::vector<Variable>& variables, int maxBlock)
{
    int frames = 0;
    for (const Variable& var : variables)
        frames += (driverCount(var) + maxBlock - 1) / maxBlock;
    return frames;
}

}  // namespace

int runRead(CommandContext& context)
{
    const Options& options = context.options;
    std::vector<Variable> variables;
    if (!parseVariablesOrReport(options, &variables))
        return kExitUsage;
    ScanState state(context.api, variables, options.multiStation, options.station);
    Communication communication(
        context, [&state](const RequestResult& result) { state.onResult(result); },
        [&state](int station, bool off, const std::string& message) {
            state.onStation(station, off);
            std::fprintf(stderr, "logohost: %s\n", message.c_str());
        });
    QList<HOSTVAR> list = hostVariables(variables, options.station);
    context.api.rebuildReadList(&list);
    communication.start();
    const auto limit = resultDeadline(options, kGiveUpsPerVariable * framesPerScan(variables, options.maxBlock));
    const ReadOutcome outcome = waitForScan(state, limit);
    communication.stop();

    const std::vector<ElementStatus> elements = state.snapshot();
    std::fputs(readResults(elements, options.format).c_str(), stdout);
    if (outcome == ReadOutcome::Done)
        return kExitOk;
    if (outcome == ReadOutcome::Interrupted)
        std::fprintf(stderr, "logohost: interrupted before the scan completed\n");
    else
        reportUnread(variables, elements, limit, context.link);
    return kExitFailed;
}

}  // namespace logohost
