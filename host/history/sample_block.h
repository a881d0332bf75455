// One series' entries within one minute, delta-encoded, with the summary a
// trend query uses to skip decoding a block that falls inside one bucket.
//
// Why blocks and not a row per sample: a variable read 10 times a second
// mostly repeats or moves by a few counts, and a row costs some 30 bytes
// before its value. In a block, a run of equal steps (a bit that stays put,
// a counter that climbs evenly) costs a few bytes however long it is, and
// noise of a few counts at the usual period costs half a byte an entry:
// such steps are packed two to a byte. Blocks end at each whole minute, so
// their min and max are the per-minute roll-up a day or a week of trend is
// answered from; only blocks that straddle a bucket edge are decoded.
#ifndef LOGOHOST_SAMPLE_BLOCK_H
#define LOGOHOST_SAMPLE_BLOCK_H

#include <cstdint>
#include <string>

namespace logohost {

constexpr int64_t kBlockSpanMs = 60 * 1000;
// Bounds a block's size for a caller that samples far faster than a
// controller can be read.
constexpr uint32_t kMaxBlockEntries = 4096;
// Raw values are the controller's, 32 bits at most; anything beyond this is
// stored saturated, which keeps every step inside the encoding.
constexpr int64_t kMaxRaw = int64_t{1} << 57;

struct BlockEntry {
    int64_t atMs = 0;
    bool gap = false;  // a failed read; raw then repeats the last value
    int64_t raw = 0;
};

struct SampleBlock {
    std::string series;
    int64_t startMs = 0, endMs = 0;  // first and last entry, both inclusive
    uint32_t values = 0, gaps = 0;
    int64_t min = 0, max = 0;        // of the values, when values > 0
    std::string data;                // the entries, encoded

    uint32_t entries() const { return values + gaps; }
};

class BlockEncoder {
public:
    BlockEncoder(std::string series, int64_t startMs);

    // False when the entry belongs in a new block: another minute, earlier
    // than the last entry, or this one is full.
    bool fits(int64_t atMs) const;
    void add(int64_t atMs, bool gap, int64_t raw);
    uint32_t entries() const { return block_.entries(); }
    const std::string& series() const { return block_.series; }
    int64_t startMs() const { return block_.startMs; }
    int64_t endMs() const { return block_.endMs; }

    // The block as it stands, the run in progress included.
    SampleBlock snapshot() const;

private:
    // Entries with the same kind, time step and value step, not yet encoded.
    struct Run {
        bool gap = false;
        int64_t stepMs = 0;
        int64_t delta = 0;
        uint32_t count = 0;
    };
    // What the ops so far leave behind: their bytes, the time step the
    // reader is then at, and small steps waiting to be packed.
    struct Ops {
        std::string data;
        int64_t stepMs = 0;
        std::string pack;  // one zigzagged step a char
    };

    SampleBlock block_;  // the summary; the data is in ops_ until a snapshot
    Run run_;
    Ops ops_;
    int64_t lastRaw_ = 0;

    static void emit(const Run& run, Ops* ops);
    static void writeRun(const Run& run, Ops* ops);
    static void flushPack(Ops* ops);
};

// Reads a block's entries back, oldest first.
class BlockReader {
public:
    explicit BlockReader(const SampleBlock& block) : block_(block), atMs_(block.startMs) {}

    // False at the end, or where the data turns out damaged.
    bool next(BlockEntry* entry);
    bool damaged() const { return damaged_; }

private:
    const SampleBlock& block_;
    size_t position_ = 0;
    uint32_t read_ = 0;
    uint32_t runLeft_ = 0;
    int kind_ = 0;
    bool highNibble_ = false;  // within a packed op, the next step is in the high half of this byte
    uint8_t packByte_ = 0;
    uint64_t stepMs_ = 0, delta_ = 0;  // unsigned: damaged data wraps instead of overflowing
    int64_t atMs_;
    uint64_t raw_ = 0;
    bool damaged_ = false;

    bool readOp();
    bool readPackedStep();
    bool readVarint(uint64_t* value);
};

}  // namespace logohost

#endif  // LOGOHOST_SAMPLE_BLOCK_H
