// A disk that stops taking writes: nothing blocks or crashes, health says
// why and since when, queries still see what waits in memory, drops beyond
// the buffer are counted, and everything held is written once the disk
// takes writes again. The faults come from a VFS shim (failing_vfs.h).
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>

#include "failing_vfs.h"
#include "history_test_support.h"

namespace {

using namespace logohost;
using namespace history_test;

constexpr int64_t kStepMs = 1000;  // 60 samples to a block

class WriteFailure : public ::testing::Test {
protected:
    void SetUp() override { failing_vfs::install(); }
    void TearDown() override { failing_vfs::failWrites(SQLITE_OK); }

    void add(HistoryStore* store, int count)
    {
        for (int i = 0; i < count; ++i, ++added_)
            store->addSample("AI1", kT0 + added_ * kStepMs, added_);
    }
    // One bucket per sample over everything added so far.
    std::vector<TrendBucket> everything(const HistoryStore& store) const
    {
        const int64_t toMs = kT0 + added_ * kStepMs;
        return store.trend("AI1", kT0, toMs, exactPoints(kT0, toMs, kStepMs));
    }

    TempDir dir_;
    Clock clock_;
    int added_ = 0;
};

TEST_F(WriteFailure, HealthNamesTheFaultAndRecoversWithNothingLost)
{
    constexpr int64_t kNoBudget = -1;
    const struct {
        int code;
        int64_t budget;  // bytes written before the disk is full, part of a batch
        const char* words;
    } rows[] = {
        {SQLITE_FULL, kNoBudget, "database or disk is full"},
        {SQLITE_OK, 6000, "database or disk is full"},
        {SQLITE_IOERR_WRITE, kNoBudget, "disk I/O error"},
        {SQLITE_READONLY, kNoBudget, "attempt to write a readonly database"},
    };
    const std::string prefix = "cannot write " + dir_.path() + "/logohost.db: ";
    HistoryStore store(settingsFor(dir_.path(), &clock_));
    ASSERT_TRUE(store.open(nullptr));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words);
        add(&store, 100);
        store.flush();
        ASSERT_TRUE(store.health().writing);
        const int64_t failedAt = clock_.nowMs += 1000;
        row.budget == kNoBudget ? failing_vfs::failWrites(row.code) : failing_vfs::setWriteBudget(row.budget);
        add(&store, 150);
        store.addJournal(JournalEntry{0, 0, "write", "10.0.0.7", "VW0", "1", "written", true});
        store.flush();
        clock_.nowMs += 1000;
        store.flush();  // failing again leaves "since" where the trouble began
        HistoryHealth health = store.health();
        EXPECT_FALSE(health.writing);
        EXPECT_EQ(health.problem.substr(0, prefix.size() + std::string(row.words).size()), prefix + row.words);
        EXPECT_EQ(health.problemSinceMs, failedAt);
        EXPECT_GE(health.pending, 150u);
        EXPECT_EQ(everything(store).size(), static_cast<size_t>(added_));
        EXPECT_EQ(store.journal(failedAt, 10).size(), 1u);

        failing_vfs::failWrites(SQLITE_OK);
        store.flush();
        health = store.health();
        EXPECT_TRUE(health.writing);
        EXPECT_EQ(health.problem, "");
        EXPECT_EQ(health.pending, 0u);
        EXPECT_EQ(health.samplesStored, static_cast<uint64_t>(added_));
        EXPECT_EQ(health.samplesDropped, 0u);
    }
    EXPECT_GT(failing_vfs::failedWrites(), 0u);
}

TEST_F(WriteFailure, WhatTheBufferCannotHoldIsCountedAndTheRestIsWritten)
{
    constexpr size_t kLimit = 300;
    constexpr size_t kBlock = 60;  // the buffer gives up whole blocks
    uint64_t stored = 0;
    {
        HistoryStore store(settingsFor(dir_.path(), &clock_, kLimit));
        ASSERT_TRUE(store.open(nullptr));
        failing_vfs::failWrites(SQLITE_FULL);
        add(&store, 1000);
        store.flush();
        HistoryHealth health = store.health();
        EXPECT_LE(health.pending, kLimit);
        EXPECT_GT(health.pending, kLimit - kBlock);
        EXPECT_EQ(health.pending + health.samplesDropped, 1000u);
        // The oldest go first: the newest sample is still there.
        EXPECT_EQ(store.trend("AI1", kT0, kT0 + added_ * kStepMs, 1).at(0).max, added_ - 1);

        failing_vfs::failWrites(SQLITE_OK);
        store.flush();
        health = store.health();
        EXPECT_TRUE(health.writing);
        EXPECT_EQ(health.samplesStored + health.samplesDropped, 1000u);
        EXPECT_EQ(health.pending, 0u);
        stored = health.samplesStored;
    }
    HistoryStore reopened(settingsFor(dir_.path(), &clock_, kLimit));
    ASSERT_TRUE(reopened.open(nullptr));
    const std::vector<TrendBucket> back = everything(reopened);
    EXPECT_EQ(back.size(), stored);
    EXPECT_EQ(back.back().max, added_ - 1);
}

TEST_F(WriteFailure, AFileLockedByAnotherWriterIsReportedAndThenWritten)
{
    HistoryStore store(settingsFor(dir_.path(), &clock_));
    ASSERT_TRUE(store.open(nullptr));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((dir_.path() + "/logohost.db").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    add(&store, 100);
    store.flush();
    EXPECT_EQ(store.health().problem, "cannot write " + dir_.path() + "/logohost.db: database is locked");
    EXPECT_EQ(everything(store).size(), 100u);
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    store.flush();
    EXPECT_TRUE(store.health().writing);
    EXPECT_EQ(store.health().samplesStored, 100u);
}

}  // namespace
