#include "host/history/history_db.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace logohost {
namespace {

constexpr int kSchemaVersion = 1;
// Long enough to ride out a checkpoint or a query's start; short enough that
// a file locked for good shows in health() at once, and a stopping store is
// not held up.
constexpr int kBusyTimeoutMs = 1000;
// After a checkpoint, the WAL is cut back to this, so that one large batch
// does not leave a large file behind.
constexpr int64_t kWalSizeLimit = 4 * 1024 * 1024;
constexpr int kOpenFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
constexpr int kPrimaryCodeMask = 0xff;  // an extended result code's primary code

const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS series (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);"
    // Clustered by series and time: a day of one series is a few dozen
    // neighbouring pages, not one page for each of its blocks, and no
    // index beside it. `part` tells apart blocks that start at the same
    // millisecond (a flush in between, a clock set back).
    "CREATE TABLE IF NOT EXISTS blocks (series_id INTEGER NOT NULL, start_ms INTEGER NOT NULL,"
    " part INTEGER NOT NULL, end_ms INTEGER NOT NULL, value_count INTEGER NOT NULL,"
    " gap_count INTEGER NOT NULL, min INTEGER NOT NULL, max INTEGER NOT NULL, data BLOB NOT NULL,"
    " PRIMARY KEY (series_id, start_ms, part)) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS journal (id INTEGER PRIMARY KEY, at_ms INTEGER NOT NULL, kind TEXT,"
    " who TEXT, subject TEXT, value TEXT, outcome TEXT, ok INTEGER);"
    "CREATE INDEX IF NOT EXISTS journal_by_time ON journal (at_ms);"
    "CREATE TABLE IF NOT EXISTS alarm_events (id INTEGER PRIMARY KEY, at_ms INTEGER NOT NULL,"
    " alarm_id TEXT, event TEXT, text TEXT, class TEXT, by TEXT);"
    "CREATE INDEX IF NOT EXISTS alarm_events_by_time ON alarm_events (at_ms);";

class Statement {
public:
    Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr); }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, int64_t value)
    {
        sqlite3_bind_int64(statement_, index, value);
        return *this;
    }
    Statement& bind(int index, const std::string& text)
    {
        sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
        return *this;
    }
    Statement& bindBlob(int index, const std::string& data)
    {
        sqlite3_bind_blob(statement_, index, data.data(), static_cast<int>(data.size()), SQLITE_STATIC);
        return *this;
    }
    // SQLITE_ROW, SQLITE_DONE or the error; a statement that failed to
    // prepare answers SQLITE_MISUSE here.
    int step() { return sqlite3_step(statement_); }
    // SQLITE_DONE, ready to be bound again.
    bool run()
    {
        const int rc = step();
        sqlite3_reset(statement_);
        return rc == SQLITE_DONE;
    }
    int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
    // Text or blob alike.
    std::string text(int column) const
    {
        const char* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
        return bytes ? std::string(bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, column))) : std::string();
    }

private:
    sqlite3_stmt* statement_ = nullptr;
};

// SQLite's words, with the system's reason where it has one ("disk I/O
// error (No space left on device)").
std::string describe(sqlite3* db)
{
    std::string text = db ? sqlite3_errmsg(db) : "out of memory";
    const int code = db ? sqlite3_errcode(db) & kPrimaryCodeMask : SQLITE_NOMEM;
    const int systemError = db ? sqlite3_system_errno(db) : 0;
    if ((code == SQLITE_IOERR || code == SQLITE_CANTOPEN) && systemError != 0)
        text += std::string(" (") + std::strerror(systemError) + ")";
    return text;
}

bool exec(sqlite3* db, const char* sql)
{
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// SQLite counts in signed 64 bits; a caller's "no limit" must not wrap to
// a negative one.
int64_t rowLimit(size_t limit)
{
    return static_cast<int64_t>(std::min<uint64_t>(limit, std::numeric_limits<int64_t>::max()));
}

// Rows of a journal-like table (id and at_ms first) from sinceMs on, oldest
// first; `newest` takes the last `limit` of them instead of the first.
template <typename Row, typename Fill>
std::vector<Row> rowsSince(sqlite3* db, const std::string& columnsAndTable, int64_t sinceMs, size_t limit,
                           bool newest, Fill fill)
{
    std::vector<Row> rows;
    if (!db)
        return rows;
    const std::string sql = "SELECT " + columnsAndTable + " WHERE at_ms >= ?1 ORDER BY " +
                            (newest ? "at_ms DESC, id DESC" : "at_ms, id") + " LIMIT ?2";
    Statement select(db, sql.c_str());
    select.bind(1, sinceMs).bind(2, rowLimit(limit));
    while (select.step() == SQLITE_ROW) {
        Row row;
        row.id = select.integer(0);
        row.atMs = select.integer(1);
        fill(select, &row);
        rows.push_back(std::move(row));
    }
    if (newest)
        std::reverse(rows.begin(), rows.end());
    return rows;
}

uint64_t sizeOf(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

}  // namespace

HistoryDb::~HistoryDb()
{
    // The writer last: the last connection to close checkpoints the WAL
    // into the file and removes it.
    sqlite3_close_v2(reader_);
    sqlite3_close_v2(writer_);
}

bool HistoryDb::open(const std::string& path, std::string* error)
{
    path_ = path;
    error->clear();
    if (sqlite3_open_v2(path.c_str(), &writer_, kOpenFlags, nullptr) != SQLITE_OK || !configureWriter(error)) {
        if (error->empty())
            *error = "cannot open " + path + ": " + describe(writer_);
        return false;
    }
    if (!loadSeries(error))
        return false;
    if (sqlite3_open_v2(path.c_str(), &reader_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        *error = "cannot open " + path + ": " + describe(reader_);
        return false;
    }
    sqlite3_busy_timeout(reader_, kBusyTimeoutMs);
    return true;
}

bool HistoryDb::configureWriter(std::string* error)
{
    sqlite3_busy_timeout(writer_, kBusyTimeoutMs);
    {
        Statement mode(writer_, "PRAGMA journal_mode=WAL");
        if (mode.step() != SQLITE_ROW)
            return false;
        if (mode.text(0) != "wal") {
            *error = "cannot open " + path_ + ": its file system does not allow a write-ahead log";
            return false;
        }
    }
    // NORMAL: in WAL mode a power cut may lose the last batches but never
    // damages the file, and a panel's flash is spared a sync per batch.
    const std::string pragmas =
        "PRAGMA synchronous=NORMAL; PRAGMA journal_size_limit=" + std::to_string(kWalSizeLimit) + ";";
    if (!exec(writer_, pragmas.c_str()))
        return false;
    Statement version(writer_, "PRAGMA user_version");
    if (version.step() != SQLITE_ROW)
        return false;
    const int64_t found = version.integer(0);
    if (found > kSchemaVersion) {
        *error = path_ + " was written by a newer logohost (format " + std::to_string(found) + ")";
        return false;
    }
    const std::string schema = std::string("BEGIN;") + kSchema + "PRAGMA user_version=" +
                               std::to_string(kSchemaVersion) + ";COMMIT;";
    return exec(writer_, schema.c_str());
}

bool HistoryDb::loadSeries(std::string* error)
{
    Statement select(writer_, "SELECT id, name FROM series");
    int rc = SQLITE_ROW;
    while ((rc = select.step()) == SQLITE_ROW)
        seriesIds_[select.text(1)] = select.integer(0);
    if (rc != SQLITE_DONE)
        *error = "cannot read " + path_ + ": " + describe(writer_);
    return rc == SQLITE_DONE;
}

int64_t HistoryDb::maxId(const char* sql) const
{
    Statement select(writer_, sql);
    return select.step() == SQLITE_ROW ? select.integer(0) : 0;
}

int64_t HistoryDb::lastJournalId() const
{
    return maxId("SELECT coalesce(max(id), 0) FROM journal");
}

int64_t HistoryDb::lastAlarmId() const
{
    return maxId("SELECT coalesce(max(id), 0) FROM alarm_events");
}

bool HistoryDb::write(const WriteBatch& batch, std::string* error)
{
    if (!exec(writer_, "BEGIN IMMEDIATE"))
        return failWrite(error);
    // Series named for the first time are remembered only once committed:
    // a rolled-back batch takes their rows with it.
    std::unordered_map<std::string, int64_t> added;
    if (!insertBlocks(batch, &added) || !insertJournal(batch.journal) || !insertAlarms(batch.alarms) ||
        !exec(writer_, "COMMIT"))
        return failWrite(error);
    seriesIds_.insert(added.begin(), added.end());
    return true;
}

bool HistoryDb::failWrite(std::string* error)
{
    *error = "cannot write " + path_ + ": " + describe(writer_);
    if (!sqlite3_get_autocommit(writer_))
        exec(writer_, "ROLLBACK");
    return false;
}

bool HistoryDb::seriesId(const std::string& name, std::unordered_map<std::string, int64_t>* added, int64_t* id)
{
    const auto known = seriesIds_.find(name);
    if (known != seriesIds_.end()) {
        *id = known->second;
        return true;
    }
    const auto fresh = added->find(name);
    if (fresh != added->end()) {
        *id = fresh->second;
        return true;
    }
    Statement insert(writer_, "INSERT INTO series (name) VALUES (?1)");
    if (!insert.bind(1, name).run())
        return false;
    *id = sqlite3_last_insert_rowid(writer_);
    (*added)[name] = *id;
    return true;
}

bool HistoryDb::insertBlocks(const WriteBatch& batch, std::unordered_map<std::string, int64_t>* added)
{
    Statement insert(writer_,
                     "INSERT INTO blocks (series_id, start_ms, part, end_ms, value_count, gap_count, min, max, data)"
                     " VALUES (?1, ?2, (SELECT coalesce(max(part) + 1, 0) FROM blocks"
                     " WHERE series_id = ?1 AND start_ms = ?2), ?3, ?4, ?5, ?6, ?7, ?8)");
    for (const auto& block : batch.blocks) {
        int64_t id = 0;
        if (!seriesId(block->series, added, &id))
            return false;
        insert.bind(1, id).bind(2, block->startMs).bind(3, block->endMs).bind(4, int64_t{block->values});
        insert.bind(5, int64_t{block->gaps}).bind(6, block->min).bind(7, block->max).bindBlob(8, block->data);
        if (!insert.run())
            return false;
    }
    return true;
}

bool HistoryDb::insertJournal(const std::vector<JournalEntry>& entries)
{
    // OR IGNORE: a batch tried again after a commit that failed late must
    // not fail on its own first attempt.
    Statement insert(writer_,
                     "INSERT OR IGNORE INTO journal (id, at_ms, kind, who, subject, value, outcome, ok)"
                     " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
    for (const JournalEntry& entry : entries) {
        insert.bind(1, entry.id).bind(2, entry.atMs).bind(3, entry.kind).bind(4, entry.who);
        insert.bind(5, entry.subject).bind(6, entry.value).bind(7, entry.outcome).bind(8, int64_t{entry.ok});
        if (!insert.run())
            return false;
    }
    return true;
}

bool HistoryDb::insertAlarms(const std::vector<AlarmEvent>& events)
{
    Statement insert(writer_,
                     "INSERT OR IGNORE INTO alarm_events (id, at_ms, alarm_id, event, text, class, by)"
                     " VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    for (const AlarmEvent& event : events) {
        insert.bind(1, event.id).bind(2, event.atMs).bind(3, event.alarmId).bind(4, event.event);
        insert.bind(5, event.text).bind(6, event.alarmClass).bind(7, event.by);
        if (!insert.run())
            return false;
    }
    return true;
}

bool HistoryDb::deleteBefore(int64_t cutoffMs, std::string* error)
{
    if (!exec(writer_, "BEGIN IMMEDIATE"))
        return failWrite(error);
    // Per series, so that each delete walks the front of its own index
    // range instead of the whole table.
    Statement blocks(writer_, "DELETE FROM blocks WHERE series_id = ?1 AND start_ms < ?2 AND end_ms < ?2");
    for (const auto& series : seriesIds_)
        if (!blocks.bind(1, series.second).bind(2, cutoffMs).run())
            return failWrite(error);
    Statement journal(writer_, "DELETE FROM journal WHERE at_ms < ?1");
    Statement alarms(writer_, "DELETE FROM alarm_events WHERE at_ms < ?1");
    if (!journal.bind(1, cutoffMs).run() || !alarms.bind(1, cutoffMs).run() || !exec(writer_, "COMMIT"))
        return failWrite(error);
    return true;
}

void HistoryDb::forEachBlock(const std::string& series, int64_t fromMs, int64_t toMs,
                             const std::function<void(const SampleBlock&)>& visit) const
{
    const std::lock_guard<std::mutex> lock(readerMutex_);
    if (!reader_)
        return;
    // A block lies within one minute, so its start bounds the index range
    // from both sides.
    Statement select(reader_,
                     "SELECT start_ms, end_ms, value_count, gap_count, min, max, data FROM blocks"
                     " WHERE series_id = (SELECT id FROM series WHERE name = ?1)"
                     " AND start_ms > ?2 AND start_ms < ?3 AND end_ms >= ?4 ORDER BY start_ms");
    const int64_t earliestStart = fromMs < std::numeric_limits<int64_t>::min() + kBlockSpanMs
                                      ? std::numeric_limits<int64_t>::min()
                                      : fromMs - kBlockSpanMs;
    select.bind(1, series).bind(2, earliestStart).bind(3, toMs).bind(4, fromMs);
    SampleBlock block;
    block.series = series;
    while (select.step() == SQLITE_ROW) {
        block.startMs = select.integer(0);
        block.endMs = select.integer(1);
        block.values = static_cast<uint32_t>(select.integer(2));
        block.gaps = static_cast<uint32_t>(select.integer(3));
        block.min = select.integer(4);
        block.max = select.integer(5);
        block.data = select.text(6);
        visit(block);
    }
}

std::vector<JournalEntry> HistoryDb::journal(int64_t sinceMs, size_t limit, bool newest) const
{
    const std::lock_guard<std::mutex> lock(readerMutex_);
    return rowsSince<JournalEntry>(reader_, "id, at_ms, kind, who, subject, value, outcome, ok FROM journal", sinceMs,
                                   limit, newest, [](const Statement& row, JournalEntry* entry) {
                                       entry->kind = row.text(2);
                                       entry->who = row.text(3);
                                       entry->subject = row.text(4);
                                       entry->value = row.text(5);
                                       entry->outcome = row.text(6);
                                       entry->ok = row.integer(7) != 0;
                                   });
}

std::vector<AlarmEvent> HistoryDb::alarmEvents(int64_t sinceMs, size_t limit, bool newest) const
{
    const std::lock_guard<std::mutex> lock(readerMutex_);
    return rowsSince<AlarmEvent>(reader_, "id, at_ms, alarm_id, event, text, class, by FROM alarm_events", sinceMs,
                                 limit, newest, [](const Statement& row, AlarmEvent* event) {
                                     event->alarmId = row.text(2);
                                     event->event = row.text(3);
                                     event->text = row.text(4);
                                     event->alarmClass = row.text(5);
                                     event->by = row.text(6);
                                 });
}

uint64_t HistoryDb::fileBytes() const
{
    return path_.empty() ? 0 : sizeOf(path_) + sizeOf(path_ + "-wal");
}

}  // namespace logohost
