#include "host/binding/write_tracker.h"

#include "host/notation/reply_words.h"

namespace logohost {
namespace {

constexpr int kWriteResult = 1;  // rwType of a write's result

}  // namespace

void WriteTracker::add(const WriteRequest& request, int sourceId, int station)
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

void WriteTracker::onResult(const RequestResult& result)
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

void WriteTracker::dropStation(int station, const std::string& reason)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (PendingWrite& write : writes_) {
        if (write.settled() || write.station != station)
            continue;
        write.failed = true;
        write.reason = reason;
    }
    resultArrived_.notify_all();
}

bool WriteTracker::waitUntilSettled(std::chrono::milliseconds timeout) const
{
    const auto allSettled = [this] {
        for (const PendingWrite& write : writes_)
            if (!write.settled())
                return false;
        return true;
    };
    std::unique_lock<std::mutex> lock(mutex_);
    return resultArrived_.wait_for(lock, timeout, allSettled);
}

bool WriteTracker::waitFor(int sourceId, std::chrono::milliseconds timeout, PendingWrite* out) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    const auto settled = [this, sourceId] {
        const PendingWrite* write = findLocked(sourceId);
        return !write || write->settled();
    };
    const bool done = resultArrived_.wait_for(lock, timeout, settled);
    if (const PendingWrite* write = findLocked(sourceId))
        *out = *write;
    return done;
}

void WriteTracker::forget(int sourceId)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = writes_.begin(); it != writes_.end(); ++it) {
        if (it->sourceId == sourceId) {
            writes_.erase(it);
            return;
        }
    }
}

std::vector<PendingWrite> WriteTracker::writes() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return writes_;
}

const PendingWrite* WriteTracker::findLocked(int sourceId) const
{
    for (const PendingWrite& write : writes_)
        if (write.sourceId == sourceId)
            return &write;
    return nullptr;
}

void WriteTracker::settle(PendingWrite* write, const RequestResult& result)
{
    if (isSuccessCode(result.returnCode)) {
        for (int address = result.address; address < result.address + result.count; ++address)
            write->unconfirmed.erase(address);
    } else if (!write->failed) {
        write->failed = true;
        write->reason = failureText(result.returnCode, result.exceptionCode, result.refusal);
        write->noReply = isNoReplyCode(result.returnCode) && result.refusal.empty();
    }
    if (write->settled())
        markReplaced(*write);
}

// A given-up request makes the driver drop the writes still queued (all of
// them on one controller, those for its station on several), with no
// result of their own.
void WriteTracker::dropWith(PendingWrite* write, const RequestResult& result) const
{
    if (write->settled() || (multiStation_ && write->station != result.station))
        return;
    write->failed = true;
    write->reason = "dropped by the driver when " +
                    rangeName(result.area, result.address, result.count, result.station, multiStation_) +
                    " was given up: " + failureText(result.returnCode, result.exceptionCode, result.refusal);
}

// The driver keeps one waiting write per target: a newer value takes the
// older one's place in its queue, sourceId and all, unless the older one is
// already on its way. The driver serves its queue in order, so an older
// write with no result by the time the newer one ends was never sent.
void WriteTracker::markReplaced(const PendingWrite& newer)
{
    const std::set<int> target = [&newer] {
        std::set<int> all;
        const int first = driverAddress(newer.request.var);
        for (int address = first; address < first + driverCount(newer.request.var); ++address)
            all.insert(address);
        return all;
    }();
    for (PendingWrite& older : writes_) {
        if (&older == &newer)
            break;  // writes_ is in the order the writes were queued
        if (older.settled() || older.station != newer.station ||
            driverArea(older.request.var.kind) != driverArea(newer.request.var.kind) || older.unconfirmed != target)
            continue;
        older.replacedBy = newer.sourceId;
        older.reason = "replaced in the driver's queue by a newer value before it was sent";
    }
}

}  // namespace logohost
