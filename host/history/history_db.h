// The SQLite side of the history: the schema, one transaction per batch on
// the writer's connection, and the queries on a connection of their own,
// which in WAL mode never waits for a write in progress.
#ifndef LOGOHOST_HISTORY_DB_H
#define LOGOHOST_HISTORY_DB_H

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/history/history_store.h"
#include "host/history/sample_block.h"

struct sqlite3;

namespace logohost {

struct WriteBatch {
    std::vector<std::shared_ptr<const SampleBlock>> blocks;
    std::vector<JournalEntry> journal;
    std::vector<AlarmEvent> alarms;

    bool empty() const { return blocks.empty() && journal.empty() && alarms.empty(); }
};

class HistoryDb {
public:
    HistoryDb() = default;
    ~HistoryDb();
    HistoryDb(const HistoryDb&) = delete;
    HistoryDb& operator=(const HistoryDb&) = delete;

    bool open(const std::string& path, std::string* error);
    const std::string& path() const { return path_; }
    // The highest ids on file, for the store to go on from.
    int64_t lastJournalId() const;
    int64_t lastAlarmId() const;

    // The writer's side: one thread at a time. The error is in the
    // operator's words: "cannot write PATH: database or disk is full".
    bool write(const WriteBatch& batch, std::string* error);
    bool deleteBefore(int64_t cutoffMs, std::string* error);

    // The queries' side, thread-safe. A query that fails finds nothing:
    // what is in memory still answers.
    void forEachBlock(const std::string& series, int64_t fromMs, int64_t toMs,
                      const std::function<void(const SampleBlock&)>& visit) const;
    // At most `limit` from sinceMs on, oldest first; newest: the last
    // `limit` of them instead of the first (still oldest first).
    std::vector<JournalEntry> journal(int64_t sinceMs, size_t limit, bool newest = false) const;
    std::vector<AlarmEvent> alarmEvents(int64_t sinceMs, size_t limit, bool newest = false) const;
    uint64_t fileBytes() const;

private:
    sqlite3* writer_ = nullptr;
    sqlite3* reader_ = nullptr;
    mutable std::mutex readerMutex_;
    std::string path_;
    std::unordered_map<std::string, int64_t> seriesIds_;  // the writer's, as on file

    bool configureWriter(std::string* error);
    bool loadSeries(std::string* error);
    bool seriesId(const std::string& name, std::unordered_map<std::string, int64_t>* added, int64_t* id);
    bool insertBlocks(const WriteBatch& batch, std::unordered_map<std::string, int64_t>* added);
    bool insertJournal(const std::vector<JournalEntry>& entries);
    bool insertAlarms(const std::vector<AlarmEvent>& events);
    bool failWrite(std::string* error);
    int64_t maxId(const char* sql) const;
};

}  // namespace logohost

#endif  // LOGOHOST_HISTORY_DB_H
