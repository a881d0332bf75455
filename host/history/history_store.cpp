#include "host/history/history_store.h"

#include <algorithm>
#include <utility>

#include "host/history/history_store_p.h"
#include "host/history/trend_buckets.h"

namespace logohost {
namespace {

constexpr int64_t kMsPerHour = 3600 * 1000;
// The writer is called early when this share of the memory limit is queued,
// so that a burst is written long before anything would have to go.
constexpr size_t kWakeWriterDivisor = 4;

int64_t systemNowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Entries held before the file was open were numbered from 1; they follow
// the file's own now, so that ids keep increasing across restarts.
template <typename T>
int64_t renumber(PendingQueue<T>* queue, int64_t lastOnFile)
{
    int64_t next = lastOnFile + 1;
    for (auto& item : queue->items())
        item.value.id = next++;
    return next;
}

// The file's answer and what memory holds, oldest first, each once: an
// entry being written may be in both.
template <typename T>
std::vector<T> mergeEntries(std::vector<T> stored, const std::vector<T>& pending, size_t limit, bool newest)
{
    stored.insert(stored.end(), pending.begin(), pending.end());
    std::sort(stored.begin(), stored.end(),
              [](const T& a, const T& b) { return a.atMs != b.atMs ? a.atMs < b.atMs : a.id < b.id; });
    stored.erase(std::unique(stored.begin(), stored.end(), [](const T& a, const T& b) { return a.id == b.id; }),
                 stored.end());
    if (stored.size() > limit)
        stored.erase(newest ? stored.begin() : stored.begin() + static_cast<std::ptrdiff_t>(limit),
                     newest ? stored.end() - static_cast<std::ptrdiff_t>(limit) : stored.end());
    return stored;
}

template <typename T>
std::vector<T> pendingSince(const PendingQueue<T>& queue, int64_t sinceMs)
{
    std::vector<T> entries;
    for (const auto& item : queue.items())
        if (item.value.atMs >= sinceMs)
            entries.push_back(item.value);
    return entries;
}

}  // namespace

HistoryStore::Impl::Impl(HistorySettings settings)
    : settings_(std::move(settings)),
      keepMs_(static_cast<int64_t>(settings_.keep.count()) * kMsPerHour),
      wakeWriterAt_(std::max<size_t>(1, settings_.memoryLimit / kWakeWriterDivisor)),
      problem_("history is kept in memory only: the store is not open"),
      problemSinceMs_(now())
{
}

int64_t HistoryStore::Impl::now() const
{
    return settings_.nowMs ? settings_.nowMs() : systemNowMs();
}

void HistoryStore::Impl::addEntry(const std::string& series, int64_t atMs, bool gap, int64_t raw)
{
    auto found = open_.find(series);
    if (found == open_.end()) {
        found = open_.emplace(series, BlockEncoder(series, atMs)).first;
    } else if (!found->second.fits(atMs)) {
        closeBlock(found->second);
        found->second = BlockEncoder(series, atMs);
    }
    found->second.add(atMs, gap, raw);
    ++openEntries_;
    trimSamples();
}

void HistoryStore::Impl::closeBlock(const BlockEncoder& encoder)
{
    const uint32_t entries = encoder.entries();
    openEntries_ -= entries;
    blocks_.push(std::make_shared<const SampleBlock>(encoder.snapshot()), entries);
    if (!nudged_ && blocks_.weight() >= wakeWriterAt_) {
        nudged_ = true;
        wake_.notify_one();
    }
}

// A block is written once the next sample finds its minute over; this is
// for a series nobody samples any more, which must not keep its last block
// in memory only. A minute's grace: the samples' times come from the
// caller's clock, which may lag the store's.
void HistoryStore::Impl::sealBlocks(bool all, int64_t nowMs)
{
    for (auto it = open_.begin(); it != open_.end();) {
        if (all || it->second.endMs() + 2 * kBlockSpanMs <= nowMs) {
            closeBlock(it->second);
            it = open_.erase(it);
        } else {
            ++it;
        }
    }
}

// The open blocks are the working set and are never dropped; the oldest
// queued blocks go first, so that the recent trend stays whole.
void HistoryStore::Impl::trimSamples()
{
    if (blocks_.weight() + openEntries_ <= settings_.memoryLimit)
        return;
    const size_t room = settings_.memoryLimit > openEntries_ ? settings_.memoryLimit - openEntries_ : 0;
    dropped_ += blocks_.trimTo(room);
}

void HistoryStore::Impl::fail(const std::string& problem, int64_t nowMs)
{
    // "Since when" is the start of the trouble, not of its latest wording.
    if (writing_ || problem_.empty())
        problemSinceMs_ = nowMs;
    writing_ = false;
    problem_ = problem;
}

void HistoryStore::Impl::adoptDatabase(std::shared_ptr<HistoryDb> db)
{
    nextJournalId_ = renumber(&journal_, db->lastJournalId());
    nextAlarmId_ = renumber(&alarms_, db->lastAlarmId());
    db_ = std::move(db);
    writing_ = true;
    problem_.clear();
    problemSinceMs_ = 0;
}

HistoryStore::HistoryStore(HistorySettings settings) : impl_(std::make_unique<Impl>(std::move(settings)))
{
}

HistoryStore::~HistoryStore()
{
    impl_->stopWriter();
}

bool HistoryStore::open(std::string* error)
{
    const std::string& directory = impl_->settings_.directory;
    std::string reason;
    auto lock = std::make_unique<DirectoryLock>();
    auto db = std::make_shared<HistoryDb>();
    const bool opened = createDirectory(directory, &reason) && lock->acquire(directory, &reason) &&
                        db->open(directory + "/" + kDatabaseFile, &reason);
    const int64_t nowMs = impl_->now();
    const std::lock_guard<std::mutex> guard(impl_->mutex_);
    if (impl_->db_)
        return true;
    if (!opened) {
        impl_->fail(reason, nowMs);
        if (error)
            *error = reason;
        return false;
    }
    impl_->lock_ = std::move(lock);
    impl_->adoptDatabase(std::move(db));
    impl_->startWriter();
    return true;
}

void HistoryStore::addSample(const std::string& series, int64_t atMs, int64_t raw)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex_);
    impl_->addEntry(series, atMs, false, raw);
}

void HistoryStore::addGap(const std::string& series, int64_t atMs)
{
    const std::lock_guard<std::mutex> lock(impl_->mutex_);
    impl_->addEntry(series, atMs, true, 0);
}

void HistoryStore::addJournal(JournalEntry entry)
{
    if (entry.atMs == 0)
        entry.atMs = impl_->now();
    const std::lock_guard<std::mutex> lock(impl_->mutex_);
    entry.id = impl_->nextJournalId_++;
    impl_->journal_.push(std::move(entry), 1);
    impl_->entriesDropped_ += impl_->journal_.trimTo(kMaxPendingEntries);
}

void HistoryStore::addAlarmEvent(AlarmEvent event)
{
    if (event.atMs == 0)
        event.atMs = impl_->now();
    const std::lock_guard<std::mutex> lock(impl_->mutex_);
    event.id = impl_->nextAlarmId_++;
    impl_->alarms_.push(std::move(event), 1);
    impl_->entriesDropped_ += impl_->alarms_.trimTo(kMaxPendingEntries);
}

std::vector<TrendBucket> HistoryStore::trend(const std::string& series, int64_t fromMs, int64_t toMs,
                                             int points) const
{
    TrendBuckets buckets(fromMs, toMs, points);
    // Memory before the file: a block written in between is then seen
    // twice, which min and max do not mind, rather than not at all.
    std::vector<BlockPtr> pending;
    std::shared_ptr<HistoryDb> db;
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex_);
        for (const auto& item : impl_->blocks_.items())
            if (item.value->series == series)
                pending.push_back(item.value);
        const auto open = impl_->open_.find(series);
        if (open != impl_->open_.end())
            pending.push_back(std::make_shared<const SampleBlock>(open->second.snapshot()));
        db = impl_->db_;
    }
    for (const BlockPtr& block : pending)
        buckets.add(*block);
    if (db)
        db->forEachBlock(series, fromMs, toMs, [&buckets](const SampleBlock& block) { buckets.add(block); });
    return buckets.result();
}

std::vector<JournalEntry> HistoryStore::journal(int64_t sinceMs, size_t limit, bool newest) const
{
    std::vector<JournalEntry> pending;
    std::shared_ptr<HistoryDb> db;
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex_);
        pending = pendingSince(impl_->journal_, sinceMs);
        db = impl_->db_;
    }
    return mergeEntries(db ? db->journal(sinceMs, limit, newest) : std::vector<JournalEntry>(), pending, limit, newest);
}

std::vector<AlarmEvent> HistoryStore::alarmEvents(int64_t sinceMs, size_t limit, bool newest) const
{
    std::vector<AlarmEvent> pending;
    std::shared_ptr<HistoryDb> db;
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex_);
        pending = pendingSince(impl_->alarms_, sinceMs);
        db = impl_->db_;
    }
    return mergeEntries(db ? db->alarmEvents(sinceMs, limit, newest) : std::vector<AlarmEvent>(), pending, limit,
                        newest);
}

HistoryHealth HistoryStore::health() const
{
    HistoryHealth health;
    std::shared_ptr<HistoryDb> db;
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex_);
        health.writing = impl_->writing_;
        health.problem = impl_->problem_;
        health.problemSinceMs = impl_->problemSinceMs_;
        health.samplesStored = impl_->stored_;
        health.samplesDropped = impl_->dropped_;
        health.entriesDropped = impl_->entriesDropped_;
        health.pending = impl_->blocks_.weight() + impl_->openEntries_;
        db = impl_->db_;
    }
    health.fileBytes = db ? db->fileBytes() : 0;
    return health;
}

void HistoryStore::flush()
{
    std::unique_lock<std::mutex> lock(impl_->mutex_);
    if (!impl_->writer_.joinable())
        return;
    const uint64_t ticket = ++impl_->flushWanted_;
    impl_->wake_.notify_one();
    impl_->written_.wait(lock, [this, ticket] { return impl_->flushDone_ >= ticket || impl_->stopping_; });
}

}  // namespace logohost
