// Whole frames and reply bookkeeping of every builder, in both frame modes.
#include "driver_fixture.h"
#include "modbus/read_requests.h"
#include "modbus/write_requests.h"
#include "remotemode/remote_frames.h"

namespace {

enum Builder { READ, WRITE, REMOTE_READ, REMOTE_WRITE };

struct FrameCase {
    const char* name;
    Builder builder;
    int area, address, count, station;
    const char* value;
    const char* frame;  // empty: no frame may be queued
    int replyLength, dataLength;
};

const FrameCase kFrames[] = {
    {"ReadQ1", READ, AREA_Q, 1, 1, 1, "", "00 00 00 00 00 06 01 01 20 00 00 01", 10, 1},
    {"ReadI1Station2", READ, AREA_I, 1, 1, 2, "", "00 00 00 00 00 06 02 02 00 00 00 01", 10, 1},
    {"ReadM1", READ, AREA_M, 1, 1, 1, "", "00 00 00 00 00 06 01 01 20 40 00 01", 10, 1},
    {"ReadV1_5", READ, AREA_V, 13, 1, 1, "", "00 00 00 00 00 06 01 01 00 0D 00 01", 10, 1},
    {"ReadAI1x8", READ, AREA_AI, 1, 8, 1, "", "00 00 00 00 00 06 01 04 00 00 00 08", 25, 16},
    {"ReadAQ1x2", READ, AREA_AQ, 1, 2, 1, "", "00 00 00 00 00 06 01 03 02 00 00 02", 13, 4},
    {"ReadAM1", READ, AREA_AM, 1, 1, 1, "", "00 00 00 00 00 06 01 03 02 10 00 01", 11, 2},
    {"ReadVW0Station3", READ, AREA_VW, 0, 2, 3, "", "00 00 00 00 00 06 03 03 00 00 00 02", 13, 4},
    {"ReadCount0", READ, AREA_VW, 0, 0, 1, "", "00 00 00 00 00 06 01 03 00 00 00 00", 9, 0},
    {"ReadCount300", READ, AREA_VW, 0, 300, 1, "", "00 00 00 00 00 06 01 03 00 00 01 2C", 609, 600},
    {"ReadStation257", READ, AREA_VW, 0, 1, 257, "", "00 00 00 00 00 06 01 03 00 00 00 01", 11, 2},
    {"ReadAreaI0WrapsAddress", READ, AREA_I, 0, 1, 1, "", "00 00 00 00 00 06 01 02 FF FF 00 01", 10, 1},
    // The low 16 bits of the Modbus address go out, whatever the address.
    {"ReadQIntMaxWraps", READ, AREA_Q, INT_MAX, 1, 1, "", "00 00 00 00 00 06 01 01 1F FE 00 01", 10, 1},
    {"ReadIIntMinWraps", READ, AREA_I, INT_MIN, 1, 1, "", "00 00 00 00 00 06 01 02 FF FF 00 01", 10, 1},
    {"ReadAMIntMaxWraps", READ, AREA_AM, INT_MAX, 1, INT_MIN, "", "00 00 00 00 00 06 00 03 02 0E 00 01", 11, 2},
    {"ReadAreaIntMinNoFrame", READ, INT_MIN, 1, 1, 1, "", "", 0, 0},
    {"ReadCountIntMaxNoFrame", READ, AREA_VW, 0, INT_MAX, 1, "", "", 0, 0},
    {"ReadArea8NoFrame", READ, 8, 1, 1, 1, "", "", 0, 0},
    {"ReadNegativeCountNoFrame", READ, AREA_VW, 0, -1, 1, "", "", 0, 0},
    {"WriteQ1On", WRITE, AREA_Q, 1, 1, 1, "01", "00 00 00 00 00 06 01 05 20 00 FF 00", 12, 0},
    {"WriteM3Byte2IsOff", WRITE, AREA_M, 3, 1, 1, "02", "00 00 00 00 00 06 01 05 20 42 00 00", 12, 0},
    {"WriteCoilEmptyIsOff", WRITE, AREA_Q, 1, 1, 1, "", "00 00 00 00 00 06 01 05 20 00 00 00", 12, 0},
    {"WriteCoilCount3OneCoil", WRITE, AREA_V, 8, 3, 1, "01 01 01", "00 00 00 00 00 06 01 05 00 08 FF 00", 12, 0},
    {"WriteAM3", WRITE, AREA_AM, 3, 1, 1, "E8 03", "00 00 00 00 00 06 01 06 02 12 03 E8", 12, 0},
    {"WriteAQ2UsesTwoBytes", WRITE, AREA_AQ, 2, 1, 1, "10 27 99 99", "00 00 00 00 00 06 01 06 02 01 27 10", 12, 0},
    {"WriteVW10x2", WRITE, AREA_VW, 10, 2, 1, "34 12 78 56", "00 00 00 00 00 0B 01 10 00 0A 00 02 04 12 34 56 78", 12, 0},
    {"WriteMissingRegistersAreZero", WRITE, AREA_VW, 0, 3, 1, "01 00 02",
     "00 00 00 00 00 0D 01 10 00 00 00 03 06 00 01 00 00 00 00", 12, 0},
    {"WriteCount0", WRITE, AREA_VW, 7, 0, 1, "", "00 00 00 00 00 07 01 00 00 07 00 00 00", 12, 0},
    {"WriteAQIntMinWraps", WRITE, AREA_AQ, INT_MIN, 1, INT_MAX, "01 00", "00 00 00 00 00 06 FF 06 01 FF 00 01", 12, 0},
    {"WriteCountIntMinNoFrame", WRITE, AREA_VW, 0, INT_MIN, 1, "", "", 0, 0},
    {"WriteInputNoFrame", WRITE, AREA_I, 1, 1, 1, "01", "", 0, 0},
    {"WriteAINoFrame", WRITE, AREA_AI, 1, 1, 1, "01 00", "", 0, 0},
    {"WriteNegativeCountNoFrame", WRITE, AREA_VW, 1, -7, 1, "", "", 0, 0},
    {"RemoteReadVW300", REMOTE_READ, AREA_VW, 300, 2, 1, "",
     "16 00 00 05 01 00 07 00 00 01 2C 00 02 00 00 00 00 00 00 00 00 52", 13, 4},
    {"RemoteReadBits", REMOTE_READ, AREA_M, 1, 3, 1, "",
     "16 00 00 05 01 00 02 00 00 00 01 00 03 00 00 00 00 00 00 00 00 22", 12, 3},
    {"RemoteReadStation300", REMOTE_READ, AREA_Q, 1, 1, 300, "",
     "16 00 00 05 2C 00 01 00 00 00 01 00 01 00 00 00 00 00 00 00 00 4A", 10, 1},
    {"RemoteReadArea9NoFrame", REMOTE_READ, 9, 1, 1, 1, "", "", 0, 0},
    {"RemoteReadAddressIntMin", REMOTE_READ, AREA_Q, INT_MIN, 1, INT_MIN, "",
     "16 00 00 05 00 00 01 80 00 00 00 00 01 00 00 00 00 00 00 00 00 9D", 10, 1},
    {"RemoteWriteEveryFieldAtItsEdge", REMOTE_WRITE, INT_MIN, INT_MAX, INT_MAX, INT_MAX, "01",
     "17 00 01 05 FF 00 00 7F FF FF FF FF FF 00 00 00 00 00 00 00 00 01 97", 12, 0},
    {"RemoteWriteVW300", REMOTE_WRITE, AREA_VW, 300, 1, 1, "34 12",
     "18 00 01 05 01 00 07 00 00 01 2C 00 01 00 00 00 00 00 00 00 00 34 12 9A", 12, 0},
    {"RemoteWriteEmptyValue", REMOTE_WRITE, AREA_VW, 300, 1, 1, "",
     "16 00 01 05 01 00 07 00 00 01 2C 00 01 00 00 00 00 00 00 00 00 52", 12, 0},
};

class FrameTest : public DriverTest, public ::testing::WithParamInterface<FrameCase> {};

TEST_P(FrameTest, QueuesWholeFrameWithBookkeeping)
{
    const FrameCase& c = GetParam();
    const bool write = c.builder == WRITE || c.builder == REMOTE_WRITE;
    RW_VAR var = record(c.area, c.address, c.count, c.station, 0, 0, write ? c.value : nullptr);
    var.auxText = QStringLiteral("aux");
    void (*const builders[])(FrameQueue&, const RW_VAR*) = {ReadRegister, WriteRegister, Remote_ReadVar,
                                                           Remote_WriteVar};
    builders[c.builder](PLC_driver.frameQueue, &var);
    const bool built = *c.frame;
    ASSERT_EQ(PLC_driver.frameQueue.size(), built ? 1 : 0);
    const Protocol p = built ? PLC_driver.frameQueue.first() : Protocol();  // all zero when there is no frame
    EXPECT_EQ(hexText(p.frame), c.frame);
    EXPECT_EQ(std::vector<int>({p.frameLength, p.replyLength, p.dataLength, p.replyHeaderLength}),
              std::vector<int>({p.frame.size(), c.replyLength, c.dataLength, write || !built ? 0 : 9}));
    if (built) {  // the reply is matched to the record the frame carries: it must be the caller's, whole
        EXPECT_EQ(describe(p.var) + " " + hexText(p.var.value), describe(var) + " " + hexText(hexBytes(c.value)));
    }
}

INSTANTIATE_TEST_SUITE_P(AllAreasBothModes, FrameTest, ::testing::ValuesIn(kFrames), rowName);

// Frame slots are reused: a short frame after a long one must carry nothing
// of it, neither bytes nor the record's value.
TEST_F(DriverTest, AFrameAfterALongerOneIsWholeAndOnlyItself)
{
    RW_VAR write = record(AREA_VW, 10, 2, 1, 0, 0, "34 12 78 56");
    WriteRegister(PLC_driver.frameQueue, &write);
    PLC_driver.frameQueue.removeFirst();
    const RW_VAR read = record(AREA_AQ, 1, 2);
    ReadRegister(PLC_driver.frameQueue, &read);
    ASSERT_EQ(PLC_driver.frameQueue.size(), 1);
    const Protocol& p = PLC_driver.frameQueue.first();
    EXPECT_EQ(hexText(p.frame), "00 00 00 00 00 06 01 03 02 00 00 02");
    EXPECT_EQ(p.frameLength, 12);
    EXPECT_EQ(describe(p.var) + hexText(p.var.value), describe(read));
}

}  // namespace
