// Every int a host can pass, from INT_MIN to INT_MAX, in every argument and
// every field of every record: counters saturate, and no arithmetic
// overflows (the sanitizer build runs these too). The defined results at the
// edges are rows of the tables they belong to: frames, lists, image.
#include "driver_fixture.h"

namespace {

const int kEdges[] = {INT_MIN, INT_MIN + 1, -65536, -1, 0, 1, 65534, 65535, 65536, INT_MAX - 1, INT_MAX};

class Extremes : public DriverTest {};

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
