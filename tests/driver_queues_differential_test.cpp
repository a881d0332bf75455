// The indexed write and one-shot read queues against the straightforward
// linear queues they replace: random sequences of queueing (both flags),
// frames served and replies (good, time-outs, give-ups) must leave the same
// lists, entry for entry and field for field, and the same read-done calls.
#include <random>

#include "driver_fixture.h"
#include "modbus/areas.h"
#include "modbus/areas.h"
#include "varlist/address_text.h"
#include "varlist/pieces.h"

namespace {

enum { CAPACITY = 1024 };

// The queues as first written: plain lists, searched from end to end.
struct LinearQueues {
    QList<RW_VAR> writes, reads;
    std::vector<std::vector<intptr_t>> readDone;

    static bool sameTarget(const RW_VAR& a, const RW_VAR& b)
    {
        return a.station == b.station && a.area == b.area && a.address == b.address && a.count == b.count;
    }
    static bool sameRead(const RW_VAR& a, const RW_VAR& b)
    {
        return a.sourceType == b.sourceType && a.sourceId == b.sourceId && sameTarget(a, b);
    }

    void addWrite(const RW_VAR& var, int flag)
    {
        if (flag == 1 || writes.size() < 2) {
            writes.append(var);
            return;
        }
        for (int i = 1; i < writes.size(); ++i) {
            if (sameTarget(writes.at(i), var)) {
                writes[i] = var;
                return;
            }
        }
        if (writes.size() < CAPACITY)
            writes.append(var);
    }

    void addRead(RW_VAR var, int flag, const ComInfo& info)
    {
        if (flag == 1) {
            reads.append(var);
            return;
        }
        const int address = StringAddressToInt(var.area, var.addressText);
        if (address < 0 || !isArea(var.area))
            return;
        var.param1 = var.param2 = 0;
        if (!info.multiStation)
            var.station = info.defaultStation;
        const int maxLen = isBitArea(var.area) ? 1 : blockLength(&info);
        cutIntoPieces(address, clipToArea(address, var.count), maxLen, [&](int pieceAddress, int pieceCount) {
            var.address = pieceAddress;
            var.count = pieceCount;
            if (reads.size() >= CAPACITY)
                return true;
            for (const RW_VAR& r : reads)
                if (sameRead(r, var))
                    return true;
            reads.append(var);
            return true;
        });
    }

    // What the dispatcher does to the lists after the reply to an entry of `list`.
    void answered(char list, int code, const RW_VAR& failed, const ComInfo& info)
    {
        const bool good = code == RC_LOCAL_OK || code == RC_REMOTE_OK;
        if (code == RC_RETRYING)
            return;
        if (list == 'W') {
            writes.removeFirst();
        } else if (list == 'O') {
            const RW_VAR head = reads.takeFirst();
            bool pending = false;
            for (const RW_VAR& r : reads)
                pending |= r.sourceType == head.sourceType && r.sourceId == head.sourceId;
            if (!good || !pending)
                readDone.push_back({info.hostContext, head.sourceType, head.sourceId, good ? 1 : 2});
        }
        if (good)
            return;
        auto drop = [](QList<RW_VAR>& l, auto matches) {
            for (int i = 0; i < l.size();)
                matches(l.at(i)) ? l.removeAt(i) : void(++i);
        };
        const auto ofRequest = [&](const RW_VAR& r) {
            return r.sourceType == failed.sourceType && r.sourceId == failed.sourceId &&
                   (!info.multiStation || r.station == failed.station);
        };
        drop(reads, ofRequest);
        if (info.multiStation)
            drop(writes, [&](const RW_VAR& w) { return w.station == failed.station; });
        else
            writes.clear();
    }
};

class QueueDifferential : public DriverTest {
protected:
    std::mt19937 random{20261123};
    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); }

    // Few targets and requesters, so that merges and duplicates are common;
    // a flood spreads them out to fill the queues to their limit.
    RW_VAR anyRecord(bool write, bool flood)
    {
        const int writable[] = {AREA_Q, AREA_M, AREA_V, AREA_AQ, AREA_AM, AREA_VW};
        RW_VAR v = RW_VAR();
        v.area = write ? writable[pick(0, 5)] : pick(AREA_I, AREA_VW);
        v.address = flood ? pick(0, 3000) : pick(0, 5);
        v.addressText = v.area == AREA_V ? QString("%1.%2").arg(v.address / 8).arg(v.address % 8)
                                         : QString::number(v.address);
        v.auxText = QString::number(pick(0, 99));
        v = {pick(0, 2), pick(0, 2), write, 0, info.localLinkId, 0, v.auxText, v.addressText, v.area, v.address,
             pick(1, 3), pick(1, 3), pick(0, 1), 0, QByteArray()};
        if (write)
            v.value = QByteArray(2 * v.count, static_cast<char>(pick(0, 255)));
        return v;
    }

    // One ComCommunication and its reply, applied to the driver and then,
    // as its result says, to the linear queues.
    void serve(LinearQueues* linear)
    {
        const Protocol* p = ComCommunication();
        if (!p)
            return;
        const char list = "CWO"[PLC_driver.currentList];
        if (list != 'C') {
            const QList<RW_VAR>& expected = list == 'W' ? linear->writes : linear->reads;
            ASSERT_FALSE(expected.isEmpty());
            ASSERT_EQ(everyField(expected.first()), everyField(p->var)) << "the head is served";
        }
        QByteArray reply(pick(0, 5) ? p->replyLength : 0, '\1');
        const RW_VAR* result = DataCom(&reply, reply.size());
        linear->answered(list, result->returnCode, *result, info);
    }
};

TEST_F(QueueDifferential, IndexedQueuesEqualTheLinearOnes)
{
    int merges = 0, duplicates = 0, giveUps = 0, fullRefusals = 0;
    for (int run = 0; run < 100; ++run) {
        SetUp();
        info.retryLimit = 1;
        info.maxBlockLength = 2;
        info.multiStation = pick(0, 1);
        info.remoteMode = pick(0, 1);
        const bool flood = run % 10 == 9;
        SCOPED_TRACE(testing::Message() << "run " << run << " multi " << info.multiStation << " flood " << flood);
        rebuild({hostVar(AREA_VW, "0", 1, 1)});
        LinearQueues linear;
        for (int op = 0; op < (flood ? 2500 : 300); ++op) {
            const int what = pick(0, 99);
            if (what < 45) {
                RW_VAR w = anyRecord(true, flood);
                const int flag = pick(0, 9) == 0 ? 1 : 0;
                const int before = linear.writes.size();
                linear.addWrite(w, flag);
                ASSERT_EQ(linear.writes.size(), AddListWriteVar(&w, flag));
                merges += linear.writes.size() == before && before < CAPACITY;
                fullRefusals += before >= CAPACITY && flag != 1;
            } else if (what < 75 || flood) {
                RW_VAR r = anyRecord(false, flood);
                const int flag = pick(0, 2);
                const int before = linear.reads.size();
                linear.addRead(r, flag, info);
                AddListOnceReadVar(&r, flag);
                duplicates += linear.reads.size() == before;
            } else {
                const size_t failures = linear.readDone.size();
                serve(&linear);
                giveUps += linear.readDone.size() > failures && linear.readDone.back()[3] == 2;
            }
            if (HasFatalFailure())
                return;
            if (!flood || op % 100 == 0 || op > 2400) {
                ASSERT_EQ(everyEntry(linear.writes), everyEntry(PLC_driver.writeList.list())) << "op " << op;
                ASSERT_EQ(everyEntry(linear.reads), everyEntry(PLC_driver.onceReadList.list())) << "op " << op;
            }
        }
        // Drain what is left, so that every entry is served or given up.
        for (int step = 0; step < 6000 && !(linear.writes.isEmpty() && linear.reads.isEmpty()); ++step) {
            serve(&linear);
            if (HasFatalFailure())
                return;
        }
        ASSERT_EQ(everyEntry(linear.writes), everyEntry(PLC_driver.writeList.list()));
        ASSERT_EQ(everyEntry(linear.reads), everyEntry(PLC_driver.onceReadList.list()));
        ASSERT_EQ(linear.readDone, g_callbacks.readDone);
    }
    // The sequences reached every path they are meant to compare.
    EXPECT_GT(merges, 100);
    EXPECT_GT(duplicates, 100);
    EXPECT_GT(giveUps, 10);
    EXPECT_GT(fullRefusals, 10);
}

}  // namespace
