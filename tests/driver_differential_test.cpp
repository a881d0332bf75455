// The fast rebuild and per-station image against the straightforward
// algorithms they replace, on many random inputs: the results must be equal
// whole (every entry, every field, the same order).
#include <random>

#include "driver_fixture.h"
#include "modbus/areas.h"
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
        if (t.address < 0 || t.address >= ELEMENTS_PER_AREA || v.area > 7 || v.count < 0)
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
            const int area = pick(0, 9), address = pick(0, 8) == 0 ? 65530 + pick(0, 10) : pick(-2, 60);
            const QString text = area == AREA_V && pick(0, 9) ? QString("%1.%2").arg(address / 8).arg(pick(0, 9))
                                                              : QString::number(address);
            vars.append(HOSTVAR{0, static_cast<unsigned char>(area), static_cast<unsigned char>(pick(0, 3)), 0, text,
                                QString::number(i), pick(0, 9) == 0 ? pick(-3, 0) : pick(1, 30)});
        }
        SCOPED_TRACE(testing::Message() << "trial " << trial << " multi " << info.multiStation << " maxLen "
                                        << info.maxBlockLength);
        const QList<RW_VAR> expected = reference::rebuild(vars, info);
        ASSERT_EQ(expected.size(), ReCreatReadVarList(&vars));
        ASSERT_EQ(everyEntry(expected), everyEntry(PLC_driver.readList));
    }
}

// The per-station image keeps its entries in creation order with unique
// keys; the index must agree with a linear search of the list.
TEST_F(DriverTest, StationIndexAgreesWithLinearSearch)
{
    info.multiStation = 1;
    info.writeMode = 0;
    std::mt19937 random(7);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
    const QList<EXTENDVAR>& list = PLC_driver.extendVars;
    for (int op = 0; op < 3000; ++op) {
        const int station = pick(0, 3), area = pick(0, 7), address = pick(0, 40), count = pick(1, 6);
        QByteArray data(2 * count, 1);
        if (pick(0, 1))
            GetRegisterData(QString(), area, QString::number(address), station, data, count);
        else
            SetRegisterData(QString(), area, QString::number(address), station, data, count, 0, 0);
    }
    for (int i = 0; i < list.size(); ++i) {
        const EXTENDVAR& e = list.at(i);
        int linear = 0;
        while (list.at(linear).station != e.station || list.at(linear).area != e.area ||
               list.at(linear).address != e.address)
            ++linear;
        ASSERT_EQ(linear, i) << "keys are unique";
        ASSERT_EQ(ExtendFindSameVar(e.station, e.area, e.address), i);
    }
}

}  // namespace
