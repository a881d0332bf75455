#include "host/mqtt/set_queue.h"

namespace logohost {

bool SetQueue::offer(PendingSet set, PendingSet* replaced)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto waiting = values_.find(set.var);
    if (waiting != values_.end()) {
        *replaced = PendingSet{set.var, std::move(waiting->second)};
        waiting->second = std::move(set.payload);
        return true;
    }
    values_.emplace(set.var, std::move(set.payload));
    order_.push_back(set.var);
    ready_.notify_one();
    return false;
}

bool SetQueue::take(PendingSet* set)
{
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [this] { return stopped_ || !order_.empty(); });
    if (stopped_)
        return false;
    set->var = order_.front();
    order_.pop_front();
    set->payload = std::move(values_.at(set->var));
    values_.erase(set->var);
    return true;
}

void SetQueue::stop()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    ready_.notify_all();
}

size_t SetQueue::waiting() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return order_.size();
}

}  // namespace logohost
