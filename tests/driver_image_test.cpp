// The image: packing operations, check values, both image forms and their bounds.
#include "driver_fixture.h"
#include "image/reply_store.h"
#include "image/station_image.h"

namespace {

TEST(Packing, WordsLowByteFirstAndThirtyTwoBitValuesHighHalfFirst)
{
    unsigned short words[3] = {0, 0, 0};
    QByteArray in = hexBytes("01 02 03 04 05"), out = hexBytes("AA BB CC DD EE");
    SetWordToUS(0, words, &in, 3);  // the third word has one byte: it keeps its value
    EXPECT_EQ(std::vector<int>(words, words + 3), std::vector<int>({0x0201, 0x0403, 0}));
    GetWordFromUS(out, words, 0, 2);
    EXPECT_EQ(hexText(out), "01 02 03 04 EE") << "bytes beyond the read keep their content";
    SetWordToUI(0, words, &in, 3);
    EXPECT_EQ(std::vector<int>(words, words + 3), std::vector<int>({0x0403, 0x0201, 0}));
    out.clear();
    GetWordFromUI(out, words, 0, 3);
    EXPECT_EQ(hexText(out), "01 02 03 04") << "an odd count leaves its last word out";
    // A count whose bytes no byte array can hold is no range of any array.
    for (int count : {INT_MAX, INT_MAX / 2 + 1}) {
        GetWordFromUS(out, words, 0, count);
        GetWordFromUI(out, words, 0, count);
        EXPECT_EQ(hexText(out), "01 02 03 04") << count;
    }
}

TEST(Packing, BitFormsDifferForBytesOtherThanOneAndZero)
{
    unsigned char bits[3] = {9, 9, 9};
    unsigned short words[2] = {0xFFFF, 0};
    QByteArray in = hexBytes("02 03 01"), out = hexBytes("FF FF FF FF");
    SetBitToUC(0, bits, &in, 3);
    GetBitFromUC(out, bits, 0, 3);
    EXPECT_EQ(hexText(out), "00 01 01 FF") << "SetBitToUC keeps bit 0";
    SetBitToUS(14, words, &in, 3);  // across the word boundary
    EXPECT_EQ(std::vector<int>(words, words + 2), std::vector<int>({0x3FFF, 1})) << "SetBitToUS sets only for 1";
    out.clear();
    GetBitFromUS(out, words, 13, 4);
    EXPECT_EQ(hexText(out), "01 00 00 01");
}

// A count below one value touches neither the array nor the bytes.
TEST(Packing, NothingToMoveTouchesNothing)
{
    QByteArray out, in = hexBytes("01 02 03 04");
    for (int count : {0, -1, INT_MIN, 1}) {
        const bool oneWord = count == 1;  // half of a 32-bit value
        if (!oneWord) {
            GetBitFromUC(out, nullptr, 0, count);
            GetBitFromUS(out, nullptr, 0, count);
            GetWordFromUS(out, nullptr, 0, count);
            SetBitToUC(0, nullptr, &in, count);
            SetBitToUS(0, nullptr, &in, count);
            SetWordToUS(0, nullptr, &in, count);
        }
        GetWordFromUI(out, nullptr, 0, count);
        SetWordToUI(0, nullptr, &in, count);
    }
    EXPECT_TRUE(out.isEmpty());
}

TEST(CheckValues, KnownVectors)
{
    QByteArray ff(300, static_cast<char>(0xFF)), digits("123456789"), request = hexBytes("01 03 00 00 00 0A");
    QByteArray wrap = hexBytes("80 80"), x = hexBytes("01 02 04");
    const auto bytes = [](QByteArray& a) { return reinterpret_cast<unsigned char*>(a.data()); };
    const struct { const char* what; int value, expected; } rows[] = {
        {"SUM wraps at 16 bits", CalSUM(bytes(ff), 300), 300 * 255 % 65536},
        {"CRC-16/MODBUS check value", CalCRC(bytes(digits), 9), 0x4B37},
        {"LRC", CalLRC(bytes(request), 6), 242},
        {"LRC of a sum ending in 00", CalLRC(bytes(wrap), 2), 256},
        {"XOR", CalXOR(bytes(x), 3), 7},
        {"XOR of an empty buffer is never read", CalXOR(nullptr, 0), 0},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.value, r.expected) << r.what;
}

TEST(CheckValues, DigitConversions)
{
    std::string characters;
    for (int digit : {9, 10, 15, 16, -1})
        characters += static_cast<char>(DigitalToASCII(digit));
    EXPECT_EQ(characters, "9AFG/");
    std::vector<int> digits;
    for (char c : std::string("9?@F a0"))
        digits.push_back(ASCIIToDigital(c));
    EXPECT_EQ(digits, std::vector<int>({9, 15, 0, 15, 0, 42, 0}));
    // No range test: at the ends of the int range the sums wrap as 32-bit arithmetic does.
    EXPECT_EQ(std::vector<int>({DigitalToASCII(INT_MAX), DigitalToASCII(INT_MIN), ASCIIToDigital(INT_MAX),
                                ASCIIToDigital(INT_MIN)}),
              std::vector<int>({INT_MIN + 54, INT_MIN + 48, INT_MAX - 55, 0}));
}

TEST_F(DriverTest, StationSwitch)
{
    for (const auto& call : {std::make_pair(3, 0), {3, 0}, {0, 0}, {3, 2}, {INT_MAX, 0}, {4, INT_MIN}})
        EnCommStation(call.first, call.second);  // an enable other than 0 and 1 changes nothing
    EXPECT_EQ(PLC_driver.disabledStations.keys(), QList<int>({0, 3, INT_MAX}));
    EnCommStation(3, 1);
    EXPECT_FALSE(Ethernetcontains(3));
    EXPECT_TRUE(Ethernetcontains(0));
    EnCommStation(INT_MIN, 0);
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
    std::string forms[2];
    info.writeMode = 0;
    for (int form = 0; form < 2; ++form) {
        info.multiStation = form;
        for (const Access& a : accesses)
            ASSERT_EQ(1, SetRegisterData(QString(), a.area, QLatin1String(a.address), 2, hexBytes(a.data), a.count, 0, 0));
        for (const Access& a : accesses)
            forms[form] += image(a.area, a.address, 2, a.count) + " / ";
    }
    EXPECT_EQ(forms[0], "34 12 / 01 00 02 00 03 00 / 01 00 01 / 01 / 00 00 / ");
    EXPECT_EQ(forms[1], forms[0]);
    EXPECT_EQ(image(AREA_VW, "5", 3, 1), "00 00") << "station 3 is not station 2";
    EXPECT_EQ(hexText(PLC_driver.extendVars.at(ExtendFindSameVar(2, AREA_Q, 4)).value), "01") << "bit 0 alone is kept";
}

TEST_F(DriverTest, StoreOfAShortReply)
{
    PLC_driver.wordImage[3][11] = 77;
    QByteArray reply = hexBytes("00 00 00 00 00 07 04 03 04 01 02 03");  // one byte short
    for (int multiStation : {0, 1}) {
        info.multiStation = multiStation;
        for (const RW_VAR& var : {record(AREA_VW, 10, 2, 4), record(AREA_M, 7, 2, 4)}) {
            // The frame answered: a 9-byte header, then two bytes per word or one per bit.
            Protocol p = Protocol();
            p.replyHeaderLength = 9;
            p.dataLength = var.area == AREA_VW ? 4 : 2;
            p.var = var;
            SaveToLocalDataErea(p, &reply);
        }
    }
    EXPECT_EQ(PLC_driver.wordImage[3][10], 0x0102);
    EXPECT_EQ(PLC_driver.wordImage[3][11], 77) << "the single-station image keeps the old value";
    std::string entries;
    for (const EXTENDVAR& e : PLC_driver.extendVars)
        entries += std::to_string(e.area) + ":" + std::to_string(e.address) + "=" + hexText(e.value) + " ";
    // In creation order; the short word has no valid data; of a bit's byte only bit 0 is kept.
    EXPECT_EQ(entries, "7:10=02 01 7:11= 2:7=01 2:8=00 ");
}

// No access reads or writes outside the 65535 elements of an area.
TEST_F(DriverTest, AccessesAreClippedAtTheAreaEnd)
{
    info.writeMode = 0;
    EXPECT_EQ(1, SetRegisterData(QString(), AREA_VW, QStringLiteral("65533"), 1, hexBytes("11 11 22 22 33 33"), 3, 0, 0));
    EXPECT_EQ(PLC_driver.wordImage[3][65533], 0x1111);
    EXPECT_EQ(PLC_driver.wordImage[3][65534], 0x2222);
    QByteArray out = hexBytes("EE EE EE EE EE EE");
    EXPECT_EQ(1, GetRegisterData(QString(), AREA_VW, QStringLiteral("65534"), 1, out, INT_MAX));
    EXPECT_EQ(1, GetRegisterData(QString(), AREA_VW, QStringLiteral("2147483647"), 1, out, INT_MAX));
    EXPECT_EQ(0, GetRegisterData(QString(), AREA_VW, QStringLiteral("-2147483648"), 1, out, 1));
    EXPECT_EQ(hexText(out), "22 22 EE EE EE EE");

    RW_VAR negative = record(AREA_AQ, -2, 4, 1, 0, 0, "11 11 22 22 33 33");
    WriteDataToLocal(&negative);
    EXPECT_EQ(PLC_driver.wordImage[1][0], 0) << "a negative start is refused whole";
}

struct HostWriteCase {
    const char* name;
    int area;
    const char* address;
    int count, maxBlock;
    const char* data;
    int result;
    const char* queue;  // entries() of the write list
};

class HostWriteTest : public DriverTest, public ::testing::WithParamInterface<HostWriteCase> {};

TEST_P(HostWriteTest, QueuesPiecesForTheController)
{
    const HostWriteCase& c = GetParam();
    info.maxBlockLength = c.maxBlock;
    EXPECT_EQ(c.result, SetRegisterData(QStringLiteral("a"), c.area, QLatin1String(c.address), 9, hexBytes(c.data), c.count, 3, 42));
    for (const RW_VAR& w : PLC_driver.writeList.list())
        EXPECT_TRUE(w.rwType == 1 && w.sourceType == 3 && w.sourceId == 42 && w.linkId == 5);
    EXPECT_EQ(entries(PLC_driver.writeList.list()), c.queue);
    EXPECT_EQ(PLC_driver.wordImage[2][10], 0) << "a queued write enters the image when its frame is built";
}

const HostWriteCase kHostWrites[] = {
    {"AM5WordsBlock2", AREA_AM, "10", 5, 2, "01 02 03 04 05 06 07 08 09 0A", 3,
     "6:10:2@1/a=01 02 03 04, 6:12:2@1/a=05 06 07 08, 6:14:1@1/a=09 0A"},
    {"MissingBytesSentAsZero", AREA_AQ, "10", 2, 100, "01 02 03", 1, "5:10:2@1/a=01 02 03 00"},
    {"ZeroBlockTakenAsOne", AREA_VW, "10", 2, 0, "01 02 03 04", 2, "7:10:1@1/a=01 02, 7:11:1@1/a=03 04"},
    {"BitsOnePerWrite", AREA_M, "10", 3, 100, "01", 3, "2:10:1@1/a=01, 2:11:1@1/a=00, 2:12:1@1/a=00"},
    {"ClippedAtTheAreaEnd", AREA_VW, "65534", INT_MAX, 100, "01 02 03 04", 1, "7:65534:1@1/a=01 02"},
    {"InputsRefused", AREA_I, "10", 1, 100, "01", 0, ""},
    {"AnalogueInputsRefused", AREA_AI, "10", 1, 100, "01 00", 0, ""},
    {"UnknownAreaRefused", 9, "10", 1, 100, "01 00", 0, ""},
    {"CountZeroRefused", AREA_VW, "10", 0, 100, "", 0, ""},
    {"CountIntMinRefused", AREA_VW, "10", INT_MIN, 100, "01 02", 0, ""},
    {"AddressWithoutBitRefused", AREA_V, "10", 1, 100, "01", 0, ""},
};

INSTANTIATE_TEST_SUITE_P(WriteModeTwo, HostWriteTest, ::testing::ValuesIn(kHostWrites), rowName);

}  // namespace
