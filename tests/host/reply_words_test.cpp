// Exceptions and return codes in words: what an operator reads when a
// request fails.
#include <gtest/gtest.h>

#include <vector>

#include "host/reply_words.h"

namespace logohost {
namespace {

TEST(ModbusException, IsFoundOnlyInANineByteReplyWithTheFlagSet)
{
    const struct {
        const char* name;
        std::vector<uint8_t> reply;
        int code;
    } cases[] = {
        {"IllegalAddress", {0, 0, 0, 0, 0, 3, 1, 0x83, 0x02}, 2},
        {"WriteException", {0, 0, 0, 0, 0, 3, 1, 0x90, 0x04}, 4},
        {"GoodReadReply", {0, 0, 0, 0, 0, 5, 1, 0x03, 0x02, 0x83, 0x02}, 0},
        {"NineBytesWithoutFlag", {0, 0, 0, 0, 0, 3, 1, 0x03, 0x02}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(modbusExceptionCode(c.reply.data(), c.reply.size()), c.code);
    }
}

struct CodeCase {
    const char* name;
    int returnCode;
    int exceptionCode;
    bool finalFailure;
    const char* text;
};

// Failures name the row, not its bytes.
void PrintTo(const CodeCase& c, std::ostream* os) { *os << c.name; }

class FailureText : public ::testing::TestWithParam<CodeCase> {};

TEST_P(FailureText, SaysWhyInWordsBesideTheDriverCode)
{
    const CodeCase& c = GetParam();
    EXPECT_EQ(isFinalFailure(c.returnCode), c.finalFailure);
    EXPECT_EQ(failureText(c.returnCode, c.exceptionCode), c.text);
}

const CodeCase kCodeCases[] = {
    {"LocalSuccess", 1, 0, false, "done (driver code 1)"},
    {"RemoteSuccess", 100, 0, false, "done (driver code 100)"},
    {"Retrying", 0, 0, false, "failed reply, to be repeated (driver code 0)"},
    {"NoReplyCyclic", 41, 0, true, "no reply (driver code 41)"},
    {"NoReplyLastSourceType", 52, 0, true, "no reply (driver code 52)"},
    {"WrongLength", 72, 0, true, "wrong reply length (driver code 72)"},
    {"WrongLengthFromException", 71, 2, true, "illegal data address (Modbus exception 02), driver code 71"},
    {"ExceptionBehindNoReplyIsNotBlamed", 41, 2, true, "no reply (driver code 41)"},
    {"UnknownException", 71, 0x2A, true, "unknown exception (Modbus exception 2A), driver code 71"},
    {"NeitherReadNorWrite", 11, 0, true, "reply neither to a read nor to a write (driver code 11)"},
    {"OtherLinkNoReply", 141, 0, true, "no reply (driver code 141, remote link)"},
    {"OtherLinkWrongLength", 171, 4, true, "server device failure (Modbus exception 04), driver code 171"},
    {"Unknown", 999, 0, true, "unknown failure (driver code 999)"},
    {"JustPastAFamily", 53, 0, true, "unknown failure (driver code 53)"},
};

INSTANTIATE_TEST_SUITE_P(Codes, FailureText, ::testing::ValuesIn(kCodeCases),
                         [](const ::testing::TestParamInfo<CodeCase>& info) { return info.param.name; });

}  // namespace
}  // namespace logohost
