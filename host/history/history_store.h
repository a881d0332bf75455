// What the panel remembers across a restart: trend samples, the operator's
// journal and alarm events, in one SQLite file in a data directory.
//
// Callers never wait for the disk: samples are gathered in memory and a
// writer thread commits them in batches. When the disk cannot be written,
// the data stays in a bounded buffer that queries still see, health() says
// why, and what the buffer cannot hold is counted as dropped.
#ifndef LOGOHOST_HISTORY_STORE_H
#define LOGOHOST_HISTORY_STORE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace logohost {

struct HistorySettings {
    std::string directory;                        // created if missing
    std::chrono::hours keep{24 * 30};             // retention
    std::function<int64_t()> nowMs;               // wall clock in ms since the epoch; empty: the system clock
    size_t memoryLimit = 200000;                  // samples held while the disk cannot be written
};

struct TrendBucket {            // the raw values seen in [fromMs, toMs)
    int64_t fromMs = 0, toMs = 0;
    bool gap = false;           // no good value in the bucket, only failed reads
    int64_t min = 0, max = 0;   // raw controller values, when !gap
};

struct JournalEntry {
    int64_t id = 0;             // set by the store, increasing
    int64_t atMs = 0;           // 0: the store's clock at addJournal
    std::string kind;           // "write", "read", "station", "ack", "link", ...
    std::string who;            // the client's address, "mqtt", or "" for the link's own events
    std::string subject;        // variable, alarm id or controller
    std::string value;          // as given, may be empty
    std::string outcome;        // "written", "refused: ...", "controller lost: connection refused", ...
    bool ok = true;
};

struct AlarmEvent {
    int64_t id = 0;             // set by the store
    int64_t atMs = 0;           // 0: the store's clock at addAlarmEvent
    std::string alarmId;
    std::string event;          // "raised", "cleared", "acknowledged", "unknown" (its variable cannot be read), ...
    std::string text, alarmClass, by;
};

struct HistoryHealth {
    bool writing = false;          // the last write succeeded
    std::string problem;           // empty when all is well
    int64_t problemSinceMs = 0;
    uint64_t samplesStored = 0, samplesDropped = 0;  // since this store was made; a gap counts as a sample
    size_t pending = 0;            // held in memory, not yet on disk
    uint64_t fileBytes = 0;        // database + WAL
    uint64_t entriesDropped = 0;   // journal entries and alarm events the buffer could not hold
};

// A trend query answers at most this many buckets, whatever it asks for.
constexpr int kMaxTrendPoints = 20000;

class HistoryStore {
public:
    explicit HistoryStore(HistorySettings settings);
    ~HistoryStore();                                   // writes what is pending (bounded time), closes
    HistoryStore(const HistoryStore&) = delete;
    HistoryStore& operator=(const HistoryStore&) = delete;

    // False with the reason; the store then works in memory only. What was
    // added before open() is written once it succeeds.
    bool open(std::string* error);

    // Thread-safe, and never waits for the disk.
    void addSample(const std::string& series, int64_t atMs, int64_t raw);
    void addGap(const std::string& series, int64_t atMs);   // the variable could not be read at atMs
    void addJournal(JournalEntry entry);
    void addAlarmEvent(AlarmEvent event);

    // At most `points` buckets over [fromMs, toMs), oldest first. A bucket
    // in which nothing at all was recorded (the host was not running, or the
    // buckets are finer than the sampling) is left out rather than shown as
    // a gap: the chart joins its neighbours, or sees the hole in the times.
    std::vector<TrendBucket> trend(const std::string& series, int64_t fromMs, int64_t toMs, int points) const;
    // Entries at or after sinceMs, oldest first, at most `limit`: the first
    // of them, or with newest the last.
    std::vector<JournalEntry> journal(int64_t sinceMs, size_t limit, bool newest = false) const;
    std::vector<AlarmEvent> alarmEvents(int64_t sinceMs, size_t limit, bool newest = false) const;

    HistoryHealth health() const;
    void flush();                                      // returns once everything queued was written or failed

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

// The folder a user would expect for a user's own run: $XDG_STATE_HOME/logohost, else ~/.local/state/logohost.
std::string defaultHistoryDirectory();

}  // namespace logohost

#endif  // LOGOHOST_HISTORY_STORE_H
