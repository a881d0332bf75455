// The simulated controller's memory: one block per Modbus unit identifier.
//
// V memory is stored once as bytes, so V bits and VW registers are two views
// of the same storage and a write through one shows in the other.
#ifndef LOGOSIM_MEMORY_H
#define LOGOSIM_MEMORY_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>

namespace logosim {

// The controller's areas, numbered as the driver numbers them in remote-mode
// frames, so a frame's area field converts to this type directly.
enum class Area : uint8_t { I = 0, Q = 1, M = 2, VBit = 3, AI = 4, AQ = 5, AM = 6, VW = 7 };

constexpr int kAreaCount = 8;
constexpr int kInputCount = 24;         // I1..I24
constexpr int kOutputCount = 20;        // Q1..Q20
constexpr int kFlagCount = 64;          // M1..M64
constexpr int kVByteCount = 851;        // VB0..VB850
constexpr int kVBitCount = 8 * kVByteCount;
constexpr int kVWordCount = 426;        // VW0..VW850; the last word's low byte is padding
constexpr int kAnalogInputCount = 8;    // AI1..AI8
constexpr int kAnalogOutputCount = 8;   // AQ1..AQ8
constexpr int kAnalogFlagCount = 64;    // AM1..AM64

bool isBitArea(Area area);
// Number of elements (bits or words) the area holds.
int areaSize(Area area);
// True when the elements [index, index + count) all lie inside the area.
bool inArea(Area area, long long index, long long count);
const char* areaName(Area area);

// One station's memory. Indexes are 0-based element numbers; callers check
// them with inArea first (out-of-range indexes are ignored or read as 0).
class Memory {
public:
    bool bit(Area area, int index) const;
    void setBit(Area area, int index, bool value);
    uint16_t word(Area area, int index) const;
    void setWord(Area area, int index, uint16_t value);

private:
    std::array<uint8_t, kInputCount> inputs_{};
    std::array<uint8_t, kOutputCount> outputs_{};
    std::array<uint8_t, kFlagCount> flags_{};
    std::array<uint8_t, 2 * kVWordCount> vBytes_{};  // one byte more than V memory has
    std::array<uint16_t, kAnalogInputCount> analogInputs_{};
    std::array<uint16_t, kAnalogOutputCount> analogOutputs_{};
    std::array<uint16_t, kAnalogFlagCount> analogFlags_{};

    uint8_t* bitCell(Area area, int index);
    uint16_t* wordCell(Area area, int index);
};

// All stations. A station's memory comes into being, zeroed, on first use.
class MemoryBank {
public:
    Memory& station(uint8_t unitId);
    template <typename Fn>
    void forEachStation(Fn fn)
    {
        for (auto& entry : stations_)
            fn(entry.first, *entry.second);
    }

private:
    std::map<uint8_t, std::unique_ptr<Memory>> stations_;
};

}  // namespace logosim

#endif  // LOGOSIM_MEMORY_H
