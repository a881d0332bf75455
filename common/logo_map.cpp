#include "common/logo_map.h"

namespace logomap {
namespace {

struct Region {
    Area area;
    Table table;
    int first;  // Modbus address of the area's first element
    int count;
};

constexpr int kOutputsCoilBase = 8192;
constexpr int kFlagsCoilBase = 8256;
constexpr int kAnalogOutputsRegisterBase = 512;
constexpr int kAnalogFlagsRegisterBase = 528;

// In area order, so that an area's number indexes its region.
constexpr Region kRegions[kAreaCount] = {
    {Area::I, Table::DiscreteInput, 0, kInputCount},
    {Area::Q, Table::Coil, kOutputsCoilBase, kOutputCount},
    {Area::M, Table::Coil, kFlagsCoilBase, kFlagCount},
    {Area::VBit, Table::Coil, 0, kVBitCount},
    {Area::AI, Table::InputRegister, 0, kAnalogInputCount},
    {Area::AQ, Table::HoldingRegister, kAnalogOutputsRegisterBase, kAnalogOutputCount},
    {Area::AM, Table::HoldingRegister, kAnalogFlagsRegisterBase, kAnalogFlagCount},
    {Area::VW, Table::HoldingRegister, 0, kVWordCount},
};

const Region& regionOf(Area area) { return kRegions[static_cast<int>(area) % kAreaCount]; }

}  // namespace

bool isBitArea(Area area) { return static_cast<int>(area) <= static_cast<int>(Area::VBit); }

bool isWritableArea(Area area) { return area != Area::I && area != Area::AI; }

int areaSize(Area area) { return static_cast<int>(area) < kAreaCount ? regionOf(area).count : 0; }

bool inArea(Area area, long long index, long long count)
{
    return index >= 0 && count >= 0 && index + count <= areaSize(area);
}

const char* areaName(Area area)
{
    static const char* const kNames[kAreaCount] = {"I", "Q", "M", "V", "AI", "AQ", "AM", "VW"};
    const int n = static_cast<int>(area);
    return n < kAreaCount ? kNames[n] : "?";
}

Table tableOf(Area area) { return regionOf(area).table; }

int firstAddress(Area area) { return regionOf(area).first; }

bool locate(Table table, int address, int count, Location* out)
{
    for (const Region& region : kRegions) {
        if (region.table != table || address < region.first || address >= region.first + region.count)
            continue;
        if (count < 0 || address + count > region.first + region.count)
            return false;  // the range crosses the end of the area
        *out = Location{region.area, address - region.first};
        return true;
    }
    return false;
}

}  // namespace logomap
