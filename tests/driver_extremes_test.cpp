// Every int a host can pass, from INT_MIN to INT_MAX, in every argument and
// every field of every record: ranges are cut to the image, fields wider
// than their frame fields keep their low bits, counters saturate, and no
// arithmetic overflows (the sanitizer build runs these too).
#include <climits>

#include "driver_fixture.h"
#include "image/reply_store.h"

namespace {

const int kEdges[] = {INT_MIN, INT_MIN + 1, -65536, -1, 0, 1, 65534, 65535, 65536, INT_MAX - 1, INT_MAX};

class Extremes : public DriverTest {};

TEST_F(Extremes, ImageRangesAreCutAtTheAreasEnds)
{
    info.writeMode = 0;  // the image only
    for (int multiStation : {0, 1}) {
        SCOPED_TRACE(multiStation ? "per station" : "one controller");
        info.multiStation = multiStation;
        const QByteArray data = hexBytes("01 02 03 04");
        EXPECT_EQ(1, SetRegisterData(QString(), AREA_VW, "65534", 1, data, INT_MAX, 0, 0));
        EXPECT_EQ(image(AREA_VW, "65533", 1, INT_MAX), "00 00 01 02") << "two words exist from 65533";
        EXPECT_EQ(1, SetRegisterData(QString(), AREA_VW, "2147483647", INT_MIN, data, INT_MAX, 0, 0));
        EXPECT_EQ(image(AREA_VW, "2147483647", 1, INT_MAX), "") << "nothing exists past the end";
        EXPECT_EQ(0, SetRegisterData(QString(), AREA_VW, "-2147483648", 1, data, 1, 0, 0)) << "a negative address";
        EXPECT_EQ(image(AREA_M, "0", INT_MIN, INT_MIN), "") << "a negative count reads nothing";
        EXPECT_EQ(1, SetRegisterData(QString(), INT_MIN, "0", 1, data, 1, 0, 0)) << "an unknown area changes nothing";
    }
    EXPECT_EQ(PLC_driver.wordImage[3][65534], 0x0201);
    EXPECT_EQ(PLC_driver.wordImage[3][0], 0);
}

TEST_F(Extremes, QueuesAndTheCyclicListTakeOnlyWhatExists)
{
    EXPECT_EQ(1, SetRegisterData(QString(), AREA_VW, "65534", 1, hexBytes("01 02"), INT_MAX, INT_MIN, INT_MAX));
    EXPECT_EQ(entries(PLC_driver.writeList.list()), "7:65534:1@1=01 02");
    RW_VAR read = record(AREA_M, 0, INT_MAX);
    read.addressText = QStringLiteral("65530");
    EXPECT_EQ(5, AddListOnceReadVar(&read, 0));
    EXPECT_EQ(std::make_pair(read.address, read.count), std::make_pair(65534, 1)) << "the caller sees the last piece";
    read.count = INT_MIN;
    read.addressText = QStringLiteral("0");
    EXPECT_EQ(5, AddListOnceReadVar(&read, 0)) << "a negative count asks for nothing";
    EXPECT_EQ(1, rebuild({hostVar(AREA_VW, "65534", INT_MAX), hostVar(AREA_VW, "0", INT_MIN),
                          hostVar(AREA_VW, "2147483647", 1)}));
    EXPECT_EQ(entries(PLC_driver.readList), "7:65534:1@1");

    const struct {
        int maxBlockLength;
        int entries;
    } blocks[] = {{INT_MAX, 1}, {INT_MIN, 200}, {0, 200}};
    for (const auto& row : blocks) {
        info.maxBlockLength = row.maxBlockLength;
        EXPECT_EQ(row.entries, rebuild({hostVar(AREA_VW, "0", 200)})) << row.maxBlockLength;
    }
}

TEST_F(Extremes, CountersSaturateAndLengthsAreJustWrong)
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

TEST_F(Extremes, StationsAtTheEdgesSwitchLikeAnyOther)
{
    info.multiStation = 1;
    EnCommStation(INT_MAX, 0);
    addWrite(write(INT_MAX, 1));
    addWrite(write(INT_MIN, 2));
    FakeController controller;
    EXPECT_EQ(targets(controller.run(2)), "7:2:1@-2147483648 -") << "the write to the station switched off is dropped";
    EnCommStation(INT_MIN, 1);
    EXPECT_TRUE(PLC_driver.disabledStations.isEmpty()) << "a negative station switches every station on";
}

TEST(ExtremeConversions, WrapAsTheirThirtyTwoBitArithmetic)
{
    const struct {
        const char* what;
        int value, expected;
    } rows[] = {
        {"digit INT_MAX", DigitalToASCII(INT_MAX), INT_MIN + 54},
        {"digit INT_MIN", DigitalToASCII(INT_MIN), INT_MIN + 48},
        {"character INT_MAX", ASCIIToDigital(INT_MAX), INT_MAX - 55},
        {"character INT_MIN", ASCIIToDigital(INT_MIN), 0},
        {"V byte 2^28", PLCAddressChangeIntef(AREA_V, "268435456.3"), INT_MIN + 3},
        {"VW text INT_MAX", PLCAddressChangeIntef(AREA_VW, "2147483647"), INT_MAX},
        {"VW text past INT_MAX", PLCAddressChangeIntef(AREA_VW, "2147483648"), 0},
        {"area INT_MIN", PLCAddressChangeIntef(INT_MIN, "12"), 12},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.value, row.expected) << row.what;
}

// A count whose bytes no byte array can hold is no range of any array: the
// packing operations do nothing with it rather than overflow its size.
TEST(ExtremePacking, CountsBeyondAnyByteArrayDoNothing)
{
    unsigned short words[2] = {0x0102, 0x0304};
    for (int count : {INT_MAX, INT_MAX - 1, INT_MAX / 2 + 1}) {
        QByteArray out = hexBytes("AA");
        GetWordFromUS(out, words, 0, count);
        GetWordFromUI(out, words, 0, count);
        EXPECT_EQ(hexText(out), "AA") << count;
    }
}

// Every edge in every int argument and record field, through every entry
// point, in both image forms and both frame modes; each queued record is
// then served, so that its frame is built and its reply dispatched. The
// lists must stay within their bounds, and the sanitizer build must stay
// silent.
TEST_F(Extremes, EveryEntryPointTakesEveryEdge)
{
    for (int mode = 0; mode < 4; ++mode) {
        for (int e : kEdges) {
            SetUp();
            info.multiStation = mode & 1;
            info.remoteMode = mode & 2;
            SCOPED_TRACE(testing::Message() << "mode " << mode << " edge " << e);
            FakeController controller;
            controller.script = {{Answer::Timeout, {}}, {Answer::WrongLength, {}}, {Answer::NullReply, {}}};
            const QString text = QString::number(e);
            QByteArray data = hexBytes("01 02 03 04"), out;
            EnCommStation(e, e);
            PLCAddressChangeIntef(e, text);
            for (int area : {int(AREA_I), int(AREA_V), int(AREA_VW), e}) {
                GetRegisterData(text, area, text, e, out, e);
                SetRegisterData(text, area, text, e, data, e, e, e);
                SetRegisterData(text, area, QStringLiteral("1"), 1, data, e, e, e);
                rebuild({hostVar(area & 0xFF, qPrintable(text), e, e & 0xFF)});
                controller.run(20);
            }
            const int areas[] = {AREA_I, AREA_Q, AREA_AQ, AREA_VW};  // each with its own Modbus offset
            for (int field = 0; field < 12; ++field) {
                for (int area : areas) {
                    for (int flag : {0, 1, e}) {
                        RW_VAR v = record(area, 1, 1, 1, 0, 0, "01 02");
                        int* fields[] = {&v.sourceType, &v.sourceId, &v.rwType, &v.remoteFlag, &v.linkId,
                                         &v.returnCode, &v.area, &v.address, &v.station, &v.count, &v.param1,
                                         &v.param2};
                        *fields[field] = e;
                        v.addressText = text;
                        RW_VAR copy = v;
                        AddListWriteVar(&copy, flag);
                        v.rwType = field == 2 ? e : 0;
                        AddListOnceReadVar(&v, flag);
                        controller.run(4);
                    }
                }
            }
            info.maxBlockLength = e;
            info.retryLimit = e;
            info.localLinkId = e;
            controller.run(50);
            EXPECT_LE(PLC_driver.writeList.size(), 1024 + 12 * 4 * 3);
            EXPECT_LE(PLC_driver.onceReadList.size(), 1024 + 12 * 4 * 3);
        }
    }
}

}  // namespace
