#include "image/station_image.h"

#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"
#include "modbus/areas.h"

namespace {

const char NEW_ENTRY_VALUE[2] = {0, 0};

// Bit areas 1 to 3: the per-station image keeps no written inputs.
bool writableBitArea(int area) { return area == AREA_Q || area == AREA_M || area == AREA_V; }

void writeSingleStation(const RW_VAR* var)
{
    Modbus_RTU_Master& d = PLC_driver;
    QByteArray* value = const_cast<QByteArray*>(&var->value);  // the packing calls only read it
    const int count = clipToArea(var->address, var->count);
    if (isBitArea(var->area))
        SetBitToUC(var->address, d.bitImage[var->area], value, count);
    else if (isWordArea(var->area))
        SetWordToUS(var->address, d.wordImage[var->area - AREA_AI], value, count);
}

void writePerStation(const RW_VAR* var)
{
    QList<EXTENDVAR>& entries = PLC_driver.extendVars;
    const int count = clipToArea(var->address, var->count);
    if (writableBitArea(var->area)) {
        for (int i = 0; i < count; ++i) {
            EXTENDVAR& entry = entries[ExtendFindSameVar(var->station, var->area, var->address + i)];
            // An entry emptied by a short reply stays without data until a reply fills it.
            if (!entry.value.isEmpty() && i < var->value.size()) {
                const char bit = static_cast<char>(var->value.at(i) & 1);
                setEntryValue(entry.value, &bit, 1);
            }
        }
    } else if (isWordArea(var->area)) {
        for (int k = 0; k < count && 2 * k + 1 < var->value.size(); ++k)
            setEntryValue(entries[ExtendFindSameVar(var->station, var->area, var->address + k)].value,
                          var->value.constData() + 2 * k, 2);
    }
}

}  // namespace

void setEntryValue(QByteArray& value, const char* bytes, int n)
{
    if (value.size() != n)
        value.resize(n);
    char* out = value.data();
    for (int i = 0; i < n; ++i)
        out[i] = bytes[i];
}

int ExtendFindSameVar(int station, int area, int address)
{
    Modbus_RTU_Master& d = PLC_driver;
    const int found = d.extendIndex.find(station, area, address);
    if (found >= 0)
        return found;
    EXTENDVAR entry;
    entry.station = station;
    entry.area = area;
    entry.address = address;
    entry.value = QByteArray(NEW_ENTRY_VALUE, 2);
    d.extendVars.append(entry);
    const int index = d.extendVars.size() - 1;
    d.extendIndex.insert(station, area, address, index);
    return index;
}

void WriteDataToLocal(const RW_VAR* var)
{
    DriverLock lock(&PLC_driver.imageMutex);
    if (PLC_driver.comInfo->multiStation == 0)
        writeSingleStation(var);
    else
        writePerStation(var);
}
