#include "host/history/trend_buckets.h"

#include <algorithm>

namespace logohost {

TrendBuckets::TrendBuckets(int64_t fromMs, int64_t toMs, int points)
{
    if (toMs <= fromMs || points <= 0)
        return;
    fromMs_ = fromMs;
    toMs_ = toMs;
    // Unsigned: the span of any two int64 times fits, their difference may not.
    const uint64_t spanMs = static_cast<uint64_t>(toMs) - static_cast<uint64_t>(fromMs);
    const uint64_t count = static_cast<uint64_t>(std::min(points, kMaxTrendPoints));
    widthMs_ = spanMs / count + (spanMs % count != 0 ? 1 : 0);
    slots_.resize(spanMs / widthMs_ + (spanMs % widthMs_ != 0 ? 1 : 0));
}

size_t TrendBuckets::slotOf(int64_t atMs) const
{
    return static_cast<size_t>((static_cast<uint64_t>(atMs) - static_cast<uint64_t>(fromMs_)) / widthMs_);
}

void TrendBuckets::addValue(Slot* slot, int64_t min, int64_t max) const
{
    slot->min = slot->value ? std::min(slot->min, min) : min;
    slot->max = slot->value ? std::max(slot->max, max) : max;
    slot->value = true;
}

void TrendBuckets::add(const SampleBlock& block)
{
    if (slots_.empty() || block.endMs < fromMs_ || block.startMs >= toMs_)
        return;
    const bool inOneSlot = contains(block.startMs) && contains(block.endMs) &&
                           slotOf(block.startMs) == slotOf(block.endMs);
    if (!inOneSlot) {
        addEntries(block);
        return;
    }
    Slot& slot = slots_[slotOf(block.startMs)];
    if (block.values > 0)
        addValue(&slot, block.min, block.max);
    slot.gap = slot.gap || block.gaps > 0;
}

void TrendBuckets::addEntries(const SampleBlock& block)
{
    BlockReader reader(block);
    BlockEntry entry;
    while (reader.next(&entry) && entry.atMs < toMs_) {
        if (entry.atMs < fromMs_)
            continue;
        Slot& slot = slots_[slotOf(entry.atMs)];
        if (entry.gap)
            slot.gap = true;
        else
            addValue(&slot, entry.raw, entry.raw);
    }
}

std::vector<TrendBucket> TrendBuckets::result() const
{
    std::vector<TrendBucket> buckets;
    for (size_t i = 0; i < slots_.size(); ++i) {
        const Slot& slot = slots_[i];
        if (!slot.value && !slot.gap)
            continue;
        TrendBucket bucket;
        bucket.fromMs = static_cast<int64_t>(static_cast<uint64_t>(fromMs_) + i * widthMs_);
        bucket.toMs = i + 1 == slots_.size() ? toMs_ : bucket.fromMs + static_cast<int64_t>(widthMs_);
        bucket.gap = !slot.value;
        bucket.min = slot.value ? slot.min : 0;
        bucket.max = slot.value ? slot.max : 0;
        buckets.push_back(bucket);
    }
    return buckets;
}

}  // namespace logohost
