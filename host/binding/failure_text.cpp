#include "host/binding/failure_text.h"

#include <cstdio>

#include "host/link/modbus_exceptions.h"
#include "host/notation/return_codes.h"
#include "logo_modbus_tcp.h"

namespace logohost {

namespace {

// What happened, and the detail that goes in brackets after it.
struct Words {
    std::string text;
    std::string detail;
};

// While a frame is being repeated the driver has no verdict yet (code 0):
// what the host saw of the exchange says what happened.
Words wordsOf(const RequestFailure& failure, const std::string& subject)
{
    const bool repeating = failure.returnCode == RC_RETRYING;
    const std::string of = subject.empty() ? "" : " for " + subject;
    // The driver sees a refused reply as none at all: its "no reply" code
    // would hide what really came.
    if (!failure.refusal.empty() && (repeating || isNoReplyCode(failure.returnCode)))
        return {"the reply" + of + " was refused: " + failure.refusal, ""};
    if (failure.exceptionCode && (repeating || isBadLengthCode(failure.returnCode))) {
        char number[8];
        std::snprintf(number, sizeof number, "%02X", failure.exceptionCode & 0xFF);
        return {"the controller answered" + (subject.empty() ? "" : " " + subject + " with") + " " +
                    exceptionName(failure.exceptionCode),
                std::string("Modbus exception ") + number};
    }
    if (isNoReplyCode(failure.returnCode) || repeating)
        return {"the controller did not answer" + (subject.empty() ? "" : " " + subject), failure.cause};
    if (isBadLengthCode(failure.returnCode))
        return {"the controller's reply" + of + " had the wrong length", ""};
    return {"the driver gave " + (subject.empty() ? std::string("it") : subject) + " up", ""};
}

}  // namespace

std::string failureWords(const RequestFailure& failure, const std::string& subject)
{
    const Words words = wordsOf(failure, subject);
    return words.detail.empty() ? words.text : words.text + " (" + words.detail + ")";
}

std::string driverCodeText(int returnCode) { return "driver code " + std::to_string(returnCode); }

std::string failureText(const RequestFailure& failure, const std::string& subject)
{
    const Words words = wordsOf(failure, subject);
    const std::string code = driverCodeText(failure.returnCode);
    return words.text + " (" + (words.detail.empty() ? "" : words.detail + "; ") + code + ")";
}

}  // namespace logohost
