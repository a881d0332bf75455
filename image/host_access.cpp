// The host's reads and writes of the image, and its queued writes.
#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"
#include "image/station_image.h"
#include "modbus/areas.h"
#include "varlist/address_text.h"
#include "varlist/pieces.h"

namespace {

void readSingleStation(int area, int address, QByteArray& data, int count)
{
    Modbus_RTU_Master& d = PLC_driver;
    // Elements past the area's end are not read; their bytes in data keep
    // their content, as any byte beyond the read does.
    const int n = clipToArea(address, count);
    if (isBitArea(area))
        GetBitFromUC(data, d.bitImage[area], address, n);
    else if (isWordArea(area))
        GetWordFromUS(data, d.wordImage[area - AREA_AI], address, n);
}

void readPerStation(int area, int address, int station, QByteArray& data, int count)
{
    const QList<EXTENDVAR>& entries = PLC_driver.extendVars;
    const int n = clipToArea(address, count);
    const int bytesPerElement = isBitArea(area) ? 1 : 2;
    if (!isArea(area) || n < 1)
        return;
    if (data.size() < bytesPerElement * n)
        data.resize(bytesPerElement * n);
    char* out = data.data();
    for (int k = 0; k < n; ++k) {
        // A read of an element without an entry creates one, as a store would.
        const QByteArray& value = entries.at(ExtendFindSameVar(station, area, address + k)).value;
        if (bytesPerElement == 1) {
            out[k] = value.isEmpty() ? 0 : static_cast<char>(value.at(0) & 1);
        } else {
            const bool valid = value.size() >= 2;
            out[2 * k] = valid ? value.at(0) : 0;
            out[2 * k + 1] = valid ? value.at(1) : 0;
        }
    }
}

bool writableArea(int area) { return area != AREA_I && area != AREA_AI && isArea(area); }

// Queues one write piece; while the link is down its value enters the image
// at once, since no frame will carry it there soon.
int queueWrite(RW_VAR* record)
{
    const int length = AddListWriteVar(record, QUEUE_MERGING);
    if (PLC_driver.commFailed != 0)
        WriteDataToLocal(record);
    return length;
}

int queueBitWrites(RW_VAR* record, int firstAddress, const QByteArray& data, int count)
{
    int length = 0;
    for (int i = 0; i < count; ++i) {
        record->address = firstAddress + i;
        record->count = 1;
        record->value = QByteArray(1, i < data.size() ? data.at(i) : 0);
        length = queueWrite(record);
    }
    return length;
}

int queueWordWrites(RW_VAR* record, int firstAddress, const QByteArray& data, int count, int maxLen)
{
    int length = 0;
    cutIntoPieces(firstAddress, count, maxLen, [&](int address, int words) {
        record->address = address;
        record->count = words;
        // Missing bytes go out as 0: the frame must carry every register.
        QByteArray value = data.mid(2 * (address - firstAddress), 2 * words);
        value.append(QByteArray(2 * words - value.size(), 0));
        record->value = value;
        length = queueWrite(record);
        return true;
    });
    return length;
}

}  // namespace

int GetRegisterData(QString, int area, QString addressText, int station, QByteArray& data, int count)
{
    const int address = StringAddressToInt(area, addressText);
    if (address < 0)
        return 0;
    DriverLock lock(&PLC_driver.imageMutex);
    if (PLC_driver.comInfo->multiStation == 0)
        readSingleStation(area, address, data, count);
    else
        readPerStation(area, address, station, data, count);
    return 1;
}

int SetRegisterData(QString auxText, int area, QString addressText, int station, QByteArray data, int count,
                    int sourceType, int sourceId)
{
    const int address = StringAddressToInt(area, addressText);
    if (address < 0)
        return 0;
    const ComInfo* info = PLC_driver.comInfo;
    RW_VAR record = RW_VAR();
    record.sourceType = sourceType;
    record.sourceId = sourceId;
    record.rwType = RW_WRITE;
    record.remoteFlag = info->remoteMode;
    record.linkId = info->localLinkId;
    record.auxText = auxText;
    record.addressText = addressText;
    record.area = area;
    record.station = info->multiStation != 0 ? station : info->defaultStation;

    if (info->writeMode != WRITE_MODE_TO_CONTROLLER) {
        record.address = address;
        record.count = count;
        record.value = data;
        WriteDataToLocal(&record);
        return 1;
    }
    // Elements beyond the area's end do not exist on the controller either.
    const int elements = clipToArea(address, count);
    if (!writableArea(area) || elements < 1)
        return 0;
    if (isBitArea(area))
        return queueBitWrites(&record, address, data, elements);
    return queueWordWrites(&record, address, data, elements, blockLength(info));
}
