// The proxy's request logic against a controller played in memory: what
// each request asks of the driver, and what the client is answered.
#include <gtest/gtest.h>

#include "host/proxy/request_handler.h"
#include "logo_modbus_tcp.h"

namespace {

using namespace logohost;
using namespace wire;

// ExceptsLate: the session tells the read settled before its observers hear
// the exception, as the communication thread may order them.
enum class Plc { Answers, Silent, Excepts, ExceptsLate, SwitchedOff, DropsPiece };

// Reads end as `plc` says once a waiter lets the "communication thread"
// run; writes end with `writeEnd`.
class FakeSession : public ProxyBackend {
public:
    Plc plc = Plc::Answers;
    WriteEnd writeEnd = WriteEnd::Written;
    int exception = 0;
    bool fresh = false, on = true;
    std::vector<DriverRange> reads;
    std::vector<DriverWrite> writes;
    RequestHandler* handler = nullptr;

    bool stationOn(int) const override { return on; }
    bool freshInImage(const DriverRange&, std::chrono::milliseconds) const override { return fresh; }
    std::vector<uint8_t> imageBytes(const DriverRange&) const override { return {}; }
    int queueRead(const DriverRange& range) override
    {
        reads.push_back(range);
        return static_cast<int>(reads.size());
    }
    bool readSettled(int id) const override { return id <= delivered_; }
    OnceRead readOutcome(int id) const override
    {
        OnceRead read;
        read.done = read.resultSeen = readSettled(id);
        read.ok = plc == Plc::Answers || plc == Plc::DropsPiece;
        return read;
    }
    void forgetRead(int) override {}
    int queueWrite(const DriverWrite& write) override
    {
        writes.push_back(write);
        return static_cast<int>(writes.size());
    }
    PendingWrite writeOutcome(int) const override
    {
        PendingWrite write;
        write.range = writes.back().range;
        write.end = writeEnd;
        write.failure.exceptionCode = exception;
        return write;
    }
    void forgetWrite(int) override {}
    void abandonUnreachable() override {}
    bool waitUntil(Clock::time_point, const std::function<bool()>& done) const override
    {
        const int id = static_cast<int>(reads.size());
        if (delivered_ < id && plc == Plc::ExceptsLate)
            delivered_ = id;
        else if (delivered_ < id || (plc == Plc::ExceptsLate && !lateDone_))
            deliver(reads.back(), id);
        return done();
    }
    std::chrono::milliseconds requestDeadline(int) const override { return std::chrono::milliseconds(1); }
    Clock::time_point now() const override { return Clock::now(); }

private:
    mutable int delivered_ = 0;  // reads that have ended
    mutable bool lateDone_ = false;

    // Bits come back one a frame, as the driver reads them.
    void deliver(const DriverRange& range, int id) const
    {
        delivered_ = id;
        lateDone_ = true;
        RequestResult result;
        result.sourceType = kOnceReadSourceType;
        result.sourceId = id;
        if (plc == Plc::Silent || plc == Plc::Excepts || plc == Plc::ExceptsLate) {
            result.returnCode = RC_LOCAL_NO_REPLY + 1 + kOnceReadSourceType;
            result.failure.exceptionCode = plc == Plc::Silent ? 0 : exception;
            handler->onResult(result);
        }
        if (plc != Plc::Answers && plc != Plc::DropsPiece)
            return;
        const bool bits = range.area <= static_cast<int>(logomap::Area::VBit);
        result.returnCode = RC_LOCAL_OK;
        result.count = bits ? 1 : range.count;
        const int last = range.address + range.count - (plc == Plc::DropsPiece ? 1 : 0);
        for (result.address = range.address; result.address < last; result.address += result.count)
            handler->onResult(result);
    }
};

Frame frame(uint8_t function, std::vector<uint8_t> pdu, uint8_t unit = 1)
{
    static uint16_t transaction = 0x1234;
    ++transaction;
    Frame out{static_cast<uint8_t>(transaction >> 8), static_cast<uint8_t>(transaction), 0, 0, 0, 0, unit, function};
    out.insert(out.end(), pdu.begin(), pdu.end());
    writeBe16(&out[kLengthOffset], static_cast<int>(out.size()) - kLengthCountedFrom);
    return out;
}

// A byte count and that many bytes of 0.
std::vector<uint8_t> counted(uint8_t bytes)
{
    std::vector<uint8_t> data(bytes + 1u, 0);
    data[0] = bytes;
    return data;
}

// Address and quantity (or value), high byte first.
std::vector<uint8_t> pair(int address, int second, std::vector<uint8_t> more = {})
{
    std::vector<uint8_t> pdu{static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address),
                             static_cast<uint8_t>(second >> 8), static_cast<uint8_t>(second)};
    pdu.insert(pdu.end(), more.begin(), more.end());
    return pdu;
}

struct RequestRow {
    const char* name;
    Frame request;
    uint8_t exception;  // 0: answered
    int area, address;  // the driver's range, when it gets one
    const char* text;
    int count;
    std::vector<uint8_t> bytes;  // a write's, as the driver takes them
};

void PrintTo(const RequestRow& row, std::ostream* out) { *out << row.name; }

class Requests : public ::testing::TestWithParam<RequestRow> {};

TEST_P(Requests, ReachTheDriverAsItsRangeOrAreRefused)
{
    const RequestRow& row = GetParam();
    FakeSession session;
    RequestHandler handler(session, ProxyPolicy{});
    session.handler = &handler;
    const Frame reply = handler.answer(row.request, "modbus test");
    ASSERT_GE(reply.size(), static_cast<size_t>(kExceptionReplyLength));
    EXPECT_EQ(Frame(reply.begin(), reply.begin() + kProtocolOffset),
              Frame(row.request.begin(), row.request.begin() + kProtocolOffset));
    EXPECT_EQ(reply[kUnitOffset], row.request[kUnitOffset]);
    EXPECT_EQ(reply[kFunctionOffset] & kExceptionFlag ? reply[kExceptionCodeOffset] : 0, row.exception);
    const bool write = isWriteFunction(row.request[kFunctionOffset]);
    const size_t expectedRequests = row.exception ? 0 : 1;
    ASSERT_EQ(write ? session.writes.size() : session.reads.size(), expectedRequests);
    if (row.exception)
        return;
    const DriverRange range = write ? session.writes[0].range : session.reads[0];
    EXPECT_EQ(range.area, row.area);
    EXPECT_EQ(range.address, row.address);
    EXPECT_EQ(range.addressText, row.text);
    EXPECT_EQ(range.count, row.count);
    EXPECT_EQ(range.station, 1);
    if (write) {
        EXPECT_EQ(session.writes[0].bytes, row.bytes);
    } else {
        EXPECT_EQ(reply.size(), static_cast<size_t>(kReadReplyHeader) + reply[kByteCountOffset]);
    }
}

const uint8_t kBad = 0x07;  // a function the proxy does not serve
const RequestRow kRequests[] = {
    {"Q1ToQ20", frame(kFcReadCoils, pair(8192, 20)), 0, 1, 1, "1", 20, {}},
    {"QPastItsEnd", frame(kFcReadCoils, pair(8192, 21)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"QAcrossTheGapIntoM", frame(kFcReadCoils, pair(8211, 46)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"M64", frame(kFcReadCoils, pair(8319, 1)), 0, 2, 64, "64", 1, {}},
    {"OnePastM64", frame(kFcReadCoils, pair(8320, 1)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"V850_7", frame(kFcReadCoils, pair(6807, 1)), 0, 3, 6807, "850.7", 1, {}},
    {"OnePastV850_7", frame(kFcReadCoils, pair(6807, 2)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"MostBits", frame(kFcReadCoils, pair(0, kMaxReadBits)), 0, 3, 0, "0.0", kMaxReadBits, {}},
    {"TooManyBits", frame(kFcReadCoils, pair(0, kMaxReadBits + 1)), kExIllegalDataValue, 0, 0, "", 0, {}},
    {"NoBits", frame(kFcReadCoils, pair(0, 0)), kExIllegalDataValue, 0, 0, "", 0, {}},
    {"I1ToI24", frame(kFcReadDiscreteInputs, pair(0, 24)), 0, 0, 1, "1", 24, {}},
    {"OnePastI24", frame(kFcReadDiscreteInputs, pair(24, 1)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"VW848", frame(kFcReadHoldingRegisters, pair(424, 1)), 0, 7, 424, "424", 1, {}},
    {"OnePastVW848", frame(kFcReadHoldingRegisters, pair(425, 1)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"MostRegisters", frame(kFcReadHoldingRegisters, pair(0, kMaxReadRegisters)), 0, 7, 0, "0", kMaxReadRegisters, {}},
    {"TooManyRegistersBeforeABadAddress", frame(kFcReadHoldingRegisters, pair(9999, kMaxReadRegisters + 1)),
     kExIllegalDataValue, 0, 0, "", 0, {}},
    {"AQ1ToAQ8", frame(kFcReadHoldingRegisters, pair(512, 8)), 0, 5, 1, "1", 8, {}},
    {"AQ8IntoTheGap", frame(kFcReadHoldingRegisters, pair(519, 2)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"AM64", frame(kFcReadHoldingRegisters, pair(591, 1)), 0, 6, 64, "64", 1, {}},
    {"OnePastAM64", frame(kFcReadHoldingRegisters, pair(592, 1)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"AI1ToAI8", frame(kFcReadInputRegisters, pair(0, 8)), 0, 4, 1, "1", 8, {}},
    {"OnePastAI8", frame(kFcReadInputRegisters, pair(7, 2)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"ReadWithAByteTooMany", frame(kFcReadInputRegisters, pair(0, 1, {0})), kExIllegalDataValue, 0, 0, "", 0, {}},
    {"UnknownFunction", frame(kBad, {}), kExIllegalFunction, 0, 0, "", 0, {}},
    {"Q1On", frame(kFcWriteSingleCoil, pair(8192, kCoilOn)), 0, 1, 1, "1", 1, {1}},
    {"M64Off", frame(kFcWriteSingleCoil, pair(8319, kCoilOff)), 0, 2, 64, "64", 1, {0}},
    {"CoilValueNeitherOnNorOff", frame(kFcWriteSingleCoil, pair(8192, 1)), kExIllegalDataValue, 0, 0, "", 0, {}},
    {"VW10", frame(kFcWriteSingleRegister, pair(5, 0x1234)), 0, 7, 5, "5", 1, {0x34, 0x12}},
    {"AQ8", frame(kFcWriteSingleRegister, pair(519, 1)), 0, 5, 8, "8", 1, {1, 0}},
    {"OnePastAQ8", frame(kFcWriteSingleRegister, pair(520, 1)), kExIllegalDataAddress, 0, 0, "", 0, {}},
    {"V10_3To10_5", frame(kFcWriteMultipleCoils, pair(83, 3, {1, 0x05})), 0, 3, 83, "10.3", 3, {1, 0, 1}},
    {"CoilByteCountTooBig", frame(kFcWriteMultipleCoils, pair(83, 3, {2, 0x05, 0})), kExIllegalDataValue, 0, 0, "",
     0, {}},
    {"CoilDataShort", frame(kFcWriteMultipleCoils, pair(83, 9, {2, 0x05})), kExIllegalDataValue, 0, 0, "", 0, {}},
    {"TooManyCoils", frame(kFcWriteMultipleCoils, pair(0, kMaxWriteBits + 1, counted(247))), kExIllegalDataValue, 0, 0,
     "", 0, {}},
    {"AM1AndAM2", frame(kFcWriteMultipleRegisters, pair(528, 2, {4, 0x12, 0x34, 0x56, 0x78})), 0, 6, 1, "1", 2,
     {0x34, 0x12, 0x78, 0x56}},
    {"RegisterByteCountOdd", frame(kFcWriteMultipleRegisters, pair(528, 1, {3, 0, 1, 2})), kExIllegalDataValue, 0, 0,
     "", 0, {}},
    {"TooManyRegisters", frame(kFcWriteMultipleRegisters, pair(0, kMaxWriteRegisters + 1, counted(248))), kExIllegalDataValue,
     0, 0, "", 0, {}},
    {"RegistersPastVW848", frame(kFcWriteMultipleRegisters, pair(424, 2, {4, 0, 1, 0, 2})), kExIllegalDataAddress, 0,
     0, "", 0, {}},
};
INSTANTIATE_TEST_SUITE_P(Proxy, Requests, ::testing::ValuesIn(kRequests),
                         [](const ::testing::TestParamInfo<RequestRow>& info) { return info.param.name; });

struct OutcomeRow {
    const char* name;
    Frame request;
    ProxyPolicy policy;
    Plc plc;
    WriteEnd writeEnd;
    int plcException;
    bool fresh, on;
    uint8_t exception;  // answered with it; 0: a normal reply
    size_t queued;      // reads or writes handed to the driver
    int station;        // theirs
};

ProxyPolicy policy(bool readOnly, int maxAgeMs, bool multiStation = false, std::vector<int> stations = {})
{
    ProxyPolicy policy;
    policy.readOnly = readOnly;
    policy.maxAge = std::chrono::milliseconds(maxAgeMs);
    policy.multiStation = multiStation;
    policy.stations = std::move(stations);
    return policy;
}

void PrintTo(const OutcomeRow& row, std::ostream* out) { *out << row.name; }

class Outcomes : public ::testing::TestWithParam<OutcomeRow> {};

TEST_P(Outcomes, AnswerWhatTheControllerAndTheHostMade)
{
    const OutcomeRow& row = GetParam();
    FakeSession session;
    session.plc = row.plc;
    session.writeEnd = row.writeEnd;
    session.exception = row.plcException;
    session.fresh = row.fresh;
    session.on = row.on;
    RequestHandler handler(session, row.policy);
    session.handler = &handler;
    const Frame reply = handler.answer(row.request, "modbus test");
    EXPECT_EQ(reply[kFunctionOffset] & kExceptionFlag ? reply[kExceptionCodeOffset] : 0, row.exception);
    const bool write = isWriteFunction(row.request[kFunctionOffset]);
    ASSERT_EQ(write ? session.writes.size() : session.reads.size(), row.queued);
    if (row.queued) {
        EXPECT_EQ(write ? session.writes[0].range.station : session.reads[0].station, row.station);
    }
    if (write && !row.exception) {
        EXPECT_EQ(reply, Frame(row.request.begin(), row.request.begin() + kWriteReplyLength));
    }
}

const Frame kReadVW0 = frame(kFcReadHoldingRegisters, pair(0, 1));
const Frame kWriteVW0 = frame(kFcWriteSingleRegister, pair(0, 7));
const ProxyPolicy kPlain = policy(false, 500);
const WriteEnd kOk = WriteEnd::Written;
const OutcomeRow kOutcomes[] = {
    {"ReadNotAnswered", kReadVW0, kPlain, Plc::Silent, kOk, 0, false, true, kExGatewayTargetFailed, 1, 1},
    {"ReadExceptionPassedOn", kReadVW0, kPlain, Plc::Excepts, kOk, 2, false, true, 2, 1, 1},
    {"ReadExceptionHeardAfterTheReadSettled", kReadVW0, kPlain, Plc::ExceptsLate, kOk, 2, false, true, 2, 1, 1},
    {"ReadOfAStationSwitchedOff", kReadVW0, kPlain, Plc::Answers, kOk, 0, false, false, kExGatewayTargetFailed, 0, 0},
    {"ReadEndedWithoutResult", kReadVW0, kPlain, Plc::SwitchedOff, kOk, 0, false, true, kExGatewayTargetFailed, 1, 1},
    {"ReadPieceDroppedByTheDriver", frame(kFcReadCoils, pair(8192, 4)), kPlain, Plc::DropsPiece, kOk, 0, false, true,
     kExServerDeviceFailure, 1, 1},
    {"ReadFreshFromTheImage", kReadVW0, kPlain, Plc::Silent, kOk, 0, true, true, 0, 0, 0},
    {"ReadFreshButMaxAgeZero", kReadVW0, policy(false, 0), Plc::Answers, kOk, 0, true, true, 0, 1, 1},
    {"WriteReplacedByANewerValue", kWriteVW0, kPlain, Plc::Answers, WriteEnd::Replaced, 0, false, true, 0, 1, 1},
    {"WriteNotAnswered", kWriteVW0, kPlain, Plc::Answers, WriteEnd::Failed, 0, false, true, kExGatewayTargetFailed, 1,
     1},
    {"WriteExceptionPassedOn", kWriteVW0, kPlain, Plc::Answers, WriteEnd::Failed, 3, false, true, 3, 1, 1},
    {"WriteDroppedWithAnother", kWriteVW0, kPlain, Plc::Answers, WriteEnd::Dropped, 2, false, true,
     kExGatewayTargetFailed, 1, 1},
    {"WriteTimedOutAtTheHost", kWriteVW0, kPlain, Plc::Answers, WriteEnd::Pending, 0, false, true,
     kExGatewayTargetFailed, 1, 1},
    {"WriteToAStationSwitchedOff", kWriteVW0, kPlain, Plc::Answers, kOk, 0, false, false, kExGatewayTargetFailed, 0, 0},
    {"ReadOnlyRefusesASingleWrite", kWriteVW0, policy(true, 500), Plc::Answers, kOk, 0, false, true,
     kExIllegalFunction, 0, 0},
    {"ReadOnlyReads", kReadVW0, policy(true, 500), Plc::Answers, kOk, 0, false, true, 0, 1, 1},
    {"OneControllerTakesAnyUnit", frame(kFcReadHoldingRegisters, pair(0, 1), 9), kPlain, Plc::Answers, kOk, 0, false,
     true, 0, 1, 1},
    {"StationsGoByUnit", frame(kFcWriteSingleRegister, pair(0, 7), 7), policy(false, 500, true), Plc::Answers, kOk, 0,
     false, true, 0, 1, 7},
    {"UnitWithoutAController", frame(kFcReadHoldingRegisters, pair(0, 1), 3), policy(false, 500, true, {1, 2}),
     Plc::Answers, kOk, 0, false, true, kExGatewayPathUnavailable, 0, 0},
};
INSTANTIATE_TEST_SUITE_P(Proxy, Outcomes, ::testing::ValuesIn(kOutcomes),
                         [](const ::testing::TestParamInfo<OutcomeRow>& info) { return info.param.name; });

TEST(ProxyReplies, CarryTheImageInModbusOrder)
{
    const Frame words = frame(kFcReadHoldingRegisters, pair(20, 2));
    const Frame wordsReply = readReply(words, decodeRequest(words), {0x34, 0x12, 0xCD, 0xAB});
    EXPECT_EQ(Frame(wordsReply.begin() + kByteCountOffset, wordsReply.end()), (Frame{4, 0x12, 0x34, 0xAB, 0xCD}));
    const Frame bits = frame(kFcReadCoils, pair(8192, 10));
    const Frame bitsReply = readReply(bits, decodeRequest(bits), {1, 0, 1, 0, 0, 0, 0, 0, 1, 0});
    EXPECT_EQ(Frame(bitsReply.begin() + kByteCountOffset, bitsReply.end()), (Frame{2, 0x05, 0x01}));
}

TEST(ProxyJournal, KeepsEveryWriteAndEveryRefusal)
{
    const struct {
        Frame request;
        ProxyPolicy policy;
        const char *subject, *value;
        Outcome outcome;
    } rows[] = {
        {frame(kFcWriteMultipleRegisters, pair(5, 2, {4, 0x12, 0x34, 0x56, 0x78})), kPlain, "VW10:2", "4660,22136",
         Outcome::Done},
        {frame(kFcWriteMultipleCoils, pair(83, 2, {1, 2}), 2), policy(false, 500, true), "V10.3:2@2", "0,1",
         Outcome::Done},
        {frame(kFcWriteSingleCoil, pair(8192, kCoilOn)), policy(true, 500), "Q1", "1", Outcome::NotAllowed},
        {frame(kFcWriteSingleRegister, pair(520, 1)), kPlain, "function 6 address 520", "1", Outcome::BadRequest},
        {frame(kFcReadHoldingRegisters, pair(520, 1)), kPlain, nullptr, "", Outcome::BadRequest},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.subject ? row.subject : "a read");
        FakeSession session;
        std::vector<ActionRecord> journal;
        RequestHandler handler(session, row.policy, [&](const ActionRecord& record) { journal.push_back(record); });
        session.handler = &handler;
        handler.answer(row.request, "modbus 127.0.0.1:40122");
        ASSERT_EQ(journal.size(), row.subject ? 1u : 0u);
        if (!row.subject)
            continue;
        EXPECT_EQ(journal[0].kind, "write");
        EXPECT_EQ(journal[0].who, "modbus 127.0.0.1:40122");
        EXPECT_EQ(journal[0].subject, row.subject);
        EXPECT_EQ(journal[0].value, row.value);
        EXPECT_EQ(journal[0].result.outcome, row.outcome);
    }
}

}  // namespace
