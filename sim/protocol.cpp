#include "sim/protocol.h"

#include <algorithm>
#include <cstdio>

namespace logosim {

namespace {

uint16_t be16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

int32_t be32(const uint8_t* p)
{
    return static_cast<int32_t>(static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
                                static_cast<uint32_t>(p[2]) << 8 | p[3]);
}

void putBe16(std::vector<uint8_t>& out, unsigned value)
{
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

uint8_t sum8(const uint8_t* data, size_t len)
{
    unsigned sum = 0;
    for (size_t i = 0; i < len; ++i)
        sum += data[i];
    return static_cast<uint8_t>(sum);
}

// ---- Modbus ----------------------------------------------------------------

bool looksLikeMbap(const uint8_t* data)
{
    const uint16_t length = be16(data + kLengthOffset);
    return data[2] == 0 && data[3] == 0 && length >= kMinLengthField && length <= kMaxLengthField;
}

std::vector<uint8_t> modbusReply(const uint8_t* request, const std::vector<uint8_t>& pdu)
{
    std::vector<uint8_t> out(request, request + 4);  // transaction and protocol id
    putBe16(out, static_cast<unsigned>(pdu.size() + 1));
    out.push_back(request[kUnitOffset]);
    out.insert(out.end(), pdu.begin(), pdu.end());
    return out;
}

std::vector<uint8_t> exceptionPdu(uint8_t functionCode, uint8_t code)
{
    return {static_cast<uint8_t>(functionCode | kExceptionFlag), code};
}

bool isBitTable(Table table) { return table == Table::Coil || table == Table::DiscreteInput; }

std::vector<uint8_t> readPdu(Memory& memory, Table table, const uint8_t* pdu, size_t pduLen)
{
    const uint8_t fc = pdu[0];
    const bool bits = isBitTable(table);
    if (pduLen != 5)
        return exceptionPdu(fc, kExIllegalDataValue);
    const int address = be16(pdu + 1);
    const int quantity = be16(pdu + 3);
    if (quantity < 1 || quantity > (bits ? kMaxReadBits : kMaxReadRegisters))
        return exceptionPdu(fc, kExIllegalDataValue);
    Location at;
    if (!locate(table, address, quantity, &at))
        return exceptionPdu(fc, kExIllegalDataAddress);
    std::vector<uint8_t> out{fc, static_cast<uint8_t>(bits ? (quantity + 7) / 8 : 2 * quantity)};
    out.resize(2 + out[1], 0);
    for (int i = 0; i < quantity; ++i) {
        if (bits) {
            if (memory.bit(at.area, at.index + i))
                out[2 + i / 8] |= static_cast<uint8_t>(1u << (i % 8));
        } else {
            const uint16_t value = memory.word(at.area, at.index + i);
            out[2 + 2 * i] = static_cast<uint8_t>(value >> 8);
            out[3 + 2 * i] = static_cast<uint8_t>(value);
        }
    }
    return out;
}

std::vector<uint8_t> writeSinglePdu(Memory& memory, const uint8_t* pdu, size_t pduLen)
{
    const uint8_t fc = pdu[0];
    if (pduLen != 5)
        return exceptionPdu(fc, kExIllegalDataValue);
    const int address = be16(pdu + 1);
    const uint16_t value = be16(pdu + 3);
    const bool coil = fc == kFcWriteSingleCoil;
    if (coil && value != kCoilOn && value != kCoilOff)
        return exceptionPdu(fc, kExIllegalDataValue);
    Location at;
    if (!locate(coil ? Table::Coil : Table::HoldingRegister, address, 1, &at))
        return exceptionPdu(fc, kExIllegalDataAddress);
    if (coil)
        memory.setBit(at.area, at.index, value == kCoilOn);
    else
        memory.setWord(at.area, at.index, value);
    return std::vector<uint8_t>(pdu, pdu + pduLen);  // the reply echoes the request
}

std::vector<uint8_t> writeMultiplePdu(Memory& memory, const uint8_t* pdu, size_t pduLen)
{
    const uint8_t fc = pdu[0];
    const bool coils = fc == kFcWriteMultipleCoils;
    constexpr size_t kValueOffset = 6;  // fc, address, quantity, byte count
    if (pduLen < kValueOffset)
        return exceptionPdu(fc, kExIllegalDataValue);
    const int address = be16(pdu + 1);
    const int quantity = be16(pdu + 3);
    const size_t byteCount = pdu[5];
    const size_t expectedBytes = coils ? (quantity + 7) / 8 : 2 * quantity;
    if (quantity < 1 || quantity > (coils ? kMaxWriteBits : kMaxWriteRegisters) || byteCount != expectedBytes ||
        pduLen != kValueOffset + byteCount)
        return exceptionPdu(fc, kExIllegalDataValue);
    Location at;
    if (!locate(coils ? Table::Coil : Table::HoldingRegister, address, quantity, &at))
        return exceptionPdu(fc, kExIllegalDataAddress);
    const uint8_t* value = pdu + kValueOffset;
    for (int i = 0; i < quantity; ++i) {
        if (coils)
            memory.setBit(at.area, at.index + i, (value[i / 8] >> (i % 8)) & 1);
        else
            memory.setWord(at.area, at.index + i, be16(value + 2 * i));
    }
    return std::vector<uint8_t>(pdu, pdu + 5);
}

Response handleModbus(MemoryBank& bank, const uint8_t* data, size_t len)
{
    Response response;
    if (len < kMbapBytes + 1 || !looksLikeMbap(data) || be16(data + kLengthOffset) != len - 6)
        return response;  // not a whole Modbus request: nothing sensible to answer
    Memory& memory = bank.station(data[kUnitOffset]);
    const uint8_t* pdu = data + kMbapBytes;
    const size_t pduLen = len - kMbapBytes;
    std::vector<uint8_t> reply;
    switch (pdu[0]) {
    case kFcReadCoils: reply = readPdu(memory, Table::Coil, pdu, pduLen); break;
    case kFcReadDiscreteInputs: reply = readPdu(memory, Table::DiscreteInput, pdu, pduLen); break;
    case kFcReadHoldingRegisters: reply = readPdu(memory, Table::HoldingRegister, pdu, pduLen); break;
    case kFcReadInputRegisters: reply = readPdu(memory, Table::InputRegister, pdu, pduLen); break;
    case kFcWriteSingleCoil:
    case kFcWriteSingleRegister: reply = writeSinglePdu(memory, pdu, pduLen); break;
    case kFcWriteMultipleCoils:
    case kFcWriteMultipleRegisters: reply = writeMultiplePdu(memory, pdu, pduLen); break;
    default: reply = exceptionPdu(pdu[0], kExIllegalFunction); break;
    }
    response.bytes = modbusReply(data, reply);
    return response;
}

// ---- Remote mode -------------------------------------------------------------

constexpr uint16_t kRemoteAreaLimit = kAreaCount;

// The driver numbers I, Q, M, AI, AQ and AM from 1, V bits and VW from 0.
int remoteIndexBase(Area area) { return area == Area::VBit || area == Area::VW ? 0 : 1; }

size_t remoteValueBytes(Area area, size_t count) { return isBitArea(area) ? count : 2 * count; }

std::vector<uint8_t> remoteHeader(const uint8_t* request, RemoteStatus status, size_t following)
{
    std::vector<uint8_t> out(request, request + kRemoteHeader);
    out[0] = static_cast<uint8_t>(kRemoteHeader + following);
    out[7] = static_cast<uint8_t>(status);
    out[8] = static_cast<uint8_t>(following);
    return out;
}

Response remoteError(const uint8_t* request, RemoteStatus status, bool streamLost)
{
    Response response;
    response.remoteMode = true;
    response.closeAfter = streamLost;
    response.bytes = remoteHeader(request, status, 0);
    return response;
}

Response remoteRead(Memory& memory, const uint8_t* request, Area area, int index, int count)
{
    Response response;
    response.remoteMode = true;
    response.bytes = remoteHeader(request, RemoteStatus::Ok, remoteValueBytes(area, count));
    for (int i = 0; i < count; ++i) {
        if (isBitArea(area)) {
            response.bytes.push_back(memory.bit(area, index + i) ? 1 : 0);
        } else {
            putBe16(response.bytes, memory.word(area, index + i));
        }
    }
    return response;
}

Response remoteWrite(Memory& memory, const uint8_t* request, Area area, int index, int count)
{
    const uint8_t* value = request + kRemoteValueOffset;
    for (int i = 0; i < count; ++i) {
        if (isBitArea(area))
            memory.setBit(area, index + i, value[i] & 1);
        else  // words travel low byte first in this direction
            memory.setWord(area, index + i, static_cast<uint16_t>(value[2 * i + 1] << 8 | value[2 * i]));
    }
    Response response;
    response.remoteMode = true;
    response.bytes = remoteHeader(request, RemoteStatus::Ok, kRemoteWriteReply - kRemoteHeader);
    putBe16(response.bytes, static_cast<unsigned>(count));
    response.bytes.push_back(sum8(response.bytes.data(), response.bytes.size()));
    return response;
}

Response handleRemote(MemoryBank& bank, const uint8_t* data, size_t len)
{
    if (len < kRemoteRequest)
        return Response{};  // too short to echo a header from
    const uint8_t rwType = data[kRemoteRwTypeOffset];
    const uint16_t areaCode = be16(data + kRemoteAreaOffset);
    if (rwType != kRemoteRead && rwType != kRemoteWrite)
        return remoteError(data, RemoteStatus::UnknownRwType, true);
    // A write's length depends on its area; without one the stream is lost.
    if (areaCode >= kRemoteAreaLimit)
        return remoteError(data, RemoteStatus::UnknownArea, rwType == kRemoteWrite);
    const auto area = static_cast<Area>(areaCode);
    const int count = be16(data + kRemoteCountOffset);
    const size_t expected = kRemoteRequest + (rwType == kRemoteWrite ? remoteValueBytes(area, count) : 0);
    if (len != expected || data[0] != static_cast<uint8_t>(expected))
        return remoteError(data, RemoteStatus::BadLength, true);
    if (data[len - 1] != sum8(data, len - 1))
        return remoteError(data, RemoteStatus::BadCheckByte, false);
    const long long index = static_cast<long long>(be32(data + kRemoteAddressOffset)) - remoteIndexBase(area);
    if (!inArea(area, index, count) || (count == 0 && index >= areaSize(area)))
        return remoteError(data, RemoteStatus::BadAddress, false);
    Memory& memory = bank.station(data[kRemoteStationOffset]);
    if (rwType == kRemoteRead)
        return remoteRead(memory, data, area, static_cast<int>(index), count);
    if (area == Area::I || area == Area::AI)
        return remoteError(data, RemoteStatus::ReadOnlyArea, false);
    return remoteWrite(memory, data, area, static_cast<int>(index), count);
}

FrameInfo frameRemote(const uint8_t* data, size_t len)
{
    if (len < kRemoteCountOffset + 2)
        return {FrameInfo::NeedMore, 0};
    const uint16_t areaCode = be16(data + kRemoteAreaOffset);
    size_t length = kRemoteRequest;
    if (data[kRemoteRwTypeOffset] == kRemoteWrite && areaCode < kRemoteAreaLimit)
        length += remoteValueBytes(static_cast<Area>(areaCode), be16(data + kRemoteCountOffset));
    // Unknown kinds and areas are taken as a bare header: the handler answers
    // them with an error and the connection is closed after it.
    if (len < length)
        return {FrameInfo::NeedMore, 0};
    return {FrameInfo::Complete, length};
}

}  // namespace

bool isRemoteModeRequest(const uint8_t* data, size_t len)
{
    if (len == 0)
        return false;
    // A write frame of 256 bytes (or any multiple) has length byte 0, but its
    // rwType byte sits where every Modbus request has protocol id 0.
    const bool remoteWrite = len > kRemoteRwTypeOffset && data[kRemoteRwTypeOffset] == kRemoteWrite;
    if (data[0] == 0 && !remoteWrite)
        return false;
    return !(len >= kMbapBytes - 1 && looksLikeMbap(data));
}

FrameInfo frameRequest(const uint8_t* data, size_t len)
{
    if (len < kMbapBytes - 1)  // enough to tell the two formats apart
        return {FrameInfo::NeedMore, 0};
    if (isRemoteModeRequest(data, len))
        return frameRemote(data, len);
    if (!looksLikeMbap(data))
        return {FrameInfo::Unframeable, 0};
    const size_t length = 6 + be16(data + kLengthOffset);
    if (len < length)
        return {FrameInfo::NeedMore, 0};
    return {FrameInfo::Complete, length};
}

Response handleFrame(MemoryBank& bank, const uint8_t* data, size_t len)
{
    if (data == nullptr || len == 0)
        return Response{};
    return isRemoteModeRequest(data, len) ? handleRemote(bank, data, len) : handleModbus(bank, data, len);
}

std::vector<uint8_t> handleRequest(MemoryBank& bank, const uint8_t* data, size_t len)
{
    return handleFrame(bank, data, len).bytes;
}

uint8_t requestStation(const uint8_t* data, size_t len)
{
    if (isRemoteModeRequest(data, len))
        return len > kRemoteStationOffset ? data[kRemoteStationOffset] : 0;
    return len > kUnitOffset ? data[kUnitOffset] : 0;
}

std::vector<uint8_t> faultReply(const uint8_t* data, size_t len, uint8_t exceptionCode)
{
    if (isRemoteModeRequest(data, len))
        return len < kRemoteRequest ? std::vector<uint8_t>{}
                                        : remoteHeader(data, RemoteStatus::DeviceFailure, 0);
    if (len < kMbapBytes + 1)
        return {};
    return modbusReply(data, exceptionPdu(data[kMbapBytes], exceptionCode));
}

RequestSummary summarizeRequest(const uint8_t* data, size_t len)
{
    RequestSummary summary;
    summary.station = requestStation(data, len);
    if (isRemoteModeRequest(data, len)) {
        summary.remoteMode = true;
        if (len < kRemoteCountOffset + 2)
            return summary;
        summary.function = data[kRemoteRwTypeOffset];
        summary.write = summary.function == kRemoteWrite;
        summary.area = be16(data + kRemoteAreaOffset);
        summary.address = be32(data + kRemoteAddressOffset);
        summary.quantity = be16(data + kRemoteCountOffset);
        return summary;
    }
    if (len < kMbapBytes + 1)
        return summary;
    const uint8_t* pdu = data + kMbapBytes;
    const size_t pduLen = len - kMbapBytes;
    summary.function = pdu[0];
    summary.write = pdu[0] == kFcWriteSingleCoil || pdu[0] == kFcWriteSingleRegister ||
                    pdu[0] == kFcWriteMultipleCoils || pdu[0] == kFcWriteMultipleRegisters;
    if (pduLen >= 3)
        summary.address = be16(pdu + 1);
    const bool single = pdu[0] == kFcWriteSingleCoil || pdu[0] == kFcWriteSingleRegister;
    if (single)
        summary.quantity = 1;
    else if (pduLen >= 5)
        summary.quantity = be16(pdu + 3);
    return summary;
}

std::string requestLogLine(const RequestSummary& request)
{
    char line[128];
    if (request.remoteMode)
        std::snprintf(line, sizeof line, "unit %u remote %s area %d address %d quantity %d", request.station,
                      request.write ? "write" : "read", request.area, request.address, request.quantity);
    else
        std::snprintf(line, sizeof line, "unit %u function %u address %d quantity %d", request.station,
                      request.function, request.address, request.quantity);
    return line;
}

}  // namespace logosim
