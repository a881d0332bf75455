// `write`: queue each value with the driver and wait for its own result. It
// exits 0 only when the controller confirmed every write.
#include <cstdio>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/commands/output_format.h"
#include "host/notation/value_codec.h"

namespace logohost {
namespace {

// The values as the user typed them: "65535" stays 65535, whatever the
// controller's display later makes of the bits.
std::string valuesText(const WriteRequest& request)
{
    std::string text;
    for (const std::string& value : request.texts)
        text += (text.empty() ? "" : ",") + value;
    return text;
}

int framesOf(const WriteRequest& request, int maxBlock)
{
    const int count = driverCount(request.var);
    return isBitKind(request.var.kind) ? count : (count + maxBlock - 1) / maxBlock;
}

// A write another took the place of counts as written when that one was.
bool confirmed(const PendingWrite& write, const std::vector<PendingWrite>& all)
{
    if (write.end == WriteEnd::Written)
        return true;
    if (write.end != WriteEnd::Replaced)
        return false;
    for (const PendingWrite& other : all)
        if (other.sourceId == write.replacedBy)
            return confirmed(other, all);
    return false;
}

std::string outcomeOf(const PendingWrite& write, const WriteRequest& request, bool interrupted)
{
    if (write.settled())
        return writeOutcomeText(write, "", request.var.text);
    return interrupted ? "not confirmed: interrupted before the driver reported the result"
                       : "not confirmed: no result from the driver in time";
}

// Prints every write with its outcome; true when all were confirmed.
bool report(const std::vector<WriteRequest>& requests, const std::vector<PendingWrite>& writes, Format format,
            bool interrupted)
{
    bool allGood = true;
    for (size_t i = 0; i < requests.size(); ++i) {
        const std::string values = valuesText(requests[i]);
        const std::string outcome = outcomeOf(writes[i], requests[i], interrupted);
        if (!confirmed(writes[i], writes)) {
            allGood = false;
            complain("write " + requests[i].var.text + "=" + values + ": " + outcome);
            if (format == Format::Table)
                continue;  // standard error said it already
        }
        std::fputs(writeLine(requests[i].var.text, values, outcome, format).c_str(), stdout);
    }
    return allGood;
}

bool parseRequests(const Options& options, std::vector<WriteRequest>* out)
{
    for (const std::string& text : options.args) {
        WriteRequest request;
        std::string error;
        if (!parseWrite(text, options.multiStation, &request, &error)) {
            complain(error);
            return false;
        }
        out->push_back(request);
    }
    return true;
}

}  // namespace

int runWrite(CommandContext& context)
{
    const Options& options = context.options;
    std::vector<WriteRequest> requests;
    if (!parseRequests(options, &requests))
        return kExitUsage;
    Session session(context.api, context.info, context.links, context.trace,
                    sessionSettings(options, context.info, false), {});
    session.addStationObserver([](int, bool, const std::string& note) { complain(note); });
    session.scan({});

    // All writes are queued before the first frame goes out, so that a
    // give-up's dropping of queued writes meets all of them alike.
    std::vector<int> ids;
    int frames = 0;
    for (const WriteRequest& request : requests) {
        const DriverWrite write{rangeOf(request.var, options.station), packValues(request.var.kind, request.values),
                                request.var.text};
        ids.push_back(session.queueWrite(write));
        frames += framesOf(request, options.maxBlock);
    }
    session.start();
    const auto deadline = std::chrono::steady_clock::now() + session.requestDeadline(frames);
    session.waitUntil(deadline, [&] {
        session.abandonUnreachable();
        bool settled = true;
        for (const int id : ids)
            settled = settled && session.writeOutcome(id).settled();
        return settled || interrupted();
    });
    session.stop();

    std::vector<PendingWrite> writes;
    for (const int id : ids)
        writes.push_back(session.writeOutcome(id));
    return report(requests, writes, options.format, interrupted()) ? kExitOk : kExitFailed;
}

}  // namespace logohost
