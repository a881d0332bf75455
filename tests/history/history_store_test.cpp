// The store as the panel uses it: what goes in comes back, after a restart
// too; buckets keep spikes and gaps at every zoom; old data goes as time
// passes; a directory it cannot have fails open with the reason.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <memory>
#include <tuple>
#include <vector>

#include "history_test_support.h"
#include "host/history/sample_block.h"

namespace {

using namespace logohost;
using namespace history_test;

constexpr int64_t kMinute = 60 * 1000;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kPeriod = 100;
constexpr int kTrendSamples = 6000;
constexpr int kSpikeSample = 2403;
constexpr int64_t kSpikeMs = kT0 + kSpikeSample * kPeriod;
constexpr int64_t kSpike = 30000;
constexpr int64_t kGapFrom = kT0 + 6 * kMinute, kGapTo = kT0 + 7 * kMinute;

// Ten minutes of a slow ramp with one spike sample and a minute without reads.
std::vector<BlockEntry> trendData()
{
    std::vector<BlockEntry> data;
    for (int i = 0; i < kTrendSamples; ++i) {
        const int64_t atMs = kT0 + i * kPeriod;
        const bool gap = atMs >= kGapFrom && atMs < kGapTo;
        data.push_back(BlockEntry{atMs, gap, gap ? 0 : (i == kSpikeSample ? kSpike : i / 50)});
    }
    return data;
}

// The answer worked out the slow way, from every sample.
std::vector<TrendBucket> slowTrend(const std::vector<BlockEntry>& data, int64_t fromMs, int64_t toMs, int points)
{
    std::vector<TrendBucket> buckets;
    if (toMs <= fromMs || points <= 0)
        return buckets;
    const int64_t width = (toMs - fromMs + points - 1) / points;
    for (int64_t start = fromMs; start < toMs; start += width) {
        TrendBucket bucket{start, std::min(start + width, toMs), true, INT64_MAX, INT64_MIN};
        bool seen = false;
        for (const BlockEntry& sample : data) {
            if (sample.atMs < bucket.fromMs || sample.atMs >= bucket.toMs)
                continue;
            seen = true;
            if (!sample.gap) {
                bucket.gap = false;
                bucket.min = std::min(bucket.min, sample.raw);
                bucket.max = std::max(bucket.max, sample.raw);
            }
        }
        if (bucket.gap)
            bucket.min = bucket.max = 0;
        if (seen)
            buckets.push_back(bucket);
    }
    return buckets;
}

auto fields(const TrendBucket& b) { return std::make_tuple(b.fromMs, b.toMs, b.gap, b.min, b.max); }
auto fields(const JournalEntry& e) { return std::make_tuple(e.atMs, e.kind, e.who, e.subject, e.value, e.outcome, e.ok); }
auto fields(const AlarmEvent& e) { return std::make_tuple(e.atMs, e.alarmId, e.event, e.text, e.alarmClass, e.by); }

TEST(HistoryStore, BucketsKeepSpikesAndGapsAtEveryZoomFromMemoryAndFromTheFile)
{
    const struct {
        const char* name;
        int64_t fromMs, toMs;
        int points;
        int buckets;  // -1: whatever the slow way finds
    } rows[] = {
        {"the ten minutes, a bucket a second", kT0, kT0 + 10 * kMinute, 600, 600},
        {"one point", kT0, kT0 + 10 * kMinute, 1, 1},
        {"seven uneven buckets", kT0, kT0 + 10 * kMinute, 7, 7},
        {"starting inside a block", kT0 + 90050, kT0 + 150050, 13, 13},
        {"a day around the data", kT0 - 12 * kHour, kT0 + 12 * kHour, 600, -1},
        {"a month around the data", kT0 - 360 * kHour, kT0 + 360 * kHour, 600, 1},
        {"finer than the sampling at the spike", kSpikeMs - 1000, kSpikeMs + 1000, 400, 20},
        {"only the minute without reads", kGapFrom, kGapTo, 60, 60},
        {"before the data", kT0 - kHour, kT0, 100, 0},
        {"after the data", kT0 + 10 * kMinute, kT0 + kHour, 100, 0},
        {"an empty range", kT0 + 1000, kT0 + 1000, 10, 0},
        {"a reversed range", kT0 + 2000, kT0 + 1000, 10, 0},
        {"no points", kT0, kT0 + 10 * kMinute, 0, 0},
    };
    const std::vector<BlockEntry> data = trendData();
    TempDir dir;
    Clock clock;
    for (const char* where : {"memory only", "written", "after a restart"}) {
        SCOPED_TRACE(where);
        auto store = std::make_unique<HistoryStore>(settingsFor(dir.path(), &clock));
        const bool fromFile = where != std::string("memory only");
        if (fromFile) {
            ASSERT_TRUE(store->open(nullptr));
        }
        if (where != std::string("after a restart"))
            for (const BlockEntry& sample : data)
                sample.gap ? store->addGap("AI1", sample.atMs) : store->addSample("AI1", sample.atMs, sample.raw);
        if (fromFile)
            store->flush();
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            const std::vector<TrendBucket> got = store->trend("AI1", row.fromMs, row.toMs, row.points);
            const std::vector<TrendBucket> want = slowTrend(data, row.fromMs, row.toMs, row.points);
            ASSERT_EQ(got.size(), want.size());
            if (row.buckets >= 0) {
                EXPECT_EQ(got.size(), static_cast<size_t>(row.buckets));
            }
            for (size_t i = 0; i < got.size(); ++i) {
                EXPECT_EQ(fields(got[i]), fields(want[i])) << "bucket " << i;
                if (got[i].fromMs <= kSpikeMs && kSpikeMs < got[i].toMs) {
                    EXPECT_EQ(got[i].max, kSpike);
                }
            }
        }
        EXPECT_TRUE(store->trend("AI2", kT0, kT0 + kHour, 10).empty());
    }
}

TEST(HistoryStore, WhatWasAddedComesBackAfterARestart)
{
    const struct {
        const char* series;
        std::vector<int64_t> values;
    } rows[] = {
        {"Q1", {0, 1, 1, 0}},
        {"VW10@2", {-32768, 32767, 0, -1}},
        {"tank:VD4", {INT32_MIN, INT32_MAX, 0, 123456789}},
    };
    constexpr int kSamples = 20, kGapAt = 10;
    const JournalEntry refused{0, kT0 + 9, "write", "mqtt", "Q1", "1", "refused: read-only panel", false};
    const JournalEntry written{0, kT0 + 5, "write", "10.0.0.7", "VW10", "-5", "written", true};
    const AlarmEvent raised{0, kT0 + 7, "tank-high", "raised", "Tank above 90 %", "warning", ""};
    const AlarmEvent acknowledged{0, kT0 + 8, "tank-high", "acknowledged", "Tank above 90 %", "warning", "10.0.0.7"};
    TempDir dir;
    Clock clock;
    {
        HistoryStore store(settingsFor(dir.path(), &clock));
        ASSERT_TRUE(store.open(nullptr));
        for (const auto& row : rows)
            for (int i = 0; i < kSamples; ++i)
                i == kGapAt ? store.addGap(row.series, kT0 + i * kPeriod)
                            : store.addSample(row.series, kT0 + i * kPeriod, row.values[i % row.values.size()]);
        store.addJournal(refused);  // added first, listed second: the list goes by time
        store.addJournal(written);
        store.addAlarmEvent(acknowledged);
        store.addAlarmEvent(raised);
    }  // no flush: closing writes what is pending
    HistoryStore store(settingsFor(dir.path(), &clock));
    ASSERT_TRUE(store.open(nullptr));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.series);
        const int64_t toMs = kT0 + kSamples * kPeriod;
        const std::vector<TrendBucket> got = store.trend(row.series, kT0, toMs, exactPoints(kT0, toMs, kPeriod));
        ASSERT_EQ(got.size(), static_cast<size_t>(kSamples));
        for (int i = 0; i < kSamples; ++i) {
            EXPECT_EQ(got[i].gap, i == kGapAt);
            EXPECT_EQ(got[i].max, i == kGapAt ? 0 : row.values[i % row.values.size()]);
        }
    }
    const std::vector<JournalEntry> journal = store.journal(0, 10);
    ASSERT_EQ(journal.size(), 2u);
    EXPECT_EQ(fields(journal[0]), fields(written));
    EXPECT_EQ(fields(journal[1]), fields(refused));
    EXPECT_EQ(store.journal(kT0 + 9, 10).size(), 1u);
    EXPECT_EQ(fields(store.journal(0, 1).at(0)), fields(written));
    const std::vector<AlarmEvent> alarms = store.alarmEvents(0, 10);
    ASSERT_EQ(alarms.size(), 2u);
    EXPECT_EQ(fields(alarms[0]), fields(raised));
    EXPECT_EQ(fields(alarms[1]), fields(acknowledged));
    clock.nowMs = kT0 + kHour;
    store.addJournal(JournalEntry{});
    const std::vector<JournalEntry> after = store.journal(0, 10);
    ASSERT_EQ(after.size(), 3u);
    EXPECT_GT(after[2].id, std::max(journal[0].id, journal[1].id));
    EXPECT_EQ(after[2].atMs, clock.nowMs.load());
}

TEST(HistoryStore, OldDataGoesAsTimePasses)
{
    constexpr int64_t kStep = 10 * 1000;
    TempDir dir;
    Clock clock;
    HistorySettings settings = settingsFor(dir.path(), &clock);
    settings.keep = std::chrono::hours(1);
    HistoryStore store(settings);
    ASSERT_TRUE(store.open(nullptr));
    clock.nowMs = kT0 + 3 * kHour;
    for (int64_t atMs = kT0; atMs < kT0 + 3 * kHour; atMs += kStep)
        store.addSample("AI1", atMs, 1);
    store.addJournal(JournalEntry{0, kT0 + kHour / 2, "write", "", "VW0", "1", "written", true});
    store.addJournal(JournalEntry{0, kT0 + 5 * kHour / 2, "write", "", "VW0", "2", "written", true});
    for (const int64_t cutoff : {kT0 + 2 * kHour, kT0 + 3 * kHour}) {
        SCOPED_TRACE(cutoff - kT0);
        clock.nowMs = cutoff + kHour;
        store.flush();  // nothing new the second time: the clock alone moves
        const std::vector<TrendBucket> minutes = store.trend("AI1", kT0, kT0 + 3 * kHour, 180);
        const int64_t kept = (kT0 + 3 * kHour - cutoff) / kMinute;
        // The block that holds the cutoff stays whole.
        EXPECT_GE(minutes.size(), static_cast<size_t>(kept));
        EXPECT_LE(minutes.size(), static_cast<size_t>(kept + 1));
        EXPECT_EQ(store.journal(0, 10).size(), cutoff < kT0 + 5 * kHour / 2 ? 1u : 0u);
    }
}

TEST(HistoryStore, ADirectoryItCannotHaveFailsOpenAndTheStoreKeepsToMemory)
{
    TempDir dir;
    const std::string file = dir.path() + "/plain";
    std::ofstream(file) << "not a directory\n";
    const struct {
        std::string directory;
        std::string reason;
    } rows[] = {
        {file + "/history", "cannot create " + file + "/history: Not a directory"},
        {"", "no data directory given"},
    };
    constexpr size_t kLimit = 100;
    constexpr int kSamples = 300;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason);
        Clock clock;
        HistoryStore store(settingsFor(row.directory, &clock, kLimit));
        std::string error;
        EXPECT_FALSE(store.open(&error));
        EXPECT_EQ(error, row.reason);
        for (int i = 0; i < kSamples; ++i)
            store.addSample("AI1", kT0 + i * 2000, i);
        store.addJournal(JournalEntry{0, kT0, "write", "", "VW0", "1", "written", true});
        store.flush();  // nothing to wait for
        const HistoryHealth health = store.health();
        EXPECT_FALSE(health.writing);
        EXPECT_EQ(health.problem, row.reason);
        EXPECT_EQ(health.problemSinceMs, kT0);
        EXPECT_EQ(health.pending + health.samplesDropped, static_cast<uint64_t>(kSamples));
        EXPECT_LE(health.pending, kLimit);
        EXPECT_EQ(store.trend("AI1", kT0, kT0 + kSamples * 2000, 1).at(0).max, kSamples - 1);
        EXPECT_EQ(store.journal(0, 10).size(), 1u);
    }
}

TEST(HistoryStore, ASecondStoreOnTheSameDirectoryIsKeptOut)
{
    TempDir dir;
    Clock clock;
    auto first = std::make_unique<HistoryStore>(settingsFor(dir.path(), &clock));
    ASSERT_TRUE(first->open(nullptr));
    HistoryStore second(settingsFor(dir.path(), &clock));
    std::string error;
    EXPECT_FALSE(second.open(&error));
    EXPECT_EQ(error, dir.path() + " is in use by another logohost (pid " + std::to_string(getpid()) + ")");
    first.reset();
    HistoryStore third(settingsFor(dir.path(), &clock));
    EXPECT_TRUE(third.open(&error)) << error;
}

TEST(HistoryStore, DefaultDirectoryFollowsXdgThenHome)
{
    const struct {
        const char* state;  // null: unset
        const char* expected;
    } rows[] = {
        {"/var/state", "/var/state/logohost"},
        {nullptr, "/home/op/.local/state/logohost"},
        {"", "/home/op/.local/state/logohost"},
        {"relative/state", "/home/op/.local/state/logohost"},
    };
    const std::string home = getenv("HOME") ? getenv("HOME") : "";
    const char* savedState = getenv("XDG_STATE_HOME");
    const std::string state = savedState ? savedState : "";
    setenv("HOME", "/home/op", 1);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.state ? row.state : "(unset)");
        row.state ? setenv("XDG_STATE_HOME", row.state, 1) : unsetenv("XDG_STATE_HOME");
        EXPECT_EQ(defaultHistoryDirectory(), row.expected);
    }
    setenv("HOME", home.c_str(), 1);
    savedState ? setenv("XDG_STATE_HOME", state.c_str(), 1) : unsetenv("XDG_STATE_HOME");
}

}  // namespace
