// The communication loop: which frame goes out next, and what a reply, a
// failure or a give-up does to the lists and the host.
#include "fake_controller.h"
// Each driver_*_test.cpp is built on its own; the fake comes with it.

namespace {

const Answer timeout{Answer::Timeout, QByteArray()};

class LoopTest : public DriverTest {
public:
    RW_VAR write(int station, int address, int sourceType = 0, int sourceId = 0) const
    {
        RW_VAR w = record(AREA_VW, address, 1, station, sourceType, sourceId);
        w.rwType = 1;
        w.value = hexBytes("34 12");
        return w;
    }
};

// ---- One cyclic read, byte for byte, through the exported functions only.

struct RoadCase { const char *name; int multiStation, remoteMode, station; const char *frame, *reply, *station4Data; };
class RoadOfOneCyclicRead : public LoopTest, public ::testing::WithParamInterface<RoadCase> {};

TEST_P(RoadOfOneCyclicRead, FrameReplyCodeAndImage)
{
    const RoadCase& c = GetParam();
    info.multiStation = c.multiStation;
    info.remoteMode = c.remoteMode;
    ASSERT_EQ(rebuild({hostVar(AREA_AQ, "1", 2, c.station, "aq")}), 1);
    const Protocol* p = ComCommunication();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(hexText(p->frame), c.frame);
    EXPECT_EQ(std::vector<int>({p->frameLength, p->replyLength, p->replyHeaderLength, p->dataLength}),
              std::vector<int>({p->frame.size(), 13, 9, 4}));

    QByteArray reply = hexBytes(c.reply);
    const RW_VAR* r = DataCom(&reply, reply.size());
    EXPECT_EQ(r->returnCode, 1);
    EXPECT_EQ(describe(*r) + " " + r->auxText.toStdString(), "5:1:2@" + std::to_string(c.station) + " aq");
    EXPECT_EQ(r->sourceId, -1);
    EXPECT_TRUE(r->value.isEmpty());

    QByteArray data, station4;
    EXPECT_EQ(GetRegisterData(QString(), AREA_AQ, "1", c.station, data, 2), 1);
    GetRegisterData(QString(), AREA_AQ, "1", 4, station4, 2);
    EXPECT_EQ(hexText(data) + " / " + hexText(station4), std::string("0A 00 00 01 / ") + c.station4Data);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, RoadOfOneCyclicRead,
    ::testing::Values(RoadCase{"SingleStation", 0, 0, 1, "00 00 00 00 00 06 01 03 02 00 00 02",
                               "00 00 00 00 00 07 01 03 04 00 0A 01 00", "0A 00 00 01"},
                      RoadCase{"MultiStation3", 1, 0, 3, "00 00 00 00 00 06 03 03 02 00 00 02",
                               "00 00 00 00 00 07 03 03 04 00 0A 01 00", "00 00 00 00"},
                      RoadCase{"RemoteMode", 0, 1, 1, "16 00 00 05 01 00 05 00 00 00 01 00 02 00 00 00 00 00 00 00 00 24",
                               "AA BB CC DD EE FF 11 22 33 00 0A 01 00", "0A 00 00 01"}),
    rowName);

// ---- Which list is served: writes, one-shot reads and the cyclic scan in bursts.

struct BurstCase { const char* name; bool oneShots; int cyclicStation; bool cyclicStationOff; std::string pattern; };
class Bursts : public LoopTest, public ::testing::WithParamInterface<BurstCase> {};

TEST_P(Bursts, ListPattern)
{
    const BurstCase& c = GetParam();
    info.multiStation = 1;
    for (int i = 0; i < 12; ++i) {
        RW_VAR w = write(1, i);
        AddListWriteVar(&w, 0);
    }
    RW_VAR r = record(AREA_Q, 1, 12, 1, 2, 1);
    if (c.oneShots) {
        ASSERT_EQ(AddListOnceReadVar(&r, 0), 12);
    }
    if (c.cyclicStation)
        rebuild({hostVar(AREA_VW, "0", 1, c.cyclicStation)});
    if (c.cyclicStationOff)
        EnCommStation(c.cyclicStation, 0);
    const std::vector<Exchange> done = FakeController().run(static_cast<int>(c.pattern.size()));
    EXPECT_EQ(targets(done, true), c.pattern);
    int nextWrite = 0;  // each good reply retires its write: every write goes out once, in order
    for (const Exchange& e : done) {
        if (e.list == 'W') {
            EXPECT_EQ(e.var.address, nextWrite++);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lists, Bursts,
                         ::testing::Values(BurstCase{"AllThreeBusy", true, 2, false, "WWWWWOOOOOCWWWWWOOOOOCWW"},
                                           BurstCase{"NoOneShotReads", false, 2, false, "WWWWWCWWWWWCWW"},
                                           BurstCase{"CyclicListEmpty", false, 0, false, "WWWWW-WWWWW-WW-"},
                                           BurstCase{"CyclicStationOff", true, 2, true, "WWWWWOOOOO-WWWWWOOOOO-WWOO-"}),
                         rowName);

TEST_F(LoopTest, ScanDoneWhenTheListIsEmptyOrAfterOneMoreGoodReplyThanEntries)
{
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(info.scanDone, 1);
    rebuild({hostVar(AREA_VW, "0", 1), hostVar(AREA_VW, "50", 1)});
    FakeController fake({{}, {}, {}, timeout});
    std::vector<int> scanDone;
    for (int i = 0; i < 4; ++i, fake.step())
        scanDone.push_back(info.scanDone);
    scanDone.push_back(info.scanDone);
    EXPECT_EQ(scanDone, std::vector<int>({0, 0, 0, 1, 0}));  // a failed reply clears it again
}

// ---- Failed replies: repeated, then given up with base + 1 + requester category.

struct FailureCase { const char* name; char list; int sourceType, linkId, rwType; Answer::Kind answer; int code; };
class Failures : public LoopTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(Failures, RepeatedTwiceThenGivenUpWithItsCode)
{
    const FailureCase& c = GetParam();  // list: 'C' cyclic, 'W' write, 'O' one-shot read
    RW_VAR v = c.list == 'W' ? write(1, 20, c.sourceType, 9) : record(AREA_VW, 20, 1, 1, c.sourceType, 9);
    v.linkId = c.linkId;
    v.rwType = c.rwType;
    if (c.list == 'C')
        rebuild({hostVar(AREA_VW, "20", 1)});
    else
        c.list == 'W' ? AddListWriteVar(&v, 1) : AddListOnceReadVar(&v, 1);

    const Answer answer{c.answer, QByteArray()};
    const std::vector<Exchange> done = FakeController({answer, answer, answer}).run(3);
    for (const Exchange& e : done)
        EXPECT_EQ(e.list + hexText(e.frame), done[0].list + hexText(done[0].frame));
    EXPECT_EQ(std::vector<int>({done[0].code, done[1].code, done[2].code}), std::vector<int>({0, 0, c.code}));
    const RW_VAR& failed = done[2].result;
    EXPECT_EQ(std::vector<int>({failed.sourceType, failed.sourceId, failed.address}),
              std::vector<int>({c.list == 'C' ? 0 : c.sourceType, c.list == 'C' ? -1 : 9, 20}));
    EXPECT_EQ(info.retryCount, 0);
    ASSERT_EQ(g_callbacks.fails.size(), 1u);
    EXPECT_EQ(std::make_tuple(g_callbacks.fails[0].sourceType, g_callbacks.fails[0].one, g_callbacks.fails[0].listWasEmpty),
              std::make_tuple(failed.sourceType, 1, true));
}

INSTANTIATE_TEST_SUITE_P(Codes, Failures,
                         ::testing::Values(FailureCase{"CyclicNoReply", 'C', 0, 5, 0, Answer::Timeout, 41},
                                           FailureCase{"OneShotNoReplyCategory5", 'O', 5, 5, 0, Answer::Timeout, 46},
                                           FailureCase{"OneShotNoReplyCategory11", 'O', 11, 5, 0, Answer::Timeout, 52},
                                           FailureCase{"OneShotNoReplyCategory12", 'O', 12, 5, 0, Answer::Timeout, 41},
                                           FailureCase{"OneShotNoReplyCategoryMinus1", 'O', -1, 5, 0, Answer::Timeout, 41},
                                           FailureCase{"WriteNullReplyPointer", 'W', 2, 5, 1, Answer::NullReply, 43},
                                           FailureCase{"WriteWrongLength", 'W', 3, 5, 1, Answer::WrongLength, 74},
                                           FailureCase{"OneShotNeitherReadNorWrite", 'O', 4, 5, 2, Answer::Good, 15},
                                           FailureCase{"RemoteLinkNoReply", 'O', 5, 9, 0, Answer::Timeout, 146},
                                           FailureCase{"RemoteLinkWrongLength", 'W', 1, 9, 1, Answer::WrongLength, 172},
                                           FailureCase{"RemoteLinkNeitherReadNorWrite", 'O', 0, 9, 2, Answer::Good, 111}),
                         rowName);

TEST_F(LoopTest, RetriesAreCountedAcrossGoodRepliesUntilAGiveUp)
{
    rebuild({hostVar(AREA_VW, "0", 1)});
    std::vector<int> codes;
    for (const Exchange& e : FakeController({timeout, {}, timeout, {}, timeout, timeout}).run(6))
        codes.push_back(e.code);
    EXPECT_EQ(codes, std::vector<int>({0, 1, 0, 1, 41, 0}));
}

TEST_F(LoopTest, RemoteLinkReplyIsAcknowledgedButNotStored)
{
    RW_VAR r = record(AREA_VW, 3, 1, 1, 4, 8);
    r.linkId = 9;
    AddListOnceReadVar(&r, 1);
    EXPECT_EQ(targets(FakeController({{Answer::Good, hexBytes("12 34")}}).run(2)), "7:3:1@1 -");
    QByteArray data;
    GetRegisterData(QString(), AREA_VW, "3", 1, data, 1);
    EXPECT_EQ(hexText(data), "00 00");
    EXPECT_TRUE(g_callbacks.readDone.empty());
}

// ---- One-shot requests cut into pieces, and what a give-up takes with it.

TEST_F(LoopTest, OneShotRequestReportsAfterItsLastPieceOrOnGiveUp)
{
    rebuild({hostVar(AREA_VW, "0", 1)});
    RW_VAR r = record(AREA_AM, 1, 250, 1, 3, 9), second = record(AREA_AM, 1, 150, 1, 3, 10);
    ASSERT_EQ(AddListOnceReadVar(&r, 0), 3);
    FakeController fake;
    for (size_t piece = 0; piece < 3; ++piece) {
        EXPECT_EQ(fake.step().list, 'O');
        EXPECT_EQ(g_callbacks.readDone.size(), piece == 2 ? 1u : 0u);
    }
    ASSERT_EQ(AddListOnceReadVar(&second, 0), 2);
    EXPECT_EQ(targets(FakeController({timeout, timeout, timeout}).run(4), true), "OOOC");
    std::vector<std::vector<intptr_t>> calls;
    for (const CallbackLog::ReadDone& d : g_callbacks.readDone)
        calls.push_back({d.context, d.sourceType, d.sourceId, d.status});
    EXPECT_EQ(calls, std::vector<std::vector<intptr_t>>({{77, 3, 9, 1}, {77, 3, 10, 2}}));
}

struct CleanUpCase { const char* name; int multiStation; const char* afterwards; };
class GiveUpCleanUp : public LoopTest, public ::testing::WithParamInterface<CleanUpCase> {};

TEST_P(GiveUpCleanUp, DropsTheRequestAndTheWritesItConcerns)
{
    info.multiStation = GetParam().multiStation;
    RW_VAR failing = record(AREA_Q, 10, 3, 1, 2, 7), other = record(AREA_Q, 20, 1, 1, 2, 8),
           elsewhere = record(AREA_Q, 30, 1, 2, 2, 7);
    for (RW_VAR* r : {&failing, &other, &elsewhere})
        AddListOnceReadVar(r, 0);
    ASSERT_NE(ComCommunication(), nullptr);  // the first piece is in flight when the writes come
    for (int address : {100, 101, 200, 201}) {
        RW_VAR w = write(address / 100, address);
        AddListWriteVar(&w, 0);
    }
    EXPECT_EQ(FakeController({timeout, timeout, timeout}).run(3)[2].code, 41 + 2);
    ASSERT_EQ(g_callbacks.readDone.size(), 1u);
    EXPECT_EQ(std::make_pair(g_callbacks.readDone[0].sourceId, g_callbacks.readDone[0].status), std::make_pair(7, 2));
    EXPECT_EQ(targets(FakeController().run(5)), GetParam().afterwards);  // what is still sent, in order
}

INSTANTIATE_TEST_SUITE_P(Modes, GiveUpCleanUp,
                         ::testing::Values(CleanUpCase{"SingleStation", 0, "1:20:1@1 - - - -"},
                                           CleanUpCase{"MultiStation", 1, "7:200:1@2 7:201:1@2 1:20:1@1 1:30:1@2 -"}),
                         rowName);

// ---- Stations switched off and on.

TEST_F(LoopTest, QueuedEntryOfAnOffStationIsDroppedAndTheNextServedInTheSameCall)
{
    info.multiStation = 1;
    RW_VAR w2 = write(2, 1), w1 = write(1, 2), r2 = record(AREA_VW, 3, 1, 2), r1 = record(AREA_VW, 4, 1, 1);
    for (RW_VAR* w : {&w2, &w1})
        AddListWriteVar(w, 0);
    for (RW_VAR* r : {&r2, &r1})
        AddListOnceReadVar(r, 0);
    EnCommStation(2, 0);
    FakeController fake;
    EXPECT_EQ(targets(fake.run(2)), "7:2:1@1 7:4:1@1");
    EnCommStation(2, 1);
    EXPECT_FALSE(fake.step().sent);
}

TEST_F(LoopTest, CyclicEntriesOfOffStationsArePassedOverAndKeepTheirOrder)
{
    info.multiStation = 1;
    rebuild({hostVar(AREA_VW, "0", 1, 2), hostVar(AREA_VW, "0", 1, 3), hostVar(AREA_VW, "0", 1, 4)});
    FakeController fake;
    EnCommStation(2, 0);
    EXPECT_EQ(targets(fake.run(1)), "7:0:1@3");
    EnCommStation(2, 1);
    EXPECT_EQ(targets(fake.run(3)), "7:0:1@4 7:0:1@2 7:0:1@3");
    for (int station : {2, 3, 4})
        EnCommStation(station, 0);
    EXPECT_EQ(targets(fake.run(2)), "- -");
    EnCommStation(-1, 1);
    EXPECT_EQ(targets(fake.run(3)), "7:0:1@4 7:0:1@2 7:0:1@3");
}

// ---- The frame in flight, and entries no frame can be built for.

TEST_F(LoopTest, FrameInFlightIsHandedOutAgainUnchanged)
{
    rebuild({hostVar(AREA_VW, "7", 1)});
    const Protocol* first = ComCommunication();
    ASSERT_NE(first, nullptr);
    const QByteArray frame = first->frame;
    RW_VAR w = write(1, 1);
    AddListWriteVar(&w, 0);
    rebuild({hostVar(AREA_AQ, "1", 3)});
    EnCommStation(1, 0);
    ASSERT_EQ(ComCommunication(), first);
    EXPECT_EQ(hexText(first->frame) + " " + describe(first->var), hexText(frame) + " 7:7:1@1");
}

TEST_F(LoopTest, EntryWithoutAFrameIsDroppedAndTheNextServedInTheSameCall)
{
    struct Row { char list; int area, count; } rows[] = {
        {'W', AREA_I, 1}, {'W', AREA_AI, 1}, {'W', 9, 1},  {'W', -1, 1},        {'W', AREA_VW, -1},
        {'W', AREA_VW, 70000}, {'O', 9, 1}, {'O', -3, 1}, {'O', AREA_VW, -1}, {'O', AREA_Q, 70000}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.list << " area " << row.area << " count " << row.count);
        SetUp();
        RW_VAR bad = row.list == 'W' ? write(1, 10) : record(AREA_VW, 10, 1);
        RW_VAR good = row.list == 'W' ? write(1, 50) : record(AREA_VW, 50, 2);
        bad.area = row.area;
        bad.count = row.count;
        for (RW_VAR* v : {&bad, &good})
            row.list == 'W' ? AddListWriteVar(v, 1) : AddListOnceReadVar(v, 1);
        const std::vector<Exchange> done = FakeController().run(2);
        EXPECT_EQ(targets(done, true) + " " + targets(done), row.list + std::string("- ") + describe(good) + " -");
    }
}

TEST_F(LoopTest, CyclicEntryWithoutAFrameNeverHoldsTheScan)
{
    RW_VAR bad = record(9, 1, 1), good = record(AREA_VW, 2, 1);
    AddListReadVar(&bad);
    AddListReadVar(&good);
    // Whether the call that moves the bad entry back also serves the next one is open.
    int served = 0;
    for (const Exchange& e : FakeController().run(4))
        if (e.sent)
            served += describe(e.var) == describe(good) ? 1 : 100;
    EXPECT_GE(served, 2);
    EXPECT_LE(served, 4);  // and the bad entry never went out
}

TEST_F(LoopTest, RemoteModeWriteIsCompletedByItsReply)
{
    info.remoteMode = 1;
    info.framesPerRequest = 4;  // left over from an earlier request
    RW_VAR w = write(1, 300);
    AddListWriteVar(&w, 0);
    const std::vector<Exchange> done = FakeController().run(2);
    EXPECT_EQ(hexText(done[0].frame), "18 00 01 05 01 00 07 00 00 01 2C 00 01 00 00 00 00 00 00 00 00 34 12 9A");
    EXPECT_EQ(done[0].code, 1);
    EXPECT_FALSE(done[1].sent);
}

}  // namespace
