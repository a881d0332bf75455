#include "host/binding/write_tracker.h"

#include "host/notation/return_codes.h"

namespace logohost {
namespace {

std::set<int> addressesOf(const DriverRange& range)
{
    std::set<int> all;
    for (int address = range.address; address < range.address + range.count; ++address)
        all.insert(address);
    return all;
}

}  // namespace

std::string writeOutcomeText(const PendingWrite& write, const std::string& what, const std::string& name)
{
    const std::string lead = what.empty() ? "" : what + " ";
    switch (write.end) {
    case WriteEnd::Written: return lead + "written";
    case WriteEnd::Failed: return lead + "not written: " + failureText(write.failure);
    case WriteEnd::Dropped:
        return lead + "not written: " + failureWords(write.failure, write.givenUp) + ", and " + name +
               " was queued behind it (" + driverCodeText(write.failure.returnCode) + ")";
    case WriteEnd::StationOff:
        return lead + "not written: station " + std::to_string(write.range.station) + " was switched off";
    case WriteEnd::Replaced: return lead + "replaced in the driver's queue by a newer value before it was sent";
    case WriteEnd::Abandoned: return lead + "not written: " + write.reason;
    case WriteEnd::NotQueued: return lead + "not written: the driver did not take it";
    case WriteEnd::Pending: break;
    }
    return lead + "not confirmed yet";
}

void WriteTracker::add(int sourceId, const DriverRange& range)
{
    PendingWrite write;
    write.sourceId = sourceId;
    write.range = range;
    write.unconfirmed = addressesOf(range);
    const std::lock_guard<std::mutex> lock(mutex_);
    writes_.push_back(write);
}

void WriteTracker::onResult(const RequestResult& result)
{
    if (result.returnCode == RC_RETRYING)
        return;
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool writeResult = result.rwType == RW_WRITE;
    for (PendingWrite& write : writes_) {
        if (writeResult && write.sourceId == result.sourceId)
            settle(&write, result);
        else if (result.failCallback)
            dropWith(&write, result);
    }
}

void WriteTracker::dropStation(int station)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (PendingWrite& write : writes_)
        if (!write.settled() && write.range.station == station)
            write.end = WriteEnd::StationOff;
}

void WriteTracker::refused(int sourceId)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (PendingWrite& write : writes_)
        if (write.sourceId == sourceId)
            write.end = WriteEnd::NotQueued;
}

void WriteTracker::abandon(int station, const std::string& reason)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (PendingWrite& write : writes_) {
        if (write.settled() || (station >= 0 && write.range.station != station))
            continue;
        write.end = WriteEnd::Abandoned;
        write.reason = reason;
    }
}

std::vector<int> WriteTracker::pendingStations() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<int> stations;
    for (const PendingWrite& write : writes_)
        if (!write.settled())
            stations.push_back(write.range.station);
    return stations;
}

bool WriteTracker::allSettled() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const PendingWrite& write : writes_)
        if (!write.settled())
            return false;
    return true;
}

bool WriteTracker::anyPending() const { return !allSettled(); }

PendingWrite WriteTracker::find(int sourceId) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const PendingWrite& write : writes_)
        if (write.sourceId == sourceId)
            return write;
    return PendingWrite();
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

void WriteTracker::settle(PendingWrite* write, const RequestResult& result)
{
    if (write->settled())
        return;
    if (isSuccessCode(result.returnCode)) {
        for (int address = result.address; address < result.address + result.count; ++address)
            write->unconfirmed.erase(address);
        if (!write->unconfirmed.empty())
            return;
        write->end = WriteEnd::Written;
    } else {
        write->end = WriteEnd::Failed;
        write->failure = result.failure;
    }
    markReplaced(*write);
}

// A given-up request makes the driver drop the writes still queued (all of
// them on one controller, those for its station on several), with no
// result of their own.
void WriteTracker::dropWith(PendingWrite* write, const RequestResult& result) const
{
    if (write->settled() || (multiStation_ && write->range.station != result.station))
        return;
    write->end = WriteEnd::Dropped;
    write->failure = result.failure;
    write->givenUp = rangeName(result.area, result.address, result.count, result.station, multiStation_);
}

// The driver keeps one waiting write per target: a newer value takes the
// older one's place in its queue, sourceId and all, unless the older one is
// already on its way. The driver serves its queue in order, so an older
// write with no result by the time the newer one ends was never sent.
void WriteTracker::markReplaced(const PendingWrite& newer)
{
    const std::set<int> target = addressesOf(newer.range);
    for (PendingWrite& older : writes_) {
        if (&older == &newer)
            break;  // writes_ is in the order the writes were queued
        if (older.settled() || older.range.station != newer.range.station || older.range.area != newer.range.area ||
            older.unconfirmed != target)
            continue;
        older.end = WriteEnd::Replaced;
        older.replacedBy = newer.sourceId;
    }
}

}  // namespace logohost
