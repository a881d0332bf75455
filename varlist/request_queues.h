// The write queue and the one-shot read queue: a QList in queue order with a
// hash index beside it, so that merging a write into a waiting one, finding
// a duplicate one-shot read and knowing whether a one-shot request still has
// entries waiting take constant time however long the queue. Every change
// goes through these members, which keep list and index in step; readers see
// the list itself.
#ifndef LOGO_VARLIST_REQUEST_QUEUES_H
#define LOGO_VARLIST_REQUEST_QUEUES_H

#include <QHash>
#include <QList>
#include <QPair>

#include "logo_modbus_tcp.h"

// What an entry is found by: a write by its target (station, area, address,
// count); a one-shot read by its target and its requester.
struct QueueKey {
    int station;
    int area;
    int address;
    int count;
    int sourceType;
    int sourceId;
};

inline bool operator==(const QueueKey& a, const QueueKey& b)
{
    return a.station == b.station && a.area == b.area && a.address == b.address && a.count == b.count &&
           a.sourceType == b.sourceType && a.sourceId == b.sourceId;
}

uint qHash(const QueueKey& key);

class RequestQueue {
public:
    const QList<RW_VAR>& list() const { return list_; }
    int size() const { return list_.size(); }
    bool isEmpty() const { return list_.isEmpty(); }
    const RW_VAR& first() const { return list_.first(); }
    const RW_VAR& at(int i) const { return list_.at(i); }

protected:
    QList<RW_VAR> list_;

    // Keeps the entries that do not match, in order; removed(entry) is told
    // of each one that does.
    template <typename Matches, typename Removed>
    void filter(Matches matches, Removed removed)
    {
        QList<RW_VAR> kept;
        for (int i = 0; i < list_.size(); ++i) {
            if (matches(list_.at(i)))
                removed(list_.at(i));
            else
                kept.append(list_.at(i));
        }
        list_ = kept;
    }
};

class WriteQueue : public RequestQueue {
public:
    WriteQueue() : headSequence_(0) {}

    void append(const RW_VAR& var);
    // Index of the first entry after the head with var's target, or -1. The
    // head is never a match: its frame may be on its way already.
    int findWaiting(const RW_VAR& var) const;
    // Overwrites entry i, found by findWaiting, with every field of var.
    void replace(int i, const RW_VAR& var);
    void removeFirst();
    void clear();
    template <typename Matches>
    void removeIf(Matches matches);

private:
    // Entry i carries the sequence number headSequence_ + i (modulo 2^32):
    // entries leave only from the head, except in removeIf, which numbers
    // them afresh. Each target maps to its entries' numbers, in queue order.
    typedef QHash<QueueKey, QList<unsigned> > Positions;
    Positions positions_;
    unsigned headSequence_;

    void rebuildIndex();
};

class OnceReadQueue : public RequestQueue {
public:
    void append(const RW_VAR& var);
    // Whether a read of the same target for the same requester is queued,
    // the head included.
    bool contains(const RW_VAR& var) const;
    // Entries of the request (sourceType, sourceId) in the queue, head included.
    int entriesOfRequest(int sourceType, int sourceId) const { return requests_.value(qMakePair(sourceType, sourceId)); }
    void removeFirst();
    void clear();
    template <typename Matches>
    void removeIf(Matches matches);

private:
    QHash<QueueKey, int> reads_;
    QHash<QPair<int, int>, int> requests_;

    void adjustCounts(const RW_VAR& var, int change);
};

template <typename Matches>
void WriteQueue::removeIf(Matches matches)
{
    filter(matches, [](const RW_VAR&) {});
    rebuildIndex();
}

template <typename Matches>
void OnceReadQueue::removeIf(Matches matches)
{
    filter(matches, [this](const RW_VAR& var) { adjustCounts(var, -1); });
}

#endif  // LOGO_VARLIST_REQUEST_QUEUES_H
