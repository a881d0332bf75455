#include "varlist/request_queues.h"

namespace {

QueueKey writeKey(const RW_VAR& var)
{
    const QueueKey key = {var.station, var.area, var.address, var.count, 0, 0};
    return key;
}

QueueKey readKey(const RW_VAR& var)
{
    const QueueKey key = {var.station, var.area, var.address, var.count, var.sourceType, var.sourceId};
    return key;
}

}  // namespace

uint qHash(const QueueKey& key)
{
    // Unsigned arithmetic: any field value a host passes mixes without overflow.
    const unsigned fields[] = {static_cast<unsigned>(key.station), static_cast<unsigned>(key.area),
                               static_cast<unsigned>(key.address), static_cast<unsigned>(key.count),
                               static_cast<unsigned>(key.sourceType), static_cast<unsigned>(key.sourceId)};
    unsigned h = 2166136261u;
    for (unsigned i = 0; i < sizeof fields / sizeof fields[0]; ++i)
        h = (h ^ fields[i]) * 16777619u;
    return h ^ (h >> 15);
}

void WriteQueue::append(const RW_VAR& var)
{
    positions_[writeKey(var)].append(headSequence_ + static_cast<unsigned>(list_.size()));
    list_.append(var);
}

int WriteQueue::findWaiting(const RW_VAR& var) const
{
    const Positions::const_iterator found = positions_.constFind(writeKey(var));
    if (found == positions_.constEnd())
        return -1;
    const QList<unsigned>& sequences = found.value();
    const bool headFirst = sequences.first() == headSequence_;
    if (headFirst && sequences.size() < 2)
        return -1;
    return static_cast<int>(sequences.at(headFirst ? 1 : 0) - headSequence_);
}

void WriteQueue::replace(int i, const RW_VAR& var) { list_[i] = var; }

void WriteQueue::removeFirst()
{
    const Positions::iterator found = positions_.find(writeKey(list_.first()));
    found.value().removeFirst();
    if (found.value().isEmpty())
        positions_.erase(found);
    list_.removeFirst();
    ++headSequence_;
}

void WriteQueue::clear()
{
    list_.clear();
    positions_.clear();
    headSequence_ = 0;
}

void WriteQueue::rebuildIndex()
{
    positions_.clear();
    headSequence_ = 0;
    for (int i = 0; i < list_.size(); ++i)
        positions_[writeKey(list_.at(i))].append(static_cast<unsigned>(i));
}

void OnceReadQueue::adjustCounts(const RW_VAR& var, int change)
{
    const QueueKey key = readKey(var);
    const QPair<int, int> request = qMakePair(var.sourceType, var.sourceId);
    if ((reads_[key] += change) == 0)
        reads_.remove(key);
    if ((requests_[request] += change) == 0)
        requests_.remove(request);
}

void OnceReadQueue::append(const RW_VAR& var)
{
    adjustCounts(var, 1);
    list_.append(var);
}

bool OnceReadQueue::contains(const RW_VAR& var) const { return reads_.contains(readKey(var)); }

void OnceReadQueue::removeFirst()
{
    adjustCounts(list_.first(), -1);
    list_.removeFirst();
}

void OnceReadQueue::clear()
{
    list_.clear();
    reads_.clear();
    requests_.clear();
}
