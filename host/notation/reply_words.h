// Modbus exceptions and the driver's return codes in words, for the trace
// and for error messages.
#ifndef LOGOHOST_REPLY_WORDS_H
#define LOGOHOST_REPLY_WORDS_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace logohost {

// The exception code of a Modbus TCP exception reply, 0 for any other reply.
int modbusExceptionCode(const uint8_t* reply, size_t length);

// "illegal data address"
std::string exceptionName(int code);
// "illegal data address (Modbus exception 02)"
std::string describeException(int code);

bool isSuccessCode(int returnCode);
// A failure after the retries ran out (not success, not "will be repeated").
bool isFinalFailure(int returnCode);
// A final failure whose reply was there but of the wrong length; an
// exception reply is one.
bool isBadLengthCode(int returnCode);
bool isNoReplyCode(int returnCode);

// "no reply (driver code 41)", "wrong reply length (driver code 171, remote link)"
std::string describeReturnCode(int returnCode);

// Why a request failed: the host's reason when it refused the reply ("reply
// from unit 2 to a request for unit 1, refused (driver code 41)"), the Modbus
// exception behind a wrong-length code when there was one ("illegal data
// address (Modbus exception 02), driver code 71"), else the code in words.
std::string failureText(int returnCode, int exceptionCode, const std::string& refusal = std::string());

}  // namespace logohost

#endif  // LOGOHOST_REPLY_WORDS_H
