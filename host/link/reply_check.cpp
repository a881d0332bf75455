#include "host/link/reply_check.h"

#include <cstdint>
#include <cstdio>

#include "common/modbus_wire.h"
#include "common/remote_wire.h"
#include "logo_modbus_tcp.h"

namespace logohost {
namespace {

using namespace wire;

struct EchoedField {
    int offset;
    int width;
    const char* name;
};
const EchoedField kRemoteEcho[] = {
    {1, 1, "sourceType"}, {2, 1, "rwType"}, {3, 1, "linkId"}, {4, 1, "station"}, {5, 2, "area"},
};

int byteAt(const QByteArray& bytes, int i) { return static_cast<uint8_t>(bytes.at(i)); }
int wordAt(const QByteArray& bytes, int i) { return byteAt(bytes, i) << 8 | byteAt(bytes, i + 1); }

std::string hex(int value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

std::string number(int value) { return std::to_string(value); }
std::string counted(int n, const char* one, const char* many) { return number(n) + " " + (n == 1 ? one : many); }


std::string mbapProblem(const QByteArray& request, const QByteArray& reply)
{
    if (reply.size() >= kProtocolOffset + 2 && wordAt(reply, kProtocolOffset) != 0)
        return "not a Modbus/TCP reply: protocol id " + hex(wordAt(reply, kProtocolOffset), 4);
    if (reply.size() < kMinFrame)
        return "not a Modbus/TCP reply: " + number(reply.size()) + " bytes, fewer than a header and a function code";
    const int following = wordAt(reply, kLengthOffset);
    if (following != reply.size() - kLengthCountedFrom)
        return "not a Modbus/TCP reply: its length field says " + number(following) + " bytes follow, " +
               number(reply.size() - kLengthCountedFrom) + " did";
    if (wordAt(reply, kTransactionOffset) != wordAt(request, kTransactionOffset))
        return "reply to transaction " + number(wordAt(reply, kTransactionOffset)) + " for a request of transaction " +
               number(wordAt(request, kTransactionOffset));
    if (byteAt(reply, kUnitOffset) != byteAt(request, kUnitOffset))
        return "reply from unit " + number(byteAt(reply, kUnitOffset)) + " to a request for unit " +
               number(byteAt(request, kUnitOffset));
    return std::string();
}

std::string readProblem(int function, const QByteArray& request, const QByteArray& reply)
{
    const int quantity = wordAt(request, kQuantityOffset);
    const int expected = readsBits(function) ? (quantity + 7) / 8 : 2 * quantity;
    const std::string asked = readsBits(function) ? counted(quantity, "bit", "bits") : counted(quantity, "register", "registers");
    if (reply.size() < kReadReplyHeader)
        return "read reply without a byte count, for " + asked;
    const int byteCount = byteAt(reply, kByteCountOffset);
    if (byteCount != expected)
        return "byte count " + number(byteCount) + " for " + asked + " (" + number(expected) + " expected)";
    if (reply.size() != kReadReplyHeader + byteCount)
        return counted(reply.size() - kReadReplyHeader, "data byte", "data bytes") + " after a byte count of " +
               number(byteCount);
    return std::string();
}

std::string writeProblem(int function, const QByteArray& request, const QByteArray& reply)
{
    const bool multiple = function == kFcWriteMultipleRegisters || function == kFcWriteMultipleCoils;
    const char* second = multiple ? " quantity " : " value ";
    auto echo = [second](const QByteArray& bytes) {
        return "address " + hex(wordAt(bytes, kEchoOffset), 4) + second + hex(wordAt(bytes, kQuantityOffset), 4);
    };
    if (reply.size() != kWriteReplyLength)
        return "write reply of " + number(reply.size()) + " bytes (" + number(kWriteReplyLength) + " expected)";
    if (reply.mid(kEchoOffset, kEchoBytes) != request.mid(kEchoOffset, kEchoBytes))
        return "echo of " + echo(reply) + " for a write of " + echo(request);
    return std::string();
}

int remoteDataBytes(const QByteArray& request)
{
    const int area = wordAt(request, kRemoteAreaOffset);
    const int count = wordAt(request, kRemoteCountOffset);
    return area >= AREA_AI && area <= AREA_VW ? 2 * count : count;
}

}  // namespace

std::string modbusReplyProblem(const QByteArray& request, const QByteArray& reply)
{
    if (request.size() < kRequestLength)
        return "no Modbus request to compare the reply with";
    const std::string framing = mbapProblem(request, reply);
    if (!framing.empty())
        return framing;
    const int asked = byteAt(request, kFunctionOffset);
    const int answered = byteAt(reply, kFunctionOffset);
    if (answered == (asked | kExceptionFlag)) {
        if (reply.size() != kExceptionReplyLength)
            return "exception reply of " + number(reply.size()) + " bytes (" + number(kExceptionReplyLength) +
                   " expected)";
        return std::string();
    }
    if (answered != asked)
        return "function code " + hex(answered, 2) + " in reply to a request with function code " + hex(asked, 2);
    if (isReadFunction(asked))
        return readProblem(asked, request, reply);
    if (isWriteFunction(asked))
        return writeProblem(asked, request, reply);
    return std::string();
}

std::string remoteReplyProblem(const QByteArray& request, const QByteArray& reply)
{
    if (request.size() < kRemoteRequest)
        return "no remote-mode request to compare the reply with";
    if (reply.size() < kRemoteHeader)
        return "not a remote-mode reply: " + number(reply.size()) + " bytes, fewer than its " + number(kRemoteHeader) +
               "-byte header";
    if (byteAt(reply, 0) != (reply.size() & 0xFF))
        return "not a remote-mode reply: length byte " + number(byteAt(reply, 0)) + " for " + number(reply.size()) +
               " bytes";
    for (const EchoedField& field : kRemoteEcho) {
        const int got = field.width == 1 ? byteAt(reply, field.offset) : wordAt(reply, field.offset);
        const int sent = field.width == 1 ? byteAt(request, field.offset) : wordAt(request, field.offset);
        if (got != sent)
            return "reply for " + std::string(field.name) + " " + number(got) + " to a request for " + field.name +
                   " " + number(sent);
    }
    const int following = byteAt(reply, kRemoteFollowingOffset);
    if (following != ((reply.size() - kRemoteHeader) & 0xFF))
        return "remote-mode header says " + number(following) + " bytes follow, " +
               number(reply.size() - kRemoteHeader) + " did";
    if (byteAt(reply, kRemoteStatusOffset) != 0)
        return reply.size() == kRemoteHeader ? std::string()
                                              : "error status with " + number(following) + " bytes after the header";
    if (byteAt(request, kRemoteRwTypeOffset) == kRemoteWrite) {
        if (reply.size() != kRemoteWriteReply)
            return "write reply of " + number(reply.size()) + " bytes (" + number(kRemoteWriteReply) + " expected)";
        int sum = 0;
        for (int i = 0; i < kRemoteCheckOffset; ++i)
            sum += byteAt(reply, i);
        if (byteAt(reply, kRemoteCheckOffset) != (sum & 0xFF))
            return "check byte " + hex(byteAt(reply, kRemoteCheckOffset), 2) + " where the reply's bytes sum to " +
                   hex(sum & 0xFF, 2);
        if (wordAt(reply, kRemoteWrittenOffset) != wordAt(request, kRemoteCountOffset))
            return "reply says " + number(wordAt(reply, kRemoteWrittenOffset)) + " elements written, the request wrote " +
                   number(wordAt(request, kRemoteCountOffset));
        return std::string();
    }
    const int expected = remoteDataBytes(request);
    if (reply.size() - kRemoteHeader != expected)
        return counted(reply.size() - kRemoteHeader, "data byte", "data bytes") + " for a read of " +
               counted(wordAt(request, kRemoteCountOffset), "element", "elements") + " (" + number(expected) +
               " expected)";
    return std::string();
}

}  // namespace logohost
