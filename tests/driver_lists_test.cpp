// The variable lists: address texts, the write and one-shot queues, and the
// cyclic list as the loop sends it after a rebuild.
#include "driver_fixture.h"
#include "varlist/address_text.h"

namespace {

TEST(AddressText, WorkedTableUnderBothNames)
{
    struct Row { int area; const char* text; int address; } rows[] = {
        {3, "10.3", 83}, {3, "0.0", 0}, {3, "12", -1}, {3, "", -1},  {3, "1.2.3", 10},  {3, "5.", 40},
        {3, ".5", 5},    {3, "1.9", 17}, {3, "2.1", 17}, {3, "a.b", 0}, {3, ".", 0},    {7, "100", 100},
        {7, "10.3", 0},  {0, "abc", 0}, {5, "-4", -4}, {INT_MIN, "12", 12}, {7, "2147483647", INT_MAX},
        {7, "2147483648", 0}, {3, "268435456.3", INT_MIN + 3}};  // the V byte.bit sum wraps
    for (const Row& r : rows) {
        SCOPED_TRACE(::testing::Message() << "area " << r.area << " \"" << r.text << '"');
        EXPECT_EQ(StringAddressToInt(r.area, r.text), r.address);
        EXPECT_EQ(PLCAddressChangeIntef(r.area, r.text), r.address);
    }
}

// ---- The write queue: the newest value per waiting target, never the head.

// value is also the requester's id, so that a merge shows it took every field.
struct WriteCall { int station, address, count, flag, value; };
struct MergeCase { const char* name; std::vector<WriteCall> calls; std::vector<int> lengths; const char* queue; };

class WriteQueue : public DriverTest, public ::testing::WithParamInterface<MergeCase> {
public:
    int add(const WriteCall& c)
    {
        RW_VAR w = record(AREA_VW, c.address, c.count, c.station, 1, c.value, "");
        w.value = QByteArray(1, static_cast<char>(c.value));
        return AddListWriteVar(&w, c.flag);
    }
};

TEST_P(WriteQueue, MergeRules)
{
    std::vector<int> lengths;
    for (const WriteCall& c : GetParam().calls)
        lengths.push_back(add(c));
    EXPECT_EQ(lengths, GetParam().lengths);
    EXPECT_EQ(entries(PLC_driver.writeList.list()), GetParam().queue);
    for (const RW_VAR& w : PLC_driver.writeList.list())
        EXPECT_EQ(w.sourceId, w.value.at(0));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WriteQueue,
    ::testing::Values(
        MergeCase{"HeadNeverMerged", {{1, 10, 1, 0, 1}, {1, 10, 1, 0, 2}, {1, 10, 1, 0, 3}}, {1, 2, 2},
                  "7:10:1@1=01, 7:10:1@1=03"},
        // Flag 1 appends even a target that is waiting; a merge takes the first waiting match.
        MergeCase{"FirstWaitingMatchOverwrittenInPlace",
                  {{1, 1, 1, 0, 1}, {1, 10, 1, 0, 2}, {1, 10, 1, 1, 3}, {1, 20, 1, 0, 4}, {1, 10, 1, 0, 5}},
                  {1, 2, 3, 4, 4}, "7:1:1@1=01, 7:10:1@1=05, 7:10:1@1=03, 7:20:1@1=04"},
        MergeCase{"CountOrStationDiffersAppended",
                  {{1, 1, 1, 0, 1}, {1, 10, 1, 0, 2}, {1, 10, 2, 0, 3}, {2, 10, 1, 0, 4}}, {1, 2, 3, 4},
                  "7:1:1@1=01, 7:10:1@1=02, 7:10:2@1=03, 7:10:1@2=04"}),
    rowName);

TEST_F(WriteQueue, FullQueueStillMergesButRefusesNewTargets)
{
    for (int i = 0; i < 1024; ++i)
        add({1, i, 1, 1, 1});
    EXPECT_EQ(add({1, 5, 1, 0, 9}), 1024);
    EXPECT_EQ(entries(PLC_driver.writeList.list().mid(4, 3)), "7:4:1@1=01, 7:5:1@1=09, 7:6:1@1=01");
    EXPECT_EQ(add({1, 5000, 1, 0, 8}), 1024);
    EXPECT_EQ(add({1, 6000, 1, 1, 7}), 1025);
    EXPECT_EQ(entries(PLC_driver.writeList.list().mid(1023)), "7:1023:1@1=01, 7:6000:1@1=07");
}

// ---- The one-shot queue: pieces, duplicates and the caller's record.

TEST_F(DriverTest, OneShotBitsAreReadOneByOneAndOnlyAnotherRequesterRepeatsThem)
{
    EXPECT_EQ(addOnce(record(AREA_Q, 4, 3, 1, 2, 5)), 3);
    EXPECT_EQ(entries(PLC_driver.onceReadList.list()), "1:4:1@1, 1:5:1@1, 1:6:1@1");
    EXPECT_EQ(addOnce(record(AREA_Q, 4, 3, 1, 2, 5)), 3);
    EXPECT_EQ(addOnce(record(AREA_Q, 4, 3, 1, 2, 6)), 6);
}

// record: the caller's record afterwards, and its param1 + param2 (cleared when accepted).
TEST_F(DriverTest, OneShotWordsAreCutAndTheCallersRecordShowsTheLastPieceOrIsLeftAlone)
{
    struct Row { int multi, maxLen, area; const char* address; int count; const char *queue, *record; } rows[] = {
        {0, 100, AREA_AM, "3", 250, "6:3:100@1, 6:103:100@1, 6:203:50@1", "6:203:50@1 0"},
        {1, 100, AREA_AM, "3", 250, "6:3:100@7, 6:103:100@7, 6:203:50@7", "6:203:50@7 0"},
        {0, 100, AREA_AM, "3", 100, "6:3:100@1", "6:3:100@1 0"},
        {0, 0, AREA_AM, "3", 3, "6:3:1@1, 6:4:1@1, 6:5:1@1", "6:5:1@1 0"},
        {0, 100, AREA_AM, "3", 0, "", "6:3:0@1 0"},
        {0, 100, AREA_AM, "65530", INT_MAX, "6:65530:5@1", "6:65530:5@1 0"},
        {0, 100, AREA_AM, "0", INT_MIN, "", "6:0:-2147483648@1 0"},
        {0, 100, AREA_V, "12", 2, "", "3:999:2@7 8"},
        {0, 100, AREA_VW, "-4", 2, "", "7:999:2@7 8"},
        {0, 100, 9, "1", 2, "", "9:999:2@7 8"},
        {0, 100, -1, "1", 2, "", "-1:999:2@7 8"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row " << &row - rows);
        SetUp();
        info.multiStation = row.multi;
        info.maxBlockLength = row.maxLen;
        RW_VAR r = record(row.area, 999, row.count, 7);
        r.addressText = row.address;
        r.param1 = r.param2 = 4;
        const int length = AddListOnceReadVar(&r, 0);
        EXPECT_EQ(length, PLC_driver.onceReadList.size());
        EXPECT_EQ(entries(PLC_driver.onceReadList.list()), row.queue);
        EXPECT_EQ(describe(r) + " " + std::to_string(r.param1 + r.param2), row.record);
    }
}

TEST_F(DriverTest, OneShotQueueFullDropsNewPieces)
{
    for (int i = 0; i < 1024; ++i)
        addOnce(record(AREA_VW, i, 1), 1);
    EXPECT_EQ(addOnce(record(AREA_VW, 5000, 1)), 1024);
    EXPECT_EQ(addOnce(record(AREA_VW, 5000, 1), 1), 1025);
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
const QList<HOSTVAR> equalAddresses = {hostVar(AREA_VW, "10", 2, 1, "first"), hostVar(AREA_VW, "10", 2, 1, "second"),
                                       hostVar(AREA_M, "4", 1, 1, "first"), hostVar(AREA_M, "4", 1, 1, "second")};

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
        RebuildCase{"BlockLengthIntMax", 0, INT_MAX, {vw("0", 300)}, "7:0:300@1"},
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
        RebuildCase{"EqualAddressesKeepTheHostsOrder", 0, 100, equalAddresses, "2:4:1@1/first 7:10:2@1/first"},
        RebuildCase{"EqualAddressesMostRecentlyFiledFirst", 1, 100, equalAddresses, "7:10:2@1/second 2:4:1@1/second"},
        RebuildCase{"SingleStationCountZeroKept", 0, 100, {vw("5", 0)}, "7:5:0@1"},
        RebuildCase{"MultiStationCountZeroDropped", 1, 100, {vw("5", 0)}, ""},
        RebuildCase{"AreaAbove7Dropped", 0, 100, {hostVar(9, "1", 1), vw("2", 1)}, "7:2:1@1"},
        RebuildCase{"NegativeCountDropped", 1, 100, {vw("1", INT_MIN), hostVar(AREA_Q, "1", -3), vw("2", 1)}, "7:2:1@1"},
        RebuildCase{"ClippedAtTheImageEnd", 0, 100, {vw("65530", INT_MAX), vw("65535", 1), vw("2147483647", 1)},
                    "7:65530:5@1"}),
    rowName);

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
