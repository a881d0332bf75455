// Samples from the communication thread while HTTP threads query, for
// ThreadSanitizer to watch; and no query ever sees data go backwards while
// the writer moves it from memory to the file.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "history_test_support.h"
#include "host/history/sample_block.h"

namespace {

using namespace logohost;
using namespace history_test;

TEST(HistoryConcurrency, QueriesWhileSamplesArriveAndTheWriterWrites)
{
    constexpr int kSamples = 20000;
    constexpr int kFlushEvery = 250;
    constexpr int64_t kStepMs = 1000;  // a block every 60 samples
    constexpr int kMaxQueries = 100000;
    TempDir dir;
    Clock clock;
    HistoryStore store(settingsFor(dir.path(), &clock));
    ASSERT_TRUE(store.open(nullptr));
    std::atomic<bool> done{false};
    std::atomic<bool> querying{false};

    std::thread communication([&] {
        while (!querying)
            std::this_thread::yield();
        for (int i = 0; i < kSamples; ++i) {
            store.addSample("AI1", kT0 + i * kStepMs, i);
            if (i % 97 == 0)
                store.addGap("Q1", kT0 + i * kStepMs);
            if (i % kFlushEvery == 0) {
                store.addJournal(JournalEntry{0, kT0 + i, "write", "", "VW0", std::to_string(i), "written", true});
                store.flush();
            }
        }
        done = true;
    });
    // A bucket a block: one missed while the writer moves it to the file
    // would show as a minute that vanishes.
    const int minutes = static_cast<int>(kSamples * kStepMs / kBlockSpanMs);
    size_t minutesSeen = 0, journalSeen = 0;
    for (int query = 0; query < kMaxQueries && !done; ++query) {
        querying = true;
        const size_t seen = store.trend("AI1", kT0, kT0 + kSamples * kStepMs, minutes).size();
        EXPECT_GE(seen, minutesSeen) << "query " << query;
        minutesSeen = seen;
        const size_t journal = store.journal(0, kSamples).size();
        EXPECT_GE(journal, journalSeen);
        journalSeen = journal;
        store.health();
    }
    communication.join();
    store.flush();
    const HistoryHealth health = store.health();
    EXPECT_EQ(health.samplesStored, static_cast<uint64_t>(kSamples + (kSamples + 96) / 97));
    EXPECT_EQ(health.samplesDropped, 0u);
    EXPECT_EQ(store.trend("AI1", kT0, kT0 + kSamples * kStepMs, 1).at(0).max, kSamples - 1);
}

}  // namespace
