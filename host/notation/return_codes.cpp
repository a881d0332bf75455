#include "host/notation/return_codes.h"

#include "logo_modbus_tcp.h"

namespace logohost {
namespace {

// Whether a code is base + 1 + some requester category.
bool inFamily(int code, int base) { return code > base && code <= base + SOURCE_TYPE_CATEGORIES; }

}  // namespace

bool isSuccessCode(int returnCode) { return returnCode == RC_LOCAL_OK || returnCode == RC_REMOTE_OK; }

bool isFinalFailure(int returnCode) { return returnCode != RC_RETRYING && !isSuccessCode(returnCode); }

bool isBadLengthCode(int returnCode)
{
    return inFamily(returnCode, RC_LOCAL_BAD_LENGTH) || inFamily(returnCode, RC_REMOTE_BAD_LENGTH);
}

bool isNoReplyCode(int returnCode)
{
    return inFamily(returnCode, RC_LOCAL_NO_REPLY) || inFamily(returnCode, RC_REMOTE_NO_REPLY);
}

}  // namespace logohost
