#include "image/reply_store.h"

#include "driver/modbus_rtu_master.h"
#include "modbus/areas.h"
#include "image/station_image.h"

namespace {

unsigned char replyByte(const QByteArray* reply, int i) { return static_cast<unsigned char>(reply->at(i)); }

// Bits and words of a block that exist in the image: a block running past
// the end is cut there.
int elementsToStore(const Protocol& p, int bytesPerElement)
{
    return clipToArea(p.var.address, p.dataLength / bytesPerElement);
}

void savePerStation(const Protocol& p, QByteArray* reply)
{
    const int h = p.replyHeaderLength;
    QList<EXTENDVAR>& entries = PLC_driver.extendVars;
    const int bytesPerElement = isBitArea(p.var.area) ? 1 : 2;
    const int n = elementsToStore(p, bytesPerElement);
    for (int k = 0; k < n; ++k) {
        QByteArray& value = entries[ExtendFindSameVar(p.var.station, p.var.area, p.var.address + k)].value;
        const int first = h + bytesPerElement * k;
        if (reply->size() < first + bytesPerElement) {
            // A missing byte empties the entry: the element has no valid data
            // (a read of it yields 0) rather than a stale value.
            value.clear();
        } else if (bytesPerElement == 1) {
            const char bit = static_cast<char>(replyByte(reply, first) & 1);
            setEntryValue(value, &bit, 1);
        } else {
            const char word[2] = {static_cast<char>(replyByte(reply, first + 1)), static_cast<char>(replyByte(reply, first))};
            setEntryValue(value, word, 2);
        }
    }
}

}  // namespace

void SaveBitToUC(const Protocol& p, QByteArray* reply, unsigned char* bits)
{
    const int n = elementsToStore(p, 1);
    for (int k = 0; k < n && p.replyHeaderLength + k < reply->size(); ++k)
        bits[p.var.address + k] = replyByte(reply, p.replyHeaderLength + k);
}

void SaveWordToUS(const Protocol& p, QByteArray* reply, unsigned short* words)
{
    const int h = p.replyHeaderLength;
    const int n = elementsToStore(p, 2);
    for (int k = 0; k < n && h + 2 * k + 1 < reply->size(); ++k)
        words[p.var.address + k] = static_cast<unsigned short>((replyByte(reply, h + 2 * k) << 8) | replyByte(reply, h + 2 * k + 1));
}

void SaveToLocalDataErea(const Protocol& frame, QByteArray* reply)
{
    Modbus_RTU_Master& d = PLC_driver;
    const int area = frame.var.area;
    if (!isArea(area))
        return;
    if (d.comInfo->multiStation != 0)
        savePerStation(frame, reply);
    else if (isBitArea(area))
        SaveBitToUC(frame, reply, d.bitImage[area]);
    else
        SaveWordToUS(frame, reply, d.wordImage[area - AREA_AI]);
}
