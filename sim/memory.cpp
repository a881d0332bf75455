#include "sim/memory.h"

namespace logosim {

uint8_t* Memory::bitCell(Area area, int index)
{
    if (!isBitArea(area) || !inArea(area, index, 1))
        return nullptr;
    switch (area) {
    case Area::I: return &inputs_[index];
    case Area::Q: return &outputs_[index];
    case Area::M: return &flags_[index];
    default: return &vBytes_[index / 8];  // V bits live inside their byte
    }
}

uint16_t* Memory::wordCell(Area area, int index)
{
    if (isBitArea(area) || area == Area::VW || !inArea(area, index, 1))
        return nullptr;
    switch (area) {
    case Area::AI: return &analogInputs_[index];
    case Area::AQ: return &analogOutputs_[index];
    default: return &analogFlags_[index];
    }
}

bool Memory::bit(Area area, int index) const
{
    const uint8_t* cell = const_cast<Memory*>(this)->bitCell(area, index);
    if (cell == nullptr)
        return false;
    return area == Area::VBit ? ((*cell >> (index % 8)) & 1) != 0 : *cell != 0;
}

void Memory::setBit(Area area, int index, bool value)
{
    uint8_t* cell = bitCell(area, index);
    if (cell == nullptr)
        return;
    if (area != Area::VBit) {
        *cell = value ? 1 : 0;
        return;
    }
    const auto mask = static_cast<uint8_t>(1u << (index % 8));
    *cell = static_cast<uint8_t>(value ? (*cell | mask) : (*cell & ~mask));
}

uint16_t Memory::word(Area area, int index) const
{
    if (area == Area::VW) {
        if (!inArea(area, index, 1))
            return 0;
        return static_cast<uint16_t>(vBytes_[2 * index] << 8 | vBytes_[2 * index + 1]);
    }
    const uint16_t* cell = const_cast<Memory*>(this)->wordCell(area, index);
    return cell == nullptr ? 0 : *cell;
}

void Memory::setWord(Area area, int index, uint16_t value)
{
    if (area == Area::VW) {
        if (!inArea(area, index, 1))
            return;
        vBytes_[2 * index] = static_cast<uint8_t>(value >> 8);
        vBytes_[2 * index + 1] = static_cast<uint8_t>(value & 0xFF);
        return;
    }
    if (uint16_t* cell = wordCell(area, index))
        *cell = value;
}

Memory& MemoryBank::station(uint8_t unitId)
{
    std::unique_ptr<Memory>& slot = stations_[unitId];
    if (!slot)
        slot.reset(new Memory());
    return *slot;
}

}  // namespace logosim
