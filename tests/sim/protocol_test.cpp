// The request handler without sockets: address map, limits, shared V memory,
// remote-mode frames, and framing of partial and garbage input.
#include <gtest/gtest.h>

#include <random>

#include "sim/protocol.h"
#include "tests/sim/frames.h"

using namespace logosim;
using simtest::Bytes;
using simtest::mbap;
using simtest::pdu;
using simtest::remoteFrame;
using simtest::writeMultiple;

namespace {

constexpr uint8_t kOk = 0;  // "no exception" in the tables below

Bytes handle(MemoryBank& bank, const Bytes& request) { return handleRequest(bank, request.data(), request.size()); }

// The exception code of a Modbus reply, or kOk for a normal reply.
uint8_t exceptionOf(const Bytes& reply)
{
    return reply.size() == 9 && (reply[7] & kExceptionFlag) ? reply[8] : kOk;
}

// ---- Reads: every area, its boundaries, and the quantity limits ----------

struct ReadCase {
    const char* name;
    uint8_t fc;
    unsigned address;
    unsigned quantity;
    uint8_t expected;  // exception code, or kOk
    friend void PrintTo(const ReadCase& c, std::ostream* os) { *os << c.name; }
};

class ModbusRead : public testing::TestWithParam<ReadCase> {};

TEST_P(ModbusRead, AnswersOrRefuses)
{
    const ReadCase& c = GetParam();
    MemoryBank bank;
    const Bytes reply = handle(bank, mbap(pdu(c.fc, c.address, c.quantity), 7, 0x0042));
    ASSERT_GE(reply.size(), 9u);
    EXPECT_EQ(reply[0], 0x00);
    EXPECT_EQ(reply[1], 0x42) << "transaction id echoed";
    EXPECT_EQ(reply[6], 7) << "unit id echoed";
    EXPECT_EQ(reply.size() - 6, static_cast<size_t>(reply[4] << 8 | reply[5])) << "MBAP length";
    EXPECT_EQ(exceptionOf(reply), c.expected);
    if (c.expected == kOk) {
        const bool bits = c.fc == kFcReadCoils || c.fc == kFcReadDiscreteInputs;
        const size_t dataBytes = bits ? (c.quantity + 7) / 8 : 2 * c.quantity;
        EXPECT_EQ(reply[7], c.fc);
        EXPECT_EQ(reply[8], dataBytes);
        EXPECT_EQ(reply.size(), 9 + dataBytes);
    } else {
        EXPECT_EQ(reply[7], c.fc | kExceptionFlag);
    }
}

const ReadCase kReadCases[] = {
    {"V_bits_first", kFcReadCoils, 0, 1, kOk},
    {"V_bits_last", kFcReadCoils, 6807, 1, kOk},
    {"V_bits_crossing_end", kFcReadCoils, 6800, 9, kExIllegalDataAddress},
    {"coil_gap_after_V", kFcReadCoils, 6808, 1, kExIllegalDataAddress},
    {"coil_just_below_Q", kFcReadCoils, 8191, 2, kExIllegalDataAddress},
    {"Q_all", kFcReadCoils, 8192, 20, kOk},
    {"Q_crossing_end", kFcReadCoils, 8211, 2, kExIllegalDataAddress},
    {"coil_gap_after_Q", kFcReadCoils, 8212, 1, kExIllegalDataAddress},
    {"M_all", kFcReadCoils, 8256, 64, kOk},
    {"M_one_past", kFcReadCoils, 8320, 1, kExIllegalDataAddress},
    {"coils_2000", kFcReadCoils, 0, 2000, kOk},
    {"coils_2001", kFcReadCoils, 0, 2001, kExIllegalDataValue},
    {"coils_0", kFcReadCoils, 0, 0, kExIllegalDataValue},
    {"I_all", kFcReadDiscreteInputs, 0, 24, kOk},
    {"I_one_past", kFcReadDiscreteInputs, 24, 1, kExIllegalDataAddress},
    {"I_crossing_end", kFcReadDiscreteInputs, 23, 2, kExIllegalDataAddress},
    {"AI_all", kFcReadInputRegisters, 0, 8, kOk},
    {"AI_one_past", kFcReadInputRegisters, 8, 1, kExIllegalDataAddress},
    {"VW_125", kFcReadHoldingRegisters, 0, 125, kOk},
    {"VW_126", kFcReadHoldingRegisters, 0, 126, kExIllegalDataValue},
    {"VW_last", kFcReadHoldingRegisters, 425, 1, kOk},
    {"VW_one_past", kFcReadHoldingRegisters, 426, 1, kExIllegalDataAddress},
    {"VW_crossing_end", kFcReadHoldingRegisters, 420, 10, kExIllegalDataAddress},
    {"AQ_all", kFcReadHoldingRegisters, 512, 8, kOk},
    {"below_AQ", kFcReadHoldingRegisters, 511, 1, kExIllegalDataAddress},
    {"AQ_into_gap", kFcReadHoldingRegisters, 519, 2, kExIllegalDataAddress},
    {"AM_all", kFcReadHoldingRegisters, 528, 64, kOk},
    {"AM_last", kFcReadHoldingRegisters, 591, 1, kOk},
    {"AM_one_past", kFcReadHoldingRegisters, 592, 1, kExIllegalDataAddress},
    {"quantity_checked_before_address", kFcReadHoldingRegisters, 9000, 0, kExIllegalDataValue},
    {"function_7", 0x07, 0, 1, kExIllegalFunction},
    {"function_0x2B", 0x2B, 0, 1, kExIllegalFunction},
};

INSTANTIATE_TEST_SUITE_P(Map, ModbusRead, testing::ValuesIn(kReadCases),
                         [](const testing::TestParamInfo<ReadCase>& info) { return info.param.name; });

// ---- Writes land in the right element, and read back -----------------------

struct ElementCase {
    const char* name;
    Table table;
    unsigned address;
    Area area;
    int index;
    friend void PrintTo(const ElementCase& c, std::ostream* os) { *os << c.name; }
};

class ModbusElement : public testing::TestWithParam<ElementCase> {};

TEST_P(ModbusElement, WriteSingleThenReadBack)
{
    const ElementCase& c = GetParam();
    MemoryBank bank;
    Memory& memory = bank.station(1);
    const bool bits = c.table == Table::Coil || c.table == Table::DiscreteInput;
    const bool writable = c.table == Table::Coil || c.table == Table::HoldingRegister;
    const uint16_t value = bits ? kCoilOn : 0xBEEF;
    if (writable) {
        const Bytes request = mbap(pdu(bits ? kFcWriteSingleCoil : kFcWriteSingleRegister, c.address, value));
        EXPECT_EQ(handle(bank, request), request) << "a single write is echoed";
    } else if (bits) {
        memory.setBit(c.area, c.index, true);
    } else {
        memory.setWord(c.area, c.index, value);
    }
    if (bits) {
        EXPECT_TRUE(memory.bit(c.area, c.index));
        EXPECT_FALSE(memory.bit(c.area, c.index - 1 >= 0 ? c.index - 1 : c.index + 1)) << "neighbour untouched";
    } else {
        EXPECT_EQ(memory.word(c.area, c.index), value);
    }
    const uint8_t readFc = c.table == Table::Coil            ? kFcReadCoils
                           : c.table == Table::DiscreteInput ? kFcReadDiscreteInputs
                           : c.table == Table::InputRegister ? kFcReadInputRegisters
                                                             : kFcReadHoldingRegisters;
    const Bytes reply = handle(bank, mbap(pdu(readFc, c.address, 1)));
    const Bytes expectedData = bits ? Bytes{0x01} : Bytes{0xBE, 0xEF};
    EXPECT_EQ(Bytes(reply.begin() + 9, reply.end()), expectedData);
}

const ElementCase kElementCases[] = {
    {"V_byte10_bit3", Table::Coil, 83, Area::VBit, 83},
    {"V_last_bit", Table::Coil, 6807, Area::VBit, 6807},
    {"Q1", Table::Coil, 8192, Area::Q, 0},
    {"Q20", Table::Coil, 8211, Area::Q, 19},
    {"M1", Table::Coil, 8256, Area::M, 0},
    {"M64", Table::Coil, 8319, Area::M, 63},
    {"I1", Table::DiscreteInput, 0, Area::I, 0},
    {"I24", Table::DiscreteInput, 23, Area::I, 23},
    {"AI8", Table::InputRegister, 7, Area::AI, 7},
    {"VW0", Table::HoldingRegister, 0, Area::VW, 0},
    {"VW425", Table::HoldingRegister, 425, Area::VW, 425},
    {"AQ1", Table::HoldingRegister, 512, Area::AQ, 0},
    {"AQ8", Table::HoldingRegister, 519, Area::AQ, 7},
    {"AM1", Table::HoldingRegister, 528, Area::AM, 0},
    {"AM64", Table::HoldingRegister, 591, Area::AM, 63},
};

INSTANTIATE_TEST_SUITE_P(Map, ModbusElement, testing::ValuesIn(kElementCases),
                         [](const testing::TestParamInfo<ElementCase>& info) { return info.param.name; });

// ---- Write requests: multiples, shared V memory, malformed values -----------

TEST(ModbusWrite, VBitsAndVWordsShareMemory)
{
    MemoryBank bank;
    // VW5 covers V bytes 10 (high) and 11 (low), that is coils 80..95.
    handle(bank, mbap(pdu(kFcWriteSingleRegister, 5, 0x1234)));
    Bytes reply = handle(bank, mbap(pdu(kFcReadCoils, 80, 16)));
    EXPECT_EQ(Bytes(reply.begin() + 9, reply.end()), (Bytes{0x12, 0x34}));

    // Coils 160..175 are V bytes 20 and 21, that is VW10.
    reply = handle(bank, mbap(writeMultiple(kFcWriteMultipleCoils, 160, 16, {0xA5, 0x5A})));
    EXPECT_EQ(Bytes(reply.begin() + 7, reply.end()), pdu(kFcWriteMultipleCoils, 160, 16));
    reply = handle(bank, mbap(pdu(kFcReadHoldingRegisters, 10, 1)));
    EXPECT_EQ(Bytes(reply.begin() + 9, reply.end()), (Bytes{0xA5, 0x5A}));

    // One coil changes one bit of the word: coil 8*21 + 0 is VW10's bit 0.
    handle(bank, mbap(pdu(kFcWriteSingleCoil, 168, kCoilOff)));
    EXPECT_EQ(bank.station(1).word(Area::VW, 10), 0xA55A & ~1);
}

TEST(ModbusWrite, MultipleRegistersLandInOrderAndCoilsPackLsbFirst)
{
    MemoryBank bank;
    Bytes reply = handle(bank, mbap(writeMultiple(kFcWriteMultipleRegisters, 528, 3, {0, 1, 0, 2, 0xFF, 0xFE})));
    EXPECT_EQ(exceptionOf(reply), kOk);
    EXPECT_EQ(bank.station(1).word(Area::AM, 0), 1);
    EXPECT_EQ(bank.station(1).word(Area::AM, 2), 0xFFFE);

    handle(bank, mbap(writeMultiple(kFcWriteMultipleCoils, 8192, 10, {0x05, 0x02})));  // Q1, Q3, Q10
    for (int q = 0; q < kOutputCount; ++q)
        EXPECT_EQ(bank.station(1).bit(Area::Q, q), q == 0 || q == 2 || q == 9) << "Q" << q + 1;
}

struct BadWriteCase {
    const char* name;
    Bytes pdu;
    uint8_t expected;
};

TEST(ModbusWrite, MalformedAndOutOfRangeWritesAreRefusedAndChangeNothing)
{
    const BadWriteCase cases[] = {
        {"coil value not FF00 or 0000", pdu(kFcWriteSingleCoil, 0, 0x1234), kExIllegalDataValue},
        {"single coil in gap", pdu(kFcWriteSingleCoil, 7000, kCoilOn), kExIllegalDataAddress},
        {"single register past AM", pdu(kFcWriteSingleRegister, 592, 1), kExIllegalDataAddress},
        {"coil byte count too small", writeMultiple(kFcWriteMultipleCoils, 0, 9, {0xFF}), kExIllegalDataValue},
        {"1969 coils", writeMultiple(kFcWriteMultipleCoils, 0, 1969, Bytes(247, 0xFF)), kExIllegalDataValue},
        {"124 registers (no frame can carry their value)", writeMultiple(kFcWriteMultipleRegisters, 0, 124, Bytes(246, 0xFF)),
         kExIllegalDataValue},
        {"register byte count odd", writeMultiple(kFcWriteMultipleRegisters, 0, 1, {0xFF}), kExIllegalDataValue},
        {"registers crossing VW end", writeMultiple(kFcWriteMultipleRegisters, 425, 2, Bytes(4, 0xFF)),
         kExIllegalDataAddress},
        {"coils crossing Q end", writeMultiple(kFcWriteMultipleCoils, 8210, 3, {0x07}), kExIllegalDataAddress},
        {"value missing", pdu(kFcWriteMultipleRegisters, 0, 1), kExIllegalDataValue},
        {"read with a trailing byte", Bytes{kFcReadCoils, 0, 0, 0, 1, 0}, kExIllegalDataValue},
    };
    for (const BadWriteCase& c : cases) {
        SCOPED_TRACE(c.name);
        MemoryBank bank;
        EXPECT_EQ(exceptionOf(handle(bank, mbap(c.pdu))), c.expected);
        const Memory& memory = bank.station(1);
        EXPECT_EQ(memory.word(Area::VW, 0) | memory.word(Area::VW, 425) | memory.word(Area::AM, 63), 0);
        EXPECT_FALSE(memory.bit(Area::Q, 19) || memory.bit(Area::VBit, 0));
    }
}

TEST(ModbusWrite, LargestWritesAreAccepted)
{
    MemoryBank bank;
    EXPECT_EQ(exceptionOf(handle(bank, mbap(writeMultiple(kFcWriteMultipleCoils, 0, 1968, Bytes(246, 0xFF))))), kOk);
    EXPECT_TRUE(bank.station(1).bit(Area::VBit, 1967));
    EXPECT_FALSE(bank.station(1).bit(Area::VBit, 1968));
    EXPECT_EQ(exceptionOf(handle(bank, mbap(writeMultiple(kFcWriteMultipleRegisters, 303, 123, Bytes(246, 0x11))))),
              kOk);
    EXPECT_EQ(bank.station(1).word(Area::VW, 425), 0x1111);
}

TEST(ModbusWrite, StationsHaveTheirOwnMemory)
{
    MemoryBank bank;
    handle(bank, mbap(pdu(kFcWriteSingleRegister, 512, 11), 1));
    handle(bank, mbap(pdu(kFcWriteSingleRegister, 512, 22), 2));
    EXPECT_EQ(bank.station(1).word(Area::AQ, 0), 11);
    EXPECT_EQ(bank.station(2).word(Area::AQ, 0), 22);
    EXPECT_EQ(bank.station(3).word(Area::AQ, 0), 0);
}

// ---- Remote mode ------------------------------------------------------------

struct RemoteElementCase {
    const char* name;
    uint16_t areaCode;
    int32_t address;
    Area area;
    int index;
    friend void PrintTo(const RemoteElementCase& c, std::ostream* os) { *os << c.name; }
};

class RemoteElement : public testing::TestWithParam<RemoteElementCase> {};

TEST_P(RemoteElement, ReadShowsMemoryWithHeader)
{
    const RemoteElementCase& c = GetParam();
    MemoryBank bank;
    const bool bits = isBitArea(c.area);
    if (bits)
        bank.station(4).setBit(c.area, c.index, true);
    else
        bank.station(4).setWord(c.area, c.index, 0x0102);
    const Bytes reply = handle(bank, remoteFrame(c.areaCode, c.address, 1, {}, {5, 6, 4}));
    const Bytes data = bits ? Bytes{1} : Bytes{0x01, 0x02};
    Bytes expected{static_cast<uint8_t>(9 + data.size()), 5, 0, 6, 4, 0, static_cast<uint8_t>(c.areaCode), 0,
                   static_cast<uint8_t>(data.size())};
    expected.insert(expected.end(), data.begin(), data.end());
    EXPECT_EQ(reply, expected);
}

TEST_P(RemoteElement, WriteReachesMemoryOrIsRefusedForInputs)
{
    const RemoteElementCase& c = GetParam();
    MemoryBank bank;
    const bool bits = isBitArea(c.area);
    // Two elements where the area has room for them, else one ending at the last.
    const int count = inArea(c.area, c.index, 2) ? 2 : 1;
    const Bytes value = bits ? (count == 2 ? Bytes{1, 0} : Bytes{1}) : (count == 2 ? Bytes{0x34, 0x12, 0, 0} : Bytes{0x34, 0x12});
    const Bytes reply = handle(bank, remoteFrame(c.areaCode, c.address, static_cast<uint16_t>(count), value));
    const Memory& memory = bank.station(1);
    if (c.area == Area::I || c.area == Area::AI) {
        ASSERT_EQ(reply.size(), kRemoteReplyHeaderBytes);
        EXPECT_EQ(reply[7], static_cast<uint8_t>(RemoteStatus::ReadOnlyArea));
        EXPECT_FALSE(bits ? memory.bit(c.area, c.index) : memory.word(c.area, c.index) != 0);
        return;
    }
    Bytes expected{12, 3, 1, 9, 1, 0, static_cast<uint8_t>(c.areaCode), 0, 3, 0, static_cast<uint8_t>(count)};
    expected.push_back(simtest::sum8(expected));
    EXPECT_EQ(reply, expected);
    if (bits)
        EXPECT_TRUE(memory.bit(c.area, c.index));
    else
        EXPECT_EQ(memory.word(c.area, c.index), 0x1234) << "words arrive low byte first";
}

const RemoteElementCase kRemoteElementCases[] = {
    {"I1", 0, 1, Area::I, 0},        {"I24", 0, 24, Area::I, 23},      {"Q1", 1, 1, Area::Q, 0},
    {"Q20", 1, 20, Area::Q, 19},     {"M64", 2, 64, Area::M, 63},      {"V0_0", 3, 0, Area::VBit, 0},
    {"V850_7", 3, 6807, Area::VBit, 6807}, {"AI8", 4, 8, Area::AI, 7}, {"AQ1", 5, 1, Area::AQ, 0},
    {"AM64", 6, 64, Area::AM, 63},   {"VW0", 7, 0, Area::VW, 0},       {"VW425", 7, 425, Area::VW, 425},
};

INSTANTIATE_TEST_SUITE_P(Map, RemoteElement, testing::ValuesIn(kRemoteElementCases),
                         [](const testing::TestParamInfo<RemoteElementCase>& info) { return info.param.name; });

TEST(RemoteMode, SharesMemoryWithModbus)
{
    MemoryBank bank;
    handle(bank, remoteFrame(7, 3, 1, {0xCD, 0xAB}));  // VW3 = 0xABCD
    Bytes reply = handle(bank, mbap(pdu(kFcReadHoldingRegisters, 3, 1)));
    EXPECT_EQ(Bytes(reply.begin() + 9, reply.end()), (Bytes{0xAB, 0xCD}));
    handle(bank, mbap(pdu(kFcWriteSingleCoil, 8 * 6 + 1, kCoilOn)));  // V6.1 is bit 1 of VW3's high byte
    reply = handle(bank, remoteFrame(3, 8 * 6, 8));
    EXPECT_EQ(Bytes(reply.begin() + 9, reply.end()), (Bytes{1, 1, 0, 1, 0, 1, 0, 1}));  // 0xAB | 0x02, LSB first
}

TEST(RemoteMode, WriteWhoseLengthByteWrapsToZeroIsStillRemoteMode)
{
    MemoryBank bank;
    Bytes value(234, 0);
    value[232] = 0x22;  // VW116, low byte first
    value[233] = 0x11;
    const Bytes frame = remoteFrame(7, 0, 117, value);
    ASSERT_EQ(frame[0], 0);
    const Bytes reply = handle(bank, frame);
    ASSERT_EQ(reply.size(), kRemoteWriteReplyBytes);
    EXPECT_EQ(reply[7], static_cast<uint8_t>(RemoteStatus::Ok));
    EXPECT_EQ(bank.station(1).word(Area::VW, 116), 0x1122);
}

struct RemoteErrorCase {
    const char* name;
    Bytes frame;
    RemoteStatus expected;
};

Bytes withByte(Bytes frame, size_t at, uint8_t value)
{
    frame[at] = value;
    return frame;
}

TEST(RemoteMode, BadFramesGetTheHeaderWithAStatusAndNoData)
{
    const Bytes read = remoteFrame(1, 1, 2);
    const RemoteErrorCase cases[] = {
        {"bad check byte", withByte(read, 21, read[21] + 1), RemoteStatus::BadCheckByte},
        {"bad write check byte", withByte(remoteFrame(1, 1, 1, {1}), 22, 0), RemoteStatus::BadCheckByte},
        {"unknown area 8", remoteFrame(8, 1, 1), RemoteStatus::UnknownArea},
        {"I0 does not exist", remoteFrame(0, 0, 1), RemoteStatus::BadAddress},
        {"I25", remoteFrame(0, 25, 1), RemoteStatus::BadAddress},
        {"I24 and one past", remoteFrame(0, 24, 2), RemoteStatus::BadAddress},
        {"negative V address", remoteFrame(3, -8, 1), RemoteStatus::BadAddress},
        {"VW426", remoteFrame(7, 426, 1), RemoteStatus::BadAddress},
        {"AM65 write", remoteFrame(6, 65, 1, {0, 0}), RemoteStatus::BadAddress},
        {"length byte disagrees", withByte(remoteFrame(1, 1, 1, {1}), 0, 22), RemoteStatus::BadLength},
        {"write value shorter than count", remoteFrame(5, 1, 2, {0, 0}), RemoteStatus::BadLength},
        {"rwType 2", withByte(read, 2, 2), RemoteStatus::UnknownRwType},
    };
    for (const RemoteErrorCase& c : cases) {
        SCOPED_TRACE(c.name);
        MemoryBank bank;
        const Bytes reply = handle(bank, c.frame);
        ASSERT_EQ(reply.size(), kRemoteReplyHeaderBytes);
        EXPECT_EQ(reply[0], kRemoteReplyHeaderBytes);
        EXPECT_EQ(reply[7], static_cast<uint8_t>(c.expected));
        EXPECT_EQ(reply[8], 0);
        EXPECT_EQ(Bytes(reply.begin() + 1, reply.begin() + 7), Bytes(c.frame.begin() + 1, c.frame.begin() + 7));
        EXPECT_FALSE(bank.station(1).bit(Area::Q, 0)) << "nothing written";
    }
}

// ---- Framing, partial input and garbage -------------------------------------

TEST(Framing, ProperPrefixesNeedMoreAndWholeFramesAreComplete)
{
    const Bytes frames[] = {
        mbap(pdu(kFcReadCoils, 0, 1)),
        mbap(writeMultiple(kFcWriteMultipleRegisters, 0, 2, {1, 2, 3, 4})),
        mbap(pdu(kFcReadHoldingRegisters, 0, 1), 1, 0x0100),  // a tool's transaction id past 255
        remoteFrame(7, 0, 1),
        remoteFrame(7, 0, 3, Bytes(6, 0)),
        remoteFrame(3, 0, 5, Bytes(5, 1)),
        remoteFrame(7, 0, 117, Bytes(234, 0)),  // 256 bytes: its length byte is 0
    };
    for (const Bytes& frame : frames) {
        SCOPED_TRACE(testing::PrintToString(frame));
        for (size_t len = 0; len < frame.size(); ++len)
            EXPECT_EQ(frameRequest(frame.data(), len).status, FrameInfo::NeedMore) << "prefix of " << len;
        Bytes twoFrames = frame;
        twoFrames.insert(twoFrames.end(), frame.begin(), frame.end());
        const FrameInfo info = frameRequest(twoFrames.data(), twoFrames.size());
        EXPECT_EQ(info.status, FrameInfo::Complete);
        EXPECT_EQ(info.length, frame.size());
    }
}

TEST(Framing, ModbusHeaderThatCannotBeTrustedIsUnframeable)
{
    const Bytes cases[] = {
        {0, 0, 0, 1, 0, 6, 1, 3, 0, 0, 0, 1},  // protocol id 1
        {0, 0, 0, 0, 0, 1, 1},                 // length too small for unit and function
        {0, 0, 0, 0, 1, 0, 1, 3},              // length 256, larger than any PDU
    };
    for (const Bytes& bytes : cases) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        EXPECT_EQ(frameRequest(bytes.data(), bytes.size()).status, FrameInfo::Unframeable);
        MemoryBank bank;
        EXPECT_TRUE(handle(bank, bytes).empty());
    }
}

// Whatever the bytes, a frame that is complete gets a reply whose own length
// fields agree with its size, and nothing reads past the input.
TEST(Framing, RandomBytesGiveSelfConsistentRepliesOrNone)
{
    std::mt19937 rng(12345);
    MemoryBank bank;
    for (int round = 0; round < 20000; ++round) {
        Bytes bytes(rng() % 40);
        for (uint8_t& b : bytes)
            b = static_cast<uint8_t>(rng());
        if (round % 2 == 0 && bytes.size() >= 6) {  // steer half the rounds into plausible headers
            bytes[0] = round % 4 == 0 ? 0 : 22;
            bytes[2] = bytes[3] = bytes[4] = 0;
            bytes[5] = static_cast<uint8_t>(bytes.size() - 6);
        }
        const FrameInfo info = frameRequest(bytes.data(), bytes.size());
        if (info.status != FrameInfo::Complete)
            continue;
        ASSERT_LE(info.length, bytes.size());
        const Bytes frame(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(info.length));
        const Response response = handleFrame(bank, frame.data(), frame.size());
        ASSERT_FALSE(response.bytes.empty()) << testing::PrintToString(frame);
        if (response.remoteMode)
            EXPECT_EQ(response.bytes[0], static_cast<uint8_t>(response.bytes.size()));
        else
            EXPECT_EQ(response.bytes.size() - 6, static_cast<size_t>(response.bytes[4] << 8 | response.bytes[5]));
    }
}

}  // namespace
