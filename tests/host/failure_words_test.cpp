// Why a request failed, in the words an operator reads: what happened
// first, the driver's code last.
#include <gtest/gtest.h>

#include <vector>

#include "host/binding/failure_text.h"
#include "host/link/modbus_exceptions.h"
#include "host/notation/return_codes.h"
#include "logo_modbus_tcp.h"

namespace {

using namespace logohost;

TEST(FailureWords, ExceptionCodeIsReadOnlyWithTheFlagSet)
{
    const std::vector<uint8_t> exception{0, 0, 0, 0, 0, 3, 1, 0x83, 0x02};
    const std::vector<uint8_t> noFlag{0, 0, 0, 0, 0, 3, 1, 0x03, 0x02};
    EXPECT_EQ(modbusExceptionCode(exception.data(), exception.size()), 2);
    EXPECT_EQ(modbusExceptionCode(noFlag.data(), noFlag.size()), 0);
    EXPECT_EQ(describeException(0x2A), "unknown exception (Modbus exception 2A)");
}

RequestFailure failed(int code, int exception = 0, const char* refusal = "", const char* cause = "")
{
    return RequestFailure{code, exception, refusal, cause};
}

TEST(FailureWords, SayWhatHappenedBeforeTheDriverCode)
{
    const struct {
        RequestFailure failure;
        bool finalFailure;
        const char* text;
        const char* subject = "";
    } rows[] = {
        {failed(11), true, "the driver gave it up (driver code 11)"},
        {failed(52), true, "the controller did not answer (driver code 52)"},
        {failed(41, 0, "", "connection refused"), true, "the controller did not answer (connection refused; driver code 41)"},
        {failed(42, 0, "", "connection refused"), true,
         "the controller did not answer Q2 (connection refused; driver code 42)", "Q2"},
        {failed(72), true, "the controller's reply had the wrong length (driver code 72)"},
        {failed(71, 2), true, "the controller answered illegal data address (Modbus exception 02; driver code 71)"},
        {failed(71, 2), true, "the controller answered AM64:2 with illegal data address (Modbus exception 02; driver code 71)",
         "AM64:2"},
        {failed(41, 2), true, "the controller did not answer (driver code 41)"},  // no reply to blame the exception on
        {failed(171, 4), true, "the controller answered server device failure (Modbus exception 04; driver code 171)"},
        // A refused reply reached the driver as none: the host's reason replaces "did not answer".
        {failed(42, 0, "reply from unit 2 to a request for unit 1"), true,
         "the reply was refused: reply from unit 2 to a request for unit 1 (driver code 42)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(isFinalFailure(row.failure.returnCode), row.finalFailure);
        EXPECT_EQ(failureText(row.failure, row.subject), row.text);
    }
}

TEST(FailureWords, OnlyAGiveUpIsAFinalFailure)
{
    for (const int code : {RC_LOCAL_OK, RC_REMOTE_OK, RC_RETRYING})
        EXPECT_FALSE(isFinalFailure(code)) << code;
    for (const int code : {11, 41, 52, 71, 141, 182})
        EXPECT_TRUE(isFinalFailure(code)) << code;
}

}  // namespace
