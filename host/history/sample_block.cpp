#include "host/history/sample_block.h"

#include <algorithm>
#include <utility>

namespace logohost {
namespace {

// An op's header: its kind in the low bits, then flags, then its number,
// so that the common op is one byte.
constexpr uint64_t kKindMask = 3;
constexpr uint64_t kValues = 0;  // entries of one value step, the step above the flags
constexpr uint64_t kGaps = 1;    // failed reads, count - 1 above the flags
constexpr uint64_t kPacked = 2;  // count - 2 value steps, two to a byte after the header
constexpr uint64_t kStepFlag = 4;  // the time step changes; the change follows
constexpr uint64_t kRunFlag = 8;   // values: count - 2 follows; without it, one entry
constexpr int kCountShift = 3;     // gaps and packed
constexpr int kValueShift = 4;     // values
// A packed step is one nibble, zigzagged.
constexpr int64_t kPackMin = -8, kPackMax = 7;
constexpr int kNibbleBits = 4;
constexpr uint8_t kNibbleMask = 0x0f;
// From five equal steps on, a run op is as short as packing them.
constexpr uint32_t kPackRunMax = 4;
constexpr int kVarintBits = 7;
constexpr uint8_t kVarintMore = 0x80;
constexpr int kMaxVarintBytes = 10;

uint64_t zigzag(int64_t value)
{
    return (static_cast<uint64_t>(value) << 1) ^ static_cast<uint64_t>(value >> 63);
}

uint64_t unzigzag(uint64_t value)
{
    return (value >> 1) ^ (~(value & 1) + 1);
}

void writeVarint(uint64_t value, std::string* out)
{
    while (value >= kVarintMore) {
        out->push_back(static_cast<char>(static_cast<uint8_t>(value) | kVarintMore));
        value >>= kVarintBits;
    }
    out->push_back(static_cast<char>(value));
}

int64_t minuteOf(int64_t atMs)
{
    const int64_t minute = atMs / kBlockSpanMs;
    return atMs % kBlockSpanMs < 0 ? minute - 1 : minute;
}

}  // namespace

BlockEncoder::BlockEncoder(std::string series, int64_t startMs)
{
    block_.series = std::move(series);
    block_.startMs = startMs;
    block_.endMs = startMs;
}

bool BlockEncoder::fits(int64_t atMs) const
{
    return atMs >= block_.endMs && minuteOf(atMs) == minuteOf(block_.startMs) &&
           block_.entries() < kMaxBlockEntries;
}

void BlockEncoder::add(int64_t atMs, bool gap, int64_t raw)
{
    raw = std::clamp(raw, -kMaxRaw, kMaxRaw);
    const int64_t stepMs = atMs - block_.endMs;
    const int64_t delta = gap ? 0 : raw - lastRaw_;
    if (run_.count > 0 && run_.gap == gap && run_.stepMs == stepMs && run_.delta == delta) {
        ++run_.count;
    } else {
        if (run_.count > 0)
            emit(run_, &ops_);
        run_ = Run{gap, stepMs, delta, 1};
    }
    block_.endMs = atMs;
    if (gap) {
        ++block_.gaps;
        return;
    }
    block_.min = block_.values == 0 ? raw : std::min(block_.min, raw);
    block_.max = block_.values == 0 ? raw : std::max(block_.max, raw);
    ++block_.values;
    lastRaw_ = raw;
}

void BlockEncoder::emit(const Run& run, Ops* ops)
{
    const bool packable = !run.gap && run.stepMs == ops->stepMs && run.delta >= kPackMin &&
                          run.delta <= kPackMax && run.count <= kPackRunMax;
    if (packable) {
        ops->pack.append(run.count, static_cast<char>(zigzag(run.delta)));
        return;
    }
    flushPack(ops);
    writeRun(run, ops);
}

void BlockEncoder::writeRun(const Run& run, Ops* ops)
{
    uint64_t header = run.gap ? (uint64_t{run.count} - 1) << kCountShift | kGaps
                              : zigzag(run.delta) << kValueShift | (run.count > 1 ? kRunFlag : 0) | kValues;
    if (run.stepMs != ops->stepMs)
        header |= kStepFlag;
    writeVarint(header, &ops->data);
    if (header & kStepFlag)
        writeVarint(zigzag(run.stepMs - ops->stepMs), &ops->data);
    ops->stepMs = run.stepMs;
    if (!run.gap && run.count > 1)
        writeVarint(run.count - 2, &ops->data);
}

void BlockEncoder::flushPack(Ops* ops)
{
    const std::string pack = std::move(ops->pack);
    ops->pack.clear();
    if (pack.size() == 1)
        writeRun(Run{false, ops->stepMs, static_cast<int64_t>(unzigzag(static_cast<uint8_t>(pack[0]))), 1}, ops);
    if (pack.size() <= 1)
        return;
    writeVarint((uint64_t{pack.size()} - 2) << kCountShift | kPacked, &ops->data);
    for (size_t i = 0; i < pack.size(); i += 2) {
        const uint8_t high = i + 1 < pack.size() ? static_cast<uint8_t>(pack[i + 1]) : 0;
        ops->data.push_back(static_cast<char>(static_cast<uint8_t>(pack[i]) | high << kNibbleBits));
    }
}

SampleBlock BlockEncoder::snapshot() const
{
    SampleBlock block = block_;
    Ops ops = ops_;
    if (run_.count > 0)
        emit(run_, &ops);
    flushPack(&ops);
    block.data = std::move(ops.data);
    return block;
}

bool BlockReader::next(BlockEntry* entry)
{
    if (damaged_ || read_ >= block_.entries())
        return false;
    if ((runLeft_ == 0 && !readOp()) || (kind_ == kPacked && !readPackedStep())) {
        damaged_ = true;
        return false;
    }
    --runLeft_;
    ++read_;
    atMs_ = static_cast<int64_t>(static_cast<uint64_t>(atMs_) + stepMs_);
    if (kind_ != kGaps)
        raw_ += delta_;
    if (atMs_ < block_.startMs || atMs_ > block_.endMs) {
        damaged_ = true;
        return false;
    }
    *entry = BlockEntry{atMs_, kind_ == kGaps, static_cast<int64_t>(raw_)};
    return true;
}

bool BlockReader::readOp()
{
    uint64_t header = 0;
    if (!readVarint(&header) || (header & kKindMask) > kPacked)
        return false;
    kind_ = static_cast<int>(header & kKindMask);
    uint64_t change = 0;
    if ((header & kStepFlag) && !readVarint(&change))
        return false;
    stepMs_ += unzigzag(change);
    const uint32_t left = block_.entries() - read_;
    uint64_t count = 1;
    if (kind_ == kValues) {
        delta_ = unzigzag(header >> kValueShift);
        uint64_t extra = 0;
        if ((header & kRunFlag) && (!readVarint(&extra) || extra > left))
            return false;
        count = (header & kRunFlag) ? extra + 2 : 1;
    } else {
        count = (header >> kCountShift) + (kind_ == kGaps ? 1 : 2);
        highNibble_ = false;
    }
    if (count > left)
        return false;
    runLeft_ = static_cast<uint32_t>(count);
    return true;
}

bool BlockReader::readPackedStep()
{
    if (!highNibble_) {
        if (position_ >= block_.data.size())
            return false;
        packByte_ = static_cast<uint8_t>(block_.data[position_++]);
    }
    const uint8_t nibble = highNibble_ ? packByte_ >> kNibbleBits : packByte_ & kNibbleMask;
    highNibble_ = !highNibble_;
    delta_ = unzigzag(nibble);
    return true;
}

bool BlockReader::readVarint(uint64_t* value)
{
    uint64_t result = 0;
    for (int i = 0; i < kMaxVarintBytes && position_ < block_.data.size(); ++i) {
        const uint8_t byte = static_cast<uint8_t>(block_.data[position_++]);
        result |= static_cast<uint64_t>(byte & ~kVarintMore) << (kVarintBits * i);
        if (!(byte & kVarintMore)) {
            *value = result;
            return true;
        }
    }
    return false;
}

}  // namespace logohost
