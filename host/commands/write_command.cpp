// `write`: queue each value with the driver and wait for its own result.
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <set>

#include "host/commands/commands.h"
#include "host/commands/interrupt.h"
#include "host/notation/reply_words.h"
#include "host/notation/value_codec.h"

namespace logohost {
namespace {

// The requester category of the host's writes; it shows in failure codes as
// base + 1 + this.
constexpr int kWriteSourceType = 1;
constexpr int kWriteResult = 1;  // rwType of a write's result
constexpr std::chrono::milliseconds kPoll{10};

struct PendingWrite {
    WriteRequest request;
    int sourceId = 0;
    int station = 0;
    std::set<int> unconfirmed;  // driver addresses no good result has covered yet
    bool failed = false;
    bool noReply = false;
    std::string reason;
};

// Matches the driver's results to the writes by sourceId. One write may take
// several frames (one per coil, or one per block of words), so it is done
// only when good results have covered all its addresses.
class WriteTracker {
public:
    explicit WriteTracker(bool multiStation) : multiStation_(multiStation) {}

    void add(const WriteRequest& request, int sourceId, int station)
    {
        PendingWrite write;
        write.request = request;
        write.sourceId = sourceId;
        write.station = station;
        const int first = driverAddress(request.var);
        for (int address = first; address < first + driverCount(request.var); ++address)
            write.unconfirmed.insert(address);
        const std::lock_guard<std::mutex> lock(mutex_);
        writes_.push_back(write);
    }

    void onResult(const RequestResult& result)
    {
        if (result.returnCode == RC_RETRYING)
            return;
        const std::lock_guard<std::mutex> lock(mutex_);
        resultArrived_.notify_all();
        const bool ownResult = result.rwType == kWriteResult && result.sourceType == kWriteSourceType;
        for (PendingWrite& write : writes_) {
            if (ownResult && write.sourceId == result.sourceId)
                settle(&write, result);
            else if (result.failCallback)
                dropWith(&write, result);
        }
    }

    // Waits for the next result, at most the timeout; true once every write
    // has its outcome.
    bool waitUntilSettled(std::chrono::milliseconds timeout) const
    {
        std::unique_lock<std::mutex> lock(mutex_);
        resultArrived_.wait_for(lock, timeout, [this] { return settledLocked(); });
        return settledLocked();
    }

    std::vector<PendingWrite> writes() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return writes_;
    }

private:
    const bool multiStation_;
    mutable std::mutex mutex_;
    mutable std::condition_variable resultArrived_;
    std::vector<PendingWrite> writes_;

    static bool open(const PendingWrite& write) { return !write.failed && !write.unconfirmed.empty(); }

    bool settledLocked() const
    {
        for (const PendingWrite& write : writes_)
            if (open(write))
                return false;
        return true;
    }

    static void settle(PendingWrite* write, const RequestResult& result)
    {
        if (isSuccessCode(result.returnCode)) {
            for (int address = result.address; address < result.address + result.count; ++address)
                write->unconfirmed.erase(address);
        } else if (!write->failed) {
            write->failed = true;
            write->reason = failureText(result.returnCode, result.exceptionCode, result.refusal);
            write->noReply = isNoReplyCode(result.returnCode) && result.refusal.empty();
        }
    }

    // A given-up request makes the driver drop the writes still queued (all
    // of them on one controller, those for its station on several), with no
    // result of their own.
    void dropWith(PendingWrite* write, const RequestResult& result) const
    {
        if (!open(*write) || (multiStation_ && write->station != result.station))
            return;
        write->failed = true;
        write->reason = "dropped by the driver when " +
                        rangeName(result.area, result.address, result.count, result.station, multiStation_) +
                        " was given up: " + failureText(result.returnCode, result.exceptionCode, result.refusal);
    }
};

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
        std::string outcome = "written";
        if (write.failed || !write.unconfirmed.empty()) {
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
