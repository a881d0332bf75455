// Whether a reply answers the request it came for: every field the request
// fixes, in both frame formats. Each row starts from a reply that answers
// its request and changes one thing.
#include <gtest/gtest.h>

#include "host/link/reply_check.h"

namespace {

using namespace logohost;

QByteArray hex(const char* text) { return QByteArray::fromHex(text); }

struct Row {
    const char* name;
    const char* request;
    const char* reply;
    const char* problem;  // "" when the reply answers the request
};

// Transaction 0x0102, unit 1.
const Row kModbus[] = {
    {"read registers", "0102 0000 0006 01 03 0200 0002", "0102 0000 0007 01 03 04 000A 0100", ""},
    {"read coils, 9 bits in 2 bytes", "0102 0000 0006 01 01 2000 0009", "0102 0000 0005 01 01 02 FF01", ""},
    {"read one input", "0102 0000 0006 01 02 0000 0001", "0102 0000 0004 01 02 01 01", ""},
    {"exception", "0102 0000 0006 01 03 0200 0002", "0102 0000 0003 01 83 02", ""},
    {"write coil echo", "0102 0000 0006 01 05 2000 FF00", "0102 0000 0006 01 05 2000 FF00", ""},
    {"write registers echo", "0102 0000 000B 01 10 0000 0002 04 0001 0002", "0102 0000 0006 01 10 0000 0002", ""},
    {"other transaction", "0102 0000 0006 01 03 0200 0002", "0103 0000 0007 01 03 04 000A 0100",
     "reply to transaction 259 for a request of transaction 258"},
    {"other protocol", "0102 0000 0006 01 03 0200 0002", "0102 0001 0007 01 03 04 000A 0100",
     "not a Modbus/TCP reply: protocol id 0x0001"},
    {"text", "0102 0000 0006 01 03 0000 0001", "48545450 2F312E31 203430",
     "not a Modbus/TCP reply: protocol id 0x5450"},
    {"too short", "0102 0000 0006 01 03 0000 0001", "0102 0000 0001",
     "not a Modbus/TCP reply: 6 bytes, fewer than a header and a function code"},
    {"length field", "0102 0000 0006 01 03 0200 0002", "0102 0000 0008 01 03 04 000A 0100",
     "not a Modbus/TCP reply: its length field says 8 bytes follow, 7 did"},
    {"other unit", "0102 0000 0006 01 03 0200 0002", "0102 0000 0007 02 03 04 000A 0100",
     "reply from unit 2 to a request for unit 1"},
    {"other function", "0102 0000 0006 01 03 0200 0002", "0102 0000 0007 01 04 04 000A 0100",
     "function code 0x04 in reply to a request with function code 0x03"},
    {"exception to another function", "0102 0000 0006 01 03 0200 0002", "0102 0000 0003 01 84 02",
     "function code 0x84 in reply to a request with function code 0x03"},
    {"exception with more bytes", "0102 0000 0006 01 03 0200 0002", "0102 0000 0004 01 83 02 00",
     "exception reply of 10 bytes (9 expected)"},
    {"byte count", "0102 0000 0006 01 03 0200 0002", "0102 0000 0007 01 03 02 000A 0100",
     "byte count 2 for 2 registers (4 expected)"},
    {"bits counted as bytes", "0102 0000 0006 01 01 2000 0009", "0102 0000 000C 01 01 09 010101010101010101",
     "byte count 9 for 9 bits (2 expected)"},
    {"data after the count", "0102 0000 0006 01 03 0200 0001", "0102 0000 0007 01 03 02 000A 0100",
     "4 data bytes after a byte count of 2"},
    {"no byte count", "0102 0000 0006 01 03 0200 0001", "0102 0000 0002 01 03",
     "read reply without a byte count, for 1 register"},
    {"echo of another address", "0102 0000 0006 01 06 0005 3039", "0102 0000 0006 01 06 0004 3039",
     "echo of address 0x0004 value 0x3039 for a write of address 0x0005 value 0x3039"},
    {"echo of another quantity", "0102 0000 000B 01 10 0000 0002 04 0001 0002", "0102 0000 0006 01 10 0000 0001",
     "echo of address 0x0000 quantity 0x0001 for a write of address 0x0000 quantity 0x0002"},
    {"write reply too long", "0102 0000 0006 01 05 2000 FF00", "0102 0000 0007 01 05 2000 FF00 00",
     "write reply of 13 bytes (12 expected)"},
};

// Read of 2 words of area 7 at station 1, linkId 5; write of 1 word.
const char* const kRemoteRead = "16 00 00 05 01 0007 0000012C 0002 00000000 00000000 52";
const char* const kRemoteWrite = "18 00 01 05 01 0007 0000012C 0001 00000000 00000000 3412 9A";
const Row kRemote[] = {
    {"read", kRemoteRead, "0D 00 00 05 01 0007 00 04 000A 0100", ""},
    {"write", kRemoteWrite, "0C 00 01 05 01 0007 00 03 0001 1E", ""},
    {"error status alone", kRemoteRead, "09 00 00 05 01 0007 04 00", ""},
    {"too short", kRemoteRead, "08 00 00 05 01 0007 00",
     "not a remote-mode reply: 8 bytes, fewer than its 9-byte header"},
    {"length byte", kRemoteRead, "0C 00 00 05 01 0007 00 04 000A 0100",
     "not a remote-mode reply: length byte 12 for 13 bytes"},
    {"other station", kRemoteRead, "0D 00 00 05 02 0007 00 04 000A 0100",
     "reply for station 2 to a request for station 1"},
    {"other area", kRemoteRead, "0D 00 00 05 01 0006 00 04 000A 0100", "reply for area 6 to a request for area 7"},
    {"other link", kRemoteRead, "0D 00 00 06 01 0007 00 04 000A 0100", "reply for linkId 6 to a request for linkId 5"},
    {"read answered as a write", kRemoteRead, "0D 00 01 05 01 0007 00 04 000A 0100",
     "reply for rwType 1 to a request for rwType 0"},
    {"following count", kRemoteRead, "0D 00 00 05 01 0007 00 03 000A 0100",
     "remote-mode header says 3 bytes follow, 4 did"},
    {"error status with data", kRemoteRead, "0D 00 00 05 01 0007 04 04 000A 0100",
     "error status with 4 bytes after the header"},
    {"short read", kRemoteRead, "0B 00 00 05 01 0007 00 02 000A", "2 data bytes for a read of 2 elements (4 expected)"},
    {"check byte", kRemoteWrite, "0C 00 01 05 01 0007 00 03 0001 1F",
     "check byte 0x1F where the reply's bytes sum to 0x1E"},
    {"elements written", kRemoteWrite, "0C 00 01 05 01 0007 00 03 0002 1F",
     "reply says 2 elements written, the request wrote 1"},
};

void check(const Row& row, bool modbus)
{
    SCOPED_TRACE(row.name);
    const QByteArray request = hex(row.request), reply = hex(row.reply);
    const std::string problem = modbus ? modbusReplyProblem(request, reply) : remoteReplyProblem(request, reply);
    EXPECT_EQ(problem, row.problem);
}

TEST(ReplyCheck, ModbusRepliesAnswerTheirRequestOrSayWhyNot)
{
    for (const Row& row : kModbus)
        check(row, true);
}

TEST(ReplyCheck, RemoteModeRepliesAnswerTheirRequestOrSayWhyNot)
{
    for (const Row& row : kRemote)
        check(row, false);
}

TEST(ReplyCheck, AnyBytesAgainstAnyRequestAreJudgedWithoutReadingPastThem)
{
    // Every prefix of a good reply, against every prefix of its request: the
    // check must answer (refusing all but the whole reply) and never read
    // beyond either buffer, which AddressSanitizer would report.
    for (const bool modbus : {true, false}) {
        const Row& row = modbus ? kModbus[0] : kRemote[0];
        const QByteArray request = hex(row.request), reply = hex(row.reply);
        for (int r = 0; r <= request.size(); ++r) {
            for (int n = 0; n <= reply.size(); ++n) {
                const QByteArray partRequest = request.left(r), partReply = reply.left(n);
                const std::string problem = modbus ? modbusReplyProblem(partRequest, partReply)
                                                   : remoteReplyProblem(partRequest, partReply);
                EXPECT_EQ(problem.empty(), r == request.size() && n == reply.size()) << r << " " << n << problem;
            }
        }
    }
}

}  // namespace
