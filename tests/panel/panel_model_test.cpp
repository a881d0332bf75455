// The panel's model against a driver that only records what it is asked:
// the cyclic list follows the open screens plus the trends, and the
// operator's writes and reads end as the driver's results say.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <mutex>
#include <thread>

#include "host/binding/scan_pacer.h"
#include "host/notation/reply_words.h"
#include "host/panel/panel_model.h"

namespace {

using namespace logohost;
using Clock = std::chrono::steady_clock;

// What the fake driver was asked for. One model at a time, as with the
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
        {"name": "a", "items": [{"var": "VW0", "write": true}, {"var": "AI1", "trend": true}]},
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

class PanelModelTest : public ::testing::Test {
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

    PanelModel& model()
    {
        if (!model_) {
            PanelSettings settings;
            settings.scanPeriod = std::chrono::milliseconds(0);  // tick() must never hold a test
            settings.firstPollWait = std::chrono::milliseconds(0);
            settings.resultDeadline = std::chrono::seconds(20);  // only a broken match waits this long
            settings.lease = kLease;
            settings.localLinkId = 7;
            model_.reset(new PanelModel(api_, testScreens(), settings, [this] { return now_; }));
            model_->start();
        }
        return *model_;
    }

    // The rebuilds since the last call.
    std::vector<std::vector<std::string>> takeRebuilds()
    {
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        auto rebuilds = recorded.rebuilds;
        recorded.rebuilds.clear();
        return rebuilds;
    }

    // Waits (bounded) until the fake saw `count` writes, and returns the last.
    RW_VAR nthWrite(size_t count)
    {
        for (int i = 0; i < 2000; ++i) {
            {
                const std::lock_guard<std::mutex> lock(recorded.mutex);
                if (recorded.writes.size() >= count)
                    return recorded.writes[count - 1];
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ADD_FAILURE() << "no write reached the driver";
        return RW_VAR();
    }

    static constexpr std::chrono::milliseconds kLease{10000};
    const DriverApi api_ = fakeApi();
    Clock::time_point now_ = Clock::now();
    std::unique_ptr<PanelModel> model_;
};

constexpr std::chrono::milliseconds PanelModelTest::kLease;

RequestResult resultFor(const RW_VAR& var, int returnCode)
{
    RequestResult result;
    result.returnCode = returnCode;
    result.sourceType = var.sourceType;
    result.sourceId = var.sourceId;
    result.rwType = 1;
    result.area = var.area;
    result.address = var.address;
    result.count = var.count;
    result.station = var.station;
    return result;
}

TEST_F(PanelModelTest, CyclicListFollowsOpenScreensPlusTrends)
{
    enum Action { Open, Close, Poll, Wait };
    const struct {
        const char* name;
        Action action;
        int screen;  // Open and Poll: the screen; Close: the step whose stream to close
        std::chrono::milliseconds wait;
        bool rebuilt;
        std::vector<std::string> list;
    } steps[] = {
        {"open a", Open, 0, {}, true, {"VW0", "AI1"}},
        {"open b", Open, 1, {}, true, {"VW0", "AI1", "VW2", "Q1"}},
        {"open b in a second browser", Open, 1, {}, false, {}},
        {"close the first b", Close, 1, {}, false, {}},
        {"close a", Close, 0, {}, true, {"AI1", "VW2", "Q1"}},
        {"a script polls c", Poll, 2, {}, true, {"AI1", "VW2", "Q1", "VW0", "M1"}},
        {"inside the lease", Wait, 0, kLease - std::chrono::milliseconds(1), false, {}},
        {"polled again", Poll, 2, {}, false, {}},
        {"the renewed lease holds", Wait, 0, std::chrono::milliseconds(2), false, {}},
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
        now_ += step.wait;
        model().tick();
        const auto rebuilds = takeRebuilds();
        if (step.rebuilt)
            EXPECT_EQ(rebuilds, (std::vector<std::vector<std::string>>{listOf(step.list)}));
        else
            EXPECT_TRUE(rebuilds.empty()) << rebuilds.size() << " rebuilds";
    }
    const PanelStatus status = model().status();
    EXPECT_TRUE(status.scannedScreens.empty());
    EXPECT_EQ(status.cyclicVariables, 1);
}

TEST_F(PanelModelTest, WriteEndsAsTheDriverSays)
{
    model();  // before any thread uses it
    const struct {
        const char* name;
        int returnCode;
        bool ownResult;  // else a give-up of another request
        Outcome outcome;
        std::string message;
    } rows[] = {
        {"written", RC_LOCAL_OK, true, Outcome::Done, "VW2 = 42 written"},
        {"no reply", RC_LOCAL_NO_REPLY + 2, true, Outcome::ControllerFailed,
         "VW2 = 42 failed: no reply (driver code 42)"},
        {"dropped with another request's give-up", RC_LOCAL_NO_REPLY + 1, false, Outcome::ControllerFailed,
         "VW2 = 42 failed: dropped by the driver when VW100 was given up: no reply (driver code 41)"},
    };
    size_t writes = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ActionResult result;
        std::thread operatorThread([&] { result = model().write("VW2", 42); });
        const RW_VAR queued = nthWrite(++writes);
        EXPECT_EQ(queued.sourceType, kWriteSourceType);
        EXPECT_EQ(queued.value, QByteArray("\x2a\x00", 2));
        RequestResult reply = resultFor(queued, row.returnCode);
        if (!row.ownResult) {
            reply.sourceType = 0;
            reply.sourceId = -1;
            reply.rwType = 0;
            reply.address = 50;
            reply.area = 7;
            reply.failCallback = true;
        }
        model().onResult(reply);
        operatorThread.join();
        EXPECT_EQ(result.outcome, row.outcome);
        EXPECT_EQ(result.message, row.message);
    }
}

TEST_F(PanelModelTest, OlderWriteReplacedInTheDriversQueueIsToldSo)
{
    model();  // before any thread uses it
    ActionResult older, newer;
    std::thread first([&] { older = model().write("VW2", 1); });
    const RW_VAR firstQueued = nthWrite(1);
    std::thread second([&] { newer = model().write("VW2", 2); });
    const RW_VAR secondQueued = nthWrite(2);
    // The driver replaced the first in its queue: only the second has a result.
    model().onResult(resultFor(secondQueued, RC_LOCAL_OK));
    first.join();
    second.join();
    EXPECT_NE(firstQueued.sourceId, secondQueued.sourceId);
    EXPECT_EQ(newer.outcome, Outcome::Done);
    EXPECT_EQ(older.outcome, Outcome::Replaced);
    EXPECT_EQ(older.message, "VW2 = 1: replaced in the driver's queue by a newer value before it was sent");
}

TEST_F(PanelModelTest, SwitchingAStationOffEndsItsWaitingWrite)
{
    model();  // before any thread uses it
    ActionResult result;
    std::thread operatorThread([&] { result = model().write("Q1", 1); });
    nthWrite(1);
    EXPECT_EQ(model().switchStation(1, false).outcome, Outcome::Done);
    operatorThread.join();
    EXPECT_EQ(result.outcome, Outcome::ControllerFailed);
    EXPECT_EQ(result.message, "Q1 = ON failed: dropped: station 1 was switched off");
    EXPECT_EQ(model().write("Q1", 0).outcome, Outcome::StationOff);
    EXPECT_EQ(model().switchStation(1, true).outcome, Outcome::Done);
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    EXPECT_EQ(recorded.stationSwitches, (std::vector<std::pair<int, int>>{{1, 0}, {1, 1}}));
    EXPECT_EQ(recorded.writes.size(), 1u);
}

TEST_F(PanelModelTest, ReadNowEndsWithTheCallbackAndShowsTheImage)
{
    model();  // before any thread uses it
    {
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        recorded.image[key(7, "1")] = 0xFFFE;  // VW2
    }
    ReadResult read;
    std::thread operatorThread([&] { read = model().readNow({"VW2", "M1"}); });
    std::vector<RW_VAR> queued;
    for (int i = 0; i < 2000 && queued.size() < 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        queued = recorded.onceReads;
    }
    ASSERT_EQ(queued.size(), 2u);
    EXPECT_EQ(queued[0].linkId, 7);  // the local link: only then does the driver store the reply and call back
    // The driver calls back inside DataCom, then hands over the result record.
    for (const RW_VAR& var : queued) {
        const bool given = var.area == 2;  // M1 is given up
        model().onReadDone(var.sourceType, var.sourceId, given ? 2 : 1);
        RequestResult result = resultFor(var, given ? RC_LOCAL_NO_REPLY + 3 : RC_LOCAL_OK);
        result.rwType = 0;
        result.address = var.addressText.toInt();
        model().onResult(result);
    }
    operatorThread.join();
    EXPECT_EQ(read.result.outcome, Outcome::ControllerFailed);
    EXPECT_EQ(read.result.message, "M1: no reply (driver code 43)");
    ASSERT_EQ(read.items.size(), 2u);
    EXPECT_EQ(read.items[0].text, "-2");
    EXPECT_EQ(read.items[0].state, "ok");
    EXPECT_EQ(read.errors[0], "");
    EXPECT_EQ(read.items[1].state, "no reply");
}

TEST_F(PanelModelTest, RefusalsNeverReachTheDriver)
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
    for (const auto& row : rows) {
        SCOPED_TRACE(row.var);
        const ActionResult result = model().write(row.var, row.value);
        EXPECT_EQ(result.outcome, row.outcome);
        EXPECT_EQ(result.message, row.message);
    }
    EXPECT_EQ(model().readNow({"VW4"}).result.outcome, Outcome::UnknownVariable);
    EXPECT_EQ(model().readNow({}).result.outcome, Outcome::BadRequest);
    EXPECT_EQ(model().switchStation(2, false).outcome, Outcome::UnknownVariable);
    const std::lock_guard<std::mutex> lock(recorded.mutex);
    EXPECT_TRUE(recorded.writes.empty());
    EXPECT_TRUE(recorded.onceReads.empty());
    EXPECT_TRUE(recorded.stationSwitches.empty());
}

TEST_F(PanelModelTest, TrendsRecordReadsAndGaps)
{
    model();
    RequestResult cyclic;
    cyclic.sourceType = 0;
    cyclic.sourceId = -1;
    cyclic.rwType = 0;
    cyclic.area = 4;  // AI1 is AI address 1
    cyclic.address = 1;
    cyclic.count = 1;
    const int trend = model().findTrend("ai1");
    ASSERT_GE(trend, 0);
    EXPECT_EQ(model().findTrend("VW0"), -1);
    {
        const std::lock_guard<std::mutex> lock(recorded.mutex);
        recorded.image[key(4, "1")] = 500;
    }
    cyclic.returnCode = RC_LOCAL_OK;
    model().onResult(cyclic);
    cyclic.returnCode = RC_RETRYING;  // a repeat is no new point
    model().onResult(cyclic);
    cyclic.returnCode = RC_LOCAL_NO_REPLY + 1;
    model().onResult(cyclic);
    model().onResult(cyclic);  // one gap, however long the failure
    const std::vector<TrendPoint> points = model().trendPoints(trend, 0);
    ASSERT_EQ(points.size(), 2u);
    EXPECT_EQ(points[0].raw, 500);
    EXPECT_TRUE(points[1].gap());
}

TEST(TrendHistory, KeepsOnePointPerStepWithinTheWindow)
{
    TrendHistory history(1, std::chrono::milliseconds(1000), std::chrono::milliseconds(100));
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
    } steps[] = {
        {"first cyclic", &cyclic, false, true},   {"a repeat does not count", &repeat, false, true},
        {"a write does not count", &write, false, true}, {"second cyclic: budget used", &cyclic, false, false},
        {"a write waits", nullptr, true, true},   {"nothing waits any more", nullptr, false, false},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        if (step.result)
            pacer.onResult(*step.result);
        hostWaiting = step.waiting;
        EXPECT_EQ(pacer.mayGo(), step.mayGo);
    }
    pacer.setListSize(2);  // a rebuild starts a new period
    EXPECT_TRUE(pacer.mayGo());
    pacer.onResult(cyclic);
    pacer.onResult(cyclic);
    std::thread loop([&] { pacer.pace(); });
    pacer.release();  // the loop stops: pace() lets go whatever the budget
    loop.join();
    EXPECT_TRUE(pacer.mayGo());

    ScanPacer unpaced(std::chrono::milliseconds(0), {});
    unpaced.setListSize(1);
    unpaced.onResult(cyclic);
    unpaced.onResult(cyclic);
    EXPECT_TRUE(unpaced.mayGo());
}

}  // namespace
