// The fast rebuild and per-station image against the straightforward
// algorithms they replace, on many random inputs: the results must be equal
// whole (every entry, every field, the same order).
#include <random>

#include "driver_fixture.h"
#include "image/bounds.h"
#include "image/station_image.h"
#include "modbus/areas.h"
#include "varlist/address_text.h"

namespace {

// The cyclic list rebuild as first described: one QList of records per
// group, an exchange sort, a linear search of the group keys.
namespace reference {

void whetherGroup(int count, int maxLen, RW_VAR templ, QList<RW_VAR>* target)
{
    if (count <= maxLen) {
        target->append(templ);
        return;
    }
    const int q = count / maxLen, r = count - q * maxLen, pieces = r ? q + 1 : q;
    const int start = templ.address;
    for (int i = 0; i < pieces; ++i) {
        templ.address = start + i * maxLen;
        templ.count = (i == pieces - 1 && r) ? r : maxLen;
        target->append(templ);
    }
}

void bubbleSort(QList<RW_VAR>* list)
{
    for (int i = 0; i + 1 < list->size(); ++i)
        for (int j = list->size() - 1; j > i; --j)
            if (list->at(j).address < list->at(j - 1).address)
                std::swap((*list)[j], (*list)[j - 1]);
}

void bits(const QList<RW_VAR>& group, QList<RW_VAR>* out)
{
    for (int i = 0; i < group.size(); ++i)
        if (i == 0 || group.at(i).address != out->last().address)
            out->append(group.at(i));
}

void cutLong(RW_VAR* block, int maxLen, QList<RW_VAR>* out)
{
    while (block->count > maxLen) {
        RW_VAR head = *block;
        head.count = maxLen;
        out->append(head);
        block->count -= maxLen;
        block->address += maxLen;
    }
}

void words(const QList<RW_VAR>& group, int maxLen, QList<RW_VAR>* out)
{
    RW_VAR block = group.first();
    cutLong(&block, maxLen, out);
    for (int i = 1; i < group.size(); ++i) {
        const RW_VAR& piece = group.at(i);
        if (piece.address < block.address || piece.address > block.address + block.count + 3) {
            out->append(block);
            block = piece;
        } else {
            block.count = std::max(block.address + block.count, piece.address + piece.count) - block.address;
            cutLong(&block, maxLen, out);
        }
    }
    out->append(block);
}

QList<RW_VAR> rebuild(const QList<HOSTVAR>& vars, const ComInfo& info)
{
    const int maxLen = info.maxBlockLength > 0 ? info.maxBlockLength : 1;
    QList<int> keys;
    QList<QList<RW_VAR>> groups;
    for (const HOSTVAR& v : vars) {
        RW_VAR t = RW_VAR();
        t.sourceId = -1;
        t.remoteFlag = info.remoteMode;
        t.linkId = info.localLinkId;
        t.auxText = v.auxText;
        t.addressText = v.addressText;
        t.area = v.area;
        t.address = StringAddressToInt(v.area, v.addressText);
        t.station = info.multiStation ? v.station : info.defaultStation;
        if (t.address < 0 || t.address >= IMAGE_AREA_SIZE || v.area > 7 || v.count < 0)
            continue;
        t.count = clipToArea(t.address, v.count);
        const int pieceLen = v.area <= 3 ? 1 : maxLen;
        QList<RW_VAR> pieces;
        if (!info.multiStation || t.count > 0)
            whetherGroup(t.count, pieceLen, t, &pieces);
        const int key = info.multiStation ? (v.area << 8 | v.station) : v.area;
        if (!pieces.isEmpty() && !keys.contains(key)) {
            keys.append(key);
            groups.append(QList<RW_VAR>());
        }
        for (const RW_VAR& p : pieces) {
            QList<RW_VAR>& g = groups[keys.indexOf(key)];
            // Filing under a key puts the newest entry first in multi-station mode.
            info.multiStation ? g.prepend(p) : g.append(p);
        }
    }
    // One controller: groups in area order; several: in order of first appearance.
    QList<int> order = keys;
    if (!info.multiStation)
        std::sort(order.begin(), order.end());
    QList<RW_VAR> out;
    for (int key : order) {
        QList<RW_VAR> g = groups.at(keys.indexOf(key));
        bubbleSort(&g);
        g.first().area <= 3 ? bits(g, &out) : words(g, maxLen, &out);
    }
    return out;
}

}  // namespace reference

std::string describe(const RW_VAR& v)
{
    return testing::PrintToString(std::vector<int>{v.sourceType, v.sourceId, v.rwType, v.remoteFlag, v.linkId,
                                                   v.returnCode, v.area, v.address, v.station, v.count, v.param1,
                                                   v.param2, v.value.size()}) +
           " " + v.addressText.toStdString() + "/" + v.auxText.toStdString();
}

TEST_F(DriverTest, RebuildEqualsTheStraightforwardAlgorithm)
{
    std::mt19937 random(20261122);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
    const int blockLengths[] = {-1, 0, 1, 2, 5, 8, 10, 100};
    for (int trial = 0; trial < 400; ++trial) {
        info.multiStation = pick(0, 1);
        info.maxBlockLength = blockLengths[pick(0, 7)];
        info.remoteMode = pick(0, 1);
        QList<HOSTVAR> vars;
        for (int i = pick(0, 60); i > 0; --i) {
            HOSTVAR v = HOSTVAR();
            v.area = static_cast<unsigned char>(pick(0, 9));
            v.station = static_cast<unsigned char>(pick(0, 3));
            const int address = pick(0, 8) == 0 ? 65530 + pick(0, 10) : pick(-2, 60);
            v.addressText = v.area == AREA_V && pick(0, 9) ? QString("%1.%2").arg(address / 8).arg(pick(0, 9))
                                                           : QString::number(address);
            v.auxText = QString::number(i);
            v.count = pick(0, 9) == 0 ? pick(-3, 0) : pick(1, 30);
            vars.append(v);
        }
        SCOPED_TRACE(testing::Message() << "trial " << trial << " multi " << info.multiStation << " maxLen "
                                        << info.maxBlockLength);
        const QList<RW_VAR> expected = reference::rebuild(vars, info);
        ASSERT_EQ(expected.size(), ReCreatReadVarList(&vars));
        for (int i = 0; i < expected.size(); ++i)
            ASSERT_EQ(describe(expected.at(i)), describe(PLC_driver.readList.at(i))) << "entry " << i;
    }
}

// The per-station image keeps its entries in creation order with unique
// keys; the index must always agree with a linear search of the list.
TEST_F(DriverTest, StationIndexAgreesWithLinearSearch)
{
    info.multiStation = 1;
    info.writeMode = 0;
    std::mt19937 random(7);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
    auto linear = [](int station, int area, int address) {
        const QList<EXTENDVAR>& list = PLC_driver.extendVars;
        for (int i = 0; i < list.size(); ++i)
            if (list.at(i).station == station && list.at(i).area == area && list.at(i).address == address)
                return i;
        return -1;
    };
    for (int op = 0; op < 3000; ++op) {
        const int station = pick(0, 3), area = pick(0, 7), address = pick(0, 40), count = pick(1, 6);
        const int before = PLC_driver.extendVars.size();
        const int expected = linear(station, area, address);
        if (pick(0, 1)) {
            QByteArray data;
            GetRegisterData(QString(), area, QString::number(address), station, data, count);
        } else {
            SetRegisterData(QString(), area, QString::number(address), station, QByteArray(2 * count, 1), count, 0, 0);
        }
        QMutexLocker lock(&PLC_driver.imageMutex);
        const int found = ExtendFindSameVar(station, area, address);
        ASSERT_EQ(expected >= 0 ? expected : linear(station, area, address), found);
        ASSERT_GE(PLC_driver.extendVars.size(), before) << "entries are never removed";
    }
    for (int i = 0; i < PLC_driver.extendVars.size(); ++i) {
        const EXTENDVAR& e = PLC_driver.extendVars.at(i);
        ASSERT_EQ(i, linear(e.station, e.area, e.address)) << "keys are unique";
        ASSERT_EQ(i, PLC_driver.extendIndex.find(e.station, e.area, e.address));
    }
}

}  // namespace
