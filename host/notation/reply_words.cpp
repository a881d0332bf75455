#include "host/notation/reply_words.h"

#include <cstdio>

#include "host/link/frame_layout.h"
#include "logo_modbus_tcp.h"

namespace logohost {
namespace {

using namespace layout;

constexpr int kSourceTypes = 12;  // failure codes are base + 1 + sourceType for sourceType 0..11

struct CodeFamily {
    int base;
    const char* words;
    bool remote;
};

const CodeFamily kFamilies[] = {
    {RC_LOCAL_BAD_KIND, "reply neither to a read nor to a write", false},
    {RC_LOCAL_NO_REPLY, "no reply", false},
    {RC_LOCAL_BAD_LENGTH, "wrong reply length", false},
    {RC_REMOTE_BAD_KIND, "reply neither to a read nor to a write", true},
    {RC_REMOTE_NO_REPLY, "no reply", true},
    {RC_REMOTE_BAD_LENGTH, "wrong reply length", true},
};

const CodeFamily* familyOf(int code)
{
    for (const CodeFamily& family : kFamilies)
        if (code > family.base && code <= family.base + kSourceTypes)
            return &family;
    return nullptr;
}

}  // namespace

int modbusExceptionCode(const uint8_t* reply, size_t length)
{
    if (length != static_cast<size_t>(kExceptionReplyLength) || !(reply[kFunctionOffset] & kExceptionFlag))
        return 0;
    return reply[kExceptionCodeOffset];
}

std::string exceptionName(int code)
{
    static const char* const kNames[] = {
        "",
        "illegal function",
        "illegal data address",
        "illegal data value",
        "server device failure",
        "acknowledge",
        "server device busy",
        "negative acknowledge",
        "memory parity error",
        "",
        "gateway path unavailable",
        "gateway target device failed to respond",
    };
    const int known = static_cast<int>(sizeof kNames / sizeof kNames[0]);
    return code > 0 && code < known && kNames[code][0] ? kNames[code] : "unknown exception";
}

std::string describeException(int code)
{
    const std::string name = exceptionName(code);
    char number[8];
    std::snprintf(number, sizeof number, "%02X", code & 0xFF);
    return name + " (Modbus exception " + number + ")";
}

bool isSuccessCode(int returnCode) { return returnCode == RC_LOCAL_OK || returnCode == RC_REMOTE_OK; }

bool isFinalFailure(int returnCode) { return returnCode != RC_RETRYING && !isSuccessCode(returnCode); }

bool isBadLengthCode(int returnCode)
{
    const CodeFamily* family = familyOf(returnCode);
    return family && (family->base == RC_LOCAL_BAD_LENGTH || family->base == RC_REMOTE_BAD_LENGTH);
}

bool isNoReplyCode(int returnCode)
{
    const CodeFamily* family = familyOf(returnCode);
    return family && (family->base == RC_LOCAL_NO_REPLY || family->base == RC_REMOTE_NO_REPLY);
}

std::string describeReturnCode(int returnCode)
{
    const std::string code = std::to_string(returnCode);
    if (isSuccessCode(returnCode))
        return "done (driver code " + code + ")";
    if (returnCode == RC_RETRYING)
        return "failed reply, to be repeated (driver code 0)";
    const CodeFamily* family = familyOf(returnCode);
    if (!family)
        return "unknown failure (driver code " + code + ")";
    return std::string(family->words) + " (driver code " + code + (family->remote ? ", remote link)" : ")");
}

std::string failureText(int returnCode, int exceptionCode, const std::string& refusal)
{
    // The driver saw a refused reply as none at all: its "no reply" code
    // would hide what really came.
    if (!refusal.empty() && isNoReplyCode(returnCode))
        return refusal + ", refused (driver code " + std::to_string(returnCode) + ")";
    if (exceptionCode && isBadLengthCode(returnCode))
        return describeException(exceptionCode) + ", driver code " + std::to_string(returnCode);
    return describeReturnCode(returnCode);
}

}  // namespace logohost
