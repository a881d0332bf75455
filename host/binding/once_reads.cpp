#include "host/binding/once_reads.h"

#include "host/notation/return_codes.h"

namespace logohost {
void OnceReads::add(int sourceId, int station)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    OnceRead read;
    read.station = station;
    reads_[sourceId] = read;
}

void OnceReads::onReadDone(int sourceType, int sourceId, int status)
{
    if (sourceType != sourceType_)
        return;
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = reads_.find(sourceId);
    if (found == reads_.end())
        return;
    found->second.done = true;
    found->second.ok = status == READ_DONE_COMPLETED;
}

void OnceReads::onResult(const RequestResult& result)
{
    if (result.sourceType != sourceType_ || result.returnCode == RC_RETRYING)
        return;
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = reads_.find(result.sourceId);
    if (found == reads_.end() || found->second.resultSeen)
        return;
    found->second.resultSeen = true;
    if (isFinalFailure(result.returnCode))
        found->second.reason = failureText(result.failure);
}

void OnceReads::fail(int sourceId, const std::string& reason)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    OnceRead& read = reads_[sourceId];
    read.done = true;
    read.ok = false;
    read.resultSeen = true;
    read.reason = reason;
}

void OnceReads::dropStation(int station, const std::string& reason)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : reads_) {
        OnceRead& read = entry.second;
        if (read.station != station || isSettled(read))
            continue;
        read.done = true;
        read.resultSeen = true;
        read.reason = reason;
    }
}

std::vector<int> OnceReads::pendingStations() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<int> stations;
    for (const auto& entry : reads_)
        if (!isSettled(entry.second))
            stations.push_back(entry.second.station);
    return stations;
}

bool OnceReads::settled(const std::vector<int>& sourceIds) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const int id : sourceIds) {
        const auto found = reads_.find(id);
        if (found != reads_.end() && !isSettled(found->second))
            return false;
    }
    return true;
}

OnceRead OnceReads::outcome(int sourceId) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = reads_.find(sourceId);
    return found == reads_.end() ? OnceRead() : found->second;
}

void OnceReads::forget(const std::vector<int>& sourceIds)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const int id : sourceIds)
        reads_.erase(id);
}

bool OnceReads::anyOpen() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : reads_)
        if (!entry.second.done)
            return true;
    return false;
}

}  // namespace logohost
