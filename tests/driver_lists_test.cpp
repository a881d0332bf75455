// The variable lists: address texts, the write and one-shot queues, and the
// cyclic list as the loop sends it after a rebuild.
#include "fake_controller.h"
// Each driver_*_test.cpp is built on its own; the fake comes with it.

#include "varlist/address_text.h"

namespace {

TEST(AddressText, WorkedTableUnderBothNames)
{
    struct Row { int area; const char* text; int address; } rows[] = {
        {3, "10.3", 83}, {3, "0.0", 0}, {3, "12", -1}, {3, "", -1},  {3, "1.2.3", 10},  {3, "5.", 40},
        {3, ".5", 5},    {3, "1.9", 17}, {3, "2.1", 17}, {3, "a.b", 0}, {3, ".", 0},    {7, "100", 100},
        {7, "10.3", 0},  {0, "abc", 0}, {5, "-4", -4}, {9, "12", 12}};
    for (const Row& r : rows) {
        SCOPED_TRACE(::testing::Message() << "area " << r.area << " \"" << r.text << '"');
        EXPECT_EQ(StringAddressToInt(r.area, r.text), r.address);
        EXPECT_EQ(PLCAddressChangeIntef(r.area, r.text), r.address);
    }
}

// describe() of each entry of a list, with "=value" when it has one.
std::string entries(const QList<RW_VAR>& list)
{
    std::string text;
    for (const RW_VAR& v : list)
        text += (text.empty() ? "" : " ") + describe(v) + (v.value.isEmpty() ? "" : "=" + v.value.toStdString());
    return text;
}

// ---- The write queue: the newest value per waiting target, never the head.

// value is also the requester's id, so that a merge shows it took every field.
struct WriteCall { int station, address, count, flag; char value; };
struct MergeCase { const char* name; std::vector<WriteCall> calls; std::vector<int> lengths; const char* queue; };

class WriteQueue : public DriverTest, public ::testing::WithParamInterface<MergeCase> {
public:
    RW_VAR write(const WriteCall& c) const
    {
        RW_VAR w = record(AREA_VW, c.address, c.count, c.station, 1, c.value);
        w.rwType = 1;
        w.value = QByteArray(1, c.value);
        return w;
    }
};

TEST_P(WriteQueue, MergeRules)
{
    std::vector<int> lengths;
    for (const WriteCall& c : GetParam().calls) {
        RW_VAR w = write(c);
        lengths.push_back(AddListWriteVar(&w, c.flag));
    }
    EXPECT_EQ(lengths, GetParam().lengths);
    EXPECT_EQ(entries(PLC_driver.writeList), GetParam().queue);
    for (const RW_VAR& w : PLC_driver.writeList)
        EXPECT_EQ(w.sourceId, w.value.at(0));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WriteQueue,
    ::testing::Values(
        MergeCase{"HeadNeverMerged", {{1, 10, 1, 0, 'a'}, {1, 10, 1, 0, 'b'}, {1, 10, 1, 0, 'c'}}, {1, 2, 2},
                  "7:10:1@1=a 7:10:1@1=c"},
        MergeCase{"FirstWaitingMatchOverwrittenInPlace",
                  {{1, 1, 1, 0, 'a'}, {1, 10, 1, 0, 'b'}, {1, 10, 1, 1, 'c'}, {1, 20, 1, 0, 'd'}, {1, 10, 1, 0, 'e'}},
                  {1, 2, 3, 4, 4}, "7:1:1@1=a 7:10:1@1=e 7:10:1@1=c 7:20:1@1=d"},
        MergeCase{"CountOrStationDiffersAppended",
                  {{1, 1, 1, 0, 'a'}, {1, 10, 1, 0, 'b'}, {1, 10, 2, 0, 'c'}, {2, 10, 1, 0, 'd'}}, {1, 2, 3, 4},
                  "7:1:1@1=a 7:10:1@1=b 7:10:2@1=c 7:10:1@2=d"},
        MergeCase{"FlagOneAlwaysAppends", {{1, 1, 1, 0, 'a'}, {1, 10, 1, 0, 'b'}, {1, 10, 1, 1, 'c'}}, {1, 2, 3},
                  "7:1:1@1=a 7:10:1@1=b 7:10:1@1=c"}),
    rowName);

TEST_F(WriteQueue, FullQueueStillMergesButRefusesNewTargets)
{
    for (int i = 0; i < 1024; ++i) {
        RW_VAR w = write({1, i, 1, 1, 'a'});
        AddListWriteVar(&w, 1);
    }
    RW_VAR merge = write({1, 5, 1, 0, 'z'}), fresh = write({1, 5000, 1, 0, 'y'}), forced = write({1, 6000, 1, 1, 'x'});
    EXPECT_EQ(AddListWriteVar(&merge, 0), 1024);
    EXPECT_EQ(entries(PLC_driver.writeList.mid(4, 3)), "7:4:1@1=a 7:5:1@1=z 7:6:1@1=a");
    EXPECT_EQ(AddListWriteVar(&fresh, 0), 1024);
    EXPECT_EQ(AddListWriteVar(&forced, 1), 1025);
    EXPECT_EQ(entries(PLC_driver.writeList.mid(1023)), "7:1023:1@1=a 7:6000:1@1=x");
}

// ---- The one-shot queue: pieces, duplicates and the caller's record.

TEST_F(DriverTest, OneShotBitsAreReadOneByOneAndOnlyAnotherRequesterRepeatsThem)
{
    RW_VAR r = record(AREA_Q, 4, 12, 1, 2, 5), again = r, otherRequester = record(AREA_Q, 4, 12, 1, 2, 6);
    EXPECT_EQ(AddListOnceReadVar(&r, 0), 12);
    EXPECT_EQ(entries(PLC_driver.onceReadList), "1:4:1@1 1:5:1@1 1:6:1@1 1:7:1@1 1:8:1@1 1:9:1@1 1:10:1@1 1:11:1@1 "
                                                "1:12:1@1 1:13:1@1 1:14:1@1 1:15:1@1");
    EXPECT_EQ(AddListOnceReadVar(&again, 0), 12);
    EXPECT_EQ(AddListOnceReadVar(&otherRequester, 0), 24);
}

TEST_F(DriverTest, OneShotWordsAreCutAndTheCallersRecordShowsTheLastPiece)
{
    struct Row { int multiStation, maxLen, count; const char *queue, *record; } rows[] = {
        {0, 100, 250, "6:3:100@1 6:103:100@1 6:203:50@1", "6:203:50@1"},
        {1, 100, 250, "6:3:100@7 6:103:100@7 6:203:50@7", "6:203:50@7"},
        {0, 100, 100, "6:3:100@1", "6:3:100@1"},
        {0, 0, 3, "6:3:1@1 6:4:1@1 6:5:1@1", "6:5:1@1"},
        {0, 100, 0, "", "6:3:0@1"},
        {0, 100, -2, "", "6:3:-2@1"},
        {0, 100, 70000, "6:65530:5@1", "6:65530:5@1"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << "multi " << row.multiStation << " maxLen " << row.maxLen << " count "
                                          << row.count);
        SetUp();
        info.multiStation = row.multiStation;
        info.maxBlockLength = row.maxLen;
        RW_VAR r = record(AREA_AM, 999, row.count, 7);
        r.addressText = row.count == 70000 ? "65530" : "3";
        r.param1 = r.param2 = 4;
        const int length = AddListOnceReadVar(&r, 0);
        EXPECT_EQ(length, PLC_driver.onceReadList.size());
        EXPECT_EQ(entries(PLC_driver.onceReadList), row.queue);
        EXPECT_EQ(describe(r), row.record);
        EXPECT_EQ(r.param1 + r.param2, 0);
    }
}

TEST_F(DriverTest, OneShotRecordsRefusedStayUnchanged)
{
    struct Row { int area; const char* text; } rows[] = {{AREA_V, "12"}, {AREA_VW, "-4"}, {9, "1"}, {-1, "1"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << "area " << row.area << " \"" << row.text << '"');
        RW_VAR r = record(row.area, 77, 2, 7);
        r.addressText = row.text;
        EXPECT_EQ(AddListOnceReadVar(&r, 0), 0);
        EXPECT_EQ(describe(r), std::to_string(row.area) + ":77:2@7");
        EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
    }
}

TEST_F(DriverTest, OneShotQueueFullDropsNewPieces)
{
    for (int i = 0; i < 1024; ++i) {
        RW_VAR r = record(AREA_VW, i, 1);
        AddListOnceReadVar(&r, 1);
    }
    RW_VAR r = record(AREA_VW, 5000, 1);
    EXPECT_EQ(AddListOnceReadVar(&r, 0), 1024);
    EXPECT_EQ(AddListOnceReadVar(&r, 1), 1025);
}

// ---- The cyclic list, seen as the frames the loop sends after a rebuild.

// frames: one pass, in the order sent.
struct RebuildCase { const char* name; int multiStation, maxLen; QList<HOSTVAR> vars; std::string frames; };

class CyclicRebuild : public DriverTest, public ::testing::WithParamInterface<RebuildCase> {};

TEST_P(CyclicRebuild, FramesOfOnePass)
{
    const RebuildCase& c = GetParam();
    info.multiStation = c.multiStation;
    info.maxBlockLength = c.maxLen;
    const int n = rebuild(c.vars);
    // One pass, then the first frame again: the list is scanned in rotation.
    const std::string again = n ? " " + c.frames.substr(0, c.frames.find(' ')) : "-";
    EXPECT_EQ(targets(FakeController().run(n + 1)), c.frames + again);
}

HOSTVAR vw(const char* address, int count) { return hostVar(AREA_VW, address, count); }

INSTANTIATE_TEST_SUITE_P(
    WorkedTables, CyclicRebuild,
    ::testing::Values(
        RebuildCase{"SplitAtBlockLength", 0, 100, {vw("0", 250)}, "7:0:100@1 7:100:100@1 7:200:50@1"},
        RebuildCase{"ExactlyBlockLengthIsOnePiece", 0, 100, {vw("0", 100)}, "7:0:100@1"},
        RebuildCase{"GapOfThreeMerged", 0, 100, {vw("10", 2), vw("15", 1)}, "7:10:6@1"},
        RebuildCase{"GapOfFourNotMerged", 0, 100, {vw("16", 1), vw("10", 2)}, "7:10:2@1 7:16:1@1"},
        RebuildCase{"NeighboursAndOverlapsMerged", 0, 100, {vw("14", 1), vw("12", 2), vw("10", 5), vw("10", 2)},
                    "7:10:5@1"},
        RebuildCase{"MergedBlockCutAtBlockLength", 0, 8, {vw("0", 5), vw("6", 5)}, "7:0:8@1 7:8:3@1"},
        RebuildCase{"OverlapBehindACutOpensABlock", 0, 10, {vw("6", 2), vw("5", 10), vw("0", 10)},
                    "7:0:10@1 7:10:5@1 7:6:2@1"},
        RebuildCase{"BlockLengthZeroTakenAsOne", 0, 0, {vw("0", 3)}, "7:0:1@1 7:1:1@1 7:2:1@1"},
        RebuildCase{"BitsDeduplicatedNeverJoined", 0, 100,
                    {hostVar(AREA_Q, "9", 1), hostVar(AREA_Q, "3", 2), hostVar(AREA_Q, "3", 1)},
                    "1:3:1@1 1:4:1@1 1:9:1@1"},
        RebuildCase{"VBitAddresses", 0, 100, {hostVar(AREA_V, "1.5", 2), hostVar(AREA_V, "12", 1)},
                    "3:13:1@1 3:14:1@1"},
        RebuildCase{"SingleStationGroupsByArea", 0, 100,
                    {vw("1", 1), hostVar(AREA_AQ, "1", 1, 3), hostVar(AREA_Q, "1", 1), hostVar(AREA_I, "1", 1)},
                    "0:1:1@1 1:1:1@1 5:1:1@1 7:1:1@1"},
        RebuildCase{"MultiStationGroupsByFirstAppearance", 1, 100,
                    {hostVar(AREA_VW, "20", 1, 2), hostVar(AREA_VW, "0", 1, 1), hostVar(AREA_VW, "0", 1, 2),
                     hostVar(AREA_Q, "1", 1, 1)},
                    "7:0:1@2 7:20:1@2 7:0:1@1 1:1:1@1"},
        RebuildCase{"SingleStationCountZeroKept", 0, 100, {vw("5", 0)}, "7:5:0@1"},
        RebuildCase{"MultiStationCountZeroDropped", 1, 100, {vw("5", 0)}, ""},
        RebuildCase{"SingleStationAreaAbove7Dropped", 0, 100, {hostVar(9, "1", 1), vw("2", 1)}, "7:2:1@1"},
        RebuildCase{"MultiStationAreaAbove7Dropped", 1, 100, {hostVar(9, "1", 1), vw("2", 1)}, "7:2:1@1"},
        RebuildCase{"NegativeCountDropped", 1, 100, {vw("1", -1), hostVar(AREA_Q, "1", -3), vw("2", 1)}, "7:2:1@1"},
        RebuildCase{"ClippedAtTheImageEnd", 0, 100, {vw("65530", 10), vw("65535", 1)}, "7:65530:5@1"}),
    rowName);

TEST_F(CyclicRebuild, EqualAddressesKeepTheHostsOrderOrTheMostRecentlyFiled)
{
    for (int multiStation : {0, 1}) {
        SCOPED_TRACE(multiStation);
        SetUp();
        info.multiStation = multiStation;
        ASSERT_EQ(rebuild({hostVar(AREA_VW, "10", 2, 1, "first"), hostVar(AREA_VW, "10", 2, 1, "second"),
                           hostVar(AREA_M, "4", 1, 1, "first"), hostVar(AREA_M, "4", 1, 1, "second")}),
                  2);
        for (const Exchange& e : FakeController().run(2))
            EXPECT_EQ(e.var.auxText.toStdString(), multiStation ? "second" : "first") << e.var.area;
    }
}

TEST_F(CyclicRebuild, EmptyHostListKeepsThePassStateAndAnInvalidOneResetsIt)
{
    rebuild({vw("0", 1)});
    info.scanDone = 1;
    PLC_driver.scanPosition = 3;
    EXPECT_EQ(rebuild({}), 0);
    EXPECT_EQ(std::make_pair(info.scanDone, PLC_driver.scanPosition), std::make_pair(1, 3));
    EXPECT_EQ(ComCommunication(), nullptr);
    EXPECT_EQ(rebuild({hostVar(AREA_V, "12", 1), vw("-3", 1)}), 0);
    EXPECT_EQ(std::make_pair(info.scanDone, PLC_driver.scanPosition), std::make_pair(0, 0));
}

}  // namespace
