// Every fault the simulator can inject, on every request: the driver repeats
// the frame, gives the request up with the documented code and callback, the
// host reconnects where it must, and once the fault is gone the scan resumes
// and a new write reaches the controller.
#include "loop_harness.h"

namespace {

using logosim::FaultKind;

struct FaultCase {
    const char* name;
    const char* rule;     // every request, so that the retries run out
    int giveUpCode;       // cyclic entries have sourceType 0
    const char* refusal;  // how the host's reason for refusing the reply begins; "" if nothing came
    bool reconnects;
};

// A reply that does not answer its frame, whole or in part, is refused by the
// host and reaches the driver as none (code 41); an exception reply answers
// its frame, and the driver refuses it by its length (code 71).
const FaultCase kFaults[] = {
    {"Dropped", "drop", RC_LOCAL_NO_REPLY + 1, "", true},
    {"DroppedMidReply", "drop-mid", RC_LOCAL_NO_REPLY + 1, "incomplete reply: connection closed after 6 bytes", true},
    {"LateBeyondTimeout", "late:delay=2500", RC_LOCAL_NO_REPLY + 1, "", true},
    {"Silent", "silent", RC_LOCAL_NO_REPLY + 1, "", true},
    {"Short", "short", RC_LOCAL_NO_REPLY + 1, "incomplete reply: no complete reply within 1000 ms (12 bytes", true},
    {"Long", "long", RC_LOCAL_NO_REPLY + 1, "6 data bytes after a byte count of 4", true},
    {"Exception", "exception", RC_LOCAL_BAD_LENGTH + 1, "", false},
};

void PrintTo(const FaultCase& c, std::ostream* out) { *out << c.rule; }

constexpr std::chrono::milliseconds kTimeout{1000};

class LinkFault : public ::testing::TestWithParam<FaultCase> {};

TEST_P(LinkFault, GivesUpAsDocumentedThenResumes)
{
    const FaultCase& c = GetParam();
    // A time-out far above any reply's time, sanitizers and a busy machine
    // included, and a late reply far beyond it.
    LoopHarness h(defaultSettings(), kTimeout);
    logosim::FaultSpec rule;
    std::string error;
    ASSERT_TRUE(logosim::parseFaultSpec(c.rule, &rule, &error)) << error;
    h.sim.setFaults({rule});
    QList<HOSTVAR> vars;
    vars.append(h.hostVar(AREA_VW, "0", 2));
    h.api.rebuildReadList(&vars);
    h.loop->start();

    // Retries answer 0; the third failure (retry limit 2) gives the request up.
    ASSERT_TRUE(h.waitFor([](const std::vector<logohost::RequestResult>& r) {
        for (const auto& result : r)
            if (result.returnCode != RC_RETRYING)
                return true;
        return false;
    })) << "no give-up";
    {
        std::lock_guard<std::mutex> lock(h.mutex);
        ASSERT_GE(h.results.size(), 3u);
        EXPECT_EQ(RC_RETRYING, h.results[0].returnCode);
        EXPECT_EQ(RC_RETRYING, h.results[1].returnCode);
        EXPECT_EQ(c.giveUpCode, h.results[2].returnCode);
        EXPECT_EQ(0u, h.results[2].failure.refusal.rfind(c.refusal, 0)) << h.results[2].failure.refusal;
        EXPECT_EQ(*c.refusal == '\0', h.results[2].failure.refusal.empty()) << h.results[2].failure.refusal;
        EXPECT_TRUE(h.results[2].failCallback);
        EXPECT_EQ(AREA_VW, h.results[2].area);
    }

    // A request answered before the fault was lifted may still be given up,
    // and a give-up on one controller discards every pending write: queue
    // the write only once the link answers well again.
    h.sim.setFaults({});
    const size_t before = h.resultCount();
    ASSERT_TRUE(h.waitFor([before](const std::vector<logohost::RequestResult>& r) {
        return r.size() > before && r.back().returnCode == RC_LOCAL_OK;
    })) << "no good reply after the fault was lifted";
    h.sim.setWord(1, logosim::Table::HoldingRegister, 1, 4321);
    const int id = 77;
    QByteArray value;
    value.append(static_cast<char>(0x39)).append(static_cast<char>(0x30));  // 12345, low byte first
    ASSERT_GT(h.api.setRegisterData(QString(), AREA_VW, QStringLiteral("5"), 1, value, 1, 1, id), 0);
    ASSERT_TRUE(h.waitFor([&](const std::vector<logohost::RequestResult>& r) {
        bool written = false;
        for (const auto& result : r)
            written |= result.sourceId == id && result.rwType == 1 && result.returnCode == RC_LOCAL_OK;
        return written && !r.empty() && r.back().scanDone;
    })) << "the scan did not resume";
    EXPECT_EQ(12345, h.sim.word(1, logosim::Table::HoldingRegister, 5));
    QByteArray image;
    h.api.getRegisterData(QString(), AREA_VW, QStringLiteral("1"), 1, image, 1);
    h.waitFor([&](const std::vector<logohost::RequestResult>&) {
        h.api.getRegisterData(QString(), AREA_VW, QStringLiteral("1"), 1, image, 1);
        return image == QByteArray::fromHex("e110");  // 4321
    });
    EXPECT_EQ(QByteArray::fromHex("e110"), image);
    if (c.reconnects) {
        EXPECT_GT(h.links->link(0).connections(), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKind, LinkFault, ::testing::ValuesIn(kFaults),
                         [](const ::testing::TestParamInfo<FaultCase>& info) { return std::string(info.param.name); });

// A controller that stops answering and refuses connections, then comes back.
TEST(ControllerOutage, ScanResumesAfterTheControllerComesBack)
{
    LoopHarness h(defaultSettings(), kTimeout);
    QList<HOSTVAR> vars;
    vars.append(h.hostVar(AREA_AM, "1", 1));
    h.api.rebuildReadList(&vars);
    h.loop->start();
    ASSERT_TRUE(h.waitFor([](const std::vector<logohost::RequestResult>& r) { return !r.empty() && r.back().scanDone; }));
    h.sim.pause();
    ASSERT_TRUE(h.waitFor([](const std::vector<logohost::RequestResult>& r) {
        return !r.empty() && r.back().returnCode == RC_LOCAL_NO_REPLY + 1 && r.back().failCallback;
    })) << "an outage must end in a no-reply give-up";
    const size_t before = h.resultCount();
    std::string error;
    ASSERT_TRUE(h.sim.resume(&error)) << error;
    h.sim.setWord(1, logosim::Table::HoldingRegister, 528, 99);
    QByteArray image;
    EXPECT_TRUE(h.waitFor([&](const std::vector<logohost::RequestResult>& r) {
        h.api.getRegisterData(QString(), AREA_AM, QStringLiteral("1"), 1, image, 1);
        return r.size() > before && r.back().scanDone && image == QByteArray::fromHex("6300");
    })) << "the scan did not resume after the controller came back";
}

}  // namespace
