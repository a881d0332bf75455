// The communication loop: which frame goes out next, and what a reply, a
// failure or a give-up does to the lists and the host.
#include "driver_fixture.h"

namespace {

const Answer timeout{Answer::Timeout, QByteArray()};

class LoopTest : public DriverTest {};

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
    EXPECT_EQ(std::make_tuple(r->returnCode, r->sourceId, r->value.size()), std::make_tuple(1, -1, 0));
    EXPECT_EQ(describe(*r), "5:1:2@" + std::to_string(c.station) + "/aq");
    EXPECT_EQ(image(AREA_AQ, "1", c.station, 2) + " / " + image(AREA_AQ, "1", 4, 2),
              std::string("0A 00 00 01 / ") + c.station4Data);
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

// cyclicStation: 0 no cyclic list; negative: that station's list, switched off.
struct BurstCase { const char* name; bool oneShots; int cyclicStation; std::string pattern; };
class Bursts : public LoopTest, public ::testing::WithParamInterface<BurstCase> {};

TEST_P(Bursts, ListPattern)
{
    const BurstCase& c = GetParam();
    info.multiStation = 1;
    for (int i = 0; i < 12; ++i)
        addWrite(write(1, i));
    if (c.oneShots) {
        ASSERT_EQ(addOnce(record(AREA_Q, 1, 12, 1, 2, 1)), 12);
    }
    if (c.cyclicStation)
        rebuild({hostVar(AREA_VW, "0", 1, std::abs(c.cyclicStation))});
    if (c.cyclicStation < 0)
        EnCommStation(-c.cyclicStation, 0);
    const std::vector<Exchange> done = FakeController().run(static_cast<int>(c.pattern.size()));
    EXPECT_EQ(targets(done, true), c.pattern);
    int nextWrite = 0;  // each good reply retires its write: every write goes out once, in order
    for (const Exchange& e : done)
        if (e.list == 'W') {
            EXPECT_EQ(e.var.address, nextWrite++);
        }
}

INSTANTIATE_TEST_SUITE_P(Lists, Bursts,
                         ::testing::Values(BurstCase{"AllThreeBusy", true, 2, "WWWWWOOOOOCWWWWWOOOOOCWW"},
                                           BurstCase{"NoOneShotReads", false, 2, "WWWWWCWWWWWCWW"},
                                           BurstCase{"CyclicListEmpty", false, 0, "WWWWW-WWWWW-WW-"},
                                           BurstCase{"CyclicStationOff", true, -2, "WWWWWOOOOO-WWWWWOOOOO-WWOO-"}),
                         rowName);

TEST_F(LoopTest, ScanDoneAfterOneMoreGoodReplyThanEntriesAndRetriesCountedAcrossGoodReplies)
{
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(info.scanDone, 1) << "an empty list counts as scanned";
    rebuild({hostVar(AREA_VW, "0", 1), hostVar(AREA_VW, "50", 1)});
    FakeController fake{{{}, {}, {}, timeout, {}, timeout, timeout}};
    std::vector<int> codes, scanDone;
    for (int i = 0; i < 7; ++i) {
        codes.push_back(fake.step().code);
        scanDone.push_back(info.scanDone);
    }
    EXPECT_EQ(scanDone, std::vector<int>({0, 0, 1, 0, 0, 0, 0})) << "a failed reply clears it again";
    EXPECT_EQ(codes, std::vector<int>({1, 1, 1, 0, 1, 0, 41})) << "only a give-up resets the failure count";
}

// A panel runs for months and a host may hand in any length: the counters
// stop at INT_MAX, and a length that is no reply's is just a wrong length.
TEST_F(LoopTest, CountersSaturateAndLengthsAreJustWrong)
{
    rebuild({hostVar(AREA_AM, "1", 1)});
    info.retryLimit = INT_MAX;
    info.retryCount = INT_MAX;
    for (int length : {INT_MIN, -1, INT_MAX}) {
        ASSERT_NE(ComCommunication(), nullptr);
        QByteArray reply(11, '\0');
        EXPECT_EQ(RC_RETRYING, DataCom(&reply, length)->returnCode) << length;
        EXPECT_EQ(INT_MAX, info.retryCount);
    }
    info.framesAnswered = INT_MAX;
    info.framesPerRequest = INT_MIN;
    QByteArray good = hexBytes("00 00 00 00 00 05 01 03 02 00 07");
    EXPECT_EQ(RC_LOCAL_OK, DataCom(&good, good.size())->returnCode);
    EXPECT_EQ(INT_MAX, info.framesAnswered);
    EXPECT_EQ(image(AREA_AM, "1", 1, 1), "07 00");
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
        c.list == 'W' ? addWrite(v, 1) : addOnce(v, 1);

    const Answer answer{c.answer, QByteArray()};
    const std::vector<Exchange> done = FakeController{{answer, answer, answer}}.run(3);
    for (const Exchange& e : done)
        EXPECT_EQ(e.list + hexText(e.frame), done[0].list + hexText(done[0].frame));
    EXPECT_EQ(std::vector<int>({done[0].code, done[1].code, done[2].code}), std::vector<int>({0, 0, c.code}));
    const RW_VAR& failed = done[2].result;
    EXPECT_EQ(std::vector<int>({failed.sourceType, failed.sourceId, failed.address}),
              std::vector<int>({c.list == 'C' ? 0 : c.sourceType, c.list == 'C' ? -1 : 9, 20}));
    EXPECT_EQ(info.retryCount, 0);
    EXPECT_EQ(g_callbacks.fails, (std::vector<std::tuple<int, int, bool>>{{failed.sourceType, 1, true}}));
}

INSTANTIATE_TEST_SUITE_P(Codes, Failures,
                         ::testing::Values(FailureCase{"CyclicNoReply", 'C', 0, 5, 0, Answer::Timeout, 41},
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

// ---- One-shot requests cut into pieces, and what a give-up takes with it.

// A reply on another link completes its entry but is neither stored nor reported.
TEST_F(LoopTest, OneShotRequestReportsAfterItsLastPieceOnlyOnTheLocalLink)
{
    RW_VAR remote = record(AREA_VW, 3, 1, 1, 4, 8);
    remote.linkId = 9;
    addOnce(remote, 1);
    ASSERT_EQ(addOnce(record(AREA_AM, 1, 250, 1, 3, 9)), 4);
    FakeController fake{{{Answer::Good, hexBytes("12 34")}}};
    for (size_t piece = 0; piece < 4; ++piece) {
        EXPECT_EQ(fake.step().list, 'O');
        EXPECT_EQ(g_callbacks.readDone.size(), piece == 3 ? 1u : 0u);
    }
    EXPECT_EQ(g_callbacks.readDone, std::vector<std::vector<intptr_t>>({{77, 3, 9, 1}}));
    EXPECT_EQ(image(AREA_VW, "3", 1, 1), "00 00");
    EXPECT_FALSE(fake.step().sent);
}

struct CleanUpCase { const char* name; int multiStation; const char *writes, *afterwards; };
class GiveUpCleanUp : public LoopTest, public ::testing::WithParamInterface<CleanUpCase> {};

TEST_P(GiveUpCleanUp, DropsTheRequestAndTheWritesItConcerns)
{
    info.multiStation = GetParam().multiStation;
    for (const RW_VAR& r :
         {record(AREA_Q, 10, 3, 1, 2, 7), record(AREA_Q, 20, 1, 1, 2, 8), record(AREA_Q, 30, 1, 2, 2, 7)})
        addOnce(r);
    ASSERT_NE(ComCommunication(), nullptr);  // the first piece is in flight when the writes come
    for (int address : {100, 101, 200, 201})
        addWrite(write(address / 100, address));
    EXPECT_EQ((FakeController{{timeout, timeout, timeout}}.run(3)[2].code), RC_LOCAL_NO_REPLY + 1 + 2);
    EXPECT_EQ(g_callbacks.readDone, std::vector<std::vector<intptr_t>>({{77, 2, 7, READ_DONE_GIVEN_UP}}));
    // The queues still find what is left: a write merges into its waiting
    // target, and the dropped request may be asked for again.
    addWrite(record(AREA_VW, 201, 1, 2, 0, 0, "78 56"));
    addOnce(record(AREA_Q, 11, 1, 1, 2, 7));
    EXPECT_EQ(entries(PLC_driver.writeList.list()), GetParam().writes);
    EXPECT_EQ(targets(FakeController().run(6)), GetParam().afterwards);  // what is still sent, in order
}

INSTANTIATE_TEST_SUITE_P(
    Modes, GiveUpCleanUp,
    ::testing::Values(CleanUpCase{"SingleStation", 0, "7:201:1@2=78 56", "7:201:1@2 1:20:1@1 1:11:1@1 - - -"},
                      CleanUpCase{"MultiStation", 1, "7:200:1@2=34 12, 7:201:1@2=78 56",
                                  "7:200:1@2 7:201:1@2 1:20:1@1 1:30:1@2 1:11:1@1 -"}),
    rowName);

// A screen change while a cyclic frame is on its way: its give-up is charged
// to the frame's own station, not to the new list's head, whose writes the
// clean-up would otherwise discard.
TEST_F(LoopTest, GiveUpAfterARebuildNamesTheFrameThatFailed)
{
    info.multiStation = 1;
    rebuild({hostVar(AREA_VW, "5", 1, 2)});
    ASSERT_NE(ComCommunication(), nullptr);
    rebuild({hostVar(AREA_AM, "1", 1, 3)});
    addWrite(write(3, 40));
    const std::vector<Exchange> failed = FakeController{{timeout, timeout, timeout}}.run(3);
    EXPECT_EQ(describe(failed[2].result), "7:5:1@2");
    EXPECT_EQ(targets(FakeController().run(2)), "7:40:1@3 6:1:1@3") << "station 3's write is kept";
}

// ---- Stations switched off and on.

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
    addWrite(write(1, 1));
    rebuild({hostVar(AREA_AQ, "1", 3)});
    EnCommStation(1, 0);
    ASSERT_EQ(ComCommunication(), first);
    EXPECT_EQ(hexText(first->frame) + " " + describe(first->var), hexText(frame) + " 7:7:1@1");
}

// Station 2 is switched off until the first call has been served.
TEST_F(LoopTest, HeadOfAnOffStationOrWithoutAFrameIsDroppedAndTheNextServedInTheSameCall)
{
    struct Row { char list; int station, area, count; } rows[] = {
        {'W', 2, AREA_VW, 1}, {'W', 1, AREA_I, 1}, {'W', 1, AREA_AI, 1}, {'W', 1, 9, 1}, {'W', 1, -1, 1},
        {'W', 1, AREA_VW, -1}, {'W', 1, AREA_VW, 70000}, {'O', 2, AREA_VW, 1}, {'O', 1, 9, 1}, {'O', 1, -3, 1},
        {'O', 1, AREA_VW, -1}, {'O', 1, AREA_Q, 70000}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row " << &row - rows);
        SetUp();
        EnCommStation(2, 0);
        RW_VAR bad = row.list == 'W' ? write(row.station, 10) : record(AREA_VW, 10, 1, row.station);
        const RW_VAR good = row.list == 'W' ? write(1, 50) : record(AREA_VW, 50, 2);
        bad.area = row.area;
        bad.count = row.count;
        for (const RW_VAR& v : {bad, good})
            row.list == 'W' ? addWrite(v, 1) : addOnce(v, 1);
        FakeController fake;
        const std::vector<Exchange> first = fake.run(1);
        EnCommStation(2, 1);
        EXPECT_EQ(targets(first, true) + " " + targets(first) + " " + targets(fake.run(1)),
                  row.list + std::string(" ") + describe(good) + " -");
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

// A write enters the image as its frame is built, even where its area has
// none; while the link is down a Modbus write leaves that to the host's write.
TEST_F(LoopTest, WriteEntersTheImageAsItsFrameIsBuilt)
{
    struct Row { int remoteMode, linkDown, area; bool framed; const char* image; } rows[] = {
        {0, 0, AREA_VW, true, "34 12"}, {0, 1, AREA_VW, true, "00 00"}, {1, 1, AREA_VW, true, "34 12"},
        {0, 0, AREA_I, false, "01"},    {0, 1, AREA_I, false, "00"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row " << &row - rows);
        SetUp();
        info.remoteMode = row.remoteMode;
        addWrite(record(row.area, 4, 1, 1, 0, 0, row.area == AREA_I ? "01" : "34 12"), QUEUE_UNCONDITIONAL);
        PLC_driver.commFailed = static_cast<unsigned char>(row.linkDown);
        EXPECT_EQ(ComCommunication() != nullptr, row.framed);
        EXPECT_EQ(image(row.area, "4", 1, 1), row.image);
    }
}

TEST_F(LoopTest, RemoteModeQueuesSendRemoteFramesEachCompletedByItsReply)
{
    info.remoteMode = 1;
    info.framesPerRequest = 4;  // left over from an earlier request
    addWrite(write(1, 300));
    addOnce(record(AREA_VW, 300, 2));
    const std::vector<Exchange> done = FakeController().run(3);
    EXPECT_EQ(targets(done, true), "WO-");
    EXPECT_EQ(hexText(done[0].frame), "18 00 01 05 01 00 07 00 00 01 2C 00 01 00 00 00 00 00 00 00 00 34 12 9A");
    EXPECT_EQ(hexText(done[1].frame), "16 00 00 05 01 00 07 00 00 01 2C 00 02 00 00 00 00 00 00 00 00 52");
}

}  // namespace
