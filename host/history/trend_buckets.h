// Folds one series' blocks into the buckets of a trend query: the min and
// max of the raw values in each, so that a one-sample spike shows at any
// zoom, and which buckets saw only failed reads.
#ifndef LOGOHOST_TREND_BUCKETS_H
#define LOGOHOST_TREND_BUCKETS_H

#include <cstdint>
#include <vector>

#include "host/history/history_store.h"
#include "host/history/sample_block.h"

namespace logohost {

class TrendBuckets {
public:
    // [fromMs, toMs) cut into at most `points` buckets of equal width, the
    // last one cut short at toMs.
    TrendBuckets(int64_t fromMs, int64_t toMs, int points);

    // A block may come more than once (from memory and from the file while
    // it is being written): min, max and gap do not mind.
    void add(const SampleBlock& block);
    // The buckets in which something was recorded, oldest first.
    std::vector<TrendBucket> result() const;

private:
    struct Slot {
        bool value = false, gap = false;
        int64_t min = 0, max = 0;
    };

    int64_t fromMs_ = 0, toMs_ = 0;
    uint64_t widthMs_ = 1;
    std::vector<Slot> slots_;

    bool contains(int64_t atMs) const { return atMs >= fromMs_ && atMs < toMs_; }
    size_t slotOf(int64_t atMs) const;
    void addValue(Slot* slot, int64_t min, int64_t max) const;
    void addEntries(const SampleBlock& block);
};

}  // namespace logohost

#endif  // LOGOHOST_TREND_BUCKETS_H
