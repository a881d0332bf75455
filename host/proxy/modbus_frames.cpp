#include "host/proxy/modbus_frames.h"

#include <algorithm>

namespace logohost {
namespace {

using logomap::Area;
using logomap::Location;
using logomap::Table;
using namespace wire;

constexpr int kBitsPerByte = 8;
constexpr int kBytesPerWord = 2;

Table tableOf(uint8_t function)
{
    switch (function) {
    case kFcReadDiscreteInputs: return Table::DiscreteInput;
    case kFcReadInputRegisters: return Table::InputRegister;
    case kFcReadHoldingRegisters:
    case kFcWriteSingleRegister:
    case kFcWriteMultipleRegisters: return Table::HoldingRegister;
    default: return Table::Coil;
    }
}

int bitBytes(int bits) { return (bits + kBitsPerByte - 1) / kBitsPerByte; }

uint8_t byteAt(const std::vector<uint8_t>& bytes, size_t at) { return at < bytes.size() ? bytes[at] : 0; }

// The order of the checks is that of a Modbus server: the function, then
// the request's own values (03), then the addresses (02).
ClientRequest located(ClientRequest request, int address)
{
    if (!logomap::locate(tableOf(request.function), address, request.count, &request.where))
        request.exception = kExIllegalDataAddress;
    return request;
}

ClientRequest refused(ClientRequest request, uint8_t code)
{
    request.exception = code;
    return request;
}

ClientRequest decodeRead(const Frame& frame, ClientRequest request)
{
    if (frame.size() != static_cast<size_t>(kRequestLength))
        return refused(request, kExIllegalDataValue);
    request.count = readBe16(&frame[kQuantityOffset]);
    const int most = readsBits(request.function) ? kMaxReadBits : kMaxReadRegisters;
    if (request.count < 1 || request.count > most)
        return refused(request, kExIllegalDataValue);
    return located(request, readBe16(&frame[kAddressOffset]));
}

ClientRequest decodeSingleWrite(const Frame& frame, ClientRequest request)
{
    if (frame.size() != static_cast<size_t>(kRequestLength))
        return refused(request, kExIllegalDataValue);
    request.count = 1;
    const int value = readBe16(&frame[kValueOffset]);
    if (writesCoils(request.function)) {
        if (value != kCoilOn && value != kCoilOff)
            return refused(request, kExIllegalDataValue);
        request.bytes = {static_cast<uint8_t>(value == kCoilOn)};
    } else {
        request.bytes = {frame[kValueOffset + 1], frame[kValueOffset]};
    }
    return located(request, readBe16(&frame[kAddressOffset]));
}

ClientRequest decodeMultipleWrite(const Frame& frame, ClientRequest request)
{
    if (frame.size() <= static_cast<size_t>(kWriteByteCountOffset))
        return refused(request, kExIllegalDataValue);
    const bool bits = writesCoils(request.function);
    request.count = readBe16(&frame[kQuantityOffset]);
    const int byteCount = frame[kWriteByteCountOffset];
    const int expected = bits ? bitBytes(request.count) : kBytesPerWord * request.count;
    if (request.count < 1 || request.count > (bits ? kMaxWriteBits : kMaxWriteRegisters) || byteCount != expected ||
        frame.size() != static_cast<size_t>(kWriteDataOffset + byteCount))
        return refused(request, kExIllegalDataValue);
    const uint8_t* data = &frame[kWriteDataOffset];
    for (int i = 0; i < request.count; ++i) {
        if (bits) {
            request.bytes.push_back(static_cast<uint8_t>(data[i / kBitsPerByte] >> (i % kBitsPerByte) & 1));
        } else {
            request.bytes.push_back(data[kBytesPerWord * i + 1]);
            request.bytes.push_back(data[kBytesPerWord * i]);
        }
    }
    return located(request, readBe16(&frame[kAddressOffset]));
}

Frame replyWith(const Frame& request, const std::vector<uint8_t>& pdu)
{
    // Sized once and copied into: growing the vector with insert() trips
    // GCC 12's -Warray-bounds in optimised builds (a false positive).
    Frame reply(kMbapBytes + pdu.size());
    std::copy(request.begin(), request.begin() + kMbapBytes, reply.begin());
    std::copy(pdu.begin(), pdu.end(), reply.begin() + kMbapBytes);
    writeBe16(&reply[kLengthOffset], static_cast<int>(pdu.size()) + 1);  // the unit id, then the PDU
    return reply;
}

}  // namespace

bool writesCoils(uint8_t function) { return function == kFcWriteSingleCoil || function == kFcWriteMultipleCoils; }

size_t frameLength(const uint8_t* header)
{
    const int length = readBe16(header + kLengthOffset);
    if (readBe16(header + kProtocolOffset) != 0 || length < kMinLengthField || length > kMaxLengthField)
        return 0;
    return static_cast<size_t>(kLengthCountedFrom + length);
}

ClientRequest decodeRequest(const Frame& frame)
{
    ClientRequest request;
    request.function = frame.at(kFunctionOffset);
    if (isReadFunction(request.function))
        return decodeRead(frame, request);
    if (request.function == kFcWriteSingleCoil || request.function == kFcWriteSingleRegister)
        return decodeSingleWrite(frame, request);
    if (isWriteFunction(request.function))
        return decodeMultipleWrite(frame, request);
    return refused(request, kExIllegalFunction);
}

DriverRange driverRange(const Location& where, int count, int station)
{
    DriverRange range;
    range.station = station;
    range.area = static_cast<int>(where.area);
    range.count = count;
    if (where.area == Area::VBit) {
        range.address = where.index;
        range.addressText =
            std::to_string(where.index / kBitsPerByte) + "." + std::to_string(where.index % kBitsPerByte);
        return range;
    }
    // The host numbers I, Q, M, AI, AQ and AM from 1 as the controller's
    // software does; VW goes by register.
    range.address = where.area == Area::VW ? where.index : where.index + 1;
    range.addressText = std::to_string(range.address);
    return range;
}

Frame readReply(const Frame& request, const ClientRequest& read, const std::vector<uint8_t>& driverBytes)
{
    const bool bits = logomap::isBitArea(read.where.area);
    const int byteCount = bits ? bitBytes(read.count) : kBytesPerWord * read.count;
    std::vector<uint8_t> pdu{read.function, static_cast<uint8_t>(byteCount)};
    for (int i = 0; i < read.count; ++i) {
        if (!bits) {
            pdu.push_back(byteAt(driverBytes, kBytesPerWord * i + 1));
            pdu.push_back(byteAt(driverBytes, kBytesPerWord * i));
        } else if (i % kBitsPerByte == 0) {
            pdu.push_back(byteAt(driverBytes, i) & 1);
        } else {
            pdu.back() = static_cast<uint8_t>(pdu.back() | (byteAt(driverBytes, i) & 1) << (i % kBitsPerByte));
        }
    }
    return replyWith(request, pdu);
}

Frame writeReply(const Frame& request)
{
    const auto echo = request.begin() + kEchoOffset;
    std::vector<uint8_t> pdu{request[kFunctionOffset]};
    pdu.insert(pdu.end(), echo, echo + kEchoBytes);
    return replyWith(request, pdu);
}

Frame exceptionReply(const Frame& request, uint8_t code)
{
    return replyWith(request, {static_cast<uint8_t>(request[kFunctionOffset] | kExceptionFlag), code});
}

}  // namespace logohost
