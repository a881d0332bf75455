// The writer thread: one transaction per pass, a pass a second or sooner
// when much is queued, and old data deleted as the clock moves on.
#include <numeric>

#include "common/thread_name.h"
#include "host/history/history_store_p.h"

namespace logohost {
namespace {

template <typename Item>
uint64_t weightOf(const std::vector<Item>& items)
{
    return std::accumulate(items.begin(), items.end(), uint64_t{0},
                           [](uint64_t sum, const Item& item) { return sum + item.weight; });
}

template <typename Item, typename T>
void copyValues(const std::vector<Item>& items, std::vector<T>* values)
{
    values->reserve(items.size());
    for (const Item& item : items)
        values->push_back(item.value);
}

}  // namespace

void HistoryStore::Impl::startWriter()
{
    writer_ = std::thread([this] { writerLoop(); });
}

void HistoryStore::Impl::stopWriter()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    written_.notify_all();
    if (writer_.joinable())
        writer_.join();
}

void HistoryStore::Impl::writerLoop()
{
    common::nameThisThread("history-writer");
    bool last = false;
    while (!last) {
        uint64_t ticket = 0;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            // While the disk refuses, a full queue does not make the writer
            // try harder: once per interval is enough to see it come back.
            wake_.wait_for(lock, kBatchInterval,
                           [this] { return stopping_ || flushWanted_ > flushDone_ || (nudged_ && writing_); });
            last = stopping_;
            ticket = flushWanted_;
        }
        const int64_t nowMs = now();
        const Pass pass = takePass(last, ticket, nowMs);
        std::string problem;
        const bool ok = writePass(db_.get(), pass, &problem);
        settle(pass, ok, problem);
    }
}

HistoryStore::Impl::Pass HistoryStore::Impl::takePass(bool last, uint64_t ticket, int64_t nowMs)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    // A flush writes the blocks still filling too; the samples that follow
    // start new ones.
    sealBlocks(last || ticket > flushDone_, nowMs);
    nudged_ = false;
    Pass pass;
    pass.blocks = blocks_.snapshot();
    pass.journal = journal_.snapshot();
    pass.alarms = alarms_.snapshot();
    pass.ticket = ticket;
    pass.nowMs = nowMs;
    pass.retention = nowMs >= nextRetentionMs_;
    return pass;
}

bool HistoryStore::Impl::writePass(HistoryDb* db, const Pass& pass, std::string* problem) const
{
    WriteBatch batch;
    copyValues(pass.blocks, &batch.blocks);
    copyValues(pass.journal, &batch.journal);
    copyValues(pass.alarms, &batch.alarms);
    if (!batch.empty() && !db->write(batch, problem))
        return false;
    return !pass.retention || db->deleteBefore(pass.nowMs - keepMs_, problem);
}

void HistoryStore::Impl::settle(const Pass& pass, bool ok, const std::string& problem)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    flushDone_ = pass.ticket;
    written_.notify_all();
    // A pass with nothing to do has not tried the disk and so knows nothing
    // new about it.
    const bool tried = !pass.blocks.empty() || !pass.journal.empty() || !pass.alarms.empty() || pass.retention;
    if (!tried)
        return;
    if (!ok) {
        fail(problem, pass.nowMs);
        return;
    }
    dropped_ -= blocks_.settle(pass.blocks);
    stored_ += weightOf(pass.blocks);
    entriesDropped_ -= journal_.settle(pass.journal) + alarms_.settle(pass.alarms);
    if (pass.retention)
        nextRetentionMs_ = pass.nowMs + kRetentionPeriodMs;
    writing_ = true;
    problem_.clear();
    problemSinceMs_ = 0;
}

}  // namespace logohost
