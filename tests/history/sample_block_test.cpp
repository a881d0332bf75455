// Blocks give back exactly the entries put in, stay small for the shapes a
// controller's values take, and damaged data ends a read instead of a run.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

#include "history_test_support.h"
#include "host/history/sample_block.h"

namespace {

using namespace logohost;
using history_test::kT0;

std::vector<BlockEntry> series(int count, int64_t (*raw)(int), bool (*gap)(int) = nullptr,
                               int64_t (*stepMs)(int) = nullptr)
{
    std::vector<BlockEntry> entries;
    int64_t atMs = kT0;
    for (int i = 0; i < count; ++i) {
        atMs += i == 0 ? 0 : (stepMs ? stepMs(i) : 100);
        const bool isGap = gap && gap(i);
        entries.push_back(BlockEntry{atMs, isGap, isGap ? 0 : raw(i)});
    }
    return entries;
}

SampleBlock encode(const std::vector<BlockEntry>& entries)
{
    BlockEncoder encoder("AI1", entries.front().atMs);
    for (const BlockEntry& entry : entries) {
        EXPECT_TRUE(encoder.fits(entry.atMs));
        encoder.add(entry.atMs, entry.gap, entry.raw);
    }
    return encoder.snapshot();
}

std::vector<BlockEntry> decode(const SampleBlock& block)
{
    std::vector<BlockEntry> entries;
    BlockReader reader(block);
    BlockEntry entry;
    while (reader.next(&entry))
        entries.push_back(entry);
    EXPECT_FALSE(reader.damaged());
    return entries;
}

TEST(SampleBlock, GivesBackWhatWasPutInAndStaysSmall)
{
    const struct {
        const char* name;
        std::vector<BlockEntry> entries;
        size_t maxBytes;
    } rows[] = {
        {"a bit that stays put", series(600, [](int) -> int64_t { return 1; }), 6},
        {"a counter climbing evenly", series(600, [](int i) -> int64_t { return 1000 + 7 * i; }), 10},
        {"a slow ramp", series(600, [](int i) -> int64_t { return i / 20; }), 30 * 4},
        {"noise of a few counts",
         series(600, [](int i) -> int64_t { return 500 + (uint32_t(i) * 2654435761u >> 13) % 7 - 3; }), 600 / 2 + 20},
        {"32-bit extremes", series(8, [](int i) -> int64_t { return i % 2 ? INT32_MAX : INT32_MIN; }), 8 * 7},
        {"gaps amid values at uneven times",
         series(50, [](int i) -> int64_t { return -i * i; }, [](int i) { return i % 7 < 3; },
                [](int i) -> int64_t { return 90 + i % 4 * 10; }),
         50 * 6},
        {"several entries at the same time", series(5, [](int i) -> int64_t { return i; }, nullptr,
                                                    [](int) -> int64_t { return 0; }),
         10},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const SampleBlock block = encode(row.entries);
        EXPECT_LE(block.data.size(), row.maxBytes);
        const std::vector<BlockEntry> back = decode(block);
        ASSERT_EQ(back.size(), row.entries.size());
        int64_t min = INT64_MAX, max = INT64_MIN;
        for (size_t i = 0; i < back.size(); ++i) {
            EXPECT_EQ(back[i].atMs, row.entries[i].atMs) << i;
            EXPECT_EQ(back[i].gap, row.entries[i].gap) << i;
            if (!row.entries[i].gap) {
                EXPECT_EQ(back[i].raw, row.entries[i].raw) << i;
                min = std::min(min, row.entries[i].raw);
                max = std::max(max, row.entries[i].raw);
            }
        }
        EXPECT_EQ(block.min, min);
        EXPECT_EQ(block.max, max);
        EXPECT_EQ(block.startMs, row.entries.front().atMs);
        EXPECT_EQ(block.endMs, row.entries.back().atMs);
    }
}

TEST(SampleBlock, ValuesBeyondTheEncodingAreSaturated)
{
    const SampleBlock block = encode({{kT0, false, INT64_MAX}, {kT0 + 1, false, INT64_MIN}, {kT0 + 2, false, 0}});
    const std::vector<BlockEntry> back = decode(block);
    ASSERT_EQ(back.size(), 3u);
    EXPECT_EQ(back[0].raw, kMaxRaw);
    EXPECT_EQ(back[1].raw, -kMaxRaw);
    EXPECT_EQ(back[2].raw, 0);
}

TEST(SampleBlock, EndsAtTheMinuteAtAnEarlierTimeAndWhenFull)
{
    BlockEncoder encoder("AI1", kT0 + 30000);
    encoder.add(kT0 + 30000, false, 1);
    EXPECT_TRUE(encoder.fits(kT0 + 59999));
    EXPECT_FALSE(encoder.fits(kT0 + 60000));
    EXPECT_FALSE(encoder.fits(kT0 + 29999));
    for (uint32_t i = 1; i < kMaxBlockEntries; ++i)
        encoder.add(kT0 + 30000, false, 1);
    EXPECT_FALSE(encoder.fits(kT0 + 30000));
}

TEST(SampleBlock, DamagedDataEndsTheReadWithinTheBlock)
{
    SampleBlock good = encode(series(200, [](int i) -> int64_t { return (i * 7919) % 2001 - 1000; }, [](int i) {
        return i % 50 == 0;
    }));
    for (size_t cut = 0; cut < good.data.size(); cut += 7) {
        for (const uint8_t flip : {0x00, 0x80, 0xff}) {
            SampleBlock damaged = good;
            damaged.data.resize(cut);
            if (flip != 0x00 && cut > 0)
                damaged.data.back() = static_cast<char>(damaged.data.back() ^ flip);
            BlockReader reader(damaged);
            BlockEntry entry;
            uint32_t read = 0;
            while (reader.next(&entry)) {
                ++read;
                EXPECT_GE(entry.atMs, good.startMs);
                EXPECT_LE(entry.atMs, good.endMs);
            }
            EXPECT_LE(read, good.entries());
            if (flip == 0x00) {
                EXPECT_TRUE(reader.damaged()) << "cut at " << cut;
            }
        }
    }
}

}  // namespace
