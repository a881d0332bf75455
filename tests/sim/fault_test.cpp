// Fault rules: their text form and which requests they pick. What each kind
// does to a reply is seen through a client in server_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>

#include "sim/faults.h"

using namespace logosim;

namespace {

FaultSpec rule(const char* text)
{
    FaultSpec out;
    std::string error;
    EXPECT_TRUE(parseFaultSpec(text, &out, &error)) << error;
    return out;
}

TEST(FaultRuleText, ErrorsQuoteTheTextAndSayWhatIsWrong)
{
    const struct {
        const char* text;
        const char* mentions;
    } cases[] = {
        {"dorp", "unknown kind 'dorp'"},
        {"late:dealy=5", "unknown option 'dealy'"},
        {"short:prob=1.5", "prob='1.5'"},
        {"drop:delay=5", "delay= applies only to late"},
        {"drop:every=2:prob=0.5", "not both"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        FaultSpec out;
        std::string error;
        EXPECT_FALSE(parseFaultSpec(c.text, &out, &error));
        EXPECT_NE(error.find(std::string("'") + c.text + "'"), std::string::npos) << error;
        EXPECT_NE(error.find(c.mentions), std::string::npos) << error;
    }
}

// One letter per request: the first letter of the kind that fired, or '.'.
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
    // Wide bounds: they only catch a rule that ignores its probability.
    const auto fired = std::count(first.begin(), first.end(), 's');
    EXPECT_GT(fired, 60);
    EXPECT_LT(fired, 140);
}

}  // namespace
