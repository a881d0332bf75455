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

#include "common/logo_map.h"

namespace logosim {

using logomap::Area;
using logomap::areaName;
using logomap::areaSize;
using logomap::inArea;
using logomap::isBitArea;
using logomap::kAnalogFlagCount;
using logomap::kAnalogInputCount;
using logomap::kAnalogOutputCount;
using logomap::kAreaCount;
using logomap::kFlagCount;
using logomap::kInputCount;
using logomap::kOutputCount;
using logomap::kVBitCount;
using logomap::kVByteCount;
using logomap::kVWordCount;

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
    std::array<uint8_t, kVByteCount> vBytes_{};
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
