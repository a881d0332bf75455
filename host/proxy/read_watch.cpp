#include "host/proxy/read_watch.h"

#include <algorithm>

#include "host/binding/session.h"
#include "host/notation/return_codes.h"

namespace logohost {

int ReadWatch::queue(const DriverRange& range, const std::function<int(const DriverRange&)>& queue)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const int id = queue(range);
    Watched& read = reads_[id];
    read.first = range.address;
    read.seen.assign(static_cast<size_t>(range.count), false);
    read.missing = read.seen.size();
    return id;
}

void ReadWatch::onResult(const RequestResult& result)
{
    if (result.sourceType != kOnceReadSourceType)
        return;
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = reads_.find(result.sourceId);
    if (found == reads_.end())
        return;
    Watched& read = found->second;
    if (isFinalFailure(result.returnCode)) {
        read.failed = true;
        read.failure = result.failure;
        return;
    }
    if (!isSuccessCode(result.returnCode))
        return;
    const int from = std::max(result.address, read.first) - read.first;
    const int to = std::min(result.address + result.count - read.first, static_cast<int>(read.seen.size()));
    for (int at = from; at < to; ++at) {
        if (!read.seen[static_cast<size_t>(at)])
            --read.missing;
        read.seen[static_cast<size_t>(at)] = true;
    }
}

ReadWatch::State ReadWatch::state(int id, RequestFailure* failure) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = reads_.find(id);
    if (found == reads_.end())
        return State::Waiting;
    if (found->second.failed) {
        if (failure)
            *failure = found->second.failure;
        return State::Failed;
    }
    return found->second.missing == 0 ? State::Complete : State::Waiting;
}

void ReadWatch::forget(int id)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    reads_.erase(id);
}

}  // namespace logohost
