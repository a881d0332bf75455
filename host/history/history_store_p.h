// The store's inside, shared by the callers' side (history_store.cpp) and
// the writer thread (history_writer.cpp).
//
// One mutex guards all of it. The file's connections are guarded by
// HistoryDb itself, and no code holds that lock and this one at once.
#ifndef LOGOHOST_HISTORY_STORE_P_H
#define LOGOHOST_HISTORY_STORE_P_H

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "host/history/data_directory.h"
#include "host/history/history_db.h"
#include "host/history/history_store.h"
#include "host/history/pending_queue.h"
#include "host/history/sample_block.h"

namespace logohost {

constexpr const char* kDatabaseFile = "logohost.db";
// Journal entries and alarm events held while the disk cannot be written,
// each; they come at an operator's pace, so this is hours of them.
constexpr size_t kMaxPendingEntries = 10000;
// The writer's pace: one transaction a second at most in normal running, and
// one try a second while the disk cannot be written.
constexpr std::chrono::milliseconds kBatchInterval{1000};
// Old data goes once a minute, a few hundred rows at a time, rather than in
// one long delete that would hold the file.
constexpr int64_t kRetentionPeriodMs = 60 * 1000;

using BlockPtr = std::shared_ptr<const SampleBlock>;

class HistoryStore::Impl {
public:
    explicit Impl(HistorySettings settings);

    int64_t now() const;

    // The callers' side; the mutex is held.
    void addEntry(const std::string& series, int64_t atMs, bool gap, int64_t raw);
    void closeBlock(const BlockEncoder& encoder);
    void sealBlocks(bool all, int64_t nowMs);
    void trimSamples();
    void fail(const std::string& problem, int64_t nowMs);
    void adoptDatabase(std::shared_ptr<HistoryDb> db);

    // The writer's side (history_writer.cpp).
    void startWriter();
    void stopWriter();

    const HistorySettings settings_;
    const int64_t keepMs_;
    const size_t wakeWriterAt_;  // queued samples that call the writer before its time

    mutable std::mutex mutex_;
    // The lock first, so that it outlives the file's last write at close.
    std::unique_ptr<DirectoryLock> lock_;
    std::shared_ptr<HistoryDb> db_;  // set once open() succeeds
    std::unordered_map<std::string, BlockEncoder> open_;  // the block each series is filling
    size_t openEntries_ = 0;
    PendingQueue<BlockPtr> blocks_;
    PendingQueue<JournalEntry> journal_;
    PendingQueue<AlarmEvent> alarms_;
    int64_t nextJournalId_ = 1, nextAlarmId_ = 1;

    bool writing_ = false;
    std::string problem_;
    int64_t problemSinceMs_ = 0;
    uint64_t stored_ = 0, dropped_ = 0, entriesDropped_ = 0;

    std::thread writer_;
    std::condition_variable wake_;     // the writer waits here
    std::condition_variable written_;  // flush() waits here
    bool stopping_ = false;
    bool nudged_ = false;
    uint64_t flushWanted_ = 0, flushDone_ = 0;
    int64_t nextRetentionMs_ = 0;

private:
    struct Pass {
        std::vector<PendingQueue<BlockPtr>::Item> blocks;
        std::vector<PendingQueue<JournalEntry>::Item> journal;
        std::vector<PendingQueue<AlarmEvent>::Item> alarms;
        uint64_t ticket = 0;
        int64_t nowMs = 0;
        bool retention = false;
    };

    void writerLoop();
    Pass takePass(bool last, uint64_t ticket, int64_t nowMs);
    bool writePass(HistoryDb* db, const Pass& pass, std::string* problem) const;
    void settle(const Pass& pass, bool ok, const std::string& problem);
};

}  // namespace logohost

#endif  // LOGOHOST_HISTORY_STORE_P_H
