// `write`: queue each value with the driver and wait for its own result.
#include <cstdio>

#include "host/binding/write_tracker.h"
#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/notation/reply_words.h"
#include "host/notation/value_codec.h"

namespace logohost {
namespace {

constexpr std::chrono::milliseconds kPoll{10};

std::string valuesText(const WriteRequest& request)
{
    std::string text;
    for (const uint32_t value : request.values)
        text += (text.empty() ? "" : ",") + formatValue(value, valueTypeOf(request.var.kind));
    return text;
}

int framesOf(const WriteRequest& request, int maxBlock)
{
    const int count = driverCount(request.var);
    return isBitKind(request.var.kind) ? count : (count + maxBlock - 1) / maxBlock;
}

std::string failureReason(const PendingWrite& write, bool interrupted, const TcpLink& link)
{
    if (!write.failed)
        return interrupted ? "interrupted before the driver reported the result" : "no result from the driver in time";
    if (write.noReply && !link.lastProblem().empty())
        return write.reason + "; " + link.lastProblem();
    return write.reason;
}

// Prints every write with its outcome; true when all succeeded.
bool report(const std::vector<PendingWrite>& writes, Format format, bool interrupted, const TcpLink& link)
{
    bool allGood = true;
    for (const PendingWrite& write : writes) {
        const std::string values = valuesText(write.request);
        std::string outcome = write.replacedBy ? write.reason : "written";
        if (!write.written() && !write.replacedBy) {
            allGood = false;
            const std::string reason = failureReason(write, interrupted, link);
            outcome = "failed: " + reason;
            std::fprintf(stderr, "logohost: write %s=%s failed: %s\n", write.request.var.text.c_str(), values.c_str(),
                         reason.c_str());
            if (format == Format::Table)
                continue;  // standard error said it already
        }
        std::fputs(writeLine(write.request.var.text, values, outcome, format).c_str(), stdout);
    }
    return allGood;
}

}  // namespace

int runWrite(CommandContext& context)
{
    const Options& options = context.options;
    std::vector<WriteRequest> requests;
    for (const std::string& text : options.args) {
        WriteRequest request;
        std::string error;
        if (!parseWrite(text, options.multiStation, &request, &error)) {
            std::fprintf(stderr, "logohost: %s\n", error.c_str());
            return kExitUsage;
        }
        requests.push_back(request);
    }

    WriteTracker tracker(options.multiStation);
    Communication communication(
        context, [&tracker](const RequestResult& result) { tracker.onResult(result); },
        [](int, bool, const std::string& message) { std::fprintf(stderr, "logohost: %s\n", message.c_str()); });
    QList<HOSTVAR> noCyclicVariables;
    context.api.rebuildReadList(&noCyclicVariables);

    // All writes are queued before the first frame goes out, so that a
    // give-up's dropping of queued writes meets all of them alike.
    int frames = 0;
    for (size_t i = 0; i < requests.size(); ++i) {
        const WriteRequest& request = requests[i];
        const Variable& var = request.var;
        const int station = var.station == kNoStation ? options.station : var.station;
        const int sourceId = static_cast<int>(i) + 1;
        tracker.add(request, sourceId, station);
        const std::vector<uint8_t> bytes = packValues(var.kind, request.values);
        const QByteArray data(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()));
        context.api.setRegisterData(QString::fromStdString(var.text), driverArea(var.kind),
                                    QString::fromStdString(driverAddressText(var)), station, data, driverCount(var),
                                    kWriteSourceType, sourceId);
        frames += framesOf(request, options.maxBlock);
    }
    communication.start();

    const auto deadline = std::chrono::steady_clock::now() + resultDeadline(options, frames);
    while (!tracker.waitUntilSettled(kPoll) && std::chrono::steady_clock::now() < deadline && !interrupted()) {
    }
    communication.stop();
    return report(tracker.writes(), options.format, interrupted(), context.link) ? kExitOk : kExitFailed;
}

}  // namespace logohost
