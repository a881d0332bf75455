// The LOGO! controller's memory as Modbus TCP shows it: its eight areas,
// how many elements each holds, and where each sits in the four Modbus
// tables. The simulator serves this map, the host's notation refuses
// variables past its ends, and the host's Modbus server finds the area of
// a client's request with it.
//
// Modbus addresses from 0:
//   discrete inputs    I1..I24 at 0..23
//   coils              V bits at 0..6807 (8 x byte + bit), Q1..Q20 at 8192..8211,
//                      M1..M64 at 8256..8319
//   input registers    AI1..AI8 at 0..7
//   holding registers  VW at 0..424 (register r = V bytes 2r high, 2r+1 low),
//                      AQ1..AQ8 at 512..519, AM1..AM64 at 528..591
#ifndef LOGO_COMMON_LOGO_MAP_H
#define LOGO_COMMON_LOGO_MAP_H

#include <cstdint>

namespace logomap {

// Numbered as the driver numbers its areas.
enum class Area : uint8_t { I = 0, Q = 1, M = 2, VBit = 3, AI = 4, AQ = 5, AM = 6, VW = 7 };
constexpr int kAreaCount = 8;

enum class Table { Coil, DiscreteInput, InputRegister, HoldingRegister };

constexpr int kInputCount = 24;        // I1..I24
constexpr int kOutputCount = 20;       // Q1..Q20
constexpr int kFlagCount = 64;         // M1..M64
constexpr int kVByteCount = 851;       // VB0..VB850
constexpr int kVBitCount = 8 * kVByteCount;
constexpr int kVWordCount = 425;       // VW0..VW848: VB850 begins no whole word
constexpr int kAnalogInputCount = 8;   // AI1..AI8
constexpr int kAnalogOutputCount = 8;  // AQ1..AQ8
constexpr int kAnalogFlagCount = 64;   // AM1..AM64

bool isBitArea(Area area);
bool isWritableArea(Area area);
// Number of elements (bits or words) the area holds.
int areaSize(Area area);
// True when the elements [index, index + count) all lie inside the area.
bool inArea(Area area, long long index, long long count);
// "I", "Q", "M", "V", "AI", "AQ", "AM", "VW"
const char* areaName(Area area);

// The Modbus table of an area and the address of its first element.
Table tableOf(Area area);
int firstAddress(Area area);

// Where a Modbus address of a table lands in the controller's memory.
struct Location {
    Area area;
    int index;  // element number inside the area, from 0
};
// Finds the area holding all of [address, address + count) in the table;
// false when the range is not wholly inside one area.
bool locate(Table table, int address, int count, Location* out);

}  // namespace logomap

#endif  // LOGO_COMMON_LOGO_MAP_H
