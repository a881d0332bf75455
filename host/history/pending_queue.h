// What waits in memory for the writer: blocks of samples, journal entries,
// alarm events. Bounded by a total weight (samples for blocks, one per
// entry); the oldest go first when it is full, and are counted.
#ifndef LOGOHOST_PENDING_QUEUE_H
#define LOGOHOST_PENDING_QUEUE_H

#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

namespace logohost {

template <typename T>
class PendingQueue {
public:
    struct Item {
        uint64_t seq = 0;
        size_t weight = 0;
        T value;
    };

    void push(T value, size_t weight)
    {
        items_.push_back(Item{nextSeq_++, weight, std::move(value)});
        weight_ += weight;
    }

    // Drops the oldest until at most `limit` is held; returns the weight dropped.
    size_t trimTo(size_t limit)
    {
        size_t dropped = 0;
        while (weight_ > limit && !items_.empty()) {
            dropped += items_.front().weight;
            droppedThrough_ = items_.front().seq;
            weight_ -= items_.front().weight;
            items_.pop_front();
        }
        return dropped;
    }

    // A copy for the writer: the items stay here, and so in every query,
    // until they are on disk.
    std::vector<Item> snapshot() const { return std::vector<Item>(items_.begin(), items_.end()); }

    // `written` (an earlier snapshot) is on disk: removes it. Returns the
    // weight of those trimmed meanwhile, which turn out stored after all.
    size_t settle(const std::vector<Item>& written)
    {
        if (written.empty())
            return 0;
        size_t restored = 0;
        for (const Item& item : written)
            if (item.seq <= droppedThrough_)
                restored += item.weight;
        while (!items_.empty() && items_.front().seq <= written.back().seq) {
            weight_ -= items_.front().weight;
            items_.pop_front();
        }
        return restored;
    }

    const std::deque<Item>& items() const { return items_; }
    std::deque<Item>& items() { return items_; }
    size_t weight() const { return weight_; }
    bool empty() const { return items_.empty(); }

private:
    std::deque<Item> items_;
    uint64_t nextSeq_ = 1;
    uint64_t droppedThrough_ = 0;  // trimming goes oldest first, so seq says who went
    size_t weight_ = 0;
};

}  // namespace logohost

#endif  // LOGOHOST_PENDING_QUEUE_H
