// Exceptions and return codes in words: what an operator reads when a
// request fails.
#include <gtest/gtest.h>

#include <vector>

#include "host/notation/reply_words.h"

namespace {

using namespace logohost;

TEST(ReplyWords, ExceptionCodeIsReadOnlyWithTheFlagSet)
{
    const std::vector<uint8_t> exception{0, 0, 0, 0, 0, 3, 1, 0x83, 0x02};
    const std::vector<uint8_t> noFlag{0, 0, 0, 0, 0, 3, 1, 0x03, 0x02};
    EXPECT_EQ(modbusExceptionCode(exception.data(), exception.size()), 2);
    EXPECT_EQ(modbusExceptionCode(noFlag.data(), noFlag.size()), 0);
}

TEST(ReplyWords, FailuresSayWhyBesideTheDriverCode)
{
    const struct {
        int returnCode, exceptionCode;
        bool finalFailure;
        const char* text;
        const char* refusal = "";
    } rows[] = {
        {1, 0, false, "done (driver code 1)"},
        {100, 0, false, "done (driver code 100)"},
        {0, 0, false, "failed reply, to be repeated (driver code 0)"},
        {11, 0, true, "reply neither to a read nor to a write (driver code 11)"},
        {52, 0, true, "no reply (driver code 52)"},
        {53, 0, true, "unknown failure (driver code 53)"},
        {72, 0, true, "wrong reply length (driver code 72)"},
        {71, 2, true, "illegal data address (Modbus exception 02), driver code 71"},
        {41, 2, true, "no reply (driver code 41)"},  // no reply to blame the exception on
        {71, 0x2A, true, "unknown exception (Modbus exception 2A), driver code 71"},
        {141, 0, true, "no reply (driver code 141, remote link)"},
        {171, 4, true, "server device failure (Modbus exception 04), driver code 171"},
        // A refused reply reached the driver as none: the host's reason replaces "no reply".
        {42, 0, true, "reply from unit 2 to a request for unit 1, refused (driver code 42)",
         "reply from unit 2 to a request for unit 1"},
        {0, 0, false, "failed reply, to be repeated (driver code 0)", "reply from unit 2 to a request for unit 1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(isFinalFailure(row.returnCode), row.finalFailure);
        EXPECT_EQ(failureText(row.returnCode, row.exceptionCode, row.refusal), row.text);
    }
}

}  // namespace
