// The image: packing operations, check values, both image forms and their bounds.
#include "driver_fixture.h"
#include "image/reply_store.h"
#include "image/station_image.h"

namespace {

TEST(Packing, KnownValuesAndInverses)
{
    unsigned short words[4] = {0, 0, 0, 0};
    QByteArray in = hexBytes("01 02");
    SetWordToUS(0, words, &in, 1);
    EXPECT_EQ(0x0201, words[0]);
    QByteArray out = hexBytes("AA BB CC");
    GetWordFromUS(out, words, 0, 1);
    EXPECT_EQ("01 02 CC", hexText(out)) << "bytes beyond the read keep their content";

    in = hexBytes("01 00 02 00");
    SetWordToUI(1, words, &in, 3);  // count 3: one 32-bit value, the odd word ignored
    EXPECT_EQ(2, words[1]) << "high half at the lower address";
    EXPECT_EQ(1, words[2]);
    out.clear();
    GetWordFromUI(out, words, 1, 2);
    EXPECT_EQ("01 00 02 00", hexText(out));
    GetWordFromUI(out, words, 1, 1);
    EXPECT_EQ(4, out.size()) << "count 1 holds no 32-bit value";

    in = hexBytes("03 04");
    words[0] = 0x1234;
    SetWordToUS(0, words, &in, 0);
    SetWordToUS(0, words, &in, -3);
    EXPECT_EQ(0x1234, words[0]) << "count below 1 changes nothing";
    in = hexBytes("01 02 03");
    SetWordToUS(0, words, &in, 2);
    EXPECT_EQ(0x0201, words[0]);
    EXPECT_EQ(2, words[1]) << "a word whose bytes are missing keeps its value";
}

TEST(Packing, BitFormsDifferForBytesOtherThanOneAndZero)
{
    unsigned char bits[3] = {9, 9, 9};
    QByteArray in = hexBytes("02 03 01");
    SetBitToUC(0, bits, &in, 3);
    EXPECT_EQ(0, bits[0]);
    EXPECT_EQ(1, bits[1]) << "SetBitToUC keeps bit 0";
    QByteArray out = hexBytes("FF FF FF FF");
    GetBitFromUC(out, bits, 0, 3);
    EXPECT_EQ("00 01 01 FF", hexText(out));

    unsigned short words[2] = {0xFFFF, 0};
    in = hexBytes("03");
    SetBitToUS(4, words, &in, 1);
    EXPECT_EQ(0xFFEF, words[0]) << "SetBitToUS sets only for the byte value 1";
    in = hexBytes("01 01");
    words[0] = 0;
    SetBitToUS(15, words, &in, 2);
    EXPECT_EQ(0x8000, words[0]);
    EXPECT_EQ(1, words[1]);
    out.clear();
    GetBitFromUS(out, words, 14, 3);
    EXPECT_EQ("00 01 01", hexText(out));
}

TEST(CheckValues, KnownVectors)
{
    QByteArray ff(300, static_cast<char>(0xFF));
    unsigned char* p = reinterpret_cast<unsigned char*>(ff.data());
    EXPECT_EQ(10964, CalSUM(p, 300));
    EXPECT_EQ(0, CalSUM(p, 0));
    QByteArray digits("123456789");
    EXPECT_EQ(0x4B37, CalCRC(reinterpret_cast<unsigned char*>(digits.data()), 9));
    QByteArray request = hexBytes("01 03 00 00 00 0A");
    unsigned char* r = reinterpret_cast<unsigned char*>(request.data());
    EXPECT_EQ(0xCDC5, CalCRC(r, 6));
    EXPECT_EQ(0xFFFF, CalCRC(r, 0));
    EXPECT_EQ(242, CalLRC(r, 6));
    QByteArray wrap = hexBytes("80 80");
    EXPECT_EQ(256, CalLRC(reinterpret_cast<unsigned char*>(wrap.data()), 2));
    EXPECT_EQ(256, CalLRC(r, 0));
    QByteArray x = hexBytes("01 02 04");
    EXPECT_EQ(7, CalXOR(reinterpret_cast<unsigned char*>(x.data()), 3));
    EXPECT_EQ(1, CalXOR(reinterpret_cast<unsigned char*>(x.data()), 1));
    EXPECT_EQ(0, CalXOR(nullptr, 0)) << "an empty buffer is never read";
}

TEST(CheckValues, DigitConversions)
{
    const struct { int digit, character; } toAscii[] = {{9, 57}, {10, 65}, {15, 70}, {16, 71}, {-1, 47}};
    for (const auto& c : toAscii)
        EXPECT_EQ(c.character, DigitalToASCII(c.digit)) << c.digit;
    const struct { int character, digit; } toDigit[] = {{57, 9}, {63, 15}, {64, 0}, {70, 15}, {32, 0}, {97, 42}, {48, 0}};
    for (const auto& c : toDigit)
        EXPECT_EQ(c.digit, ASCIIToDigital(c.character)) << c.character;
}

TEST_F(DriverTest, NewDriverIsEmptyAndZero)
{
    const Modbus_RTU_Master& d = PLC_driver;
    EXPECT_TRUE(d.readList.isEmpty() && d.writeList.isEmpty() && d.onceReadList.isEmpty());
    EXPECT_TRUE(d.frameQueue.isEmpty() && d.extendVars.isEmpty() && d.disabledStations.isEmpty());
    EXPECT_EQ(LIST_NONE_YET, d.currentList);
    for (int area = 0; area < 4; ++area)
        for (int i = 0; i < IMAGE_AREA_SIZE; i += 4099)
            ASSERT_TRUE(d.bitImage[area][i] == 0 && d.wordImage[area][i] == 0);
    EXPECT_EQ(1, QueryFinishFlag());
}

TEST_F(DriverTest, StationSwitch)
{
    EnCommStation(3, 0);
    EnCommStation(3, 0);
    EnCommStation(0, 0);
    EXPECT_EQ(2, PLC_driver.disabledStations.size());
    EnCommStation(3, 2);
    EXPECT_TRUE(Ethernetcontains(3)) << "enable 2 changes nothing";
    EnCommStation(3, 1);
    EXPECT_FALSE(Ethernetcontains(3));
    EXPECT_TRUE(Ethernetcontains(0));
    EnCommStation(-5, 0);
    EXPECT_TRUE(PLC_driver.disabledStations.isEmpty()) << "a negative station switches every station on";
}

// The same writes and reads through both image forms must give the same bytes.
TEST_F(DriverTest, BothImageFormsAgree)
{
    struct Access { int area; const char* address; const char* data; int count; };
    const Access accesses[] = {
        {AREA_VW, "5", "34 12", 1}, {AREA_AM, "1", "01 00 02 00 03 00", 3}, {AREA_Q, "2", "01 00 03", 3},
        {AREA_V, "10.3", "01", 1},  {AREA_VW, "6", "FF", 1},  // a word without both bytes is not written
    };
    QByteArray single[5], perStation[5];
    for (int form = 0; form < 2; ++form) {
        info.multiStation = form;
        info.writeMode = 0;
        for (const Access& a : accesses)
            ASSERT_EQ(1, SetRegisterData(QString(), a.area, QLatin1String(a.address), 2, hexBytes(a.data), a.count, 0, 0));
        for (int i = 0; i < 5; ++i) {
            QByteArray& out = form == 0 ? single[i] : perStation[i];
            GetRegisterData(QString(), accesses[i].area, QLatin1String(accesses[i].address), 2, out, accesses[i].count);
        }
    }
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(hexText(single[i]), hexText(perStation[i])) << "access " << i;
    EXPECT_EQ("34 12", hexText(single[0]));
    EXPECT_EQ("01 00 01", hexText(single[2]));

    QByteArray other;
    GetRegisterData(QString(), AREA_VW, QStringLiteral("5"), 3, other, 1);
    EXPECT_EQ("00 00", hexText(other)) << "station 3 is not station 2";
}

TEST_F(DriverTest, PerStationStoreEmptiesMissingElementsAndCreatesInOrder)
{
    info.multiStation = 1;
    EXPECT_EQ(0, ExtendFindSameVar(2, AREA_VW, 5));
    EXPECT_EQ(0, ExtendFindSameVar(2, AREA_VW, 5));
    RW_VAR var = record(AREA_VW, 10, 2, 4);
    Protocol p = Protocol();
    p.var = var;
    p.replyHeaderLength = 9;
    p.dataLength = 4;
    PLC_driver.frameQueue.append(p);
    QByteArray reply = hexBytes("00 00 00 00 00 07 04 03 04 01 02 03");  // one byte short
    SaveToLocalDataErea(&reply);
    ASSERT_EQ(3, PLC_driver.extendVars.size());
    EXPECT_EQ(10, PLC_driver.extendVars.at(1).address);
    EXPECT_EQ("02 01", hexText(PLC_driver.extendVars.at(1).value));
    EXPECT_TRUE(PLC_driver.extendVars.at(2).value.isEmpty()) << "no valid data for the short word";

    info.multiStation = 0;
    PLC_driver.wordImage[3][11] = 77;
    SaveToLocalDataErea(&reply);
    EXPECT_EQ(258, PLC_driver.wordImage[3][10]);
    EXPECT_EQ(77, PLC_driver.wordImage[3][11]) << "the single-station image keeps the old value";
}

// No access reads or writes outside the 65535 elements of an area.
TEST_F(DriverTest, AccessesAreClippedAtTheAreaEnd)
{
    info.writeMode = 0;
    const QByteArray data = hexBytes("11 11 22 22 33 33");
    EXPECT_EQ(1, SetRegisterData(QString(), AREA_VW, QStringLiteral("65533"), 1, data, 3, 0, 0));
    EXPECT_EQ(0x1111, PLC_driver.wordImage[3][65533]);
    EXPECT_EQ(0x2222, PLC_driver.wordImage[3][65534]);
    QByteArray out = hexBytes("EE EE EE EE EE EE");
    EXPECT_EQ(1, GetRegisterData(QString(), AREA_VW, QStringLiteral("65534"), 1, out, 100000));
    EXPECT_EQ("22 22 EE EE EE EE", hexText(out));

    RW_VAR negative = record(AREA_AQ, -2, 4);
    negative.value = data;
    WriteDataToLocal(&negative);
    EXPECT_EQ(0, PLC_driver.wordImage[1][0]) << "a negative start is refused whole";

    info.writeMode = 2;
    EXPECT_EQ(1, SetRegisterData(QString(), AREA_VW, QStringLiteral("65534"), 1, data, 3, 0, 0));
    ASSERT_EQ(1, PLC_driver.writeList.size());
    EXPECT_EQ(1, PLC_driver.writeList.first().count) << "no write for elements that do not exist";
}

struct HostWriteCase {
    const char* name;
    int area, count, maxBlock;
    const char* data;
    int result;
    std::vector<std::pair<int, int>> pieces;  // address offset, count
    std::vector<const char*> values;
};

class HostWriteTest : public DriverTest, public ::testing::WithParamInterface<HostWriteCase> {};

TEST_P(HostWriteTest, QueuesPiecesForTheController)
{
    const HostWriteCase& c = GetParam();
    info.maxBlockLength = c.maxBlock;
    EXPECT_EQ(c.result, SetRegisterData(QStringLiteral("aux"), c.area, QStringLiteral("10"), 9, hexBytes(c.data), c.count, 3, 42));
    ASSERT_EQ(c.pieces.size(), static_cast<size_t>(PLC_driver.writeList.size()));
    for (size_t i = 0; i < c.pieces.size(); ++i) {
        const RW_VAR& w = PLC_driver.writeList.at(static_cast<int>(i));
        EXPECT_EQ(10 + c.pieces[i].first, w.address);
        EXPECT_EQ(c.pieces[i].second, w.count);
        EXPECT_EQ(hexText(hexBytes(c.values[i])), hexText(w.value));
        EXPECT_TRUE(w.rwType == 1 && w.station == 1 && w.sourceType == 3 && w.sourceId == 42 && w.linkId == 5);
    }
    EXPECT_EQ(0, PLC_driver.wordImage[2][10]) << "a queued write enters the image when its frame is built";
}

const HostWriteCase kHostWrites[] = {
    {"AM5WordsBlock2", AREA_AM, 5, 2, "01 02 03 04 05 06 07 08 09 0A", 3, {{0, 2}, {2, 2}, {4, 1}},
     {"01 02 03 04", "05 06 07 08", "09 0A"}},
    {"AM4WordsBlock2", AREA_AM, 4, 2, "01 02 03 04 05 06 07 08", 2, {{0, 2}, {2, 2}}, {"01 02 03 04", "05 06 07 08"}},
    {"MissingBytesSentAsZero", AREA_AQ, 2, 100, "01 02 03", 1, {{0, 2}}, {"01 02 03 00"}},
    {"ZeroBlockTakenAsOne", AREA_VW, 2, 0, "01 02 03 04", 2, {{0, 1}, {1, 1}}, {"01 02", "03 04"}},
    {"BitsOnePerWrite", AREA_M, 3, 100, "01", 3, {{0, 1}, {1, 1}, {2, 1}}, {"01", "00", "00"}},
    {"InputsRefused", AREA_I, 1, 100, "01", 0, {}, {}},
    {"AnalogueInputsRefused", AREA_AI, 1, 100, "01 00", 0, {}, {}},
    {"UnknownAreaRefused", 9, 1, 100, "01 00", 0, {}, {}},
    {"CountZeroRefused", AREA_VW, 0, 100, "", 0, {}, {}},
};

INSTANTIATE_TEST_SUITE_P(WriteModeTwo, HostWriteTest, ::testing::ValuesIn(kHostWrites),
                         [](const ::testing::TestParamInfo<HostWriteCase>& info) { return std::string(info.param.name); });

}  // namespace
