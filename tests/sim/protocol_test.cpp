// The request handler without sockets, where every reply byte can be checked.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "sim/protocol.h"

using namespace logosim;

namespace {

// The request builders write every field from the documented layouts, never
// through the simulator's own code, so a fault shared by both sides cannot hide.
using Bytes = std::vector<uint8_t>;

void putBe16(Bytes& out, unsigned value)
{
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

uint8_t sum8(const Bytes& bytes) { return static_cast<uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u)); }

// A Modbus TCP request: function code, address, then a quantity or a value.
// A non-empty `value` is appended with its byte count, as write-multiple
// requests carry it.
Bytes modbus(uint8_t fc, unsigned address, unsigned field, const Bytes& value = {})
{
    Bytes out{0, 0, 0, 0};  // transaction and protocol id
    putBe16(out, static_cast<unsigned>(value.empty() ? 6 : 7 + value.size()));
    out.insert(out.end(), {1, fc});  // unit 1
    putBe16(out, address);
    putBe16(out, field);
    if (!value.empty())
        out.push_back(static_cast<uint8_t>(value.size()));
    out.insert(out.end(), value.begin(), value.end());
    return out;
}

// A remote-mode frame, sourceType 3 and linkId 9: a read when value is empty,
// else a write carrying it.
Bytes remote(uint16_t area, int32_t address, uint16_t count, const Bytes& value = {}, uint8_t station = 1)
{
    Bytes out{static_cast<uint8_t>(22 + value.size()), 3, static_cast<uint8_t>(value.empty() ? 0 : 1), 9, station};
    putBe16(out, area);
    putBe16(out, static_cast<uint32_t>(address) >> 16);
    putBe16(out, static_cast<uint32_t>(address) & 0xFFFF);
    putBe16(out, count);
    out.insert(out.end(), 8, 0);  // param1 and param2, unused by the controller
    out.insert(out.end(), value.begin(), value.end());
    out.push_back(sum8(out));
    return out;
}

constexpr uint8_t kOk = 0;  // "no exception"

Bytes handle(MemoryBank& bank, const Bytes& request) { return handleRequest(bank, request.data(), request.size()); }

uint8_t exceptionOf(const Bytes& reply) { return reply.size() == 9 && (reply[7] & kExceptionFlag) ? reply[8] : kOk; }

// The data of a good read reply, or {function | 0x80, code} of a refused one,
// after checking that the reply's length fields agree with its size.
Bytes readBack(MemoryBank& bank, uint8_t fc, unsigned address, unsigned quantity)
{
    const Bytes reply = handle(bank, modbus(fc, address, quantity));
    if (reply.size() < 9 || reply.size() - 6 != static_cast<size_t>(reply[4] << 8 | reply[5]))
        return {};
    if (reply[7] & kExceptionFlag)
        return {reply[7], reply[8]};
    EXPECT_EQ(reply[8], reply.size() - 9);
    return Bytes(reply.begin() + 9, reply.end());
}

// A refused request must not have changed anything anywhere.
bool isBlank(const Memory& memory)
{
    for (int a = 0; a < kAreaCount; ++a)
        for (int i = 0; i < areaSize(static_cast<Area>(a)); ++i)
            if (memory.bit(static_cast<Area>(a), i) || memory.word(static_cast<Area>(a), i) != 0)
                return false;
    return true;
}

// Sizes and bases are those of the documented address map, not read from the
// simulator, so that a shifted or resized area shows.
struct AreaCase {
    const char* name;
    uint8_t readFc;
    unsigned first;       // Modbus address of element 0
    uint16_t code;        // remote-mode area code
    int32_t remoteFirst;  // remote-mode address of element 0
    int size;
    Area area;
    friend void PrintTo(const AreaCase& c, std::ostream* os) { *os << c.name; }
};

class AreaMap : public testing::TestWithParam<AreaCase> {};

TEST_P(AreaMap, ModbusReadsAndWritesTheLastElementsAndRefusesOutside)
{
    const AreaCase& c = GetParam();
    const bool bits = c.readFc == kFcReadCoils || c.readFc == kFcReadDiscreteInputs;
    const unsigned last = c.first + c.size - 1;
    MemoryBank bank;
    Memory& memory = bank.station(1);
    // Neighbours with different values show element order, words with two
    // different bytes show byte order.
    const Bytes pair = bits ? Bytes{0x02} : Bytes{0x0A, 0x0B, 0xBE, 0x01};
    if (c.readFc == kFcReadCoils || c.readFc == kFcReadHoldingRegisters) {
        const uint8_t fc = bits ? kFcWriteMultipleCoils : kFcWriteMultipleRegisters;
        EXPECT_EQ(handle(bank, modbus(fc, last - 1, 2, pair)), modbus(fc, last - 1, 2));
        const uint8_t singleFc = bits ? kFcWriteSingleCoil : kFcWriteSingleRegister;
        EXPECT_EQ(exceptionOf(handle(bank, modbus(singleFc, last + 1, bits ? kCoilOn : 1))), kExIllegalDataAddress);
    } else if (bits) {
        memory.setBit(c.area, c.size - 1, true);
    } else {
        memory.setWord(c.area, c.size - 2, 0x0A0B);
        memory.setWord(c.area, c.size - 1, 0xBE01);
    }
    EXPECT_EQ(bits ? memory.bit(c.area, c.size - 2) : memory.word(c.area, c.size - 2), bits ? 0 : 0x0A0B);
    EXPECT_EQ(bits ? memory.bit(c.area, c.size - 1) : memory.word(c.area, c.size - 1), bits ? 1 : 0xBE01);
    EXPECT_EQ(readBack(bank, c.readFc, last - 1, 2), pair);
    const Bytes refused{static_cast<uint8_t>(c.readFc | kExceptionFlag), kExIllegalDataAddress};
    EXPECT_EQ(readBack(bank, c.readFc, last + 1, 1), refused) << "one past the end";
    EXPECT_EQ(readBack(bank, c.readFc, last, 2), refused) << "crossing the end";
    if (c.first > 0) {
        EXPECT_EQ(readBack(bank, c.readFc, c.first - 1, 2), refused) << "crossing the start";
    }
}

// The reply to a frame built by remote(): the header, then `data`,
// then for a good write the check byte.
Bytes remoteReply(uint8_t rwType, uint16_t area, RemoteStatus status, const Bytes& data = {}, uint8_t station = 1)
{
    const bool checked = rwType == kRemoteWrite && status == RemoteStatus::Ok;
    const size_t following = data.size() + (checked ? 1 : 0);
    Bytes out{static_cast<uint8_t>(9 + following), 3, rwType, 9, station, static_cast<uint8_t>(area >> 8),
              static_cast<uint8_t>(area), static_cast<uint8_t>(status), static_cast<uint8_t>(following)};
    out.insert(out.end(), data.begin(), data.end());
    if (checked)
        out.push_back(sum8(out));
    return out;
}

TEST_P(AreaMap, RemoteModeReadsAndWritesTheLastElementAndRefusesOutside)
{
    const AreaCase& c = GetParam();
    const bool bits = c.readFc == kFcReadCoils || c.readFc == kFcReadDiscreteInputs;
    const int32_t last = c.remoteFirst + c.size - 1;
    constexpr uint8_t kStation = 4;
    MemoryBank bank;
    Memory& memory = bank.station(kStation);
    // Words arrive low byte first and leave high byte first.
    const Bytes reply = handle(bank, remote(c.code, last, 1, bits ? Bytes{1} : Bytes{0x01, 0xBE}, kStation));
    if (c.area == Area::I || c.area == Area::AI) {
        EXPECT_EQ(reply, remoteReply(kRemoteWrite, c.code, RemoteStatus::ReadOnlyArea, {}, kStation));
        EXPECT_TRUE(isBlank(memory));
        bits ? memory.setBit(c.area, c.size - 1, true) : memory.setWord(c.area, c.size - 1, 0xBE01);
    } else {
        EXPECT_EQ(reply, remoteReply(kRemoteWrite, c.code, RemoteStatus::Ok, {0, 1}, kStation));
    }
    EXPECT_EQ(bits ? memory.bit(c.area, c.size - 1) : memory.word(c.area, c.size - 1), bits ? 1 : 0xBE01);
    EXPECT_EQ(handle(bank, remote(c.code, last, 1, {}, kStation)),
              remoteReply(kRemoteRead, c.code, RemoteStatus::Ok, bits ? Bytes{1} : Bytes{0xBE, 0x01}, kStation));
    const Bytes refused = remoteReply(kRemoteRead, c.code, RemoteStatus::BadAddress, {}, kStation);
    EXPECT_EQ(handle(bank, remote(c.code, c.remoteFirst - 1, 1, {}, kStation)), refused) << "before the first";
    EXPECT_EQ(handle(bank, remote(c.code, last + 1, 1, {}, kStation)), refused) << "one past the end";
    EXPECT_EQ(handle(bank, remote(c.code, last, 2, {}, kStation)), refused) << "crossing the end";
}

const AreaCase kAreas[] = {
    {"V", kFcReadCoils, 0, 3, 0, 6808, Area::VBit},
    {"Q", kFcReadCoils, 8192, 1, 1, 20, Area::Q},
    {"M", kFcReadCoils, 8256, 2, 1, 64, Area::M},
    {"I", kFcReadDiscreteInputs, 0, 0, 1, 24, Area::I},
    {"AI", kFcReadInputRegisters, 0, 4, 1, 8, Area::AI},
    {"VW", kFcReadHoldingRegisters, 0, 7, 0, 425, Area::VW},
    {"AQ", kFcReadHoldingRegisters, 512, 5, 1, 8, Area::AQ},
    {"AM", kFcReadHoldingRegisters, 528, 6, 1, 64, Area::AM},
};

INSTANTIATE_TEST_SUITE_P(Each, AreaMap, testing::ValuesIn(kAreas),
                         [](const testing::TestParamInfo<AreaCase>& row) { return row.param.name; });

TEST(ModbusRequest, LimitsAndMalformedRequests)
{
    const struct {
        const char* name;
        Bytes request;
        uint8_t expected;
    } cases[] = {
        {"read 2000 coils", modbus(kFcReadCoils, 0, 2000), kOk},
        {"read 2001 coils", modbus(kFcReadCoils, 0, 2001), kExIllegalDataValue},
        {"read 125 registers", modbus(kFcReadHoldingRegisters, 0, 125), kOk},
        {"read 126 registers", modbus(kFcReadHoldingRegisters, 0, 126), kExIllegalDataValue},
        {"read 0: quantity checked before address", modbus(kFcReadInputRegisters, 9000, 0), kExIllegalDataValue},
        {"read with extra bytes", modbus(kFcReadDiscreteInputs, 0, 1, {0}), kExIllegalDataValue},
        {"function 7", modbus(0x07, 0, 1), kExIllegalFunction},
        {"coil value not FF00 or 0000", modbus(kFcWriteSingleCoil, 0, 0x1234), kExIllegalDataValue},
        {"write 1968 coils", modbus(kFcWriteMultipleCoils, 0, 1968, Bytes(246, 0)), kOk},
        {"write 1969 coils", modbus(kFcWriteMultipleCoils, 0, 1969, Bytes(247, 0xFF)), kExIllegalDataValue},
        {"write 123 registers", modbus(kFcWriteMultipleRegisters, 302, 123, Bytes(246, 0)), kOk},
        {"coil byte count too small", modbus(kFcWriteMultipleCoils, 0, 9, {0xFF}), kExIllegalDataValue},
        {"value missing", modbus(kFcWriteMultipleRegisters, 0, 1), kExIllegalDataValue},
        {"registers crossing VW end", modbus(kFcWriteMultipleRegisters, 424, 2, Bytes(4, 0xFF)), kExIllegalDataAddress},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MemoryBank bank;
        const Bytes reply = handle(bank, c.request);
        ASSERT_GE(reply.size(), 9u);
        EXPECT_EQ(exceptionOf(reply), c.expected);
        EXPECT_EQ(reply[7], c.expected == kOk ? c.request[7] : c.request[7] | kExceptionFlag);
        EXPECT_TRUE(c.expected == kOk || isBlank(bank.station(1)));
    }
}

// VW r is V bytes 2r (high) and 2r+1 (low); coil 8b+k is bit k of V byte b.
TEST(ModbusRequest, VBitsAndVWordsShareMemory)
{
    MemoryBank bank;
    handle(bank, modbus(kFcWriteSingleRegister, 5, 0x1234));
    EXPECT_EQ(readBack(bank, kFcReadCoils, 80, 16), (Bytes{0x12, 0x34}));
    handle(bank, modbus(kFcWriteMultipleCoils, 160, 16, {0xA5, 0x5A}));
    EXPECT_EQ(readBack(bank, kFcReadHoldingRegisters, 10, 1), (Bytes{0xA5, 0x5A}));
    handle(bank, modbus(kFcWriteSingleCoil, 168 + 3, kCoilOff));
    EXPECT_EQ(readBack(bank, kFcReadHoldingRegisters, 10, 1), (Bytes{0xA5, 0x52}));
}

Bytes with(Bytes frame, size_t at, uint8_t value)
{
    frame[at] = value;
    return frame;
}

TEST(RemoteMode, BadFramesGetTheHeaderAloneWithAStatus)
{
    const Bytes read = remote(1, 1, 2), write = remote(1, 1, 1, {1});
    const struct {
        const char* name;
        Bytes frame;
        RemoteStatus expected;
    } cases[] = {
        {"read check byte", with(read, 21, read[21] + 1), RemoteStatus::BadCheckByte},
        {"write check byte", with(write, 22, write[22] - 1), RemoteStatus::BadCheckByte},
        {"unknown area 8", remote(8, 1, 1), RemoteStatus::UnknownArea},
        {"length byte disagrees", with(write, 0, 22), RemoteStatus::BadLength},
        {"value shorter than count", remote(5, 1, 2, {0, 0}), RemoteStatus::BadLength},
        {"rwType 2", with(read, 2, 2), RemoteStatus::UnknownRwType},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MemoryBank bank;
        EXPECT_EQ(handle(bank, c.frame), remoteReply(c.frame[2], c.frame[6], c.expected));
        EXPECT_TRUE(isBlank(bank.station(1)));
    }
}

// 256 bytes wrap the length byte to 0, which is how Modbus requests start.
TEST(RemoteMode, WriteOf256BytesIsStillRemoteMode)
{
    Bytes value(232, 0);
    value.insert(value.end(), {0x22, 0x11});  // VW116, low byte first
    const Bytes frame = remote(7, 0, 117, value);
    ASSERT_EQ(frame.size(), 256u);
    MemoryBank bank;
    EXPECT_EQ(handle(bank, frame), remoteReply(kRemoteWrite, 7, RemoteStatus::Ok, {0, 117}));
    EXPECT_EQ(bank.station(1).word(Area::VW, 116), 0x1122);
}

TEST(Framing, ProperPrefixesNeedMoreAndWholeFramesAreComplete)
{
    const Bytes frames[] = {
        modbus(kFcReadCoils, 0, 1),
        modbus(kFcWriteMultipleRegisters, 0, 2, {1, 2, 3, 4}),
        with(modbus(kFcReadHoldingRegisters, 0, 1), 0, 1),  // a tool's transaction id past 255
        remote(7, 0, 1),
        remote(3, 0, 5, Bytes(5, 1)),
        remote(7, 0, 117, Bytes(234, 0)),
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
        {0, 0, 0, 0, 0, 1, 1},                 // too short for unit and function
        {0, 0, 0, 0, 1, 0, 1, 3},              // longer than any PDU
    };
    for (const Bytes& bytes : cases) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        EXPECT_EQ(frameRequest(bytes.data(), bytes.size()).status, FrameInfo::Unframeable);
        MemoryBank bank;
        EXPECT_TRUE(handle(bank, bytes).empty());
    }
}

}  // namespace

TEST(RequestLog, NamesUnitFunctionAddressAndQuantity)
{
    Bytes otherUnit = modbus(kFcReadCoils, 8192, 4);
    otherUnit[6] = 7;
    const struct {
        const char* name;
        Bytes request;
        bool write;
        const char* line;
    } rows[] = {
        {"holding read", modbus(kFcReadHoldingRegisters, 528, 2), false, "unit 1 function 3 address 528 quantity 2"},
        {"coil read, unit 7", otherUnit, false, "unit 7 function 1 address 8192 quantity 4"},
        {"single coil write", modbus(kFcWriteSingleCoil, 8192, kCoilOn), true, "unit 1 function 5 address 8192 quantity 1"},
        {"single register write", modbus(kFcWriteSingleRegister, 10, 4321), true,
         "unit 1 function 6 address 10 quantity 1"},
        {"register block write", modbus(kFcWriteMultipleRegisters, 10, 2, {0, 1, 0, 2}), true,
         "unit 1 function 16 address 10 quantity 2"},
        {"coil block write", modbus(kFcWriteMultipleCoils, 0, 3, {0x05}), true, "unit 1 function 15 address 0 quantity 3"},
        {"remote read", remote(7, 10, 2, {}, 2), false, "unit 2 remote read area 7 address 10 quantity 2"},
        {"remote write", remote(1, 3, 1, {1}), true, "unit 1 remote write area 1 address 3 quantity 1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const RequestSummary summary = summarizeRequest(row.request.data(), row.request.size());
        EXPECT_EQ(summary.write, row.write);
        EXPECT_EQ(requestLogLine(summary), row.line);
    }
}
