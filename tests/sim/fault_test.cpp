// Fault rules: their text form and which requests they pick.
#include <gtest/gtest.h>

#include <algorithm>

#include "sim/faults.h"

using namespace logosim;

namespace {

struct GoodRuleCase {
    const char* name;
    const char* text;
    FaultKind kind;
    int everyNth;
    double probability;
    int delayMs;
    int station;
    int exceptionCode;
    friend void PrintTo(const GoodRuleCase& c, std::ostream* os) { *os << c.name; }
};

class FaultSpecText : public testing::TestWithParam<GoodRuleCase> {};

TEST_P(FaultSpecText, Parses)
{
    const GoodRuleCase& c = GetParam();
    FaultSpec rule;
    std::string error;
    ASSERT_TRUE(parseFaultSpec(c.text, &rule, &error)) << error;
    EXPECT_EQ(rule.kind, c.kind);
    EXPECT_EQ(rule.everyNth, c.everyNth);
    EXPECT_DOUBLE_EQ(rule.probability, c.probability);
    EXPECT_EQ(rule.delayMs, c.delayMs);
    EXPECT_EQ(rule.station, c.station);
    EXPECT_EQ(rule.exceptionCode, c.exceptionCode);
}

const GoodRuleCase kGoodRules[] = {
    {"drop", "drop", FaultKind::Drop, 1, -1, 1000, -1, 4},
    {"drop_mid_every_3", "drop-mid:every=3", FaultKind::DropMid, 3, -1, 1000, -1, 4},
    {"late_delay_station", "late:delay=250:station=2", FaultKind::Late, 1, -1, 250, 2, 4},
    {"short_prob", "short:prob=0.25", FaultKind::Short, 1, 0.25, 1000, -1, 4},
    {"long_station_0", "long:station=0", FaultKind::Long, 1, -1, 1000, 0, 4},
    {"exception_code", "exception:code=6:every=2", FaultKind::Exception, 2, -1, 1000, -1, 6},
    {"silent_prob_1", "silent:prob=1", FaultKind::Silent, 1, 1.0, 1000, -1, 4},
};

INSTANTIATE_TEST_SUITE_P(Good, FaultSpecText, testing::ValuesIn(kGoodRules),
                         [](const testing::TestParamInfo<GoodRuleCase>& info) { return info.param.name; });

TEST(FaultSpecText, ErrorsNameTheTextAndWhatWasExpected)
{
    struct Case {
        const char* text;
        const char* mentions;  // part of the message that locates the mistake
    };
    const Case cases[] = {
        {"", "unknown kind ''"},
        {"dorp", "unknown kind 'dorp'"},
        {"late:dealy=5", "unknown option 'dealy'"},
        {"drop:every", "option 'every' has no value"},
        {"drop:every=0", "every='0'"},
        {"drop:every=2x", "every='2x'"},
        {"short:prob=1.5", "prob='1.5'"},
        {"late:delay=-1", "delay='-1'"},
        {"drop:station=256", "station='256'"},
        {"exception:code=0", "code='0'"},
        {"drop:delay=5", "delay= applies only to late"},
        {"late:code=3", "code= applies only to exception"},
        {"drop:every=2:prob=0.5", "not both"},
        {"drop:", "option '' has no value"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        FaultSpec rule;
        std::string error;
        EXPECT_FALSE(parseFaultSpec(c.text, &rule, &error));
        EXPECT_NE(error.find(std::string("'") + c.text + "'"), std::string::npos) << error;
        EXPECT_NE(error.find(c.mentions), std::string::npos) << error;
    }
}

FaultSpec rule(const char* text)
{
    FaultSpec out;
    std::string error;
    EXPECT_TRUE(parseFaultSpec(text, &out, &error)) << error;
    return out;
}

std::string firingPattern(FaultPlan& plan, int requests, uint8_t station = 1)
{
    std::string pattern;
    for (int i = 0; i < requests; ++i) {
        const FaultSpec* fired = plan.next(station);
        pattern += fired == nullptr ? '.' : faultKindName(fired->kind)[0];
    }
    return pattern;
}

TEST(FaultPlan, EveryNthCountsOnlyItsOwnStation)
{
    FaultPlan plan(1);
    plan.set({rule("drop:every=3:station=2")});
    EXPECT_EQ(firingPattern(plan, 4, 1), "....");
    EXPECT_EQ(firingPattern(plan, 7, 2), "..d..d.");
}

TEST(FaultPlan, FirstRuleWinsButEveryRuleKeepsCounting)
{
    FaultPlan plan(1);
    plan.set({rule("late:every=2"), rule("short:every=3")});
    // Request 6 is both rules' turn and the first takes it; the second still
    // counted it, so its next turn is request 9, not 10.
    EXPECT_EQ(firingPattern(plan, 9), ".lsl.l.ls");
}

TEST(FaultPlan, ProbabilityIsReproducibleForASeed)
{
    FaultPlan a(7), b(7), c(8);
    for (FaultPlan* plan : {&a, &b, &c})
        plan->set({rule("silent:prob=0.5")});
    const std::string first = firingPattern(a, 200);
    EXPECT_EQ(firingPattern(b, 200), first);
    EXPECT_NE(firingPattern(c, 200), first);
    const auto fired = std::count(first.begin(), first.end(), 's');
    EXPECT_GT(fired, 60);
    EXPECT_LT(fired, 140);

    FaultPlan never(7), always(7);
    never.set({rule("silent:prob=0")});
    always.set({rule("silent:prob=1")});
    EXPECT_EQ(firingPattern(never, 50), std::string(50, '.'));
    EXPECT_EQ(firingPattern(always, 50), std::string(50, 's'));
}

}  // namespace
