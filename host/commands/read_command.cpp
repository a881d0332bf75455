// `read`: one full scan of the variables, then print them. It exits 0 only
// when every element was read in this run, and says of every other one why.
#include <algorithm>
#include <cstdio>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/commands/output_format.h"

namespace logohost {
namespace {

// A variable whose request is given up this many times in a row fails the
// read: one give-up for want of a reply may be a passing fault, two in a
// row are not. An exception is the controller's own answer: once is enough.
constexpr int kGiveUpsPerVariable = 2;
constexpr std::chrono::milliseconds kPoll{20};

enum class ReadEnd { Settled, TimedOut, Interrupted };

// Read in this run, or failed for good. A station that cannot be reached
// ends its elements at once: each would only wait for the same time-outs
// in turn.
bool settled(const ElementStatus& element)
{
    const bool answered = element.quality == Quality::Failed && element.failuresInRow > 0;
    return element.hasValue || element.quality == Quality::StationOff || answered || element.unreachable ||
           element.failuresInRow >= kGiveUpsPerVariable;
}

// A good reply for every element is what a one-time read needs. The
// driver's completed pass is not enough on its own (a variable given up
// earlier may not have been answered since), nor needed: the driver restarts
// its pass at every failed reply, even one its retry repairs, so on a link
// that fails now and then it may never report one.
ReadEnd waitForScan(const Session& session, std::chrono::steady_clock::time_point deadline)
{
    for (;;) {
        const std::vector<ElementStatus> elements = session.elements();
        if (std::all_of(elements.begin(), elements.end(), settled))
            return ReadEnd::Settled;
        if (std::chrono::steady_clock::now() >= deadline)
            return ReadEnd::TimedOut;
        if (interrupted())
            return ReadEnd::Interrupted;
        session.waitForChange(session.version(), kPoll);
    }
}

int framesPerScan(const std::vector<Variable>& variables, int maxBlock)
{
    int frames = 0;
    for (const Variable& var : variables)
        frames += (driverCount(var) + maxBlock - 1) / maxBlock;
    return frames;
}

// Why an element that no request of its own failed was not read.
std::string endText(ReadEnd end, std::chrono::milliseconds limit)
{
    switch (end) {
    case ReadEnd::TimedOut: return "not read within " + secondsText(limit);
    case ReadEnd::Interrupted: return "interrupted before it was read";
    default: return "not read";
    }
}

// One message per variable, for its first element that was not read.
void reportUnread(const std::vector<Variable>& variables, const std::vector<Reading>& readings)
{
    std::vector<bool> reported(variables.size(), false);
    for (const Reading& reading : readings) {
        if (reading.read || reported[reading.variable])
            continue;
        reported[reading.variable] = true;
        complain(variables[reading.variable].text + ": " + reading.error);
    }
}

}  // namespace

int runRead(CommandContext& context)
{
    std::vector<Variable> variables;
    const std::unique_ptr<Session> scan =
        startScan(context, false, [](int, bool, const std::string& note) { complain(note); }, &variables);
    if (!scan)
        return kExitUsage;
    Session& session = *scan;
    const auto limit = session.requestDeadline(kGiveUpsPerVariable * framesPerScan(variables, context.options.maxBlock));
    const ReadEnd end = waitForScan(session, std::chrono::steady_clock::now() + limit);
    session.stop();

    const std::vector<Reading> readings = readingsOf(session.elements(), endText(end, limit));
    std::fputs(readResults(readings, context.options.format).c_str(), stdout);
    reportUnread(variables, readings);
    // Decided on what was printed, not on what the wait saw: the scan went
    // on until it stopped.
    for (const Reading& reading : readings)
        if (!reading.read)
            return kExitFailed;
    return kExitOk;
}

}  // namespace logohost
