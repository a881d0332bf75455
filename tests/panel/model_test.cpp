// The plant model and the operator's actions over a session whose driver
// only records what it is asked, with the loop's part played by the test
// and the clocks in its hand: the cyclic list follows the open screens
// plus the trends, every value carries its truth, and the operator's
// writes and reads end as the driver's results say.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <map>
#include <mutex>
#include <thread>

#include "host/alarms/alarm_board.h"
#include "host/binding/pass_meter.h"
#include "host/history/history_store.h"
#include "host/model/operator_actions.h"
#include "host/notation/return_codes.h"
#include "host/panel/panel_server.h"
#include "host/panel/panel_views.h"

namespace {

using namespace logohost;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// What the fake driver was asked for. One session at a time, as with the
// real driver.
struct Recorded {
    std::mutex mutex;
    std::vector<std::vector<std::string>> rebuilds;  // each list as "area:address"
    std::vector<RW_VAR> writes;
    std::vector<RW_VAR> onceReads;
    std::vector<std::pair<int, int>> stationSwitches;
    std::map<std::string, uint16_t> image;  // "area:address" -> word
} recorded;

std::string key(int area, const QString& addressText) { return std::to_string(area) + ":" + addressText.toStdString(); }

int fakeRebuild(QList<HOSTVAR>* vars)
{
    std::vector<std::string> names;
    for (const HOSTVAR& var : *vars)
        names.push_back(key(var.area, var.addressText));
    std::sort(names.begin(), names.end());
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    recorded.rebuilds.push_back(names);
    return vars->size();
}

int fakeGet(QString, int area, QString addressText, int, QByteArray& data, int count)
{
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    const uint16_t word = recorded.image[key(area, addressText)];
    data = QByteArray(2 * count, 0);
    data[0] = static_cast<char>(word & 0xFF);
    data[1] = static_cast<char>(word >> 8);
    return 1;
}

int fakeSet(QString, int area, QString addressText, int station, QByteArray data, int count, int sourceType,
            int sourceId)
{
    RW_VAR var = RW_VAR();
    var.area = area;
    var.addressText = addressText;
    var.address = addressText.toInt();
    var.station = station;
    var.count = count;
    var.value = data;
    var.sourceType = sourceType;
    var.sourceId = sourceId;
    var.rwType = 1;
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    recorded.writes.push_back(var);
    return 1;
}

int fakeOnceRead(RW_VAR* var, int)
{
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    recorded.onceReads.push_back(*var);
    return 1;
}

void fakeEnable(int station, int enable)
{
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    recorded.stationSwitches.emplace_back(station, enable);
}

DriverApi fakeApi()
{
    DriverApi api;
    api.setComInfo = [](ComInfo*) {};
    api.registerCallbacks = [](ReadDoneCallback, FailCallback) {};
    api.rebuildReadList = fakeRebuild;
    api.getRegisterData = fakeGet;
    api.setRegisterData = fakeSet;
    api.addOnceRead = fakeOnceRead;
    api.enableStation = fakeEnable;
    return api;
}

// Screens: "a" {VW0, AI1 trended}, "b" {VW2, Q1}, "c" {VW0, M1}.
ScreenSet testScreens()
{
    ScreenSet set;
    std::string error;
    EXPECT_TRUE(parseScreens(R"({"screens": [
        {"name": "a", "items": [{"var": "VW0", "write": true}, {"var": "AI1", "trend": true, "scale": 0.1, "decimals": 1}]},
        {"name": "b", "items": [{"var": "VW2", "min": 0, "max": 100, "write": true}, {"var": "Q1", "write": true}]},
        {"name": "c", "items": [{"var": "VW0"}, {"var": "M1"}]}]})",
                             "test", StationContext{}, &set, &error))
        << error;
    return set;
}

// The cyclic list the driver should hold, in the fake's "area:address" form.
std::vector<std::string> listOf(std::vector<std::string> texts)
{
    std::vector<std::string> names;
    for (const std::string& text : texts) {
        Variable var;
        std::string error;
        EXPECT_TRUE(parseVariable(text, false, &var, &error)) << error;
        names.push_back(key(driverArea(var.kind), QString::fromStdString(driverAddressText(var))));
    }
    std::sort(names.begin(), names.end());
    return names;
}

RequestResult resultFor(const RW_VAR& var, int returnCode)
{
    RequestResult result;
    result.returnCode = returnCode;
    result.sourceType = var.sourceType;
    result.sourceId = var.sourceId;
    result.rwType = var.rwType;
    result.area = var.area;
    result.address = var.address;
    result.count = var.count;
    result.station = var.station;
    return result;
}

// A cyclic read of one variable's first element, as the driver reports it.
RequestResult cyclicResult(const char* text, int returnCode)
{
    Variable var;
    std::string error;
    EXPECT_TRUE(parseVariable(text, false, &var, &error)) << error;
    RequestResult result;
    result.returnCode = returnCode;
    result.sourceId = -1;
    result.area = driverArea(var.kind);
    result.address = driverAddress(var);
    result.count = driverCount(var);
    result.station = 1;
    return result;
}

Exchange exchangeWith(LinkFault fault, const char* cause)
{
    Exchange exchange;
    exchange.outcome = fault == LinkFault::None ? LinkOutcome::Reply : LinkOutcome::NoReply;
    exchange.fault = fault;
    exchange.cause = cause;
    exchange.sent = true;
    return exchange;
}

class ModelTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        recorded.rebuilds.clear();
        recorded.writes.clear();
        recorded.onceReads.clear();
        recorded.stationSwitches.clear();
        recorded.image.clear();
    }

    // Built on first use, so that a test can set the settings first.
    PlantModel& model()
    {
        if (!model_) {
            model_.reset(new PlantModel(testScreens(), PlantSettings{false, 1, kLease, milliseconds(0)}));
            SessionSettings settings;
            settings.localLinkId = 7;
            settings.replyTimeout = milliseconds(1000);
            settings.retries = 2;
            settings.scanPeriod = milliseconds(500);  // values go stale 3.5 s after their last read
            const HostClock clock{[this] { return steady_.load(); }, [this] { return wallMs_.load(); }};
            session_.reset(new Session(api_, info_, links_, trace_, settings, model_->variables(), clock));
            model_->attach(*session_);
            actions_.reset(new OperatorActions(*model_, ActionSettings{readOnly_, std::chrono::seconds(20)}));
        }
        return *model_;
    }
    Session& session() { return model(), *session_; }
    OperatorActions& actions() { return model(), *actions_; }

    void advance(milliseconds by)
    {
        steady_ = steady_.load() + by;
        wallMs_ += by.count();
    }

    // The rebuilds since the last call.
    std::vector<std::vector<std::string>> takeRebuilds()
    {
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        auto rebuilds = recorded.rebuilds;
        recorded.rebuilds.clear();
        return rebuilds;
    }

    // Waits (bounded) until the fake saw `count` of a kind of request, and
    // returns the last of them.
    RW_VAR nth(std::vector<RW_VAR> Recorded::*list, size_t count)
    {
        for (int i = 0; i < 2000; ++i) {
            {
                const std::lock_guard<std::mutex> lock(recorded.mutex);
                if ((recorded.*list).size() >= count)
                    return (recorded.*list)[count - 1];
            }
            std::this_thread::sleep_for(milliseconds(5));
        }
        ADD_FAILURE() << "no request reached the driver";
        return RW_VAR();
    }

    void setImage(const char* text, uint16_t word)
    {
        const RequestResult where = cyclicResult(text, 1);
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        recorded.image[std::to_string(where.area) + ":" + std::to_string(where.address)] = word;
    }

    static constexpr milliseconds kLease{10000};
    const DriverApi api_ = fakeApi();
    ComInfo info_ = ComInfo();
    Trace trace_{false};
    LinkSet links_{{{"plc", "127.0.0.1", 502, -1}}, milliseconds(1000), trace_};  // never connected: no loop runs
    std::atomic<Clock::time_point> steady_{Clock::now()};
    std::atomic<int64_t> wallMs_{1700000000000};
    bool readOnly_ = false;
    std::unique_ptr<PlantModel> model_;
    std::unique_ptr<Session> session_;
    std::unique_ptr<OperatorActions> actions_;
};

constexpr milliseconds ModelTest::kLease;

TEST_F(ModelTest, CyclicListFollowsOpenScreensPlusTrends)
{
    enum Action { Open, Close, Poll, Wait };
    const struct {
        const char* name;
        Action action;
        int screen;  // Open and Poll: the screen; Close: the step whose stream to close
        milliseconds wait;
        bool rebuilt;
        std::vector<std::string> list;
    } steps[] = {
        {"open a", Open, 0, {}, true, {"VW0", "AI1"}},
        {"open b", Open, 1, {}, true, {"VW0", "AI1", "VW2", "Q1"}},
        {"open b in a second browser", Open, 1, {}, false, {}},
        {"close the first b", Close, 1, {}, false, {}},
        {"close a", Close, 0, {}, true, {"AI1", "VW2", "Q1"}},
        {"a script polls c", Poll, 2, {}, true, {"AI1", "VW2", "Q1", "VW0", "M1"}},
        {"inside the lease", Wait, 0, kLease - milliseconds(1), false, {}},
        {"polled again", Poll, 2, {}, false, {}},
        {"the renewed lease holds", Wait, 0, milliseconds(2), false, {}},
        {"the lease runs out", Wait, 0, kLease, true, {"AI1", "VW2", "Q1"}},
        {"close the second b", Close, 2, {}, true, {"AI1"}},
    };
    model();
    ASSERT_EQ(takeRebuilds(), (std::vector<std::vector<std::string>>{listOf({"AI1"})}));
    std::vector<int> streams;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        streams.push_back(0);
        if (step.action == Open)
            streams.back() = model().openStream(step.screen);
        else if (step.action == Close)
            model().closeStream(streams[step.screen]);
        else if (step.action == Poll)
            model().pollScreen(step.screen);
        advance(step.wait);
        model().refreshLeases();
        const auto rebuilds = takeRebuilds();
        if (step.rebuilt)
            EXPECT_EQ(rebuilds, (std::vector<std::vector<std::string>>{listOf(step.list)}));
        else
            EXPECT_TRUE(rebuilds.empty()) << rebuilds.size() << " rebuilds";
    }
    const ScanFigures figures = model().scanFigures();
    EXPECT_TRUE(figures.scannedScreens.empty());
    EXPECT_EQ(figures.variables, 1);
}

// The truth of one item (AI1, shown x 0.1) and one never read (VW0) through
// the events of a session's life, with the clock moved by hand.
TEST_F(ModelTest, EveryValueCarriesItsTruth)
{
    enum Event { Read, Fail, Exception, Wait, LinkFails, GiveUp, Reply, StationOff, StationOn };
    const struct {
        const char* name;
        Event event;
        const char* quality;     // AI1
        const char* why;         // AI1
        const char* neverRead;   // VW0's quality
        const char* link;        // the link's state
    } steps[] = {
        {"before anything", Wait, "never-read", "not read yet", "never-read", "connecting"},
        {"a good read", Read, "ok", "", "never-read", "ok"},
        {"within the scan's time", Wait, "ok", "", "never-read", "ok"},
        {"not read again in time", Wait, "stale", "not read again within 3.5 s", "never-read", "ok"},
        {"read again", Read, "ok", "", "never-read", "ok"},
        {"a time-out alone changes nothing", LinkFails, "ok", "", "never-read", "ok"},
        {"its request given up: the controller is not answering", GiveUp, "stale",
         "not answering: timed out after 1000 ms", "no-reply", "not answering"},
        {"its own request fails", Fail, "no-reply", "no reply: timed out after 1000 ms", "no-reply", "not answering"},
        {"a reply comes again", Reply, "no-reply", "no reply: timed out after 1000 ms", "no-reply", "ok"},
        {"an exception", Exception, "failed",
         "the controller answered illegal data address (Modbus exception 02)", "no-reply", "ok"},
        {"its station switched off", StationOff, "station-off", "station 1 is switched off", "station-off", "ok"},
        {"back on", StationOn, "failed", "the controller answered illegal data address (Modbus exception 02)",
         "no-reply", "ok"},
        {"read again", Read, "ok", "", "no-reply", "ok"},
    };
    model();
    setImage("AI1", 911);
    int waits = 0;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        RequestResult failed = cyclicResult("AI1", RC_LOCAL_NO_REPLY + 1);
        failed.failure = RequestFailure{failed.returnCode, 0, "", "timed out after 1000 ms"};
        switch (step.event) {
        case Read: session().onExchange(0, 1, exchangeWith(LinkFault::None, "")); session().onResult(cyclicResult("AI1", RC_LOCAL_OK)); break;
        case Fail: session().onResult(failed); break;
        case Exception:
            failed.returnCode = RC_LOCAL_BAD_LENGTH + 1;
            failed.failure = RequestFailure{failed.returnCode, 2, "", ""};
            session().onResult(failed);
            break;
        case Wait: advance(milliseconds(waits++ == 2 ? 2500 : 1500)); break;
        case LinkFails: session().onExchange(0, 1, exchangeWith(LinkFault::ReplyTimeout, "timed out after 1000 ms")); break;
        case GiveUp: session().onResult(cyclicResult("VW0", RC_LOCAL_NO_REPLY + 1)); break;
        case Reply: session().onExchange(0, 1, exchangeWith(LinkFault::None, "")); break;
        case StationOff: session().switchStation(1, false, "by hand"); break;
        case StationOn: session().switchStation(1, true, "by hand"); break;
        }
        const std::vector<ItemState> items = model().screenState(0);  // VW0, AI1
        EXPECT_STREQ(qualityName(items[1].element.quality), step.quality);
        EXPECT_EQ(items[1].element.why, step.why);
        EXPECT_STREQ(qualityName(items[0].element.quality), step.neverRead);
        EXPECT_STREQ(linkStateName(session().health(0).state), step.link);
    }
    const Json item = itemJson(model().screenState(0)[1], wallMs_ + 2500);
    EXPECT_EQ(item["value"].dump(), "91.1");  // the item's one decimal, not 91.10000000000001
    EXPECT_EQ(item["text"], "91.1");
    EXPECT_EQ(item["age"], 2.5);
    EXPECT_EQ(itemJson(model().screenState(0)[0], wallMs_)["value"], nullptr);
}

TEST_F(ModelTest, TheLinkStateChangesOnWhatTheLinkSeesOnly)
{
    model();
    const int64_t start = wallMs_;
    session().onExchange(0, 1, exchangeWith(LinkFault::Closed, "connection closed by the controller"));
    advance(milliseconds(700));
    session().onExchange(0, 1, exchangeWith(LinkFault::CannotConnect, "connection refused"));
    LinkHealth health = session().health(0);
    EXPECT_EQ(health.state, LinkState::Down);  // a refused connection needs no retries to be sure of
    EXPECT_EQ(health.sinceMs, start);          // from the first failure of the streak
    EXPECT_EQ(health.cause, "connection refused");
    EXPECT_TRUE(unreachable(health));
    advance(milliseconds(5000));
    session().onExchange(0, 1, exchangeWith(LinkFault::ReplyTimeout, "timed out after 1000 ms"));
    health = session().health(0);
    EXPECT_EQ(health.sinceMs, start);
    EXPECT_EQ(health.cause, "timed out after 1000 ms");
    session().onExchange(0, 1, exchangeWith(LinkFault::None, ""));
    EXPECT_EQ(session().health(0).state, LinkState::Ok);
    EXPECT_EQ(session().figures().controllers[0].losses, 1u);
    // A controller that drops a reply now and then, and answers the retry.
    session().onExchange(0, 1, exchangeWith(LinkFault::Closed, "connection closed by the controller"));
    session().onExchange(0, 1, exchangeWith(LinkFault::None, ""));
    session().onResult(cyclicResult("AI1", RC_LOCAL_OK));
    EXPECT_EQ(session().health(0).state, LinkState::Ok);
}

TEST_F(ModelTest, WritesEndAsTheDriverSays)
{
    enum End { Own, Behind, SwitchedOff, Replaced };
    const struct {
        const char* name;
        End end;
        int returnCode;
        Outcome outcome;
        std::string message;
    } rows[] = {
        {"written", Own, RC_LOCAL_OK, Outcome::Done, "VW2 = 42 written"},
        {"no reply", Own, RC_LOCAL_NO_REPLY + 2, Outcome::ControllerFailed,
         "VW2 = 42 not written: the controller did not answer (connection refused; driver code 42)"},
        {"dropped with another request's give-up", Behind, RC_LOCAL_NO_REPLY + 1, Outcome::ControllerFailed,
         "VW2 = 42 not written: the controller did not answer VW100 (connection refused), and VW2 was queued behind "
         "it (driver code 41)"},
        {"replaced by a newer value", Replaced, RC_LOCAL_OK, Outcome::Replaced,
         "VW2 = 42 replaced in the driver's queue by a newer value before it was sent"},
        {"its station switched off", SwitchedOff, 0, Outcome::StationOff,
         "VW2 = 42 not written: station 1 was switched off"},
    };
    model();  // before any thread uses it
    size_t writes = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ActionResult result;
        std::thread operatorThread([&] { result = actions().write("VW2", 42, "127.0.0.1"); });
        const RW_VAR queued = nth(&Recorded::writes, ++writes);
        EXPECT_EQ(queued.sourceType, kWriteSourceType);
        EXPECT_EQ(queued.value, QByteArray("\x2a\x00", 2));
        RequestResult reply = resultFor(queued, row.returnCode);
        reply.failure = RequestFailure{row.returnCode, 0, "", "connection refused"};
        if (row.end == Behind) {
            reply = cyclicResult("VW100", row.returnCode);
            reply.failure = RequestFailure{row.returnCode, 0, "", "connection refused"};
            reply.failCallback = true;
        }
        if (row.end == SwitchedOff) {
            session().switchStation(1, false, "by hand");
        } else if (row.end == Replaced) {
            ActionResult newer;
            std::thread second([&] { newer = actions().write("VW2", 43, "127.0.0.1"); });
            const RW_VAR newest = nth(&Recorded::writes, ++writes);
            session().onResult(resultFor(newest, RC_LOCAL_OK));  // only the newer one has a result
            second.join();
            EXPECT_EQ(newer.outcome, Outcome::Done);
        } else {
            session().onResult(reply);
        }
        operatorThread.join();
        EXPECT_EQ(result.outcome, row.outcome);
        EXPECT_EQ(result.message, row.message);
    }
    EXPECT_EQ(actions().write("VW2", 1, "127.0.0.1").outcome, Outcome::StationOff);
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    EXPECT_EQ(recorded.stationSwitches, (std::vector<std::pair<int, int>>{{1, 0}}));
}

TEST_F(ModelTest, ReadNowEndsWithTheCallbackAndShowsTheImage)
{
    model();  // before any thread uses it
    setImage("VW2", 0xFFFE);
    ReadResult read;
    std::thread operatorThread([&] { read = actions().readNow({"VW2", "M1"}, "127.0.0.1"); });
    nth(&Recorded::onceReads, 2);
    std::vector<RW_VAR> queued;
    {
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        queued = recorded.onceReads;
    }
    EXPECT_EQ(queued[0].linkId, 7);  // the local link: only then does the driver store the reply and call back
    // The driver calls back inside DataCom, then hands over the result record.
    for (const RW_VAR& var : queued) {
        const bool given = var.area == 2;  // M1 is given up
        session().onReadDone(var.sourceType, var.sourceId, given ? 2 : 1);
        RequestResult result = resultFor(var, given ? RC_LOCAL_NO_REPLY + 3 : RC_LOCAL_OK);
        result.address = var.addressText.toInt();
        session().onResult(result);
    }
    operatorThread.join();
    EXPECT_EQ(read.result.outcome, Outcome::ControllerFailed);
    EXPECT_EQ(read.result.message, "M1: the controller did not answer (driver code 43)");
    ASSERT_EQ(read.items.size(), 2u);
    EXPECT_EQ(read.items[0].element.value, -2);
    EXPECT_EQ(read.items[0].element.quality, Quality::Ok);
    EXPECT_EQ(read.errors[0], "");
    EXPECT_EQ(read.items[1].element.quality, Quality::NoReply);
}

TEST_F(ModelTest, RefusalsNeverReachTheDriver)
{
    const struct {
        const char* var;
        double value;
        Outcome outcome;
        std::string message;
    } rows[] = {
        {"VW3", 1, Outcome::BadRequest, "bad variable \"VW3\": VW takes an even V byte number (0-848)"},
        {"VW4", 1, Outcome::UnknownVariable, "VW4 is on no screen of this panel"},
        {"AI1", 1, Outcome::NotAllowed, "AI1 is an input and cannot be written"},
        {"M1", 1, Outcome::NotAllowed, "M1 is not writable on any screen of this panel"},
        {"VW2", 101, Outcome::BadRequest, "value 101 for VW2 is out of range: expected 0 to 100"},
        {"VW2", 2.5, Outcome::BadRequest, "value 2.5 for VW2 falls between its steps of 1"},
        {"Q1", 2, Outcome::BadRequest, "value 2 for Q1 is out of range: a bit takes 0 or 1 (or true/false)"},
        {"VW2", std::nan(""), Outcome::BadRequest, "the value for VW2 must be a number"},
    };
    std::vector<ActionRecord> journal;
    model();
    actions_.reset(new OperatorActions(model(), ActionSettings{}, [&](const ActionRecord& r) { journal.push_back(r); }));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.var);
        const ActionResult result = actions().write(row.var, row.value, "10.0.0.9");
        EXPECT_EQ(result.outcome, row.outcome);
        EXPECT_EQ(result.message, row.message);
    }
    EXPECT_EQ(actions().readNow({"VW4"}, "10.0.0.9").result.outcome, Outcome::UnknownVariable);
    EXPECT_EQ(actions().readNow({}, "10.0.0.9").result.outcome, Outcome::BadRequest);
    EXPECT_EQ(actions().switchStation(2, false, "10.0.0.9").outcome, Outcome::UnknownVariable);
    actions_.reset(new OperatorActions(model(), ActionSettings{true}, [&](const ActionRecord& r) { journal.push_back(r); }));
    EXPECT_EQ(actions().write("VW2", 1, "10.0.0.9").outcome, Outcome::NotAllowed);
    EXPECT_EQ(actions().switchStation(1, false, "10.0.0.9").outcome, Outcome::NotAllowed);
    // Every refusal is on record, with who asked.
    ASSERT_EQ(journal.size(), std::size(rows) + 5);
    EXPECT_EQ(journal.front().who, "10.0.0.9");
    EXPECT_EQ(journal.front().kind, "write");
    EXPECT_EQ(journal.back().kind, "station");
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    EXPECT_TRUE(recorded.writes.empty());
    EXPECT_TRUE(recorded.onceReads.empty());
    EXPECT_TRUE(recorded.stationSwitches.empty());
}

TEST_F(ModelTest, TrendsRecordReadsAndGaps)
{
    model();
    const int trend = model().findTrend("ai1");
    ASSERT_GE(trend, 0);
    EXPECT_EQ(model().findTrend("VW0"), -1);
    setImage("AI1", 500);
    session().onResult(cyclicResult("AI1", RC_LOCAL_OK));
    session().onResult(cyclicResult("AI1", RC_RETRYING));  // a repeat is no new point
    session().onResult(cyclicResult("AI1", RC_LOCAL_NO_REPLY + 1));
    session().onResult(cyclicResult("AI1", RC_LOCAL_NO_REPLY + 1));  // one gap, however long the failure
    const std::vector<TrendPoint> points = model().trendPoints(trend, 0);
    ASSERT_EQ(points.size(), 2u);
    EXPECT_EQ(points[0].raw, 500);
    EXPECT_TRUE(points[1].gap());
}

TEST(TrendHistory, KeepsOnePointPerStepWithinTheWindow)
{
    TrendHistory history(1, milliseconds(1000), milliseconds(100));
    for (int64_t at = 0; at <= 2000; at += 50)
        history.add(0, at, static_cast<double>(at));
    const std::vector<TrendPoint> points = history.points(0, 0);
    ASSERT_FALSE(points.empty());
    EXPECT_EQ(points.front().at, 1000);  // older than the window: gone
    EXPECT_EQ(points.back().at, 2000);
    EXPECT_EQ(points.size(), 11u);  // every other sample, a step apart
    EXPECT_EQ(history.points(0, 1900).size(), 1u);
    history.addGap(0, 2010);
    history.add(0, 2020, 1);  // a point after a gap is kept at once
    EXPECT_EQ(history.points(0, 2000).size(), 2u);
}

TEST(ScanPacer, HoldsOnceTheListHadItsFramesForThePeriod)
{
    std::atomic<bool> hostWaiting{false};
    ScanPacer pacer(std::chrono::hours(1), [&] { return hostWaiting.load(); });
    RequestResult cyclic;
    cyclic.returnCode = RC_LOCAL_OK;
    cyclic.sourceType = 0;
    cyclic.sourceId = -1;
    RequestResult repeat = cyclic;
    repeat.returnCode = RC_RETRYING;
    RequestResult write = cyclic;
    write.sourceType = kWriteSourceType;
    write.sourceId = 3;
    write.rwType = 1;
    pacer.setListSize(2);
    const struct {
        const char* name;
        const RequestResult* result;
        bool waiting;
        bool mayGo;
        bool resting;  // the pass is over: an event may carry all of it
    } steps[] = {
        {"first cyclic", &cyclic, false, true, false},
        {"a repeat does not count", &repeat, false, true, false},
        {"a write does not count", &write, false, true, false},
        {"second cyclic: budget used", &cyclic, false, false, true},
        {"a write waits", nullptr, true, true, true},
        {"nothing waits any more", nullptr, false, false, true},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        if (step.result)
            pacer.onResult(*step.result);
        hostWaiting = step.waiting;
        EXPECT_EQ(pacer.mayGo(), step.mayGo);
        EXPECT_EQ(pacer.resting(), step.resting);
    }
    pacer.setListSize(2);  // a rebuild starts a new period
    EXPECT_TRUE(pacer.mayGo());
    pacer.onResult(cyclic);
    pacer.onResult(cyclic);
    std::thread loop([&] { pacer.pace(); });
    pacer.release();  // the loop stops: pace() lets go whatever the budget
    loop.join();
    EXPECT_TRUE(pacer.mayGo());
    EXPECT_FALSE(pacer.resting());

    ScanPacer unpaced(milliseconds(0), {});
    unpaced.setListSize(1);
    unpaced.onResult(cyclic);
    unpaced.onResult(cyclic);
    EXPECT_TRUE(unpaced.mayGo());
}


// Each request of the list at addresses 1, 2, 3: when its frame went out
// (-1: none, a station switched off) and when its result came, in ms.
TEST(PassMeter, APassIsTheLinksWorkForEveryRequestOnceWhereverThePeriodCutsTheList)
{
    struct Step {
        int address, sent, answered;
        bool repeat = false, write = false;
    };
    const Step write{0, 1, 2, false, true};
    const struct {
        const char* name;
        std::vector<Step> steps;
        uint64_t passes, overruns;
        double passMs, cycleMs;  // of the last pass
    } cases[] = {
        {"steady, a write between", {{1, 0, 1}, write, {2, 2, 3}, {3, 3, 4}, {1, 400, 401}}, 1, 0, 3, 400},
        // The second request timed out once; the pacer's next periods begin
        // at the third, and the wait falls between 2 and 3.
        {"periods begin mid-list after a slow pass",
         {{1, 0, 1}, {2, 1, 2}, {3, 2, 3}, {1, 400, 401}, {2, 401, 1401, true}, {2, 1401, 2401}, {3, 2401, 2402},
          {1, 2402, 2403}, {2, 2403, 2404}, {3, 2801, 2802}, {1, 2802, 2803}},
         3, 1, 3, 400},
        {"a result without a frame took no time", {{1, 0, 1}, {2, -1, 200}, {3, 200, 201}, {1, 400, 401}}, 1, 0, 2, 400},
        {"one request", {{1, 0, 1}, {1, 400, 401}, {1, 800, 801}}, 2, 0, 1, 400},
        {"nothing repeated yet: no pass", {{1, 0, 1}, {2, 1, 2}, {3, 2, 3}}, 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        PassMeter meter(1, milliseconds(400));
        const Clock::time_point start{};
        for (const Step& step : c.steps) {
            if (step.sent >= 0)
                meter.onFrame(start + milliseconds(step.sent));
            RequestResult r;
            r.returnCode = step.repeat ? RC_RETRYING : RC_LOCAL_OK;
            r.rwType = step.write ? RW_WRITE : RW_READ;
            r.sourceType = step.write ? kWriteSourceType : SOURCE_TYPE_CYCLIC;
            r.sourceId = step.write ? 1 : SOURCE_ID_CYCLIC;
            r.address = step.address;
            meter.onResult(r, start + milliseconds(step.answered));
        }
        const PassFigures figures = meter.figures(0);
        EXPECT_EQ(figures.passes, c.passes);
        EXPECT_EQ(figures.overruns, c.overruns);
        EXPECT_NEAR(figures.passSeconds * 1000, c.passMs, 1e-6);
        EXPECT_NEAR(figures.cycleSeconds * 1000, c.cycleMs, 1e-6);
    }
}

// Ctrl-C may come before the server's thread has begun to listen: run()
// must then return at once, not wait for connections for ever.
TEST_F(ModelTest, APanelServerStoppedBeforeItRunsDoesNotListen)
{
    HistoryStore history(HistorySettings{});  // never opened: in memory
    AlarmBoard alarms(model(), nullptr);
    ServerSettings settings;
    settings.port = 0;
    settings.streamLimit = settings.requestThreads = 1;
    PanelServer server(model(), actions(), alarms, history, settings);
    std::string error;
    ASSERT_TRUE(server.bind(&error)) << error;
    server.stop();
    auto run = std::async(std::launch::async, [&server] { server.run(); });
    const bool returned = run.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    EXPECT_TRUE(returned) << "run() listened after stop()";
    if (!returned)
        server.stop();  // the loop runs now, and this ends it
}

}  // namespace
